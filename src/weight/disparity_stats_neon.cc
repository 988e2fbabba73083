// Vector minimum and maximum: the first n & ~15 samples in sixteen-lane
// minima and maxima (64 bytes a step while they last), then the scalar end.
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
    // Four independent lane sets over 64 bytes a step, then 16 at a time.
    uint8x16_t vmin[4], vmax[4];
    for (int k = 0; k < 4; ++k) {
      vmin[k] = vdupq_n_u8(255);
      vmax[k] = vdupq_n_u8(0);
    }
    int32_t i = 0;
    for (; i + 64 <= m; i += 64) {
      const uint8x16x4_t v = simd::Load4(src + i);
      for (int k = 0; k < 4; ++k) {
        vmin[k] = vminq_u8(vmin[k], v.val[k]);
        vmax[k] = vmaxq_u8(vmax[k], v.val[k]);
      }
    }
    for (; i < m; i += 16) {
      const uint8x16_t v = vld1q_u8(src + i);
      vmin[0] = vminq_u8(vmin[0], v);
      vmax[0] = vmaxq_u8(vmax[0], v);
    }
    lo = vminvq_u8(vminq_u8(vminq_u8(vmin[0], vmin[1]), vminq_u8(vmin[2], vmin[3])));
    hi = vmaxvq_u8(vmaxq_u8(vmaxq_u8(vmax[0], vmax[1]), vmaxq_u8(vmax[2], vmax[3])));
  }
  *min = lo;
  *max = hi;
  MinMaxTail(src, m, n, min, max);
}

}  // namespace pb
