// Weight map computation: resamples the smoothed disparity bilinearly (16.16
// positions) to the weight-map size, puts an in-focus band around the value
// under the focus point and turns each pixel's distance from the band into a
// weight 0..1024.
#ifndef PREVIEWBOKEH_WEIGHT_WEIGHT_MAP_H_
#define PREVIEWBOKEH_WEIGHT_WEIGHT_MAP_H_

#include <cstdint>

#include "simd/kernel_table.h"

namespace pb {

// Position step (n << 16) / size in 32-bit signed arithmetic; 0 for size 0.
int32_t WeightStep(int32_t n, int32_t size);

// Bilinear sample of src (width x height, stride width) at 16.16 position
// (px, py): horizontal interpolation of the two rows first, each rounded, then
// vertical, rounded. Only the right and lower neighbours are clamped, so the
// integer parts must lie inside the map.
uint32_t BilinearSample(const uint8_t *src, int32_t width, int32_t height, int32_t px, int32_t py);

// In-focus band [*low, *high] around focus level f (0..255).
void FocusBand(uint32_t f, int32_t *low, int32_t *high);

// Weight for a distance d (0..255) from the band:
// (min(trunc(float(d) * g), 1024) * gain + 64) >> 7 with g = 1024 / bandScale.
uint16_t DistanceWeight(uint32_t d, float g, uint8_t gain);

// ComputeWeightsFn (simd/kernel_table.h): writes rows first..last
// (inclusive) of dst (weight map width x height, stride width) and no other
// element. Focus point (selX, selY) in weight-map pixels; it must lie inside
// the map (callers clamp it). src is the smoothed disparity, srcWidth x
// srcHeight, both below 32768.
//   ComputeWeights_C     the per-pixel formula, as plain as it can be written
//   ComputeWeights_NEON  same bytes. Columns in chunks of 2048: each source
//     row is interpolated horizontally once per chunk into 8-bit values (two
//     rows cached), sixteen columns at a time by table look-ups in a 32-byte
//     window of the row wherever a block's neighbours fit in one, the other
//     columns one at a time; then per output row the vertical mix and the
//     weights sixteen at a time, the weight of min(distance, 63) looked up in
//     the low and high bytes of a 64-entry table. That look-up needs the
//     distance-to-weight table flat from 63 on (band scales up to 63); other
//     calls, and the last width % 16 columns of a chunk, take the weight of
//     each value from a 256-entry table.

}  // namespace pb

#endif  // PREVIEWBOKEH_WEIGHT_WEIGHT_MAP_H_
