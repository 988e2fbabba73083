// Value range of the smoothed disparity: plain minimum/maximum, then a range
// trimmed by a histogram so that sparse outliers at either end are ignored.
// Diagnostic only: the figures are logged.
#ifndef PREVIEWBOKEH_WEIGHT_DISPARITY_STATS_H_
#define PREVIEWBOKEH_WEIGHT_DISPARITY_STATS_H_

#include <cstdint>

#include "simd/kernel_table.h"

namespace pb {

// Minimum and maximum of src[0..n): the first n & ~15 samples sixteen at a
// time (lane minima from 255, maxima from 0), then each remaining sample with
// an else-if: a sample that lowers the minimum is not tested against the
// maximum. n below 1 gives minimum 255 and maximum 0.
// MinMaxFn (simd/kernel_table.h): DisparityMinMax_C, DisparityMinMax_NEON.

// Logs n, the ratio, the incoming minimum and maximum and the bin threshold
// (ratio * n) / 256, counts src[0..n) into hist (16-bit counters that wrap),
// and replaces *min and *max by the populated range when it spans at least
// minRange; otherwise leaves both as they are.
void DisparityHistogramRange(const uint8_t *src, uint16_t hist[256], int32_t n, int32_t ratio,
                             int32_t minRange, uint8_t *min, uint8_t *max);

}  // namespace pb

#endif  // PREVIEWBOKEH_WEIGHT_DISPARITY_STATS_H_
