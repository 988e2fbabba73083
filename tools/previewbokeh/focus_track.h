// --focus-track: focus point (and optionally F_number) per frame of a
// sequence, from a CSV file of "frame,x,y[,F_number]" lines.
#ifndef PREVIEWBOKEH_TOOL_FOCUS_TRACK_H_
#define PREVIEWBOKEH_TOOL_FOCUS_TRACK_H_

#include <string>
#include <vector>

#include "cli.h"

namespace pbtool {

struct FocusKey {
  int frame = 0;     // 0-based frame index
  Point focus;
  int f_number = 0;  // 0: the line gives none
  int line = 0;      // line number in the file, for messages
};

// Parses the file's text. Blank lines and '#' comments are skipped; the first
// other line may be a header (its first field not a number). Every value is
// checked (frame 0..frame_count-1, x < width, y < height, F_number 1..20, one
// line per frame); errors throw InputError naming `name` and the line.
std::vector<FocusKey> ParseFocusTrack(const std::string &text, const std::string &name,
                                      int frame_count, Size frame);

// Reads and parses the file.
std::vector<FocusKey> LoadFocusTrack(const std::string &path, int frame_count, Size frame);

// Focus and F_number of every frame: a frame without a line keeps those of
// the frame before it; frames before the first line use the initial values.
struct FrameFocus {
  Point focus;
  int f_number = 0;
};
std::vector<FrameFocus> ExpandFocusTrack(const std::vector<FocusKey> &keys, int frame_count,
                                         FrameFocus initial);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_FOCUS_TRACK_H_
