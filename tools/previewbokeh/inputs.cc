#include "inputs.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "errors.h"
#include "image_io.h"

namespace fs = std::filesystem;

namespace pbtool {
namespace {

// An image file as a frame; its size must be a valid frame size.
YuvFrame ReadFrameImage(const std::string &file) {
  const Image rgb = ReadImage(file, 3);
  CheckFrameSize({rgb.width, rgb.height}, file);
  return RgbToYuv(rgb, YuvFormat::kNV21);
}

}  // namespace

std::vector<std::string> ListImages(const std::string &dir, const std::string &option) {
  std::vector<std::string> files;
  std::error_code ec;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string ext = LowerExtension(it->path().string());
    if (it->is_regular_file() && (ext == ".png" || ext == ".jpg" || ext == ".jpeg")) {
      files.push_back(it->path().string());
    }
  }
  if (ec) throw InputError(option + ": cannot list '" + dir + "': " + ec.message());
  if (files.empty()) throw InputError(option + ": no .png or .jpg files in '" + dir + "'");
  std::sort(files.begin(), files.end());
  return files;
}

FrameSource::FrameSource(const std::string &path, const std::string &raw_size,
                         const std::string &raw_format)
    : path_(path) {
  std::error_code ec;
  if (fs::is_directory(path, ec)) {
    if (!raw_size.empty()) throw InputError("--size: only for raw input, not for directory '" + path + "'");
    files_ = ListImages(path, "--image");
    count_ = static_cast<int>(files_.size());
    first_ = ReadFrameImage(files_[0]);
    size_ = first_.size;
    return;
  }
  const std::string ext = LowerExtension(path);
  const bool image_ext = ext == ".png" || ext == ".jpg" || ext == ".jpeg";
  if (image_ext && !raw_size.empty()) {
    throw InputError("--size: only for raw input, not for image '" + path + "'");
  }
  if (IsRawYuvExtension(path) || !raw_size.empty()) {
    if (raw_size.empty()) throw InputError("--size: required for raw input '" + path + "'");
    size_ = ParseSize(raw_size, "--size");
    CheckFrameSize(size_, "--size");
    format_ = raw_format.empty() ? FormatFromExtension(path, YuvFormat::kNV21)
                                 : ParseYuvFormat(raw_format, "--format");
    raw_ = std::fopen(path.c_str(), "rb");
    if (!raw_) throw InputError(path + ": cannot open: " + std::strerror(errno));
    const uintmax_t bytes = fs::file_size(path, ec);
    const uintmax_t frame = YuvFrame::FrameBytes(size_);
    if (ec || bytes == 0 || bytes % frame != 0) {
      throw InputError(path + ": " + std::to_string(ec ? 0 : bytes) +
                       " bytes is not a whole number of " + ToString(size_) + " frames (" +
                       std::to_string(frame) + " bytes each)");
    }
    count_ = static_cast<int>(bytes / frame);
    return;
  }
  if (!raw_format.empty()) throw InputError("--format: only for raw input, not for '" + path + "'");
  first_ = ReadFrameImage(path);
  size_ = first_.size;
  count_ = 1;
}

FrameSource::~FrameSource() {
  if (raw_) std::fclose(raw_);
}

std::string FrameSource::Name(int i) const {
  if (!files_.empty()) return fs::path(files_[static_cast<size_t>(i)]).stem().string();
  char name[32];
  std::snprintf(name, sizeof name, "frame_%05d", i);
  return name;
}

YuvFrame FrameSource::Read(int i) {
  if (raw_) {
    YuvFrame frame(size_);
    if (std::fread(frame.data.data(), 1, frame.data.size(), raw_) != frame.data.size()) {
      throw InputError(path_ + ": cannot read frame " + std::to_string(i));
    }
    return frame;
  }
  if (i == 0) return first_;
  const std::string &file = files_[static_cast<size_t>(i)];
  const Image rgb = ReadImage(file, 3);
  if (rgb.width != size_.width || rgb.height != size_.height) {
    throw InputError(file + ": size " + std::to_string(rgb.width) + "x" + std::to_string(rgb.height) +
                     " does not match the first frame's " + ToString(size_));
  }
  return RgbToYuv(rgb, YuvFormat::kNV21);
}

DisparityMap LoadDisparity(const std::string &path, const DisparityOptions &o) {
  const std::vector<uint8_t> bytes = ReadFileBytes(path);
  DisparityMap map;
  if (!o.raw_size.empty()) {
    const Size s = ParseSize(o.raw_size, "--disparity-size");
    const size_t expected = static_cast<size_t>(s.width) * s.height;
    if (bytes.size() != expected) {
      throw InputError(path + ": " + std::to_string(bytes.size()) + " bytes, but --disparity-size " +
                       ToString(s) + " needs " + std::to_string(expected));
    }
    map.samples = Image(s.width, s.height, 1);
    map.samples.pixels = bytes;
  } else if (LooksLikePng(bytes) || LooksLikeJpeg(bytes)) {
    map.samples = DecodeImage(bytes, 1, path);
  } else {
    return ParseDisparityFrame(bytes, path);
  }
  map.header = MakeHeader({map.samples.width, map.samples.height},
                          o.scale_num != 0 ? o.scale_num : kDefaultScaleNumerator,
                          o.scale_den != 0 ? o.scale_den : kDefaultScaleDenominator, o.ref_width);
  return map;
}

void CheckDisparityFits(const DisparityMap &map, Size frame, const std::string &name) {
  if (map.samples.width > frame.width || map.samples.height > frame.height) {
    throw InputError(name + ": disparity map " + std::to_string(map.samples.width) + "x" +
                     std::to_string(map.samples.height) + " is larger than the frame " +
                     ToString(frame));
  }
}

}  // namespace pbtool
