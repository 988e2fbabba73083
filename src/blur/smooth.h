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

#include "simd/kernel_table.h"

namespace pb {

// SmoothFn (simd/kernel_table.h): SmoothLuma_C / _NEON, SmoothChroma_C / _NEON.
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

// SmoothComposeFn (simd/kernel_table.h): smoothing fused with the
// full-resolution composite, SmoothCompose{Luma,Chroma}_{C,NEON}. The
// destination bytes are those of the smoothing into `smoothed` followed by
// the composite (scale/compose.h) from `input` and `smoothed` into dst over
// rows firstRow..lastRow, with the plane as its own low-resolution size.
// `smoothed` is scratch: its contents afterwards are unspecified (the vector
// form mixes each smoothed row as soon as it is made and writes `smoothed`
// only when the fused form does not apply: refused or unusual arguments, dst
// overlapping the input, taps or scratch unsuited to it).

}  // namespace pb

#endif  // PREVIEWBOKEH_BLUR_SMOOTH_H_
