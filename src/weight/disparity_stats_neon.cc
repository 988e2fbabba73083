// Vector minimum and maximum: the first n & ~15 samples in sixteen-lane
// minima and maxima (64 bytes a step while they last), then the scalar end.
#include "simd/neon.h"
#include "weight/disparity_stats.h"
#include "weight/disparity_stats_internal.h"

namespace pb {

using disparity::MinMaxTail;

namespace {

// Sixty-four consecutive bytes as four vectors: one multi-register load on
// Arm; through SIMDe (x86-64 hosts), which copies multi-register loads byte
// by byte, four single loads. Same values either way.
inline uint8x16x4_t Load4(const uint8_t *p) {
#if defined(__aarch64__)
  return vld1q_u8_x4(p);
#else
  return uint8x16x4_t{{vld1q_u8(p), vld1q_u8(p + 16), vld1q_u8(p + 32), vld1q_u8(p + 48)}};
#endif
}

}  // namespace

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
      const uint8x16x4_t v = Load4(src + i);
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
