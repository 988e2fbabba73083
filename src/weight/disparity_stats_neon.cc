// Vector minimum and maximum: sixteen lanes, then the scalar end.
#include "simd/neon.h"
#include "weight/disparity_stats.h"
#include "weight/disparity_stats_internal.h"

namespace pb {

using disparity::MinMaxTail;

void DisparityMinMax_NEON(const uint8_t *src, int32_t n, uint8_t *min, uint8_t *max) {
  if (n < 0) n = 0;
  const int32_t m = n & ~15;
  uint8_t lo = 255;
  uint8_t hi = 0;
  if (m >= 1) {
    uint8x16_t vmin = vdupq_n_u8(255);
    uint8x16_t vmax = vdupq_n_u8(0);
    for (int32_t i = 0; i < m; i += 16) {
      const uint8x16_t v = vld1q_u8(src + i);
      vmin = vminq_u8(vmin, v);
      vmax = vmaxq_u8(vmax, v);
    }
    lo = vminvq_u8(vmin);
    hi = vmaxvq_u8(vmax);
  }
  *min = lo;
  *max = hi;
  MinMaxTail(src, m, n, min, max);
}

}  // namespace pb
