// Destination of render's output frames: one image, one raw YUV file, one
// y4m stream or a directory of PNG images. Every file is written under a
// temporary name in its own directory and renamed once complete, so an
// interrupted run leaves whole files only.
#ifndef PREVIEWBOKEH_TOOL_FRAME_SINK_H_
#define PREVIEWBOKEH_TOOL_FRAME_SINK_H_

#include <cstdio>
#include <string>

#include "y4m.h"
#include "yuv.h"

namespace pbtool {

enum class OutKind { kImage, kRaw, kY4m, kDirectory };

// Kind of --out for a single frame or a sequence; throws InputError when the
// destination cannot hold the input.
OutKind ClassifyOut(const std::string &out, bool sequence);

struct FrameSinkOptions {
  // Raw output: the format of the input unless the extension names one.
  YuvFormat input_format = YuvFormat::kNV21;
  int stride = 0;     // raw output row bytes; 0 = packed
  int scanlines = 0;  // raw output luma rows; 0 = packed
  ColourRange range = ColourRange::kLimited;  // YUV -> RGB of image output
  int jpeg_quality = 95;
  // y4m output: F, I, A, C and X values (the size comes from the frames).
  Y4mHeader y4m;
};

// Temporary name of `path` while it is written: ".<name>.partial" beside it.
std::string PartialName(const std::string &path);

// Writes frames (packed NV21, all of one size) to the chosen destination.
class FrameSink {
 public:
  FrameSink(const std::string &out, OutKind kind, const FrameSinkOptions &options);
  FrameSink(const std::string &out, OutKind kind, YuvFormat input_format);
  // Removes what is not complete (as Abort) unless Finish was called.
  ~FrameSink();
  FrameSink(const FrameSink &) = delete;
  FrameSink &operator=(const FrameSink &) = delete;

  void Write(const YuvFrame &frame, const std::string &name);
  // Closes and renames the raw / y4m output, which then holds exactly the
  // frames written so far (none written: no file). Images are renamed as
  // each is written.
  void Finish();
  // Removes the temporary file, leaving no partial output; never throws.
  void Abort();

  int frames_written() const { return frames_; }
  // Layout of raw output (resolved at the first frame).
  const RawLayout &raw_layout() const { return layout_; }

 private:
  void WriteImageFile(const std::string &path, const YuvFrame &frame);

  std::string out_;
  OutKind kind_;
  FrameSinkOptions options_;
  RawLayout layout_;
  std::string partial_;       // temporary file being written, "" when none
  std::FILE *file_ = nullptr;  // raw or y4m output
  int frames_ = 0;
  Size size_;
};

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_FRAME_SINK_H_
