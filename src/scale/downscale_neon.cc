// Vector downscale kernels. Same results as the scalar kernels in
// downscale_c.cc, byte for byte: the vector steps use only exact widening adds
// and rounding shifts; columns they do not cover go one at a time. Which
// columns the steps cover is said beside each scalar twin (downscale_c.cc).
#include "scale/downscale.h"
#include "scale/downscale_internal.h"
#include "simd/neon.h"

namespace pb {
namespace {

using scale::DownscaleCall;
using scale::DownscaleRows;
using scale::Offset;
using scale::ReduceChromaRun;
using scale::ReduceColumn;
using scale::ReduceLumaRun;
using scale::RunDownscale;

// Column sums of N rows of 16 bytes, weighted as the reduction of N, as two
// 16-bit halves (bytes 0..7 and 8..15).
template <int N>
inline void ColumnSum16(const uint8_t *p, ptrdiff_t stride, uint16x8_t *lo, uint16x8_t *hi) {
  const uint8x16_t zero = vdupq_n_u8(0);
  uint16x8_t l = vdupq_n_u16(0);
  uint16x8_t h = vdupq_n_u16(0);
  for (int i = 0; i < N; ++i) {
    const uint8x16_t v = vld1q_u8(p + i * stride);
    uint16x8_t vl = vreinterpretq_u16_u8(vzip1q_u8(v, zero));
    uint16x8_t vh = vreinterpretq_u16_u8(vzip2q_u8(v, zero));
    if (N == 6 && (i == 2 || i == 3)) {  // the ratio-6 weights 1, 1, 2, 2, 1, 1
      vl = vshlq_n_u16(vl, 1);
      vh = vshlq_n_u16(vh, 1);
    }
    l = vaddq_u16(l, vl);
    h = vaddq_u16(h, vh);
  }
  *lo = l;
  *hi = h;
}

// Rounded reduction of 16 columns at once.
template <int N>
inline uint8x16_t ReduceColumns16(const uint8_t *p, ptrdiff_t stride) {
  if constexpr (N == 2) {
    return vrhaddq_u8(vld1q_u8(p), vld1q_u8(p + stride));
  } else {
    constexpr int kShift = N == 4 ? 2 : 3;
    uint16x8_t lo, hi;
    ColumnSum16<N>(p, stride, &lo, &hi);
    // Each rounded sum fits 8 bits: narrowing by truncation is exact.
    const uint16x8_t a = vrshrq_n_u16(lo, kShift);
    const uint16x8_t b = vrshrq_n_u16(hi, kShift);
    return vcombine_u8(vqmovun_s16(vreinterpretq_s16_u16(a)), vqmovun_s16(vreinterpretq_s16_u16(b)));
  }
}

// Pass 2 over bytes [0, bytes) of every reduced row: 16 bytes a step, then one
// at a time.
template <int N>
void VerticalPass(const DownscaleRows &p, const uint8_t *xinterp, uint8_t *dst, int32_t lowWidth,
                  int32_t bytes) {
  const ptrdiff_t stride = lowWidth;
  for (int32_t j = p.first; j <= p.last; ++j) {
    const uint8_t *t = xinterp + Offset(p.fv * j, lowWidth);
    uint8_t *out = dst + Offset(j, lowWidth);
    int32_t x = 0;
    for (; x + 16 <= bytes; x += 16) vst1q_u8(out + x, ReduceColumns16<N>(t + x, stride));
    for (; x < bytes; ++x) out[x] = ReduceColumn<N>(t + x, stride);
  }
}

// Horizontal reduction by 2 of 32 contiguous bytes into 16: even and odd
// samples apart by unzipping, then a rounding halving add.
inline uint8x16_t ReducePairs16(const uint8_t *s) {
  const uint8x16_t a = vld1q_u8(s);
  const uint8x16_t b = vld1q_u8(s + 16);
  return vrhaddq_u8(vuzp1q_u8(a, b), vuzp2q_u8(a, b));
}

// Sums of the byte pairs of 16 bytes, in 16-bit lanes (little-endian lanes,
// as on both targets: the low byte of a lane is the pair's first sample).
inline uint16x8_t PairSums(const uint8_t *s) {
  const uint16x8_t v = vreinterpretq_u16_u8(vld1q_u8(s));
  return vaddq_u16(vandq_u16(v, vdupq_n_u16(0xff)), vshrq_n_u16(v, 8));
}

// Horizontal reduction by 8 of 64 contiguous bytes into 8 (16-bit lanes):
// pair sums, then sums of adjacent lanes twice, by unzipping.
inline uint16x8_t ReduceEights8(const uint8_t *s) {
  const uint16x8_t p0 = PairSums(s);
  const uint16x8_t p1 = PairSums(s + 16);
  const uint16x8_t p2 = PairSums(s + 32);
  const uint16x8_t p3 = PairSums(s + 48);
  const uint16x8_t q0 = vaddq_u16(vuzp1q_u16(p0, p1), vuzp2q_u16(p0, p1));
  const uint16x8_t q1 = vaddq_u16(vuzp1q_u16(p2, p3), vuzp2q_u16(p2, p3));
  return vrshrq_n_u16(vaddq_u16(vuzp1q_u16(q0, q1), vuzp2q_u16(q0, q1)), 3);
}

// Horizontal reduction by 4 of 32 contiguous bytes into 8.
inline uint8x8_t ReduceQuads8(const uint8_t *s) {
  const uint16x8_t sum = vpaddq_u16(vpaddlq_u8(vld1q_u8(s)), vpaddlq_u8(vld1q_u8(s + 16)));
  return vrshrn_n_u16(sum, 2);
}

// Ratio 8 luma: 16 outputs a step where fh == 8.
void Luma8Row(const uint8_t *s, uint8_t *o, int32_t fh, int32_t lowWidth) {
  const int32_t body = fh == 8 ? (lowWidth & ~15) : 0;
  for (int32_t x = 0; x < body; x += 16) {
    // Each lane holds a value below 256: its low byte is the result.
    vst1q_u8(o + x, vuzp1q_u8(vreinterpretq_u8_u16(ReduceEights8(s + 8 * x)),
                              vreinterpretq_u8_u16(ReduceEights8(s + 8 * x + 64))));
  }
  ReduceLumaRun<8>(s + fh * body, fh, o + body, lowWidth - body);
}

// Ratio 6 luma: 8 outputs from 48 bytes. De-interleaved by three, lanes
// A, B, C hold bytes 3i, 3i + 1, 3i + 2; the weights 1,1,2,2,1,1 of an output
// are A + B + 2C for its even i and 2A + B + C for its odd i.
inline uint8x8_t ReduceSixes8(const uint8_t *s) {
  const uint8x16x3_t v = vld3q_u8(s);
  const uint8x16_t evenLanes = vreinterpretq_u8_u16(vdupq_n_u16(0x00FF));
  const uint8x16_t x = vbslq_u8(evenLanes, v.val[2], v.val[0]);
  uint16x8_t lo = vaddl_u8(vget_low_u8(v.val[0]), vget_low_u8(v.val[1]));
  uint16x8_t hi = vaddl_high_u8(v.val[0], v.val[1]);
  lo = vaddw_u8(vaddw_u8(lo, vget_low_u8(v.val[2])), vget_low_u8(x));
  hi = vaddw_high_u8(vaddw_high_u8(hi, v.val[2]), x);
  return vrshrn_n_u16(vpaddq_u16(lo, hi), 3);
}

void Luma6Row(const uint8_t *s, uint8_t *o, int32_t fh, int32_t lowWidth) {
  const int32_t body = fh == 6 ? (lowWidth & ~15) : 0;
  for (int32_t x = 0; x < body; x += 16) {
    vst1q_u8(o + x, vcombine_u8(ReduceSixes8(s + 6 * x), ReduceSixes8(s + 6 * x + 48)));
  }
  ReduceLumaRun<6>(s + fh * body, fh, o + body, lowWidth - body);
}

// Chroma: 4 reduced pairs a step from 4 * N source pairs (where fh == N).
// Sums of U and V stay apart in the halves of 32-bit lanes.

// Sums of the source pairs 2j and 2j + 1 for j = 0..7 (32 bytes), as 16-bit
// U and V sums, pairs of them in 32-bit lanes: j = 0..3 and 4..7.
inline uint32x4x2_t PairPairSums(const uint8_t *s) {
  const uint16x8_t p = vreinterpretq_u16_u8(vld1q_u8(s));
  const uint16x8_t q = vreinterpretq_u16_u8(vld1q_u8(s + 16));
  const uint8x16_t a = vreinterpretq_u8_u16(vuzp1q_u16(p, q));  // even source pairs
  const uint8x16_t b = vreinterpretq_u8_u16(vuzp2q_u16(p, q));  // odd source pairs
  return uint32x4x2_t{{vreinterpretq_u32_u16(vaddl_u8(vget_low_u8(a), vget_low_u8(b))),
                       vreinterpretq_u32_u16(vaddl_high_u8(a, b))}};
}

// Sums of 4 source pairs, 4 outputs from 32 bytes.
inline uint32x4_t FourPairSums(const uint8_t *s) {
  const uint32x4x2_t p = PairPairSums(s);
  return vpaddq_u32(p.val[0], p.val[1]);
}

// Weighted sums of 6 source pairs, 4 outputs from 48 bytes: the pairs gathered
// by three (A, B, C: pairs 3i, 3i + 1, 3i + 2) by table lookups, then as for
// the luma, A + B + 2C for even i, 2A + B + C for odd i.
inline uint32x4_t SixPairSums(const uint8_t *s) {
  static constexpr uint8_t kPairs[3][16] = {
      {0, 1, 6, 7, 12, 13, 18, 19, 24, 25, 30, 31, 36, 37, 42, 43},
      {2, 3, 8, 9, 14, 15, 20, 21, 26, 27, 32, 33, 38, 39, 44, 45},
      {4, 5, 10, 11, 16, 17, 22, 23, 28, 29, 34, 35, 40, 41, 46, 47}};
  const uint8x16x3_t v = simd::Load3(s);
  const uint8x16_t a = vqtbl3q_u8(v, vld1q_u8(kPairs[0]));
  const uint8x16_t b = vqtbl3q_u8(v, vld1q_u8(kPairs[1]));
  const uint8x16_t c = vqtbl3q_u8(v, vld1q_u8(kPairs[2]));
  const uint8x16_t evenLanes = vreinterpretq_u8_u32(vdupq_n_u32(0x0000FFFF));
  const uint8x16_t x = vbslq_u8(evenLanes, c, a);
  uint16x8_t lo = vaddl_u8(vget_low_u8(a), vget_low_u8(b));
  uint16x8_t hi = vaddl_high_u8(a, b);
  lo = vaddw_u8(vaddw_u8(lo, vget_low_u8(c)), vget_low_u8(x));
  hi = vaddw_high_u8(vaddw_high_u8(hi, c), x);
  return vpaddq_u32(vreinterpretq_u32_u16(lo), vreinterpretq_u32_u16(hi));
}

// 4 reduced pairs (8 bytes) from 4 * N source pairs.
template <int N>
inline uint8x8_t ReduceChroma4(const uint8_t *s) {
  uint32x4_t sum;
  if constexpr (N == 4) {
    sum = FourPairSums(s);
  } else if constexpr (N == 6) {
    sum = SixPairSums(s);
  } else {
    sum = vpaddq_u32(FourPairSums(s), FourPairSums(s + 32));
  }
  return vrshrn_n_u16(vreinterpretq_u16_u32(sum), N == 4 ? 2 : 3);
}

template <int N>
void ChromaStrided(const char *name, const DownscaleCall &c) {
  if (c.lowWidth < 2) return;
  const int32_t pairs = c.lowWidth / 2;
  RunDownscale<N>(
      name, c, c.lowWidth & ~1,
      [&](const uint8_t *s, uint8_t *o, int32_t fh) {
        const int32_t body = fh == N ? (pairs & ~3) : 0;
        for (int32_t k = 0; k < body; k += 4) vst1_u8(o + 2 * k, ReduceChroma4<N>(s + 2 * N * k));
        ReduceChromaRun<N>(s + 2 * fh * body, 2 * fh, o + 2 * body, pairs - body);
      },
      VerticalPass<N>);
}

// Ratio 2 where every reduced row j reads source rows 2j and 2j + 1 (fv == 2):
// both passes of a reduced row at once, the horizontal results kept in
// registers for the vertical pass (and stored to xinterp as pass 1 does).
// step(s0, s1, o0, o1, out) does `stepBytes` output bytes of both passes over
// bytes [0, lanes); rest(s, o, x, fh) does pass 1 of a row from output byte x
// on; pass 2 does the bytes from there one at a time. False (nothing done)
// when fv != 2.
template <class StepFn, class RestFn>
bool FusedRatio2(const char *name, const DownscaleCall &c, int32_t lanes, int32_t stepBytes,
                 StepFn step, RestFn rest) {
  if (c.lowHeight <= 0 || c.height / c.lowHeight != 2) return false;
  const DownscaleRows p = scale::PlanDownscale(name, 2, c.src, c.dst, c.xinterp, c.width, c.height,
                                               c.lowWidth, c.lowHeight, c.lowRowFirst,
                                               c.lowRowLast);
  if (!p.ok) return true;
  for (int32_t j = p.first; j <= p.last; ++j) {
    const uint8_t *s0 = c.src + Offset(2 * j, c.width);
    const uint8_t *s1 = s0 + c.width;
    uint8_t *o0 = c.xinterp + Offset(2 * j, c.lowWidth);
    uint8_t *o1 = o0 + c.lowWidth;
    uint8_t *out = c.dst + Offset(j, c.lowWidth);
    int32_t x = 0;
    for (; x < lanes; x += stepBytes) step(s0 + 2 * x, s1 + 2 * x, o0 + x, o1 + x, out + x);
    rest(s0, o0, x, p.fh);
    rest(s1, o1, x, p.fh);
    for (; x < c.lowWidth; ++x) out[x] = ReduceColumn<2>(o0 + x, c.lowWidth);
  }
  return true;
}

// 16 luma outputs of both passes from 32 bytes of each source row: even and
// odd samples apart by a de-interleaving load.
inline void Luma2Step(const uint8_t *s0, const uint8_t *s1, uint8_t *o0, uint8_t *o1,
                      uint8_t *out) {
  const uint8x16x2_t a = vld2q_u8(s0);
  const uint8x16x2_t b = vld2q_u8(s1);
  const uint8x16_t h0 = vrhaddq_u8(a.val[0], a.val[1]);
  const uint8x16_t h1 = vrhaddq_u8(b.val[0], b.val[1]);
  vst1q_u8(o0, h0);
  vst1q_u8(o1, h1);
  vst1q_u8(out, vrhaddq_u8(h0, h1));
}

// 16 reduced chroma pairs of both passes from 64 bytes (32 pairs) of each
// source row: de-interleaved by four, bytes 4k, 4k + 1 (U, V of pair 2k) meet
// bytes 4k + 2, 4k + 3 (U, V of pair 2k + 1); U and V are interleaved again
// by the stores.
inline void Chroma2Step(const uint8_t *s0, const uint8_t *s1, uint8_t *o0, uint8_t *o1,
                        uint8_t *out) {
  const uint8x16x4_t a = vld4q_u8(s0);
  const uint8x16x4_t b = vld4q_u8(s1);
  const uint8x16x2_t h0{{vrhaddq_u8(a.val[0], a.val[2]), vrhaddq_u8(a.val[1], a.val[3])}};
  const uint8x16x2_t h1{{vrhaddq_u8(b.val[0], b.val[2]), vrhaddq_u8(b.val[1], b.val[3])}};
  vst2q_u8(o0, h0);
  vst2q_u8(o1, h1);
  const uint8x16x2_t v{{vrhaddq_u8(h0.val[0], h1.val[0]), vrhaddq_u8(h0.val[1], h1.val[1])}};
  vst2q_u8(out, v);
}

}  // namespace

PB_DOWNSCALE_KERNEL(DownscaleLuma2_NEON) {
  const DownscaleCall c{src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst,
                        lowRowLast};
  const int32_t body = lowWidth & ~7;
  const auto rest = [&](const uint8_t *s, uint8_t *o, int32_t x, int32_t fh) {
    ReduceLumaRun<2>(s + 2 * x, 2, o + x, body - x);
    ReduceLumaRun<2>(s + 2 * body, fh, o + body, lowWidth - body);
  };
  if (FusedRatio2("DownscaleLuma2", c, body & ~15, 16, Luma2Step, rest)) return;
  RunDownscale<2>(
      "DownscaleLuma2", c, lowWidth,
      [&](const uint8_t *s, uint8_t *o, int32_t fh) {
        int32_t x = 0;
        for (; x + 16 <= body; x += 16) vst1q_u8(o + x, ReducePairs16(s + 2 * x));
        rest(s, o, x, fh);
      },
      VerticalPass<2>);
}

PB_DOWNSCALE_KERNEL(DownscaleLuma4_NEON) {
  const int32_t body = lowWidth & ~7;
  RunDownscale<4>(
      "DownscaleLuma4", {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast},
      lowWidth,
      [&](const uint8_t *s, uint8_t *o, int32_t fh) {
        for (int32_t x = 0; x < body; x += 8) vst1_u8(o + x, ReduceQuads8(s + fh * x));
        ReduceLumaRun<4>(s + fh * body, fh, o + body, lowWidth - body);
      },
      VerticalPass<4>);
}

PB_DOWNSCALE_KERNEL(DownscaleLuma6_NEON) {
  RunDownscale<6>(
      "DownscaleLuma6", {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast},
      lowWidth, [&](const uint8_t *s, uint8_t *o, int32_t fh) { Luma6Row(s, o, fh, lowWidth); },
      VerticalPass<6>);
}

PB_DOWNSCALE_KERNEL(DownscaleLuma8_NEON) {
  RunDownscale<8>(
      "DownscaleLuma8", {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast},
      lowWidth, [&](const uint8_t *s, uint8_t *o, int32_t fh) { Luma8Row(s, o, fh, lowWidth); },
      VerticalPass<8>);
}

// Where fv != 2, pass 1 takes 32 source bytes (16 pairs) to 8 reduced pairs a
// step: unzipped as 16-bit lanes, the even and odd source pairs meet byte for
// byte (U with U, V with V).
PB_DOWNSCALE_KERNEL(DownscaleChroma2_NEON) {
  const DownscaleCall c{src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst,
                        lowRowLast};
  const int32_t pairs = lowWidth / 2;
  const auto rest = [&](const uint8_t *s, uint8_t *o, int32_t x, int32_t) {
    ReduceChromaRun<2>(s + 2 * x, 4, o + x, pairs - x / 2);
  };
  if (FusedRatio2("DownscaleChroma2", c, 2 * (pairs & ~15), 32, Chroma2Step, rest)) return;
  RunDownscale<2>(
      "DownscaleChroma2", c, lowWidth,
      [&](const uint8_t *s, uint8_t *o, int32_t fh) {
        int32_t k = 0;
        for (; k + 8 <= pairs; k += 8) {
          const uint16x8_t a = vreinterpretq_u16_u8(vld1q_u8(s + 4 * k));
          const uint16x8_t b = vreinterpretq_u16_u8(vld1q_u8(s + 4 * k + 16));
          vst1q_u8(o + 2 * k, vrhaddq_u8(vreinterpretq_u8_u16(vuzp1q_u16(a, b)),
                                         vreinterpretq_u8_u16(vuzp2q_u16(a, b))));
        }
        rest(s, o, 2 * k, fh);
      },
      VerticalPass<2>);
}

PB_DOWNSCALE_KERNEL(DownscaleChroma4_NEON) {
  ChromaStrided<4>("DownscaleChroma4",
                   {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast});
}

PB_DOWNSCALE_KERNEL(DownscaleChroma6_NEON) {
  ChromaStrided<6>("DownscaleChroma6",
                   {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast});
}

PB_DOWNSCALE_KERNEL(DownscaleChroma8_NEON) {
  ChromaStrided<8>("DownscaleChroma8",
                   {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast});
}

}  // namespace pb
