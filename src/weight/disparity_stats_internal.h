// The one-at-a-time end of the minimum/maximum scan, shared by the scalar and
// vector kernels.
#ifndef PREVIEWBOKEH_WEIGHT_DISPARITY_STATS_INTERNAL_H_
#define PREVIEWBOKEH_WEIGHT_DISPARITY_STATS_INTERNAL_H_

#include <cstdint>

namespace pb {
namespace disparity {

// Continues *min and *max over src[from..n) with an else-if: a sample that
// lowers the minimum is not tested against the maximum.
inline void MinMaxTail(const uint8_t *src, int32_t from, int32_t n, uint8_t *min, uint8_t *max) {
  uint8_t lo = *min;
  uint8_t hi = *max;
  for (int32_t i = from; i < n; ++i) {
    const uint8_t v = src[i];
    if (v < lo) {
      lo = v;
    } else if (v > hi) {
      hi = v;
    }
  }
  *min = lo;
  *max = hi;
}

}  // namespace disparity
}  // namespace pb

#endif  // PREVIEWBOKEH_WEIGHT_DISPARITY_STATS_INTERNAL_H_
