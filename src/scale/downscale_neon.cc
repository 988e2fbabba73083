// Vector downscale kernels. Same results as the scalar kernels in
// downscale_c.cc, byte for byte: the vector steps use only exact widening adds
// and rounding shifts; columns they do not cover go one at a time.
#include "scale/downscale.h"
#include "scale/scale_internal.h"
#include "simd/neon.h"

namespace pb {
namespace {

using scale::DownscaleRows;
using scale::Offset;
using scale::PlanDownscale;
using scale::ReduceColumn;
using scale::ReduceSpaced;

// Sum of N rows (`stride` apart) of 8 bytes, weighted as the reduction of N.
template <int N>
inline uint16x8_t ColumnSum8(const uint8_t *p, ptrdiff_t stride) {
  const uint8x8_t t0 = vld1_u8(p);
  const uint8x8_t t1 = vld1_u8(p + stride);
  uint16x8_t sum = vaddl_u8(t0, t1);
  if constexpr (N >= 4) {
    const uint16x8_t mid = vaddl_u8(vld1_u8(p + 2 * stride), vld1_u8(p + 3 * stride));
    sum = vaddq_u16(sum, N == 6 ? vshlq_n_u16(mid, 1) : mid);
  }
  if constexpr (N >= 6) {
    sum = vaddq_u16(sum, vaddl_u8(vld1_u8(p + 4 * stride), vld1_u8(p + 5 * stride)));
  }
  if constexpr (N == 8) {
    sum = vaddq_u16(sum, vaddl_u8(vld1_u8(p + 6 * stride), vld1_u8(p + 7 * stride)));
  }
  return sum;
}

// Rounded reduction of 8 columns at once.
template <int N>
inline uint8x8_t ReduceColumns8(const uint8_t *p, ptrdiff_t stride) {
  if constexpr (N == 2) {
    return vrhadd_u8(vld1_u8(p), vld1_u8(p + stride));
  } else if constexpr (N == 4) {
    return vrshrn_n_u16(ColumnSum8<4>(p, stride), 2);
  } else {
    return vrshrn_n_u16(ColumnSum8<N>(p, stride), 3);
  }
}

// Pass 2 over bytes [0, bytes) of every reduced row: 16 bytes a step, then 8,
// then one at a time.
template <int N>
void VerticalPass(const DownscaleRows &p, const uint8_t *xinterp, uint8_t *dst, int32_t lowWidth,
                  int32_t bytes) {
  const ptrdiff_t stride = lowWidth;
  for (int32_t j = p.first; j <= p.last; ++j) {
    const uint8_t *t = xinterp + Offset(p.fv * j, lowWidth);
    uint8_t *out = dst + Offset(j, lowWidth);
    int32_t x = 0;
    for (; x + 16 <= bytes; x += 16) {
      vst1q_u8(out + x,
               vcombine_u8(ReduceColumns8<N>(t + x, stride), ReduceColumns8<N>(t + x + 8, stride)));
    }
    for (; x + 8 <= bytes; x += 8) vst1_u8(out + x, ReduceColumns8<N>(t + x, stride));
    for (; x < bytes; ++x) out[x] = ReduceColumn<N>(t + x, stride);
  }
}

// Horizontal reduction of 8 outputs from 8 * N contiguous source bytes.
template <int N>
inline uint8x8_t ReduceContiguous8(const uint8_t *s);

template <>
inline uint8x8_t ReduceContiguous8<2>(const uint8_t *s) {
  return vrshrn_n_u16(vpaddlq_u8(vld1q_u8(s)), 1);
}

template <>
inline uint8x8_t ReduceContiguous8<4>(const uint8_t *s) {
  const uint16x8_t sum = vpaddq_u16(vpaddlq_u8(vld1q_u8(s)), vpaddlq_u8(vld1q_u8(s + 16)));
  return vrshrn_n_u16(sum, 2);
}

// 48 bytes: de-interleaved by 3, each lane pair (2k, 2k + 1) of the three
// vectors holds the six taps of output k.
template <>
inline uint8x8_t ReduceContiguous8<6>(const uint8_t *s) {
  const uint8x16x3_t v = vld3q_u8(s);
  const uint16x8_t mask = vdupq_n_u16(0xff);
  const uint16x8_t a = vreinterpretq_u16_u8(v.val[0]);  // taps 0 (low) and 3 (high)
  const uint16x8_t b = vreinterpretq_u16_u8(v.val[1]);  // taps 1 and 4
  const uint16x8_t c = vreinterpretq_u16_u8(v.val[2]);  // taps 2 and 5
  const uint16x8_t outer = vaddq_u16(vaddq_u16(vandq_u16(a, mask), vandq_u16(b, mask)),
                                     vaddq_u16(vshrq_n_u16(b, 8), vshrq_n_u16(c, 8)));
  const uint16x8_t middle = vaddq_u16(vandq_u16(c, mask), vshrq_n_u16(a, 8));
  return vrshrn_n_u16(vaddq_u16(outer, vshlq_n_u16(middle, 1)), 3);
}

// 64 bytes: de-interleaved by 4, lanes 2k and 2k + 1 of the four vectors hold
// the eight taps of output k.
template <>
inline uint8x8_t ReduceContiguous8<8>(const uint8_t *s) {
  const uint8x16x4_t v = vld4q_u8(s);
  uint16x8_t sum = vpaddlq_u8(v.val[0]);
  sum = vpadalq_u8(sum, v.val[1]);
  sum = vpadalq_u8(sum, v.val[2]);
  sum = vpadalq_u8(sum, v.val[3]);
  return vrshrn_n_u16(sum, 3);
}

// Luma members whose every column reads from fh * x: contiguous vector steps
// when fh == N, one output at a time otherwise and for the last columns.
template <int N>
void DownscaleLumaStrided(const char *name, const uint8_t *src, uint8_t *dst, uint8_t *xinterp,
                          int32_t width, int32_t height, int32_t lowWidth, int32_t lowHeight,
                          int32_t lowRowFirst, int32_t lowRowLast) {
  const DownscaleRows p = PlanDownscale(name, N, src, dst, xinterp, width, height, lowWidth,
                                        lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  const int32_t body = p.fh == N ? (lowWidth & ~7) : 0;
  for (int32_t y = p.fv * p.first; y <= p.fv * p.last + N - 1; ++y) {
    const uint8_t *s = src + Offset(y, width);
    uint8_t *o = xinterp + Offset(y, lowWidth);
    for (int32_t x = 0; x < body; x += 8) vst1_u8(o + x, ReduceContiguous8<N>(s + N * x));
    for (int32_t x = body; x < lowWidth; ++x) o[x] = ReduceSpaced<N>(s + p.fh * x, 1);
  }
  VerticalPass<N>(p, xinterp, dst, lowWidth, lowWidth);
}

template <int N>
void DownscaleChromaStrided(const char *name, const uint8_t *src, uint8_t *dst, uint8_t *xinterp,
                            int32_t width, int32_t height, int32_t lowWidth, int32_t lowHeight,
                            int32_t lowRowFirst, int32_t lowRowLast) {
  if (lowWidth < 2) return;
  const DownscaleRows p = PlanDownscale(name, N, src, dst, xinterp, width, height, lowWidth,
                                        lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  const int32_t pairs = lowWidth / 2;
  for (int32_t y = p.fv * p.first; y <= p.fv * p.last + N - 1; ++y) {
    const uint8_t *s = src + Offset(y, width);
    uint8_t *o = xinterp + Offset(y, lowWidth);
    for (int32_t k = 0; k < pairs; ++k) {
      const uint8_t *c = s + 2 * p.fh * k;
      o[2 * k] = ReduceSpaced<N>(c, 2);
      o[2 * k + 1] = ReduceSpaced<N>(c + 1, 2);
    }
  }
  VerticalPass<N>(p, xinterp, dst, lowWidth, 2 * pairs);
}

}  // namespace

PB_DOWNSCALE_KERNEL(DownscaleLuma2_NEON) {
  const char *const name = "DownscaleLuma2";
  const DownscaleRows p = PlanDownscale(name, 2, src, dst, xinterp, width, height, lowWidth,
                                        lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  const int32_t body = lowWidth & ~7;
  for (int32_t y = p.fv * p.first; y <= p.fv * p.last + 1; ++y) {
    const uint8_t *s = src + Offset(y, width);
    uint8_t *o = xinterp + Offset(y, lowWidth);
    int32_t x = 0;
    for (; x + 16 <= body; x += 16) {
      vst1q_u8(o + x,
               vcombine_u8(ReduceContiguous8<2>(s + 2 * x), ReduceContiguous8<2>(s + 2 * x + 16)));
    }
    for (; x < body; x += 8) vst1_u8(o + x, ReduceContiguous8<2>(s + 2 * x));
    for (; x < lowWidth; ++x) o[x] = ReduceSpaced<2>(s + 2 * body + p.fh * (x - body), 1);
  }
  VerticalPass<2>(p, xinterp, dst, lowWidth, lowWidth);
}

PB_DOWNSCALE_KERNEL(DownscaleLuma4_NEON) {
  const char *const name = "DownscaleLuma4";
  const DownscaleRows p = PlanDownscale(name, 4, src, dst, xinterp, width, height, lowWidth,
                                        lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  const int32_t body = lowWidth & ~7;
  for (int32_t y = p.fv * p.first; y <= p.fv * p.last + 3; ++y) {
    const uint8_t *s = src + Offset(y, width);
    uint8_t *o = xinterp + Offset(y, lowWidth);
    for (int32_t x = 0; x < body; x += 8) vst1_u8(o + x, ReduceContiguous8<4>(s + p.fh * x));
    for (int32_t x = body; x < lowWidth; ++x) o[x] = ReduceSpaced<4>(s + p.fh * x, 1);
  }
  VerticalPass<4>(p, xinterp, dst, lowWidth, lowWidth);
}

PB_DOWNSCALE_KERNEL(DownscaleLuma6_NEON) {
  DownscaleLumaStrided<6>("DownscaleLuma6", src, dst, xinterp, width, height, lowWidth, lowHeight,
                          lowRowFirst, lowRowLast);
}

PB_DOWNSCALE_KERNEL(DownscaleLuma8_NEON) {
  DownscaleLumaStrided<8>("DownscaleLuma8", src, dst, xinterp, width, height, lowWidth, lowHeight,
                          lowRowFirst, lowRowLast);
}

// 64 source bytes (32 pairs) give 16 reduced pairs a step: de-interleaved by
// 4, bytes 4k, 4k + 2 are the U samples of reduced pair k and 4k + 1, 4k + 3
// its V samples.
PB_DOWNSCALE_KERNEL(DownscaleChroma2_NEON) {
  const char *const name = "DownscaleChroma2";
  const DownscaleRows p = PlanDownscale(name, 2, src, dst, xinterp, width, height, lowWidth,
                                        lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  const int32_t pairs = lowWidth / 2;
  for (int32_t y = p.fv * p.first; y <= p.fv * p.last + 1; ++y) {
    const uint8_t *s = src + Offset(y, width);
    uint8_t *o = xinterp + Offset(y, lowWidth);
    int32_t k = 0;
    for (; k + 16 <= pairs; k += 16) {
      const uint8x16x4_t v = vld4q_u8(s + 4 * k);
      uint8x16x2_t uv;
      uv.val[0] = vrhaddq_u8(v.val[0], v.val[2]);
      uv.val[1] = vrhaddq_u8(v.val[1], v.val[3]);
      vst2q_u8(o + 2 * k, uv);
    }
    for (; k < pairs; ++k) {
      o[2 * k] = ReduceSpaced<2>(s + 4 * k, 2);
      o[2 * k + 1] = ReduceSpaced<2>(s + 4 * k + 1, 2);
    }
  }
  VerticalPass<2>(p, xinterp, dst, lowWidth, lowWidth);
}

PB_DOWNSCALE_KERNEL(DownscaleChroma4_NEON) {
  DownscaleChromaStrided<4>("DownscaleChroma4", src, dst, xinterp, width, height, lowWidth,
                            lowHeight, lowRowFirst, lowRowLast);
}

PB_DOWNSCALE_KERNEL(DownscaleChroma6_NEON) {
  DownscaleChromaStrided<6>("DownscaleChroma6", src, dst, xinterp, width, height, lowWidth,
                            lowHeight, lowRowFirst, lowRowLast);
}

PB_DOWNSCALE_KERNEL(DownscaleChroma8_NEON) {
  DownscaleChromaStrided<8>("DownscaleChroma8", src, dst, xinterp, width, height, lowWidth,
                            lowHeight, lowRowFirst, lowRowLast);
}

}  // namespace pb
