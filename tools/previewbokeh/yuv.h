// YUV 4:2:0 frames: the library's packed semi-planar layout (NV21 / NV12),
// raw file layouts with row and plane padding (I420, YV12, NV12, NV21), and
// the conversion to and from RGB images.
#ifndef PREVIEWBOKEH_TOOL_YUV_H_
#define PREVIEWBOKEH_TOOL_YUV_H_

#include <cstdint>
#include <string>
#include <vector>

#include "cli.h"
#include "image_io.h"

namespace pbtool {

// Raw 4:2:0 layouts. NV21 / NV12: a luma plane and one interleaved chroma
// plane, V first (NV21) or U first (NV12). I420 / YV12: a luma plane and two
// chroma planes, U then V (I420) or V then U (YV12). The blur treats both
// chroma samples alike; their order matters for colour conversion only.
enum class YuvFormat { kNV21, kNV12, kI420, kYV12 };

// Parses "nv21", "nv12", "i420", "yv12" (any case); throws InputError naming `option`.
YuvFormat ParseYuvFormat(const std::string &text, const std::string &option);
const char *FormatName(YuvFormat format);
bool IsPlanar(YuvFormat format);

// The format a raw file's extension names (".nv21", ".nv12", ".i420", ".yv12");
// false for ".yuv" and anything else.
bool FormatOfExtension(const std::string &path, YuvFormat *format);
// FormatOfExtension, else `fallback` (".yuv" and others).
YuvFormat FormatFromExtension(const std::string &path, YuvFormat fallback);

// True for the extensions the tool treats as raw YUV frames:
// .yuv, .nv21, .nv12, .i420, .yv12.
bool IsRawYuvExtension(const std::string &path);

// Range of the YUV samples in conversions from and to RGB (BT.601 matrix):
// limited (Y 16..235, chroma 16..240) or full (0..255).
enum class ColourRange { kLimited, kFull };
ColourRange ParseColourRange(const std::string &text, const std::string &option);
const char *RangeName(ColourRange range);

// Width x height luma bytes followed by height/2 rows of width chroma bytes
// (interleaved pairs): the library's layout, rows packed.
struct YuvFrame {
  Size size;
  std::vector<uint8_t> data;

  YuvFrame() = default;
  explicit YuvFrame(Size s) : size(s), data(FrameBytes(s)) {}
  static size_t FrameBytes(Size s) {
    return static_cast<size_t>(s.width) * s.height * 3 / 2;
  }
  uint8_t *Luma() { return data.data(); }
  const uint8_t *Luma() const { return data.data(); }
  uint8_t *Chroma() { return data.data() + static_cast<size_t>(size.width) * size.height; }
  const uint8_t *Chroma() const {
    return data.data() + static_cast<size_t>(size.width) * size.height;
  }
};

// Memory layout of one raw frame. The luma plane has `scanlines` rows of
// `stride` bytes (the first `width` of each used). The chroma plane(s) follow
// at stride x scanlines: for NV21 / NV12 scanlines/2 rows of `stride` bytes;
// for I420 / YV12 two planes of scanlines/2 rows of stride/2 bytes each.
struct RawLayout {
  YuvFormat format = YuvFormat::kNV21;
  int stride = 0;     // bytes per luma row; 0 = the width (packed)
  int scanlines = 0;  // rows of the luma plane; 0 = the height (packed)
};

// The layout with zero stride / scanlines replaced by the packed values,
// checked for `size`: stride >= width, scanlines >= height and even, and an
// even stride for the planar formats. Throws InputError naming the option.
RawLayout ResolveLayout(RawLayout layout, Size size, const std::string &stride_option,
                        const std::string &scanlines_option);

// Bytes of one frame of a resolved layout.
size_t RawFrameBytes(const RawLayout &layout);

// A raw frame of `size` in a resolved layout -> the library's packed NV21.
YuvFrame RawToFrame(const uint8_t *raw, Size size, const RawLayout &layout);

// Packed NV21 -> a raw frame of RawFrameBytes(layout) bytes; padding is zero.
std::vector<uint8_t> FrameToRaw(const YuvFrame &nv21, const RawLayout &layout);

// RGB (3-channel) image -> frame in NV21 or NV12 chroma order; the image size
// must be a valid frame size.
YuvFrame RgbToYuv(const Image &rgb, YuvFormat format, ColourRange range = ColourRange::kLimited);

// Swaps the two bytes of every chroma pair: NV21 <-> NV12.
void SwapChromaOrder(YuvFrame *frame);

// Frame in NV21 or NV12 chroma order -> RGB image.
Image YuvToRgb(const YuvFrame &frame, YuvFormat format, ColourRange range = ColourRange::kLimited);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_YUV_H_
