// Vector full-resolution composite: 16 luma pixels or 8 chroma pairs per step
// (luma: 8 at a time for the last group; chroma: one weight per pair) with
// the lane arithmetic of scale/mix_neon.h; the left-over samples use the
// signed per-sample arithmetic. Rows whose weights are in range (the normal
// case) take the all-16-bit form. Bytes are identical to the scalar reference.
#include "scale/compose.h"
#include "scale/compose_internal.h"
#include "scale/mix_neon.h"
#include "simd/neon.h"

namespace pb {
namespace {

using mix::BlendAnyWeight;
using mix::EffectiveWeight;
using mix::MixInRange16;
using mix::WeightInRange;

// 16 luma pixels a step (8 for the last group); in range, the all-16-bit
// form (scale/mix_neon.h).
template <bool kInRange>
void LumaRow(const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d, int32_t body,
             uint8_t alpha) {
  const uint16x8_t a = vdupq_n_u16(alpha);
  const int16_t alpha128 = static_cast<int16_t>(alpha * 128);
  int32_t x = 0;
  for (; x + 16 <= body; x += 16) {
    const uint8x16_t sv = vld1q_u8(s + x);
    const uint8x16_t bv = vld1q_u8(b + x);
    const uint16x8_t m0 = vld1q_u16(m + x), m1 = vld1q_u16(m + x + 8);
    if (kInRange) {
      vst1q_u8(d + x, MixInRange16(WeightInRange(m0, alpha128), WeightInRange(m1, alpha128), sv,
                                   bv));
    } else {
      vst1q_u8(d + x,
               vcombine_u8(BlendAnyWeight(EffectiveWeight(m0, a), vget_low_u8(sv), vget_low_u8(bv)),
                           BlendAnyWeight(EffectiveWeight(m1, a), vget_high_u8(sv),
                                          vget_high_u8(bv))));
    }
  }
  for (; x < body; x += 8) {
    const uint16x8_t mv = vld1q_u16(m + x);
    const uint8x8_t sv = vld1_u8(s + x), bv = vld1_u8(b + x);
    if (kInRange) {
      vst1_u8(d + x, vmovn_u16(mix::MixInRange(WeightInRange(mv, alpha128), sv, bv)));
    } else {
      vst1_u8(d + x, BlendAnyWeight(EffectiveWeight(mv, a), sv, bv));
    }
  }
}

// 8 pairs (16 bytes) a step; U and V share their pair's weight, the map's
// even entry of the pair (computed once, then repeated for both lanes).
template <bool kInRange>
void ChromaRow(const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d, int32_t body,
               uint8_t alpha) {
  const uint16x8_t a = vdupq_n_u16(alpha);
  const int16_t alpha128 = static_cast<int16_t>(alpha * 128);
  for (int32_t x = 0; x < body; x += 16) {
    const uint8x16_t sv = vld1q_u8(s + x);
    const uint8x16_t bv = vld1q_u8(b + x);
    const uint16x8_t even = vld2q_u16(m + x).val[0];
    if (kInRange) {
      const int16x8_t w = WeightInRange(even, alpha128);
      vst1q_u8(d + x, MixInRange16(vzip1q_s16(w, w), vzip2q_s16(w, w), sv, bv));
    } else {
      const uint16x8_t w = EffectiveWeight(even, a);
      vst1q_u8(d + x, vcombine_u8(BlendAnyWeight(vzip1q_u16(w, w), vget_low_u8(sv),
                                                 vget_low_u8(bv)),
                                  BlendAnyWeight(vzip2q_u16(w, w), vget_high_u8(sv),
                                                 vget_high_u8(bv))));
    }
  }
}

bool RowInRange(const uint16_t *m, int32_t n, uint8_t alpha) {
  return mix::InRange(mix::MaxWeight(m, 0, n), alpha);
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
