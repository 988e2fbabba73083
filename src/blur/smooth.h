// Separable smoothing with a (2h + 1)-tap kernel in units of 1/1024: a
// horizontal pass into an 8-bit intermediate, then a vertical pass, each
// rounded ((acc + 512) >> 10), the output saturated to 0..255. Plane borders
// repeat the edge pixels. The kernel is not normalised: whatever its taps sum
// to, results are divided by 1024.
//
// Luma: one channel per byte. Chroma: interleaved pairs, taps two bytes apart
// (each channel filtered with its own kind).
#ifndef PREVIEWBOKEH_BLUR_SMOOTH_H_
#define PREVIEWBOKEH_BLUR_SMOOTH_H_

#include <cstddef>
#include <cstdint>

namespace pb {

// Produces rows firstRow..lastRow (inclusive) of `output` (stride `width`) and
// touches no other output row.
//   input         plane, width x height bytes, stride width
//   padded, intermediate  scratch of at least SmoothLumaPaddedBytes() (or
//                 SmoothChromaPaddedBytes()) and SmoothIntermediateBytes();
//                 their contents after the call are unspecified
//   hradius, vradius  both h >= 0; the tap for offset k is kernel[h + k] in
//                 both passes
// Rows read above and below the plane are clamped to its edge rows, so any
// height >= 1 and any row range inside the plane are valid.
using SmoothFn = void (*)(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                          int32_t height, const uint16_t *kernel, int32_t hradius,
                          int32_t vradius, uint8_t *intermediate, int32_t firstRow,
                          int32_t lastRow);

void SmoothLuma_C(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                  int32_t height, const uint16_t *kernel, int32_t hradius, int32_t vradius,
                  uint8_t *intermediate, int32_t firstRow, int32_t lastRow);
void SmoothLuma_NEON(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                     int32_t height, const uint16_t *kernel, int32_t hradius, int32_t vradius,
                     uint8_t *intermediate, int32_t firstRow, int32_t lastRow);
void SmoothChroma_C(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                    int32_t height, const uint16_t *kernel, int32_t hradius, int32_t vradius,
                    uint8_t *intermediate, int32_t firstRow, int32_t lastRow);
void SmoothChroma_NEON(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                       int32_t height, const uint16_t *kernel, int32_t hradius,
                       int32_t vradius, uint8_t *intermediate, int32_t firstRow,
                       int32_t lastRow);

// Bytes of scratch a call needs for a plane of width x height and radius h.
inline size_t SmoothLumaPaddedBytes(int32_t width, int32_t height, int32_t h) {
  return static_cast<size_t>(width + 2 * h) * static_cast<size_t>(height + 2 * h);
}
inline size_t SmoothChromaPaddedBytes(int32_t width, int32_t height, int32_t h) {
  return static_cast<size_t>(width + 4 * h) * static_cast<size_t>(height + 2 * h);
}
inline size_t SmoothIntermediateBytes(int32_t width, int32_t height, int32_t h) {
  return static_cast<size_t>(width) * static_cast<size_t>(height + 2 * h);
}

// Smoothing fused with the full-resolution composite (blur/smooth_internal.h):
// the arguments of SmoothFn, then the weight map, alpha and destination.
using SmoothComposeFn = void (*)(const uint8_t *input, uint8_t *padded, uint8_t *smoothed,
                                 int32_t width, int32_t height, const uint16_t *kernel,
                                 int32_t hradius, int32_t vradius, uint8_t *intermediate,
                                 int32_t firstRow, int32_t lastRow, const uint16_t *weight,
                                 uint8_t alpha, uint8_t *dst);

// The implementation in use (vector unless scalar kernels are forced). The
// fused kernels exist only in vector form: null when scalar kernels are in use.
SmoothFn SmoothLumaKernel();
SmoothFn SmoothChromaKernel();
SmoothComposeFn SmoothComposeLumaKernel();
SmoothComposeFn SmoothComposeChromaKernel();

}  // namespace pb

#endif  // PREVIEWBOKEH_BLUR_SMOOTH_H_
