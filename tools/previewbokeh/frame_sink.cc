#include "frame_sink.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "errors.h"
#include "image_io.h"

namespace fs = std::filesystem;

namespace pbtool {

OutKind ClassifyOut(const std::string &out, bool sequence) {
  const std::string ext = LowerExtension(out);
  if (IsRawYuvExtension(out)) return OutKind::kRaw;
  if (ext == ".y4m") return OutKind::kY4m;
  if (ext == ".png" || ext == ".jpg" || ext == ".jpeg") {
    if (sequence) {
      throw InputError("--out: '" + out +
                       "' is one image, but the input is a sequence: give a directory, a .y4m "
                       "or a raw .yuv/.nv21/.nv12/.i420/.yv12 file");
    }
    return OutKind::kImage;
  }
  if (!sequence) {
    throw InputError("--out: '" + out +
                     "' has no known extension (.png, .jpg, .y4m, .yuv, .nv21, .nv12, .i420, .yv12)");
  }
  return OutKind::kDirectory;
}

std::string PartialName(const std::string &path) {
  const fs::path p(path);
  return (p.parent_path() / ("." + p.filename().string() + ".partial")).string();
}

FrameSink::FrameSink(const std::string &out, OutKind kind, YuvFormat input_format)
    : FrameSink(out, kind, [input_format] {
        FrameSinkOptions o;
        o.input_format = input_format;
        return o;
      }()) {}

FrameSink::FrameSink(const std::string &out, OutKind kind, const FrameSinkOptions &options)
    : out_(out), kind_(kind), options_(options) {
  layout_.format = FormatFromExtension(out, options.input_format);
  layout_.stride = options.stride;
  layout_.scanlines = options.scanlines;
  if (kind != OutKind::kRaw && (options.stride != 0 || options.scanlines != 0)) {
    throw InputError(std::string(options.stride != 0 ? "--out-stride" : "--out-scanlines") +
                     ": only for raw output, not for '" + out + "'");
  }
  if (kind == OutKind::kRaw || kind == OutKind::kY4m) {
    partial_ = PartialName(out);
    file_ = std::fopen(partial_.c_str(), "wb");
    if (!file_) {
      const std::string error = std::strerror(errno);
      partial_.clear();
      throw InputError("--out: cannot create '" + out + "': " + error);
    }
  } else if (kind == OutKind::kDirectory) {
    std::error_code ec;
    fs::create_directories(out, ec);
    if (ec || !fs::is_directory(out)) throw InputError("--out: cannot create directory '" + out + "'");
  }
}

FrameSink::~FrameSink() {
  if (!partial_.empty()) Abort();
}

void FrameSink::Abort() {
  if (file_) std::fclose(file_);
  file_ = nullptr;
  if (!partial_.empty()) {
    std::error_code ec;
    fs::remove(partial_, ec);
    partial_.clear();
  }
}

void FrameSink::WriteImageFile(const std::string &path, const YuvFrame &frame) {
  const Image rgb = YuvToRgb(frame, YuvFormat::kNV21, options_.range);
  partial_ = PartialName(path);
  if (LowerExtension(path) == ".png") {
    WritePng(partial_, rgb);
  } else {
    WriteJpeg(partial_, rgb, options_.jpeg_quality);
  }
  std::error_code ec;
  fs::rename(partial_, path, ec);
  if (ec) throw InputError("--out: cannot write '" + path + "': " + ec.message());
  partial_.clear();
}

void FrameSink::Write(const YuvFrame &frame, const std::string &name) {
  if (frames_ == 0) {
    size_ = frame.size;
    if (kind_ == OutKind::kRaw) layout_ = ResolveLayout(layout_, size_, "--out-stride", "--out-scanlines");
    if (kind_ == OutKind::kY4m) {
      Y4mHeader header = options_.y4m;
      header.size = size_;
      const std::string line = FormatY4mHeader(header);
      if (std::fwrite(line.data(), 1, line.size(), file_) != line.size()) {
        throw InputError("--out: cannot write '" + out_ + "'");
      }
    }
  } else if (frame.size != size_) {
    throw InputError("--out: frame " + std::to_string(frames_) + " is " + ToString(frame.size) +
                     ", the first was " + ToString(size_));
  }
  if (kind_ == OutKind::kRaw || kind_ == OutKind::kY4m) {
    const RawLayout packed_i420{YuvFormat::kI420, size_.width, size_.height};
    const std::vector<uint8_t> bytes = FrameToRaw(frame, kind_ == OutKind::kRaw ? layout_ : packed_i420);
    const bool ok = (kind_ == OutKind::kRaw || std::fputs("FRAME\n", file_) >= 0) &&
                    std::fwrite(bytes.data(), 1, bytes.size(), file_) == bytes.size();
    if (!ok) throw InputError("--out: cannot write '" + out_ + "'");
  } else if (kind_ == OutKind::kImage) {
    WriteImageFile(out_, frame);
  } else {
    WriteImageFile((fs::path(out_) / (name + ".png")).string(), frame);
  }
  ++frames_;
}

void FrameSink::Finish() {
  if (!file_) return;
  if (frames_ == 0) {  // nothing to keep (a y4m stream needs a frame for its header)
    Abort();
    return;
  }
  const bool closed = std::fclose(file_) == 0;
  file_ = nullptr;
  if (!closed) {
    Abort();
    throw InputError("--out: cannot write '" + out_ + "'");
  }
  std::error_code ec;
  fs::rename(partial_, out_, ec);
  if (ec) {
    Abort();
    throw InputError("--out: cannot write '" + out_ + "': " + ec.message());
  }
  partial_.clear();
}

}  // namespace pbtool
