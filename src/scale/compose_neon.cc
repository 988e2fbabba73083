// Vector full-resolution composite: 16 luma pixels or 8 chroma pairs per step
// (luma: 8 at a time for the last group; chroma: one weight per pair) with
// the unsigned lane arithmetic of compose_internal.h; the left-over samples
// use the signed per-sample arithmetic. Rows whose effective weights all lie in 0..1024 (the
// normal case) take an equivalent all-16-bit form. Bytes are identical to the
// scalar reference.
#include "scale/compose.h"
#include "scale/compose_internal.h"
#include "simd/neon.h"

namespace pb {
namespace {

// w = (m * alpha + 64) >> 7 as a 16-bit lane: 32-bit products, then a
// rounding narrowing shift, which keeps the low 16 bits as the narrowing
// would (m * alpha + 64 < 2^24).
inline uint16x8_t EffectiveWeight(uint16x8_t m, uint16x8_t alpha) {
  return vcombine_u16(vrshrn_n_u32(vmull_u16(vget_low_u16(m), vget_low_u16(alpha)), 7),
                      vrshrn_n_u32(vmull_high_u16(m, alpha), 7));
}

// Mix for w <= 1024 in every lane: acc = 1024 * s + w * d with d = b - s, so
// out = s + ((w * d + 512) >> 10), never outside 0..255. The doubling
// multiply-high of 32 * d (|32 d| <= 8160) by w gives
// (64 * w * d + 2^15) >> 16 == (w * d + 512) >> 10 exactly, in a signed
// 16-bit lane.
inline uint8x8_t BlendInRange(uint16x8_t w, uint8x8_t s, uint8x8_t b) {
  const int16x8_t d32 = vshlq_n_s16(vreinterpretq_s16_u16(vsubl_u8(b, s)), 5);
  const int16x8_t q = vqrdmulhq_s16(d32, vreinterpretq_s16_u16(w));
  return vmovn_u16(vaddw_u8(vreinterpretq_u16_s16(q), s));
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

// True when every weight of m[0..n) (n a multiple of 8) gives w <= 1024,
// i.e. m * alpha <= 131135 (w grows with m).
bool RowInRange(const uint16_t *m, int32_t n, uint8_t alpha) {
  uint16x8_t mx = vdupq_n_u16(0);
  int32_t x = 0;
  for (; x + 64 <= n; x += 64) {
    const uint16x8x4_t a = vld1q_u16_x4(m + x);
    const uint16x8x4_t b = vld1q_u16_x4(m + x + 32);
    const uint16x8_t a01 = vmaxq_u16(a.val[0], a.val[1]), a23 = vmaxq_u16(a.val[2], a.val[3]);
    const uint16x8_t b01 = vmaxq_u16(b.val[0], b.val[1]), b23 = vmaxq_u16(b.val[2], b.val[3]);
    mx = vmaxq_u16(mx, vmaxq_u16(vmaxq_u16(a01, a23), vmaxq_u16(b01, b23)));
  }
  for (; x < n; x += 8) mx = vmaxq_u16(mx, vld1q_u16(m + x));
  return static_cast<uint32_t>(vmaxvq_u16(mx)) * alpha <= 131135u;
}

template <bool kInRange>
inline uint8x8_t Blend(uint16x8_t w, uint8x8_t s, uint8x8_t b) {
  return kInRange ? BlendInRange(w, s, b) : BlendAnyWeight(w, s, b);
}

template <bool kInRange>
void LumaRow(const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d, int32_t body,
             uint8_t alpha) {
  const uint16x8_t a = vdupq_n_u16(alpha);
  int32_t x = 0;
  for (; x + 16 <= body; x += 16) {
    const uint8x16_t sv = vld1q_u8(s + x);
    const uint8x16_t bv = vld1q_u8(b + x);
    const uint16x8_t w0 = EffectiveWeight(vld1q_u16(m + x), a);
    const uint16x8_t w1 = EffectiveWeight(vld1q_u16(m + x + 8), a);
    vst1q_u8(d + x, vcombine_u8(Blend<kInRange>(w0, vget_low_u8(sv), vget_low_u8(bv)),
                                Blend<kInRange>(w1, vget_high_u8(sv), vget_high_u8(bv))));
  }
  for (; x < body; x += 8) {
    const uint16x8_t w = EffectiveWeight(vld1q_u16(m + x), a);
    vst1_u8(d + x, Blend<kInRange>(w, vld1_u8(s + x), vld1_u8(b + x)));
  }
}

// 8 pairs (16 bytes) a step; U and V share their pair's weight, the map's
// even entry of the pair (computed once, then repeated for both lanes).
template <bool kInRange>
void ChromaRow(const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d, int32_t body,
               uint8_t alpha) {
  const uint16x8_t a = vdupq_n_u16(alpha);
  for (int32_t x = 0; x < body; x += 16) {
    const uint8x16_t sv = vld1q_u8(s + x);
    const uint8x16_t bv = vld1q_u8(b + x);
    const uint16x8_t w = EffectiveWeight(vld2q_u16(m + x).val[0], a);
    const uint16x8_t w0 = vzip1q_u16(w, w);
    const uint16x8_t w1 = vzip2q_u16(w, w);
    vst1q_u8(d + x, vcombine_u8(Blend<kInRange>(w0, vget_low_u8(sv), vget_low_u8(bv)),
                                Blend<kInRange>(w1, vget_high_u8(sv), vget_high_u8(bv))));
  }
}

}  // namespace

namespace compose {

void ComposeLumaRow_NEON(const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d,
                         int32_t width, uint8_t alpha) {
  const int32_t body = width & ~7;
  if (RowInRange(m, body, alpha)) {
    LumaRow<true>(s, b, m, d, body, alpha);
  } else {
    LumaRow<false>(s, b, m, d, body, alpha);
  }
  MixTailLuma(s, b, m, d, body, width, alpha);
}

void ComposeChromaRow_NEON(const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d,
                           int32_t width, uint8_t alpha) {
  const int32_t body = width & ~15;
  if (RowInRange(m, body, alpha)) {
    ChromaRow<true>(s, b, m, d, body, alpha);
  } else {
    ChromaRow<false>(s, b, m, d, body, alpha);
  }
  MixTailChroma(s, b, m, d, body, width, alpha);
}

}  // namespace compose

PB_COMPOSE_KERNEL(ComposeLuma_NEON) {
  (void)height;
  (void)lowWidth;
  (void)lowHeight;
  const auto row = [&](const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d) {
    compose::ComposeLumaRow_NEON(s, b, m, d, width, alpha);
  };
  compose::ForEachRow<false>("ComposeLuma", src, width, weight, blurred, dst, rowFirst, rowLast,
                             row);
}

PB_COMPOSE_KERNEL(ComposeChroma_NEON) {
  (void)height;
  (void)lowWidth;
  (void)lowHeight;
  const auto row = [&](const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d) {
    compose::ComposeChromaRow_NEON(s, b, m, d, width, alpha);
  };
  compose::ForEachRow<true>("ComposeChroma", src, width, weight, blurred, dst, rowFirst, rowLast,
                            row);
}

}  // namespace pb
