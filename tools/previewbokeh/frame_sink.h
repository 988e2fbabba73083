// Destination of render's output frames: one image, one raw YUV file or a
// directory of PNG images.
#ifndef PREVIEWBOKEH_TOOL_FRAME_SINK_H_
#define PREVIEWBOKEH_TOOL_FRAME_SINK_H_

#include <cstdio>
#include <string>

#include "yuv.h"

namespace pbtool {

enum class OutKind { kImage, kRaw, kDirectory };

// Kind of --out for a single frame or a sequence; throws InputError when the
// destination cannot hold the input.
OutKind ClassifyOut(const std::string &out, bool sequence);

// Writes frames to the chosen destination.
class FrameSink {
 public:
  FrameSink(const std::string &out, OutKind kind, YuvFormat input_format);
  ~FrameSink();
  FrameSink(const FrameSink &) = delete;
  FrameSink &operator=(const FrameSink &) = delete;

  void Write(const YuvFrame &frame, const std::string &name);
  void Finish();

 private:
  std::string out_;
  OutKind kind_;
  YuvFormat format_ = YuvFormat::kNV21;        // chroma order of raw output
  YuvFormat image_format_ = YuvFormat::kNV21;  // chroma order of the frames given to Write
  std::FILE *raw_ = nullptr;
};

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_FRAME_SINK_H_
