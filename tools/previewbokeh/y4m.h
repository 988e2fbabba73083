// YUV4MPEG2 streams of 4:2:0 frames: a header line, then each frame as a
// "FRAME" line followed by the I420 planes (Y, U, V), rows packed.
#ifndef PREVIEWBOKEH_TOOL_Y4M_H_
#define PREVIEWBOKEH_TOOL_Y4M_H_

#include <cstdint>
#include <string>
#include <vector>

#include "cli.h"

namespace pbtool {

// Stream header values. The tool writes C420jpeg unless it copies a 4:2:0
// tag from a y4m input: the plain I420 planes, which is also what a stream
// without a C tag holds. The samples are copied as they are, never re-sited.
struct Y4mHeader {
  Size size;
  int fps_num = 30, fps_den = 1;      // F
  std::string interlace = "p";        // I: p, t, b, m or ?
  std::string aspect = "0:0";         // A: pixel aspect, 0:0 = unknown
  std::string chroma = "420jpeg";     // C, without the letter
  std::vector<std::string> extensions;  // X tags, without the letter
};

// Parses a stream header line (without its newline). Accepts the 4:2:0 modes
// 420jpeg, 420paldv, 420mpeg2, 420 or no C tag; throws InputError naming
// `name` for anything else (other chroma modes, missing or bad W / H / F / A /
// I, unknown tags, a size outside the frame size rule).
Y4mHeader ParseY4mHeader(const std::string &line, const std::string &name);

// The header line, newline included.
std::string FormatY4mHeader(const Y4mHeader &header);

// The header of a y4m file and where each frame's samples start.
struct Y4mIndex {
  Y4mHeader header;
  std::vector<uint64_t> frame_offsets;
};

// Reads the header and walks the frame headers (no samples read). Throws
// InputError naming `path` unless the file holds at least one frame and only
// whole frames, each introduced by "FRAME" (parameters allowed) and a newline.
Y4mIndex IndexY4m(const std::string &path);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_Y4M_H_
