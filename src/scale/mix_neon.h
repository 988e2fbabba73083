// Vector forms of the mix of scale/mix.h, 8 lanes at a time, and the weights
// of chroma pairs. Only for *_neon.cc files.
#ifndef PREVIEWBOKEH_SCALE_MIX_NEON_H_
#define PREVIEWBOKEH_SCALE_MIX_NEON_H_

#include <cstdint>

#include "scale/mix.h"
#include "simd/neon.h"

namespace pb {
namespace mix {

// w = (m * alpha + 64) >> 7 as a 16-bit lane, from 16-bit products only:
// with m = 256 * mh + ml, m * alpha = 256 * (mh * alpha) + ml * alpha, both
// products fit 16 bits, and w = 2 * (mh * alpha) + ((ml * alpha + 64) >> 7);
// the lane keeps it modulo 2^16 as the narrowing would.
inline uint16x8_t EffectiveWeight(uint16x8_t m, uint16_t alpha) {
  const uint16x8_t hi = vmulq_n_u16(vshrq_n_u16(m, 8), alpha);
  const uint16x8_t lo = vmulq_n_u16(vandq_u16(m, vdupq_n_u16(0xFF)), alpha);
  return vrsraq_n_u16(vshlq_n_u16(hi, 1), lo, 7);
}

// Mix for w <= 1024 in every lane: acc = 1024 * s + w * d with d = b - s, so
// out = s + ((w * d + 512) >> 10), never outside 0..255. w * d needs 18 bits:
// with w = 32 * w1 + w0, (32 * A + B + 512) >> 10 == (A + (B >> 5) + 16) >> 5
// for A = w1 * d, B = w0 * d, all in signed 16-bit lanes.
inline uint8x8_t BlendInRange(uint16x8_t w, uint8x8_t s, uint8x8_t b) {
  const int16x8_t d = vreinterpretq_s16_u16(vsubl_u8(b, s));
  const int16x8_t a = vmulq_s16(vreinterpretq_s16_u16(vshrq_n_u16(w, 5)), d);
  const int16x8_t r = vmulq_s16(vreinterpretq_s16_u16(vandq_u16(w, vdupq_n_u16(31))), d);
  const int16x8_t q = vrshrq_n_s16(vsraq_n_s16(a, r, 5), 5);
  return vqmovun_s16(vaddq_s16(vreinterpretq_s16_u16(vmovl_u8(s)), q));
}

// Any w: 1024 - w wraps in its 16-bit lane, products and sum in 32-bit lanes,
// the rounded shift narrowed to 16 bits, then saturated to 0..255.
inline uint8x8_t BlendAnyWeight(uint16x8_t w, uint8x8_t s, uint8x8_t b) {
  const uint16x8_t iw = vsubq_u16(vdupq_n_u16(1024), w);
  const uint16x8_t s16 = vmovl_u8(s);
  const uint16x8_t b16 = vmovl_u8(b);
  uint32x4_t a0 = vmull_u16(vget_low_u16(w), vget_low_u16(b16));
  uint32x4_t a1 = vmull_u16(vget_high_u16(w), vget_high_u16(b16));
  a0 = vmlal_u16(a0, vget_low_u16(iw), vget_low_u16(s16));
  a1 = vmlal_u16(a1, vget_high_u16(iw), vget_high_u16(s16));
  return vqmovn_u16(vcombine_u16(vrshrn_n_u32(a0, 10), vrshrn_n_u32(a1, 10)));
}

// Weights of the 4 pairs of 8 chroma bytes from 8 map entries: the even
// entries, each repeated for the pair's U and V lane (little-endian 32-bit
// lanes: entry 2k is the low half of lane k).
inline uint16x8_t PairWeights(const uint16_t *m) {
  const uint32x4_t e = vandq_u32(vreinterpretq_u32_u16(vld1q_u16(m)), vdupq_n_u32(0xFFFF));
  return vreinterpretq_u16_u32(vorrq_u32(e, vshlq_n_u32(e, 16)));
}

}  // namespace mix
}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_MIX_NEON_H_
