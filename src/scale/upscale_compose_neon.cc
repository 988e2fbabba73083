// Vector upscale-and-composite kernels; byte-identical to the scalar kernels
// of upscale_compose_c.cc. Positions count elements: one byte for luma
// (E = 1), one U,V pair for chroma (E = 2). The vector steps mix with
// unsigned 16-bit lane arithmetic; the elements they do not cover are done one
// at a time by the scalar rows (upscale_rows.h, where the geometry is said).
#include <cstring>

#include "scale/compose.h"
#include "scale/mix_neon.h"
#include "scale/upscale_plan.h"
#include "scale/upscale_rows.h"
#include "simd/neon.h"

namespace pb {
namespace {

using scale::ComposeCall;
using scale::ComposeRow;
using scale::LowRows;
using scale::Min;
using scale::UpscalePlan;

// ---------------------------------------------------------------------------
// Vector helpers.

// Mix of 8 lanes for any weight.
inline uint8x8_t Mix8(uint8x8_t s, uint8x8_t u, uint16x8_t m, uint16_t alpha) {
  return mix::BlendAnyWeight(mix::EffectiveWeight(m, alpha), s, u);
}

// Weights of the 8 bytes starting at element e0 of a row.
template <int E>
inline uint16x8_t Weights8(const uint16_t *m, int32_t e0) {
  if constexpr (E == 1) {
    return vld1q_u16(m + e0);
  } else {
    return mix::PairWeights(m + 2 * e0);
  }
}

// Up to 8 bytes of a low row from byte `at`, without reading past `len`.
inline uint8x8_t LoadLow8(const uint8_t *row, int32_t at, int32_t len) {
  if (at + 8 <= len) return vld1_u8(row + at);
  uint8_t tmp[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  std::memcpy(tmp, row + at, static_cast<size_t>(len - at));
  return vld1_u8(tmp);
}

// The E bytes of low element c repeated over 8 lanes, widened to 16 bits.
template <int E>
inline uint16x8_t Splat(const uint8_t *row, int32_t c) {
  if constexpr (E == 1) {
    return vdupq_n_u16(row[c]);
  } else {
    uint16_t pair;
    std::memcpy(&pair, row + 2 * c, 2);
    return vmovl_u8(vreinterpret_u8_u16(vdup_n_u16(pair)));
  }
}

// (wl * left + wr * right + 128) >> 8 in 16-bit lanes (sum at most 65280).
inline uint16x8_t Blend8(uint16x8_t left, uint16x8_t wl, uint16x8_t right, uint16x8_t wr) {
  return vrshrq_n_u16(vmlaq_u16(vmulq_u16(left, wl), right, wr), 8);
}

// ((256 - fy) * h0 + fy * h1 + 128) >> 8 narrowed to 8 bits.
inline uint8x8_t Vertical8(uint16x8_t h0, uint16x8_t h1, uint16_t fy) {
  return vrshrn_n_u16(vmlaq_n_u16(vmulq_n_u16(h0, static_cast<uint16_t>(256 - fy)), h1, fy), 8);
}

// ---------------------------------------------------------------------------
// Ratio 2: 16 bytes a step from 8 + 1 low bytes of two rows.

template <int E>
inline void MidpointStep(const uint8_t *s, const uint16_t *m, uint8_t *d, const uint8_t *b0,
                         const uint8_t *b1, int32_t e0, uint16_t alpha) {
  const int32_t at = E * (e0 >> 1);  // low byte of element e0 / 2
  const uint16x8_t sum = vaddq_u16(vaddl_u8(vld1_u8(b0 + at), vld1_u8(b0 + at + E)),
                                   vaddl_u8(vld1_u8(b1 + at), vld1_u8(b1 + at + E)));
  const uint8x8_t u = vrshrn_n_u16(sum, 2);
  uint8x8_t u0, u1;
  uint16x8_t m0, m1;
  if constexpr (E == 1) {
    const uint8x8x2_t z = vzip_u8(u, u);
    u0 = z.val[0];
    u1 = z.val[1];
    m0 = vld1q_u16(m + e0);
    m1 = vld1q_u16(m + e0 + 8);
  } else {
    const uint16x4_t p = vreinterpret_u16_u8(u);
    const uint16x4x2_t z = vzip_u16(p, p);
    u0 = vreinterpret_u8_u16(z.val[0]);
    u1 = vreinterpret_u8_u16(z.val[1]);
    m0 = mix::PairWeights(m + 2 * e0);
    m1 = mix::PairWeights(m + 2 * e0 + 8);
  }
  const int32_t x = E * e0;
  const uint8x16_t sv = vld1q_u8(s + x);
  vst1q_u8(d + x, vcombine_u8(Mix8(vget_low_u8(sv), u0, m0, alpha),
                              Mix8(vget_high_u8(sv), u1, m1, alpha)));
}

template <int E>
void Midpoint(const ComposeCall &c) {
  const UpscalePlan u = scale::PlanUpscale<2, E>(c);
  if (!u.rows.ok) return;
  scale::ForEachOutputRow<2, E>(c, u, [&](ComposeRow<E> row, LowRows, bool) {
    for (int32_t e = 0; e < u.body; e += 16 / E) {
      MidpointStep<E>(row.s, row.m, row.d, row.b0, row.b1, e, c.alpha);
    }
    scale::MidpointElems<E>(row, u, u.body, u.elems, c.alpha);
  });
}

// ---------------------------------------------------------------------------
// Ratios 4 and 8: 8 bytes a step (16 for chroma at ratio 8) with the fixed
// sub-position weights of the ratio.

// Left/right weights of the 8 bytes that start at sub-position `sub`.
template <int N, int E>
inline void BilinearWeights(int sub, uint16x8_t *wl, uint16x8_t *wr) {
  uint16_t l[8], r[8];
  for (int i = 0; i < 8; ++i) {
    const int j = (sub + i / E) % N;
    r[i] = static_cast<uint16_t>(256 * j / N);
    l[i] = static_cast<uint16_t>(256 - r[i]);
  }
  *wl = vld1q_u16(l);
  *wr = vld1q_u16(r);
}

// One group of 8 output bytes whose elements all lie between low elements c
// and c + 1 (E = 2, or N = 8) or span c .. c + 2 (E = 1, N = 4).
template <int N, int E>
inline void BilinearGroup(const uint8_t *s, const uint16_t *m, uint8_t *d, const uint8_t *b0,
                          const uint8_t *b1, uint32_t fy, bool vertical, int32_t e0, uint16x8_t wl,
                          uint16x8_t wr, uint16_t alpha) {
  const int32_t c = e0 / N;
  uint16x8_t l0, r0, l1, r1;
  if constexpr (N == 4 && E == 1) {  // elements c, c, c, c, c+1, c+1, c+1, c+1
    l0 = vcombine_u16(vdup_n_u16(b0[c]), vdup_n_u16(b0[c + 1]));
    r0 = vcombine_u16(vdup_n_u16(b0[c + 1]), vdup_n_u16(b0[c + 2]));
    l1 = vcombine_u16(vdup_n_u16(b1[c]), vdup_n_u16(b1[c + 1]));
    r1 = vcombine_u16(vdup_n_u16(b1[c + 1]), vdup_n_u16(b1[c + 2]));
  } else {
    l0 = Splat<E>(b0, c);
    r0 = Splat<E>(b0, c + 1);
    l1 = Splat<E>(b1, c);
    r1 = Splat<E>(b1, c + 1);
  }
  const uint16x8_t h0 = Blend8(l0, wl, r0, wr);
  const uint8x8_t u =
      vertical ? Vertical8(h0, Blend8(l1, wl, r1, wr), static_cast<uint16_t>(fy)) : vmovn_u16(h0);
  const int32_t x = E * e0;
  vst1_u8(d + x, Mix8(vld1_u8(s + x), u, Weights8<E>(m, e0), alpha));
}

template <int N, int E>
void Bilinear(const ComposeCall &c) {
  const UpscalePlan u = scale::PlanUpscale<N, E>(c);
  if (!u.rows.ok) return;
  constexpr int32_t kGroupElems = 8 / E;  // elements of one 8-byte group
  // Weights of the groups of a period of N elements.
  constexpr int kGroups = (N * E) / 8 > 0 ? (N * E) / 8 : 1;
  uint16x8_t wl[kGroups], wr[kGroups];
  for (int g = 0; g < kGroups; ++g) BilinearWeights<N, E>(g * kGroupElems, &wl[g], &wr[g]);
  scale::ForEachOutputRow<N, E>(c, u, [&](ComposeRow<E> row, LowRows lr, bool vertical) {
    for (int32_t e = 0; e < u.body; e += kGroupElems) {
      const int g = static_cast<int>((e % N) / kGroupElems);
      BilinearGroup<N, E>(row.s, row.m, row.d, row.b0, row.b1, lr.fy, vertical, e, wl[g], wr[g],
                          c.alpha);
    }
    scale::BilinearElems<N, E>(row, u, lr, vertical, u.body, u.elems, c.alpha);
  });
}

// ---------------------------------------------------------------------------
// Ratio 6: 24 bytes a step from element 1 with the fixed 8-bit weights of
// sub-positions 1..6; one step spans 4 low luma columns or 2 low chroma pairs.

// Per group g of 8 byte lanes of a step: the lanes take their left sample
// from low element base[g] where `first[g]` is set and from base[g] + 1
// elsewhere (their right sample one element further), and their left and
// right weights. Elements are counted from the step's first low element.
template <int E>
struct Ratio6Tables {
  uint16x8_t first[3];
  int32_t base[3];
  uint16x8_t wl[3];
  uint16x8_t wr[3];
  Ratio6Tables() {
    for (int g = 0; g < 3; ++g) {
      uint16_t f[8], l[8], r[8];
      base[g] = (8 * g / E) / 6;
      for (int i = 0; i < 8; ++i) {
        const int j = (8 * g + i) / E;  // element within the step
        f[i] = j / 6 == base[g] ? 0xFFFF : 0;
        l[i] = scale::kRatio6Left[j % 6];
        r[i] = scale::kRatio6Right[j % 6];
      }
      first[g] = vld1q_u16(f);
      wl[g] = vld1q_u16(l);
      wr[g] = vld1q_u16(r);
    }
  }
};

// Horizontal blend of one group of a low row: (wl * left + wr * right + 128)
// >> 8, within 16 bits since wl + wr <= 256. v holds the step's low elements
// 0..4 splatted.
template <int E>
inline uint16x8_t Ratio6Row(const uint16x8_t *v, const Ratio6Tables<E> &t, int g) {
  const int32_t k = t.base[g];
  const uint16x8_t left = vbslq_u16(t.first[g], v[k], v[k + 1]);
  const uint16x8_t right = vbslq_u16(t.first[g], v[k + 1], v[k + 2]);
  return vrshrq_n_u16(vmlaq_u16(vmulq_u16(left, t.wl[g]), right, t.wr[g]), 8);
}

template <int E>
inline void Ratio6Step(const uint8_t *s, const uint16_t *m, uint8_t *d, const uint8_t *b0,
                       const uint8_t *b1, int32_t lowElems, uint32_t fy, int32_t e0,
                       const Ratio6Tables<E> &t, uint16_t alpha) {
  const int32_t c0 = (e0 - 1) / 6;  // first low element of the step
  // Elements c0..c0 + 4 of both rows (indices past the row, never selected
  // by a lane, are clamped to stay inside it).
  uint16x8_t v0[5], v1[5];
  for (int32_t i = 0; i < 5; ++i) {
    const int32_t c = Min(c0 + i, lowElems - 1);
    v0[i] = Splat<E>(b0, c);
    v1[i] = Splat<E>(b1, c);
  }
  const uint16x8_t top = vdupq_n_u16(static_cast<uint16_t>((256 - fy) & 255));
  const uint16x8_t bottom = vdupq_n_u16(static_cast<uint16_t>(fy));
  const int32_t x = E * e0;
  for (int g = 0; g < 3; ++g) {
    const uint16x8_t h0 = Ratio6Row<E>(v0, t, g);
    const uint16x8_t h1 = Ratio6Row<E>(v1, t, g);
    // top + bottom is 256, or 0 when fy is 0: the sum stays within 16 bits.
    const uint16x8_t u = vrshrq_n_u16(vmlaq_u16(vmulq_u16(h0, top), h1, bottom), 8);
    const uint16x8_t mw = E == 1 ? vld1q_u16(m + e0 + 8 * g) : mix::PairWeights(m + 2 * e0 + 8 * g);
    vst1_u8(d + x + 8 * g, Mix8(vld1_u8(s + x + 8 * g), vmovn_u16(u), mw, alpha));
  }
}

template <int E>
void Ratio6(const ComposeCall &c) {
  const UpscalePlan u = scale::PlanUpscale<6, E>(c);
  if (!u.rows.ok) return;
  static const Ratio6Tables<E> tables;
  scale::ForEachOutputRow<6, E>(c, u, [&](ComposeRow<E> row, LowRows lr, bool vertical) {
    int32_t e = 0;
    if (vertical) {  // element 0 one at a time, then steps over elements 1..body
      scale::Ratio6Elems<E>(row, u, lr, vertical, 0, 1, c.alpha);
      for (e = 1; e <= u.body; e += 24 / E) {
        Ratio6Step<E>(row.s, row.m, row.d, row.b0, row.b1, u.lowElems, lr.fy, e, tables, c.alpha);
      }
    }
    scale::Ratio6Elems<E>(row, u, lr, vertical, e, u.elems, c.alpha);
  });
}

}  // namespace

PB_COMPOSE_KERNEL(UpscaleComposeLuma2_NEON) {
  Midpoint<1>({"UpscaleComposeLuma2", src, width, height, lowWidth, lowHeight, weight, blurred, dst,
               rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeLuma4_NEON) {
  Bilinear<4, 1>({"UpscaleComposeLuma4", src, width, height, lowWidth, lowHeight, weight, blurred,
                  dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeLuma6_NEON) {
  Ratio6<1>({"UpscaleComposeLuma6", src, width, height, lowWidth, lowHeight, weight, blurred, dst,
             rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeLuma8_NEON) {
  Bilinear<8, 1>({"UpscaleComposeLuma8", src, width, height, lowWidth, lowHeight, weight, blurred,
                  dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeChroma2_NEON) {
  Midpoint<2>({"UpscaleComposeChroma2", src, width, height, lowWidth, lowHeight, weight, blurred,
               dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeChroma4_NEON) {
  Bilinear<4, 2>({"UpscaleComposeChroma4", src, width, height, lowWidth, lowHeight, weight,
                  blurred, dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeChroma6_NEON) {
  Ratio6<2>({"UpscaleComposeChroma6", src, width, height, lowWidth, lowHeight, weight, blurred,
             dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeChroma8_NEON) {
  Bilinear<8, 2>({"UpscaleComposeChroma8", src, width, height, lowWidth, lowHeight, weight,
                  blurred, dst, rowFirst, rowLast, alpha});
}

}  // namespace pb
