// YUV 4:2:0 semi-planar frames (NV21 / NV12) and their conversion to and
// from RGB images.
#ifndef PREVIEWBOKEH_TOOL_YUV_H_
#define PREVIEWBOKEH_TOOL_YUV_H_

#include <cstdint>
#include <string>
#include <vector>

#include "cli.h"
#include "image_io.h"

namespace pbtool {

// Chroma byte order of the interleaved plane: V first (NV21) or U first (NV12).
// The blur treats both bytes alike; the order matters only for colour conversion.
enum class YuvFormat { kNV21, kNV12 };

// Parses "nv21" / "nv12" (any case); throws InputError naming `option`.
YuvFormat ParseYuvFormat(const std::string &text, const std::string &option);
const char *FormatName(YuvFormat format);

// Format implied by a raw file's extension (".nv21", ".nv12"), else `fallback`
// (".yuv" and others).
YuvFormat FormatFromExtension(const std::string &path, YuvFormat fallback);

// True for the extensions the tool treats as raw YUV frames.
bool IsRawYuvExtension(const std::string &path);

// Width x height luma bytes followed by height/2 rows of width chroma bytes.
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

// RGB (3-channel) image -> frame; the image size must be a valid frame size.
YuvFrame RgbToYuv(const Image &rgb, YuvFormat format);

// Swaps the two bytes of every chroma pair: NV21 <-> NV12.
void SwapChromaOrder(YuvFrame *frame);

// Frame -> RGB image.
Image YuvToRgb(const YuvFrame &frame, YuvFormat format);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_YUV_H_
