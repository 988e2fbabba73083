#include "yuv.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include <libyuv/convert.h>
#include <libyuv/convert_argb.h>
#include <libyuv/convert_from.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>

#include "errors.h"

namespace pbtool {
namespace {

std::string Lower(const std::string &text) {
  std::string lower = text;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

// Plane pointers and strides of a raw frame in a resolved layout. For the
// planar formats u / v point at the U and V planes whatever their order.
struct Planes {
  size_t luma_bytes = 0;
  int chroma_stride = 0;
  size_t offset_u = 0, offset_v = 0;  // planar formats
};

Planes PlanesOf(const RawLayout &l) {
  Planes p;
  p.luma_bytes = static_cast<size_t>(l.stride) * l.scanlines;
  if (IsPlanar(l.format)) {
    p.chroma_stride = l.stride / 2;
    const size_t plane = static_cast<size_t>(p.chroma_stride) * (l.scanlines / 2);
    p.offset_u = p.luma_bytes + (l.format == YuvFormat::kI420 ? 0 : plane);
    p.offset_v = p.luma_bytes + (l.format == YuvFormat::kI420 ? plane : 0);
  } else {
    p.chroma_stride = l.stride;
  }
  return p;
}

}  // namespace

YuvFormat ParseYuvFormat(const std::string &text, const std::string &option) {
  const std::string lower = Lower(text);
  for (YuvFormat f : {YuvFormat::kNV21, YuvFormat::kNV12, YuvFormat::kI420, YuvFormat::kYV12}) {
    if (lower == FormatName(f)) return f;
  }
  throw InputError(option + ": unknown format '" + text + "' (use i420, yv12, nv12 or nv21)");
}

const char *FormatName(YuvFormat format) {
  switch (format) {
    case YuvFormat::kNV21: return "nv21";
    case YuvFormat::kNV12: return "nv12";
    case YuvFormat::kI420: return "i420";
    case YuvFormat::kYV12: return "yv12";
  }
  return "?";
}

bool IsPlanar(YuvFormat format) { return format == YuvFormat::kI420 || format == YuvFormat::kYV12; }

bool FormatOfExtension(const std::string &path, YuvFormat *format) {
  const std::string ext = LowerExtension(path);
  for (YuvFormat f : {YuvFormat::kNV21, YuvFormat::kNV12, YuvFormat::kI420, YuvFormat::kYV12}) {
    if (ext == std::string(".") + FormatName(f)) {
      *format = f;
      return true;
    }
  }
  return false;
}

YuvFormat FormatFromExtension(const std::string &path, YuvFormat fallback) {
  YuvFormat format = fallback;
  FormatOfExtension(path, &format);
  return format;
}

bool IsRawYuvExtension(const std::string &path) {
  YuvFormat format;
  return LowerExtension(path) == ".yuv" || FormatOfExtension(path, &format);
}

ColourRange ParseColourRange(const std::string &text, const std::string &option) {
  const std::string lower = Lower(text);
  if (lower == "limited") return ColourRange::kLimited;
  if (lower == "full") return ColourRange::kFull;
  throw InputError(option + ": unknown range '" + text + "' (use limited or full)");
}

const char *RangeName(ColourRange range) { return range == ColourRange::kFull ? "full" : "limited"; }

RawLayout ResolveLayout(RawLayout l, Size size, const std::string &stride_option,
                        const std::string &scanlines_option) {
  if (l.stride == 0) l.stride = size.width;
  if (l.scanlines == 0) l.scanlines = size.height;
  if (l.stride < size.width) {
    throw InputError(stride_option + ": " + std::to_string(l.stride) + " is less than the width " +
                     std::to_string(size.width));
  }
  if (IsPlanar(l.format) && l.stride % 2 != 0) {
    throw InputError(stride_option + ": " + std::to_string(l.stride) + " is odd; " +
                     FormatName(l.format) + " chroma rows are stride/2 bytes");
  }
  if (l.scanlines < size.height) {
    throw InputError(scanlines_option + ": " + std::to_string(l.scanlines) +
                     " is less than the height " + std::to_string(size.height));
  }
  if (l.scanlines % 2 != 0) {
    throw InputError(scanlines_option + ": " + std::to_string(l.scanlines) +
                     " is odd; chroma planes have scanlines/2 rows");
  }
  if (l.stride > 4 * kMaxFrameSide || l.scanlines > 4 * kMaxFrameSide) {
    throw InputError(stride_option + " / " + scanlines_option + ": " + std::to_string(l.stride) +
                     " x " + std::to_string(l.scanlines) + " is larger than " +
                     std::to_string(4 * kMaxFrameSide));
  }
  return l;
}

size_t RawFrameBytes(const RawLayout &l) {
  return static_cast<size_t>(l.stride) * l.scanlines * 3 / 2;
}

YuvFrame RawToFrame(const uint8_t *raw, Size size, const RawLayout &l) {
  YuvFrame frame(size);
  const Planes p = PlanesOf(l);
  const int w = size.width, h = size.height;
  switch (l.format) {
    case YuvFormat::kNV21:
      libyuv::NV21Copy(raw, l.stride, raw + p.luma_bytes, p.chroma_stride, frame.Luma(), w,
                       frame.Chroma(), w, w, h);
      break;
    case YuvFormat::kNV12:
      libyuv::CopyPlane(raw, l.stride, frame.Luma(), w, w, h);
      libyuv::SwapUVPlane(raw + p.luma_bytes, p.chroma_stride, frame.Chroma(), w, w / 2, h / 2);
      break;
    case YuvFormat::kI420:
    case YuvFormat::kYV12:
      libyuv::I420ToNV21(raw, l.stride, raw + p.offset_u, p.chroma_stride, raw + p.offset_v,
                         p.chroma_stride, frame.Luma(), w, frame.Chroma(), w, w, h);
      break;
  }
  return frame;
}

std::vector<uint8_t> FrameToRaw(const YuvFrame &frame, const RawLayout &l) {
  std::vector<uint8_t> raw(RawFrameBytes(l), 0);
  const Planes p = PlanesOf(l);
  const int w = frame.size.width, h = frame.size.height;
  uint8_t *out = raw.data();
  switch (l.format) {
    case YuvFormat::kNV21:
      libyuv::NV21Copy(frame.Luma(), w, frame.Chroma(), w, out, l.stride, out + p.luma_bytes,
                       p.chroma_stride, w, h);
      break;
    case YuvFormat::kNV12:
      libyuv::CopyPlane(frame.Luma(), w, out, l.stride, w, h);
      libyuv::SwapUVPlane(frame.Chroma(), w, out + p.luma_bytes, p.chroma_stride, w / 2, h / 2);
      break;
    case YuvFormat::kI420:
    case YuvFormat::kYV12:
      libyuv::NV21ToI420(frame.Luma(), w, frame.Chroma(), w, out, l.stride, out + p.offset_u,
                         p.chroma_stride, out + p.offset_v, p.chroma_stride, w, h);
      break;
  }
  return raw;
}

YuvFrame RgbToYuv(const Image &rgb, YuvFormat format, ColourRange range) {
  const Size size{rgb.width, rgb.height};
  CheckFrameSize(size, "image");
  // libyuv's "RAW" is R, G, B in memory order; "ARGB" is B, G, R, A.
  std::vector<uint8_t> argb(static_cast<size_t>(size.width) * size.height * 4);
  libyuv::RAWToARGB(rgb.pixels.data(), size.width * 3, argb.data(), size.width * 4, size.width,
                    size.height);
  YuvFrame frame(size);
  if (range == ColourRange::kFull) {
    // Full range ("J") exists as planar output only: I420, then interleaved.
    const int cw = size.width / 2, ch = size.height / 2;
    std::vector<uint8_t> u(static_cast<size_t>(cw) * ch), v(u.size());
    libyuv::ARGBToJ420(argb.data(), size.width * 4, frame.Luma(), size.width, u.data(), cw,
                       v.data(), cw, size.width, size.height);
    const bool vu = format == YuvFormat::kNV21;
    libyuv::MergeUVPlane(vu ? v.data() : u.data(), cw, vu ? u.data() : v.data(), cw,
                         frame.Chroma(), size.width, cw, ch);
    return frame;
  }
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

Image YuvToRgb(const YuvFrame &frame, YuvFormat format, ColourRange range) {
  Image rgb(frame.size.width, frame.size.height, 3);
  const int w = frame.size.width, h = frame.size.height;
  if (range == ColourRange::kFull) {
    const int cw = w / 2, ch = h / 2;
    std::vector<uint8_t> u(static_cast<size_t>(cw) * ch), v(u.size());
    const bool vu = format == YuvFormat::kNV21;
    libyuv::SplitUVPlane(frame.Chroma(), w, vu ? v.data() : u.data(), cw, vu ? u.data() : v.data(),
                         cw, cw, ch);
    libyuv::J420ToRAW(frame.Luma(), w, u.data(), cw, v.data(), cw, rgb.pixels.data(), w * 3, w, h);
    return rgb;
  }
  auto convert = format == YuvFormat::kNV21 ? libyuv::NV21ToRAW : libyuv::NV12ToRAW;
  convert(frame.Luma(), w, frame.Chroma(), w, rgb.pixels.data(), w * 3, w, h);
  return rgb;
}

}  // namespace pbtool
