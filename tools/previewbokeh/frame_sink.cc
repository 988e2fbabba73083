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
  if (ext == ".png" || ext == ".jpg" || ext == ".jpeg") {
    if (sequence) {
      throw InputError("--out: '" + out +
                       "' is one image, but the input is a sequence: give a directory or a "
                       ".yuv/.nv21/.nv12 file");
    }
    return OutKind::kImage;
  }
  if (!sequence) {
    throw InputError("--out: '" + out + "' has no known extension (.png, .jpg, .yuv, .nv21, .nv12)");
  }
  return OutKind::kDirectory;
}

FrameSink::FrameSink(const std::string &out, OutKind kind, YuvFormat input_format)
    : out_(out), kind_(kind) {
  format_ = FormatFromExtension(out, input_format);
  if (kind == OutKind::kRaw) {
    raw_ = std::fopen(out.c_str(), "wb");
    if (!raw_) throw InputError("--out: cannot create '" + out + "': " + std::strerror(errno));
  } else if (kind == OutKind::kDirectory) {
    std::error_code ec;
    fs::create_directories(out, ec);
    if (ec || !fs::is_directory(out)) throw InputError("--out: cannot create directory '" + out + "'");
  }
  image_format_ = input_format;
}

FrameSink::~FrameSink() {
  if (raw_) std::fclose(raw_);
}

void FrameSink::Write(const YuvFrame &frame, const std::string &name) {
  if (kind_ == OutKind::kRaw) {
    const YuvFrame *bytes = &frame;
    YuvFrame swapped;
    if (format_ != image_format_) {
      swapped = frame;
      SwapChromaOrder(&swapped);
      bytes = &swapped;
    }
    if (std::fwrite(bytes->data.data(), 1, bytes->data.size(), raw_) != bytes->data.size()) {
      throw InputError("--out: cannot write '" + out_ + "'");
    }
  } else if (kind_ == OutKind::kImage) {
    WriteImage(out_, YuvToRgb(frame, image_format_));
  } else {
    WritePng((fs::path(out_) / (name + ".png")).string(), YuvToRgb(frame, image_format_));
  }
}

void FrameSink::Finish() {
  if (raw_ && std::fclose(raw_) != 0) {
    raw_ = nullptr;
    throw InputError("--out: cannot write '" + out_ + "'");
  }
  raw_ = nullptr;
}

}  // namespace pbtool
