// Parsing and checking of option values ("1920x1080", "640,360", frame sizes).
#ifndef PREVIEWBOKEH_TOOL_CLI_H_
#define PREVIEWBOKEH_TOOL_CLI_H_

#include <optional>
#include <string>

namespace pbtool {

struct Size {
  int width = 0;
  int height = 0;
  bool operator==(const Size &o) const { return width == o.width && height == o.height; }
  bool operator!=(const Size &o) const { return !(*this == o); }
};

struct Point {
  int x = 0;
  int y = 0;
};

// Frame sizes the tool accepts: even, at least kMinFrameSide, at most kMaxFrameSide.
constexpr int kMinFrameSide = 8;
constexpr int kMaxFrameSide = 8192;

// Parses "WxH" (also "W*H"); throws InputError naming `option` when malformed.
Size ParseSize(const std::string &text, const std::string &option);

// Parses "X,Y" with non-negative integers; throws InputError naming `option`.
Point ParsePoint(const std::string &text, const std::string &option);

// Throws InputError naming `what` unless the size is a valid frame size
// (both sides even and within [kMinFrameSide, kMaxFrameSide]).
void CheckFrameSize(const Size &size, const std::string &what);

// The frame size a file name carries as a "<W>x<H>" token: numbers without
// a leading zero, not preceded by a letter or digit nor followed by a digit
// ("clip_1280x720.nv21", "frame-1920x1080-nv12.yuv", "walk_640x480p.yuv").
// Only the last path component counts. None when there is no token, or when
// two tokens give different sizes.
std::optional<Size> SizeInFileName(const std::string &path);

// "1920x1080".
std::string ToString(const Size &size);

// Lower-cased extension including the dot ("" when none): "a/B.PNG" -> ".png".
std::string LowerExtension(const std::string &path);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_CLI_H_
