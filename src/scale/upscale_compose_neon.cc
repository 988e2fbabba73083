// Vector upscale-and-composite kernels; byte-identical to the scalar kernels
// of upscale_compose_c.cc. Positions count elements: one byte for luma
// (E = 1), one U,V pair for chroma (E = 2). The vector steps mix with
// unsigned 16-bit lane arithmetic; the elements they do not cover are done one
// at a time with the signed arithmetic of the scalar kernels.
#include <climits>
#include <cstring>

#include "scale/compose.h"
#include "scale/scale_internal.h"
#include "simd/neon.h"

namespace pb {
namespace {

using scale::Blend;
using scale::ComposeRows;
using scale::FloorTo;
using scale::Max;
using scale::Min;
using scale::MixOne;
using scale::Offset;
using scale::PlanCompose;
using scale::Step16;

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

// Low rows, position and vertical mode of one output row.
struct RowPos {
  int32_t r, r1;
  uint32_t fy;
  bool vertical;
};

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
  const ComposeRows p = PlanCompose(name, E, src, weight, blurred, dst, width, height, lowWidth,
                                    lowHeight, rowFirst, rowLast);
  const int32_t elems = width / E;
  const int32_t lowElems = lowWidth / E;
  if (!p.ok) return;
  const int32_t stepElems = 16 / E;
  const int32_t body = Min(FloorTo(elems - 2, stepElems), FloorTo(2 * (lowElems - 1), stepElems));
  const int32_t yStart = p.first < p.last ? p.first : Max(p.last - 1, 0);
  for (int32_t y = yStart; y <= p.last; ++y) {
    const int32_t r = Min(y >> 1, lowHeight - 1);
    const int32_t r1 = Min(r + 1, lowHeight - 1);
    const uint8_t *s = src + Offset(y, width);
    const uint16_t *m = weight + Offset(E * y, width);
    uint8_t *d = dst + Offset(y, width);
    const uint8_t *b0 = blurred + Offset(r, lowWidth);
    const uint8_t *b1 = blurred + Offset(r1, lowWidth);
    for (int32_t e = 0; e < body; e += stepElems) MidpointStep<E>(s, m, d, b0, b1, e, alpha);
    for (int32_t e = body; e < elems; ++e) {
      const int32_t c = Min(e >> 1, lowElems - 1);
      const int32_t c1 = e < elems - 2 ? Min(c + 1, lowElems - 1) : c;
      for (int32_t k = 0; k < E; ++k) {
        const int32_t x = E * e + k;
        const int32_t u =
            (b0[E * c + k] + b0[E * c1 + k] + b1[E * c + k] + b1[E * c1 + k] + 2) >> 2;
        d[x] = MixOne<false>(s[x], u, m[E * e], alpha);
      }
    }
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
                          const uint8_t *b1, const RowPos &rp, int32_t e0, uint16x8_t wl,
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
  const uint8x8_t u = rp.vertical
                          ? Vertical8(h0, Blend8(l1, wl, r1, wr), static_cast<uint16_t>(rp.fy))
                          : vmovn_u16(h0);
  const int32_t x = E * e0;
  vst1_u8(d + x, Mix8(vld1_u8(s + x), u, Weights8<E>(m, e0), alpha));
}

template <int N, int E>
void Bilinear(const char *name, const uint8_t *src, int32_t width, int32_t height, int32_t lowWidth,
              int32_t lowHeight, const uint16_t *weight, const uint8_t *blurred, uint8_t *dst,
              int32_t rowFirst, int32_t rowLast, uint8_t alpha) {
  const ComposeRows p = PlanCompose(name, E, src, weight, blurred, dst, width, height, lowWidth,
                                    lowHeight, rowFirst, rowLast);
  const int32_t elems = width / E;
  const int32_t lowElems = lowWidth / E;
  if (!p.ok) return;
  const int32_t stepX = Step16(lowWidth, width);
  const int32_t stepY = Step16(lowHeight, height);
  constexpr int32_t kGroupElems = 8 / E;  // elements of one 8-byte group
  constexpr int32_t kStepElems = (N == 8 && E == 2 ? 16 : 8) / E;
  const int32_t body = Min(FloorTo(elems - N, kStepElems), FloorTo(N * (lowElems - 1), kStepElems));
  const int32_t plain = Max(elems - N, body);
  const int32_t flatFrom = p.last == height - 1 ? height - N : INT32_MAX;
  // Weights of the groups of a period of N elements.
  constexpr int kGroups = (N * E) / 8 > 0 ? (N * E) / 8 : 1;
  uint16x8_t wl[kGroups], wr[kGroups];
  for (int g = 0; g < kGroups; ++g) BilinearWeights<N, E>(g * kGroupElems, &wl[g], &wr[g]);

  for (int32_t y = p.first; y <= p.last; ++y) {
    const int32_t py = stepY * y;
    RowPos rp;
    rp.r = Min(py >> 16, lowHeight - 1);
    rp.r1 = Min(rp.r + 1, lowHeight - 1);
    rp.fy = (py >> 8) & 255;
    rp.vertical = y < flatFrom;
    const uint8_t *s = src + Offset(y, width);
    const uint16_t *m = weight + Offset(E * y, width);
    uint8_t *d = dst + Offset(y, width);
    const uint8_t *b0 = blurred + Offset(rp.r, lowWidth);
    const uint8_t *b1 = blurred + Offset(rp.r1, lowWidth);
    for (int32_t e = 0; e < body; e += kGroupElems) {
      const int g = static_cast<int>((e % N) / kGroupElems);
      BilinearGroup<N, E>(s, m, d, b0, b1, rp, e, wl[g], wr[g], alpha);
    }
    for (int32_t e = body; e < elems; ++e) {
      const int32_t px = stepX * e;
      const int32_t c = Min(px >> 16, lowElems - 1);
      const int32_t c1 = Min(c + 1, lowElems - 1);
      const uint32_t fx = e < plain ? (px >> 8) & 255 : 0;
      for (int32_t k = 0; k < E; ++k) {
        const int32_t x = E * e + k;
        uint32_t u = Blend(256 - fx, b0[E * c + k], fx, b0[E * c1 + k]);
        if (rp.vertical) {
          u = Blend(256 - rp.fy, u, rp.fy, Blend(256 - fx, b1[E * c + k], fx, b1[E * c1 + k]));
          if (u > 255) u = 255;
        }
        d[x] = MixOne<true>(s[x], static_cast<int32_t>(u), m[E * e], alpha);
      }
    }
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
                       const uint8_t *b1, int32_t lowElems, const RowPos &rp, int32_t e0,
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
  const uint16x8_t top = vdupq_n_u16(static_cast<uint16_t>((256 - rp.fy) & 255));
  const uint16x8_t bottom = vdupq_n_u16(static_cast<uint16_t>(rp.fy));
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
  const ComposeRows p = PlanCompose(name, E, src, weight, blurred, dst, width, height, lowWidth,
                                    lowHeight, rowFirst, rowLast);
  const int32_t elems = width / E;
  const int32_t lowElems = lowWidth / E;
  if (!p.ok) return;
  const int32_t stepX = Step16(lowWidth, width);
  const int32_t stepY = Step16(lowHeight, height);
  const int32_t stepElems = 24 / E;
  const int32_t body = Min(FloorTo(elems - 6, stepElems), FloorTo(6 * (lowElems - 1), stepElems));
  const int32_t plain = Max(elems - 5, body + 1);
  const int32_t flatFrom = p.last == height - 1 ? height - 5 : INT32_MAX;
  static const Ratio6Tables<E> tables;
  for (int32_t y = p.first; y <= p.last; ++y) {
    const int32_t py = stepY * y;
    RowPos rp;
    rp.r = Min(py >> 16, lowHeight - 1);
    rp.r1 = Min(rp.r + 1, lowHeight - 1);
    rp.fy = (py >> 8) & 255;
    rp.vertical = y != 0 && y < flatFrom;
    const uint32_t top = (256 - rp.fy) & 255;
    const uint8_t *s = src + Offset(y, width);
    const uint16_t *m = weight + Offset(E * y, width);
    uint8_t *d = dst + Offset(y, width);
    const uint8_t *b0 = blurred + Offset(rp.r, lowWidth);
    const uint8_t *b1 = blurred + Offset(rp.r1, lowWidth);
    int32_t e = 0;
    if (rp.vertical) {
      for (int32_t k = 0; k < E; ++k) {
        d[k] =
            MixOne<false>(s[k], static_cast<int32_t>(Blend(top, b0[k], rp.fy, b1[k])), m[0], alpha);
      }
      for (e = 1; e <= body; e += stepElems) {
        Ratio6Step<E>(s, m, d, b0, b1, lowElems, rp, e, tables, alpha);
      }
    }
    for (; e < elems; ++e) {
      const int32_t px = stepX * e;
      const int32_t c = Min(px >> 16, lowElems - 1);
      const int32_t c1 = Min(c + 1, lowElems - 1);
      const uint32_t fx = (e >= 1 && e < plain) ? (px >> 8) & 255 : 0;
      for (int32_t k = 0; k < E; ++k) {
        const int32_t x = E * e + k;
        uint32_t u = Blend(256 - fx, b0[E * c + k], fx, b0[E * c1 + k]);
        if (rp.vertical) {
          u = Blend(top, u, rp.fy, Blend(256 - fx, b1[E * c + k], fx, b1[E * c1 + k]));
        }
        d[x] = MixOne<false>(s[x], static_cast<int32_t>(u), m[E * e], alpha);
      }
    }
  }
}

}  // namespace

#define PB_FORWARD_COMPOSE(impl, name)                                                         \
  impl(name, src, width, height, lowWidth, lowHeight, weight, blurred, dst, rowFirst, rowLast, \
       alpha)

PB_COMPOSE_KERNEL(UpscaleComposeLuma2_NEON) {
  PB_FORWARD_COMPOSE(Midpoint<1>, "UpscaleComposeLuma2");
}
PB_COMPOSE_KERNEL(UpscaleComposeLuma4_NEON) {
  PB_FORWARD_COMPOSE((Bilinear<4, 1>), "UpscaleComposeLuma4");
}
PB_COMPOSE_KERNEL(UpscaleComposeLuma6_NEON) {
  PB_FORWARD_COMPOSE(Ratio6<1>, "UpscaleComposeLuma6");
}
PB_COMPOSE_KERNEL(UpscaleComposeLuma8_NEON) {
  PB_FORWARD_COMPOSE((Bilinear<8, 1>), "UpscaleComposeLuma8");
}
PB_COMPOSE_KERNEL(UpscaleComposeChroma2_NEON) {
  PB_FORWARD_COMPOSE(Midpoint<2>, "UpscaleComposeChroma2");
}
PB_COMPOSE_KERNEL(UpscaleComposeChroma4_NEON) {
  PB_FORWARD_COMPOSE((Bilinear<4, 2>), "UpscaleComposeChroma4");
}
PB_COMPOSE_KERNEL(UpscaleComposeChroma6_NEON) {
  PB_FORWARD_COMPOSE(Ratio6<2>, "UpscaleComposeChroma6");
}
PB_COMPOSE_KERNEL(UpscaleComposeChroma8_NEON) {
  PB_FORWARD_COMPOSE((Bilinear<8, 2>), "UpscaleComposeChroma8");
}

#undef PB_FORWARD_COMPOSE

}  // namespace pb
