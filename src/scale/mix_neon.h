// Vector forms of the mix of scale/mix.h and the weights of chroma pairs,
// shared by the full-resolution and the upscale composites. Only for
// *_neon.cc files.
//
// Two forms, chosen per row (or span) by the largest map weight in it:
//  - in range (every m below 2^14 and m * alpha <= 131135, so w <= 1024):
//    all in signed 16-bit lanes with rounding doubling multiplies-high:
//    w = (2m * 128 alpha * 2 + 2^15) >> 16 == (m * alpha + 64) >> 7, and
//    out = s + ((32d * w * 2 + 2^15) >> 16) == s + ((w * d + 512) >> 10) with
//    d = b - s, |32d| <= 8160; acc = 1024 s + w d, so this is the rounded
//    acc >> 10 and never leaves 0..255;
//  - any weight: w narrowed to 16 bits, 1024 - w wrapping in its lane, 32-bit
//    products, the rounded shift narrowed to 16 bits and saturated to 8.
#ifndef PREVIEWBOKEH_SCALE_MIX_NEON_H_
#define PREVIEWBOKEH_SCALE_MIX_NEON_H_

#include <cstdint>

#include "scale/mix.h"
#include "simd/neon.h"

namespace pb {
namespace mix {

// Largest map weight of m[from..to) (to - from a multiple of 8).
inline uint32_t MaxWeight(const uint16_t *m, int32_t from, int32_t to) {
  uint16x8_t mx = vdupq_n_u16(0);
  int32_t i = from;
  for (; i + 64 <= to; i += 64) {
    const uint16x8x4_t a = simd::Load4(m + i);
    const uint16x8x4_t b = simd::Load4(m + i + 32);
    const uint16x8_t a01 = vmaxq_u16(a.val[0], a.val[1]), a23 = vmaxq_u16(a.val[2], a.val[3]);
    const uint16x8_t b01 = vmaxq_u16(b.val[0], b.val[1]), b23 = vmaxq_u16(b.val[2], b.val[3]);
    mx = vmaxq_u16(mx, vmaxq_u16(vmaxq_u16(a01, a23), vmaxq_u16(b01, b23)));
  }
  for (; i < to; i += 8) mx = vmaxq_u16(mx, vld1q_u16(m + i));
  return vmaxvq_u16(mx);
}

// True when the in-range form applies to weights up to `top`.
inline bool InRange(uint32_t top, uint8_t alpha) {
  return top < 16384u && top * alpha <= kMaxInRangeProduct;
}

// Effective weights of the in-range form; alpha128 = 128 * alpha.
inline int16x8_t WeightInRange(uint16x8_t m, int16_t alpha128) {
  return vqrdmulhq_n_s16(vreinterpretq_s16_u16(vshlq_n_u16(m, 1)), alpha128);
}

using simd::AddWideHigh;
using simd::AddWideLow;
using simd::SubHigh;
using simd::SubLow;

// In-range mix: 16-bit lanes whose low bytes are the mixed samples.
inline uint16x8_t MixInRange(int16x8_t w, uint8x8_t s, uint8x8_t b) {
  const int16x8_t d32 = vshlq_n_s16(vreinterpretq_s16_u16(vsubl_u8(b, s)), 5);
  return vaddw_u8(vreinterpretq_u16_s16(vqrdmulhq_s16(d32, w)), s);
}

// 16 in-range mixes from two sets of 8 weights.
inline uint8x16_t MixInRange16(int16x8_t w0, int16x8_t w1, uint8x16_t s, uint8x16_t b) {
  const int16x8_t d0 = vshlq_n_s16(vreinterpretq_s16_u16(SubLow(b, s)), 5);
  const int16x8_t d1 = vshlq_n_s16(vreinterpretq_s16_u16(SubHigh(b, s)), 5);
  const uint16x8_t lo = AddWideLow(vreinterpretq_u16_s16(vqrdmulhq_s16(d0, w0)), s);
  const uint16x8_t hi = AddWideHigh(vreinterpretq_u16_s16(vqrdmulhq_s16(d1, w1)), s);
  return vuzp1q_u8(vreinterpretq_u8_u16(lo), vreinterpretq_u8_u16(hi));
}

// w = (m * alpha + 64) >> 7 for any m, as a 16-bit lane: 32-bit products and
// a rounding narrowing shift (alpha in every lane), which keeps the low 16 bits as the narrowing
// would (m * alpha + 64 < 2^24).
inline uint16x8_t EffectiveWeight(uint16x8_t m, uint16x8_t alpha) {
  return vcombine_u16(vrshrn_n_u32(vmull_u16(vget_low_u16(m), vget_low_u16(alpha)), 7),
                      vrshrn_n_u32(vmull_high_u16(m, alpha), 7));
}

// Any-weight mix of 8 samples.
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
// entries, each repeated for the pair's U and V lane.
inline uint16x8_t PairWeights(const uint16_t *m) {
  const uint16x4_t even = vmovn_u32(vreinterpretq_u32_u16(vld1q_u16(m)));
  return vcombine_u16(vzip1_u16(even, even), vzip2_u16(even, even));
}

// Weights of the 8 pairs of 16 chroma bytes from 16 map entries.
inline uint16x8x2_t PairWeights16(const uint16_t *m) {
  const uint16x8_t even = vld2q_u16(m).val[0];
  return vzipq_u16(even, even);
}

}  // namespace mix
}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_MIX_NEON_H_
