// Frame and disparity inputs of render: single files, directories of images
// and raw YUV sequences, all checked before any frame is processed.
#ifndef PREVIEWBOKEH_TOOL_INPUTS_H_
#define PREVIEWBOKEH_TOOL_INPUTS_H_

#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"
#include "disparity.h"
#include "y4m.h"
#include "yuv.h"

namespace pbtool {

// Sorted PNG/JPEG files of a directory; throws InputError when there are none.
std::vector<std::string> ListImages(const std::string &dir, const std::string &option);

// Options of render's --image besides the path ("" / 0 when not given).
struct FrameInputOptions {
  std::string size;    // --size: raw input only
  std::string format;  // --format: raw input only
  int stride = 0;      // --stride: raw input only
  int scanlines = 0;   // --scanlines: raw input only
  ColourRange range = ColourRange::kLimited;  // --range: RGB -> YUV of PNG/JPEG input
};

// The frames of render's --image: a PNG/JPEG image, a directory of them, a
// raw YUV file or a y4m stream. Everything that can be checked without
// decoding pixels is checked on construction: every frame size, whole frames,
// options that do not fit the input.
class FrameSource {
 public:
  FrameSource(const std::string &path, const FrameInputOptions &options);
  FrameSource(const std::string &path, const std::string &raw_size, const std::string &raw_format);
  ~FrameSource();
  FrameSource(const FrameSource &) = delete;
  FrameSource &operator=(const FrameSource &) = delete;

  int count() const { return count_; }
  Size size() const { return size_; }
  bool is_raw() const { return raw_ != nullptr && y4m_offsets_.empty(); }
  bool is_y4m() const { return !y4m_offsets_.empty(); }
  // True when the raw input's size came from its file name (no --size).
  bool size_from_name() const { return size_from_name_; }
  bool is_sequence() const { return count_ > 1 || !files_.empty(); }
  // Layout of the input: the raw format, I420 for y4m, NV21 for images.
  YuvFormat format() const { return layout_.format; }
  // The y4m input's header, or defaults (30:1 frames per second) of the frame size.
  const Y4mHeader &y4m_header() const { return y4m_; }
  // Name of frame i for output files ("frame_00001" or the image's stem).
  std::string Name(int i) const;
  // Reads frame i (in order) in the library's layout: packed NV21.
  YuvFrame Read(int i);

 private:
  void OpenDirectory(const FrameInputOptions &o);
  void OpenRaw(const FrameInputOptions &o);
  void OpenY4m(const FrameInputOptions &o);
  YuvFrame ReadRaw(uint64_t offset, int i);

  std::string path_;
  ColourRange range_ = ColourRange::kLimited;
  std::vector<std::string> files_;       // directory input
  std::FILE *raw_ = nullptr;             // raw or y4m input
  std::vector<uint64_t> y4m_offsets_;    // y4m input: where each frame's samples start
  RawLayout layout_;                     // resolved for raw and y4m input
  Y4mHeader y4m_;
  Size size_;
  int count_ = 0;
  bool size_from_name_ = false;
  YuvFrame first_;  // the first image, decoded while checking the input
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

// The disparity maps of a run of `frames` frames: one map for every frame, or
// a directory of PNG/JPEG maps, one per frame in name order, all of one size.
class DisparityMaps {
 public:
  // Throws InputError when a directory holds another number of maps.
  DisparityMaps(const DisparityOptions &options, int frames);

  bool per_frame() const { return per_frame_; }
  const std::vector<std::string> &files() const { return files_; }
  const std::string &File(int frame) const {
    return files_[per_frame_ ? static_cast<size_t>(frame) : 0];
  }
  // Loads the map of `frame`; with `size`, it must have that size.
  DisparityMap Load(int frame, const Size *size = nullptr) const;
  // Checks from the image headers that the maps of frames [first, end) have `size`.
  void CheckSizes(int first, int end, Size size) const;

 private:
  DisparityOptions options_;
  bool per_frame_ = false;
  std::vector<std::string> files_;
};

// Throws InputError unless the map fits inside the frame.
void CheckDisparityFits(const DisparityMap &map, Size frame, const std::string &name);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_INPUTS_H_
