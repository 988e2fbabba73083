// Vector upscale-and-composite kernels; byte-identical to the scalar kernels
// of upscale_compose_c.cc. Positions count elements: one byte for luma
// (E = 1), one U,V pair for chroma (E = 2). The vector steps mix with
// unsigned 16-bit lane arithmetic; the elements they do not cover are done one
// at a time with the signed arithmetic of the scalar kernels.
#include <cstring>

#include "scale/compose.h"
#include "scale/scale_internal.h"
#include "simd/neon.h"

namespace pb {
namespace {

using scale::ComposeRow;
using scale::LowRows;
using scale::LowRowsAt;
using scale::MakeComposeRow;
using scale::Max;
using scale::Min;
using scale::PlanUpscale;
using scale::UpscalePlan;

// ---------------------------------------------------------------------------
// Vector helpers.

// w = (m * alpha + 64) >> 7 kept in 16 bits, 1024 - w wrapping in 16 bits,
// 32-bit products, (acc + 512) >> 10 narrowed to 16 bits, saturated to 8.
inline uint8x8_t Mix8(uint8x8_t s, uint8x8_t u, uint16x8_t m, uint16_t alpha) {
  const uint16x8_t w = vcombine_u16(vrshrn_n_u32(vmull_n_u16(vget_low_u16(m), alpha), 7),
                                    vrshrn_n_u32(vmull_n_u16(vget_high_u16(m), alpha), 7));
  const uint16x8_t iw = vsubq_u16(vdupq_n_u16(1024), w);
  const uint16x8_t u16 = vmovl_u8(u);
  const uint16x8_t s16 = vmovl_u8(s);
  uint32x4_t lo = vmull_u16(vget_low_u16(w), vget_low_u16(u16));
  lo = vmlal_u16(lo, vget_low_u16(iw), vget_low_u16(s16));
  uint32x4_t hi = vmull_u16(vget_high_u16(w), vget_high_u16(u16));
  hi = vmlal_u16(hi, vget_high_u16(iw), vget_high_u16(s16));
  return vqmovn_u16(vcombine_u16(vrshrn_n_u32(lo, 10), vrshrn_n_u32(hi, 10)));
}

// Weights of 4 chroma pairs (map entries 0, 2, 4, 6), each repeated for U and V.
inline uint16x8_t PairWeights4(const uint16_t *m) {
  const uint16x4_t even = vld2_u16(m).val[0];
  const uint16x4x2_t z = vzip_u16(even, even);
  return vcombine_u16(z.val[0], z.val[1]);
}

// Weights of 8 chroma pairs (map entries 0, 2, ..., 14), each repeated for U and V.
inline uint16x8x2_t PairWeights8(const uint16_t *m) {
  const uint16x8_t even = vld2q_u16(m).val[0];
  return vzipq_u16(even, even);
}

// Weights of the 8 bytes starting at element e0 of a row.
template <int E>
inline uint16x8_t Weights8(const uint16_t *m, int32_t e0) {
  if constexpr (E == 1) {
    return vld1q_u16(m + e0);
  } else {
    return PairWeights4(m + 2 * e0);
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
    const uint16x8x2_t w = PairWeights8(m + 2 * e0);
    m0 = w.val[0];
    m1 = w.val[1];
  }
  const int32_t x = E * e0;
  const uint8x16_t sv = vld1q_u8(s + x);
  vst1q_u8(d + x, vcombine_u8(Mix8(vget_low_u8(sv), u0, m0, alpha),
                              Mix8(vget_high_u8(sv), u1, m1, alpha)));
}

template <int E>
void Midpoint(const char *name, const uint8_t *src, int32_t width, int32_t height, int32_t lowWidth,
              int32_t lowHeight, const uint16_t *weight, const uint8_t *blurred, uint8_t *dst,
              int32_t rowFirst, int32_t rowLast, uint8_t alpha) {
  const UpscalePlan u = PlanUpscale<2, E>(name, src, weight, blurred, dst, width, height, lowWidth,
                                          lowHeight, rowFirst, rowLast);
  if (!u.rows.ok) return;
  constexpr int32_t kStepElems = 16 / E;
  const int32_t body = u.body;
  const int32_t yStart = u.rows.first < u.rows.last ? u.rows.first : Max(u.rows.last - 1, 0);
  for (int32_t y = yStart; y <= u.rows.last; ++y) {
    const int32_t r = Min(y >> 1, lowHeight - 1);
    const int32_t r1 = Min(r + 1, lowHeight - 1);
    const ComposeRow<E> row =
        MakeComposeRow<E>(src, weight, blurred, dst, width, lowWidth, y, r, r1);
    for (int32_t e = 0; e < body; e += kStepElems) {
      MidpointStep<E>(row.s, row.m, row.d, row.b0, row.b1, e, alpha);
    }
    scale::MidpointElems<E>(row, u, body, u.elems, alpha);
  }
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
void Bilinear(const char *name, const uint8_t *src, int32_t width, int32_t height, int32_t lowWidth,
              int32_t lowHeight, const uint16_t *weight, const uint8_t *blurred, uint8_t *dst,
              int32_t rowFirst, int32_t rowLast, uint8_t alpha) {
  const UpscalePlan u = PlanUpscale<N, E>(name, src, weight, blurred, dst, width, height, lowWidth,
                                          lowHeight, rowFirst, rowLast);
  if (!u.rows.ok) return;
  constexpr int32_t kGroupElems = 8 / E;  // elements of one 8-byte group
  const int32_t body = u.body;
  // Weights of the groups of a period of N elements.
  constexpr int kGroups = (N * E) / 8 > 0 ? (N * E) / 8 : 1;
  uint16x8_t wl[kGroups], wr[kGroups];
  for (int g = 0; g < kGroups; ++g) BilinearWeights<N, E>(g * kGroupElems, &wl[g], &wr[g]);

  for (int32_t y = u.rows.first; y <= u.rows.last; ++y) {
    const LowRows lr = LowRowsAt(u.stepY, y, lowHeight);
    const bool vertical = y < u.flatFrom;
    const ComposeRow<E> row =
        MakeComposeRow<E>(src, weight, blurred, dst, width, lowWidth, y, lr.r, lr.r1);
    for (int32_t e = 0; e < body; e += kGroupElems) {
      const int g = static_cast<int>((e % N) / kGroupElems);
      BilinearGroup<N, E>(row.s, row.m, row.d, row.b0, row.b1, lr.fy, vertical, e, wl[g], wr[g],
                          alpha);
    }
    scale::BilinearElems<N, E>(row, u, lr, vertical, body, u.elems, alpha);
  }
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

// Weights of the 4 pairs of 8 chroma bytes from 8 map entries: the even
// entries, each repeated for the pair's U and V lane (little-endian 32-bit
// lanes: entry 2k is the low half of lane k).
inline uint16x8_t PairWeightsEven(const uint16_t *m) {
  const uint32x4_t e = vandq_u32(vreinterpretq_u32_u16(vld1q_u16(m)), vdupq_n_u32(0xFFFF));
  return vreinterpretq_u16_u32(vorrq_u32(e, vshlq_n_u32(e, 16)));
}

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
    const uint16x8_t mw = E == 1 ? vld1q_u16(m + e0 + 8 * g) : PairWeightsEven(m + 2 * e0 + 8 * g);
    vst1_u8(d + x + 8 * g, Mix8(vld1_u8(s + x + 8 * g), vmovn_u16(u), mw, alpha));
  }
}

template <int E>
void Ratio6(const char *name, const uint8_t *src, int32_t width, int32_t height, int32_t lowWidth,
            int32_t lowHeight, const uint16_t *weight, const uint8_t *blurred, uint8_t *dst,
            int32_t rowFirst, int32_t rowLast, uint8_t alpha) {
  const UpscalePlan u = PlanUpscale<6, E>(name, src, weight, blurred, dst, width, height, lowWidth,
                                          lowHeight, rowFirst, rowLast);
  if (!u.rows.ok) return;
  constexpr int32_t kStepElems = 24 / E;
  const int32_t body = u.body, lowElems = u.lowElems;
  static const Ratio6Tables<E> tables;
  for (int32_t y = u.rows.first; y <= u.rows.last; ++y) {
    const LowRows lr = LowRowsAt(u.stepY, y, lowHeight);
    const bool vertical = y != 0 && y < u.flatFrom;
    const ComposeRow<E> row =
        MakeComposeRow<E>(src, weight, blurred, dst, width, lowWidth, y, lr.r, lr.r1);
    int32_t e = 0;
    if (vertical) {  // element 0 one at a time, then steps over elements 1..body
      scale::Ratio6Elems<E>(row, u, lr, vertical, 0, 1, alpha);
      for (e = 1; e <= body; e += kStepElems) {
        Ratio6Step<E>(row.s, row.m, row.d, row.b0, row.b1, lowElems, lr.fy, e, tables, alpha);
      }
    }
    scale::Ratio6Elems<E>(row, u, lr, vertical, e, u.elems, alpha);
  }
}

}  // namespace

PB_DEFINE_UPSCALE_COMPOSE_KERNELS(_NEON)

}  // namespace pb
