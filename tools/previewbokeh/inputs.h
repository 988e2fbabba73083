// Frame and disparity inputs of render: single files, directories of images
// and raw YUV sequences, all checked before any frame is processed.
#ifndef PREVIEWBOKEH_TOOL_INPUTS_H_
#define PREVIEWBOKEH_TOOL_INPUTS_H_

#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"
#include "disparity.h"
#include "yuv.h"

namespace pbtool {

// Sorted PNG/JPEG files of a directory; throws InputError when there are none.
std::vector<std::string> ListImages(const std::string &dir, const std::string &option);

// The frames of render's --image.
class FrameSource {
 public:
  // raw_size / raw_format: the --size and --format values ("" when not given).
  FrameSource(const std::string &path, const std::string &raw_size, const std::string &raw_format);
  ~FrameSource();
  FrameSource(const FrameSource &) = delete;
  FrameSource &operator=(const FrameSource &) = delete;

  int count() const { return count_; }
  Size size() const { return size_; }
  bool is_raw() const { return raw_ != nullptr; }
  bool is_sequence() const { return count_ > 1 || !files_.empty(); }
  YuvFormat format() const { return format_; }
  // Name of frame i for output files ("frame_00001" or the image's stem).
  std::string Name(int i) const;
  // Reads frame i (in order) in the library's layout.
  YuvFrame Read(int i);

 private:
  std::string path_;
  std::vector<std::string> files_;  // directory input
  std::FILE *raw_ = nullptr;        // raw input
  YuvFormat format_ = YuvFormat::kNV21;
  Size size_;
  int count_ = 0;
  YuvFrame first_;  // the first image, decoded while checking the size
};

// Values of the disparity options.
struct DisparityOptions {
  std::string path;
  std::string raw_size;  // --disparity-size
  double scale_num = 0;  // 0 = default
  double scale_den = 0;
  int ref_width = 0;
};

// Loads one disparity map: 8-bit PNG/JPEG or raw samples (with the options'
// header values) or a complete disparity-frame file (its own header).
DisparityMap LoadDisparity(const std::string &path, const DisparityOptions &o);

// Throws InputError unless the map fits inside the frame.
void CheckDisparityFits(const DisparityMap &map, Size frame, const std::string &name);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_INPUTS_H_
