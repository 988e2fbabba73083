#include "inputs.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "errors.h"
#include "image_io.h"

namespace fs = std::filesystem;

namespace pbtool {
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

namespace {

bool IsImageExtension(const std::string &path) {
  const std::string ext = LowerExtension(path);
  return ext == ".png" || ext == ".jpg" || ext == ".jpeg";
}

// Options for raw input only, refused for `what` (an image, a directory, ...).
void RefuseRawOptions(const FrameInputOptions &o, const std::string &what) {
  if (!o.size.empty()) throw InputError("--size: only for raw input, not for " + what);
  if (!o.format.empty()) throw InputError("--format: only for raw input, not for " + what);
  if (o.stride != 0) throw InputError("--stride: only for raw input, not for " + what);
  if (o.scanlines != 0) throw InputError("--scanlines: only for raw input, not for " + what);
}

std::string SizeText(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

}  // namespace

FrameSource::FrameSource(const std::string &path, const std::string &raw_size,
                         const std::string &raw_format)
    : FrameSource(path, FrameInputOptions{raw_size, raw_format, 0, 0, ColourRange::kLimited}) {}

FrameSource::FrameSource(const std::string &path, const FrameInputOptions &o)
    : path_(path), range_(o.range) {
  std::error_code ec;
  if (fs::is_directory(path, ec)) {
    OpenDirectory(o);
  } else if (LowerExtension(path) == ".y4m") {
    OpenY4m(o);
  } else if (IsRawYuvExtension(path) || (!IsImageExtension(path) && !o.size.empty())) {
    OpenRaw(o);
  } else {
    RefuseRawOptions(o, "image '" + path + "'");
    int w = 0, h = 0;
    ReadImageSize(path, &w, &h);
    CheckFrameSize({w, h}, path);
    first_ = RgbToYuv(ReadImage(path, 3), YuvFormat::kNV21, range_);
    size_ = first_.size;
    count_ = 1;
  }
  y4m_.size = size_;
}

void FrameSource::OpenDirectory(const FrameInputOptions &o) {
  RefuseRawOptions(o, "directory '" + path_ + "'");
  files_ = ListImages(path_, "--image");
  count_ = static_cast<int>(files_.size());
  // Every size from the headers first, so a sequence with one odd frame
  // fails before anything is written.
  int w = 0, h = 0;
  ReadImageSize(files_[0], &w, &h);
  size_ = {w, h};
  CheckFrameSize(size_, files_[0]);
  for (size_t i = 1; i < files_.size(); ++i) {
    ReadImageSize(files_[i], &w, &h);
    if (Size{w, h} != size_) {
      throw InputError(files_[i] + ": size " + SizeText(w, h) + " does not match the first frame's " +
                       ToString(size_) + " (" + files_[0] + ")");
    }
  }
  first_ = RgbToYuv(ReadImage(files_[0], 3), YuvFormat::kNV21, range_);
}

void FrameSource::OpenRaw(const FrameInputOptions &o) {
  // A size in the file's name is the size its frames were written with.
  const std::optional<Size> named_size = SizeInFileName(path_);
  if (o.size.empty()) {
    if (!named_size) throw InputError("--size: required for raw input '" + path_ + "' (its name gives no WxH size)");
    size_ = *named_size;
    size_from_name_ = true;
    CheckFrameSize(size_, path_);
  } else {
    size_ = ParseSize(o.size, "--size");
    CheckFrameSize(size_, "--size");
    if (named_size && *named_size != size_) {
      throw InputError("--size: " + o.size + " does not match the size " + ToString(*named_size) +
                       " in the name of '" + path_ + "'; give --size " + ToString(*named_size) +
                       " or rename the file");
    }
  }
  YuvFormat by_extension = YuvFormat::kNV21;
  const bool named = FormatOfExtension(path_, &by_extension);
  layout_.format = by_extension;
  if (!o.format.empty()) {
    layout_.format = ParseYuvFormat(o.format, "--format");
    if (named && layout_.format != by_extension) {
      throw InputError("--format: " + std::string(FormatName(layout_.format)) +
                       " conflicts with the extension of '" + path_ + "' (" +
                       FormatName(by_extension) + ")");
    }
  }
  layout_.stride = o.stride;
  layout_.scanlines = o.scanlines;
  layout_ = ResolveLayout(layout_, size_, "--stride", "--scanlines");
  raw_ = std::fopen(path_.c_str(), "rb");
  if (!raw_) throw InputError(path_ + ": cannot open: " + std::strerror(errno));
  std::error_code ec;
  const uintmax_t bytes = fs::file_size(path_, ec);
  const uintmax_t frame = RawFrameBytes(layout_);
  if (ec || bytes == 0 || bytes % frame != 0) {
    std::string padding;
    if (layout_.stride != size_.width || layout_.scanlines != size_.height) {
      padding = " with stride " + std::to_string(layout_.stride) + " and scanlines " +
                std::to_string(layout_.scanlines);
    }
    throw InputError(path_ + ": " + std::to_string(ec ? 0 : bytes) +
                     " bytes is not a whole number of " + ToString(size_) + " " +
                     FormatName(layout_.format) + " frames" + padding + " (" +
                     std::to_string(frame) + " bytes each)");
  }
  count_ = static_cast<int>(bytes / frame);
}

void FrameSource::OpenY4m(const FrameInputOptions &o) {
  const std::string what = "y4m input '" + path_ + "' (its header gives the layout)";
  RefuseRawOptions(o, what);
  Y4mIndex index = IndexY4m(path_);
  y4m_ = index.header;
  y4m_offsets_ = std::move(index.frame_offsets);
  size_ = y4m_.size;
  layout_ = ResolveLayout({YuvFormat::kI420, 0, 0}, size_, "--stride", "--scanlines");
  count_ = static_cast<int>(y4m_offsets_.size());
  raw_ = std::fopen(path_.c_str(), "rb");
  if (!raw_) throw InputError(path_ + ": cannot open: " + std::strerror(errno));
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

YuvFrame FrameSource::ReadRaw(uint64_t offset, int i) {
  std::vector<uint8_t> bytes(RawFrameBytes(layout_));
  if (std::fseek(raw_, static_cast<long>(offset), SEEK_SET) != 0 ||
      std::fread(bytes.data(), 1, bytes.size(), raw_) != bytes.size()) {
    throw InputError(path_ + ": cannot read frame " + std::to_string(i));
  }
  return RawToFrame(bytes.data(), size_, layout_);
}

YuvFrame FrameSource::Read(int i) {
  if (!y4m_offsets_.empty()) return ReadRaw(y4m_offsets_[static_cast<size_t>(i)], i);
  if (raw_) return ReadRaw(static_cast<uint64_t>(i) * RawFrameBytes(layout_), i);
  if (i == 0) return first_;
  const std::string &file = files_[static_cast<size_t>(i)];
  const Image rgb = ReadImage(file, 3);
  if (rgb.width != size_.width || rgb.height != size_.height) {
    throw InputError(file + ": size " + SizeText(rgb.width, rgb.height) +
                     " does not match the first frame's " + ToString(size_));
  }
  return RgbToYuv(rgb, YuvFormat::kNV21, range_);
}

DisparityMap LoadDisparity(const std::string &path, const DisparityOptions &o) {
  const std::vector<uint8_t> bytes = ReadFileBytes(path);
  DisparityMap map;
  const bool image = LooksLikePng(bytes) || LooksLikeJpeg(bytes);
  if (!o.raw_size.empty() && image) {
    throw InputError("--disparity-size: only for a raw disparity map, not for the image '" + path + "'");
  }
  if (!o.raw_size.empty()) {
    const Size s = ParseSize(o.raw_size, "--disparity-size");
    const size_t expected = static_cast<size_t>(s.width) * s.height;
    if (bytes.size() != expected) {
      throw InputError(path + ": " + std::to_string(bytes.size()) + " bytes, but --disparity-size " +
                       ToString(s) + " needs " + std::to_string(expected));
    }
    map.samples = Image(s.width, s.height, 1);
    map.samples.pixels = bytes;
  } else if (image) {
    map.samples = DecodeImage(bytes, 1, path);
  } else {
    // A disparity-frame file carries its own header values.
    const char *header_option = o.scale_num != 0 ? "--scale-num" : o.scale_den != 0 ? "--scale-den"
                                : o.ref_width != 0 ? "--ref-width" : nullptr;
    if (header_option) {
      throw InputError(std::string(header_option) + ": not used: '" + path +
                       "' is a disparity-frame file with its own header");
    }
    return ParseDisparityFrame(bytes, path);
  }
  map.header = MakeHeader({map.samples.width, map.samples.height},
                          o.scale_num != 0 ? o.scale_num : kDefaultScaleNumerator,
                          o.scale_den != 0 ? o.scale_den : kDefaultScaleDenominator, o.ref_width);
  return map;
}

DisparityMaps::DisparityMaps(const DisparityOptions &options, int frames) : options_(options) {
  std::error_code ec;
  per_frame_ = fs::is_directory(options.path, ec);
  if (!per_frame_) {
    files_.push_back(options.path);
    return;
  }
  if (!options.raw_size.empty()) {
    throw InputError("--disparity-size: only for a raw disparity map, not for the directory of images '" +
                     options.path + "'");
  }
  files_ = ListImages(options.path, "--disparity");
  if (static_cast<int>(files_.size()) != frames) {
    throw InputError("--disparity: '" + options.path + "' holds " + std::to_string(files_.size()) +
                     " maps for " + std::to_string(frames) + " frames");
  }
}

namespace {

void CheckMapSize(const std::string &file, int width, int height, Size size) {
  if (width != size.width || height != size.height) {
    throw InputError(file + ": disparity size " + SizeText(width, height) +
                     " does not match the first map's " + ToString(size));
  }
}

}  // namespace

DisparityMap DisparityMaps::Load(int frame, const Size *size) const {
  DisparityMap map = LoadDisparity(File(frame), options_);
  if (size) CheckMapSize(File(frame), map.samples.width, map.samples.height, *size);
  return map;
}

void DisparityMaps::CheckSizes(int first, int end, Size size) const {
  if (!per_frame_) return;
  for (int i = first; i < end; ++i) {
    int width = 0, height = 0;
    ReadImageSize(File(i), &width, &height);
    CheckMapSize(File(i), width, height, size);
  }
}

void CheckDisparityFits(const DisparityMap &map, Size frame, const std::string &name) {
  if (map.samples.width > frame.width || map.samples.height > frame.height) {
    throw InputError(name + ": disparity map " + std::to_string(map.samples.width) + "x" +
                     std::to_string(map.samples.height) + " is larger than the frame " +
                     ToString(frame));
  }
}

}  // namespace pbtool
