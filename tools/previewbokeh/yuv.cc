#include "yuv.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>

#include "errors.h"

namespace pbtool {

YuvFormat ParseYuvFormat(const std::string &text, const std::string &option) {
  std::string lower = text;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (lower == "nv21") return YuvFormat::kNV21;
  if (lower == "nv12") return YuvFormat::kNV12;
  throw InputError(option + ": unknown format '" + text + "' (use nv21 or nv12)");
}

const char *FormatName(YuvFormat format) { return format == YuvFormat::kNV21 ? "nv21" : "nv12"; }

YuvFormat FormatFromExtension(const std::string &path, YuvFormat fallback) {
  const std::string ext = LowerExtension(path);
  if (ext == ".nv21") return YuvFormat::kNV21;
  if (ext == ".nv12") return YuvFormat::kNV12;
  return fallback;
}

bool IsRawYuvExtension(const std::string &path) {
  const std::string ext = LowerExtension(path);
  return ext == ".yuv" || ext == ".nv21" || ext == ".nv12";
}

YuvFrame RgbToYuv(const Image &rgb, YuvFormat format) {
  const Size size{rgb.width, rgb.height};
  CheckFrameSize(size, "image");
  // libyuv's "RAW" is R, G, B in memory order; "ARGB" is B, G, R, A.
  std::vector<uint8_t> argb(static_cast<size_t>(size.width) * size.height * 4);
  libyuv::RAWToARGB(rgb.pixels.data(), size.width * 3, argb.data(), size.width * 4, size.width,
                    size.height);
  YuvFrame frame(size);
  auto convert = format == YuvFormat::kNV21 ? libyuv::ARGBToNV21 : libyuv::ARGBToNV12;
  convert(argb.data(), size.width * 4, frame.Luma(), size.width, frame.Chroma(), size.width,
          size.width, size.height);
  return frame;
}

void SwapChromaOrder(YuvFrame *frame) {
  uint8_t *c = frame->Chroma();
  const size_t bytes = frame->data.size() - static_cast<size_t>(frame->size.width) * frame->size.height;
  for (size_t i = 0; i + 1 < bytes; i += 2) std::swap(c[i], c[i + 1]);
}

Image YuvToRgb(const YuvFrame &frame, YuvFormat format) {
  Image rgb(frame.size.width, frame.size.height, 3);
  auto convert = format == YuvFormat::kNV21 ? libyuv::NV21ToRAW : libyuv::NV12ToRAW;
  convert(frame.Luma(), frame.size.width, frame.Chroma(), frame.size.width, rgb.pixels.data(),
          frame.size.width * 3, frame.size.width, frame.size.height);
  return rgb;
}

}  // namespace pbtool
