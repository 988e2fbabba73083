// Scalar building blocks shared by the reduced-resolution kernels (downscale
// and upscale-composite) in their scalar and vector forms. The vector kernels
// use these for the columns and rows their vector steps do not cover.
#ifndef PREVIEWBOKEH_SCALE_SCALE_INTERNAL_H_
#define PREVIEWBOKEH_SCALE_SCALE_INTERNAL_H_

#include <climits>
#include <cstddef>
#include <cstdint>

#include "platform/log.h"

namespace pb {
namespace scale {

// Signed division truncating toward zero; 0 for a zero divisor.
inline int32_t DivOrZero(int32_t a, int32_t b) { return b == 0 ? 0 : a / b; }

// 16.16 step from `full` positions to `low` positions: (low << 16) / full.
inline int32_t Step16(int32_t low, int32_t full) {
  return DivOrZero(static_cast<int32_t>(static_cast<uint32_t>(low) << 16), full);
}

inline int32_t Min(int32_t a, int32_t b) { return a < b ? a : b; }
inline int32_t Max(int32_t a, int32_t b) { return a > b ? a : b; }

inline ptrdiff_t Offset(int32_t row, int32_t stride) {
  return static_cast<ptrdiff_t>(row) * stride;
}

// ---------------------------------------------------------------------------
// Reductions by N (2, 4, 6, 8). The ratio-6 filter weights 1,1,2,2,1,1 so that
// the weights sum to 8 and the division is a shift.

inline uint8_t Reduce2(uint32_t s0, uint32_t s1) {
  return static_cast<uint8_t>((s0 + s1 + 1) >> 1);
}

inline uint8_t Reduce4(uint32_t s0, uint32_t s1, uint32_t s2, uint32_t s3) {
  return static_cast<uint8_t>((s0 + s1 + s2 + s3 + 2) >> 2);
}

inline uint8_t Reduce6(uint32_t s0, uint32_t s1, uint32_t s2, uint32_t s3, uint32_t s4,
                       uint32_t s5) {
  return static_cast<uint8_t>((s0 + s1 + 2 * s2 + 2 * s3 + s4 + s5 + 4) >> 3);
}

inline uint8_t Reduce8(uint32_t s0, uint32_t s1, uint32_t s2, uint32_t s3, uint32_t s4, uint32_t s5,
                       uint32_t s6, uint32_t s7) {
  return static_cast<uint8_t>((s0 + s1 + s2 + s3 + s4 + s5 + s6 + s7 + 4) >> 3);
}

// Reduction of N samples `spacing` bytes apart starting at p.
template <int N>
inline uint8_t ReduceSpaced(const uint8_t *p, int spacing) {
  if constexpr (N == 2) {
    return Reduce2(p[0], p[spacing]);
  } else if constexpr (N == 4) {
    return Reduce4(p[0], p[spacing], p[2 * spacing], p[3 * spacing]);
  } else if constexpr (N == 6) {
    return Reduce6(p[0], p[spacing], p[2 * spacing], p[3 * spacing], p[4 * spacing],
                   p[5 * spacing]);
  } else {
    static_assert(N == 8, "ratio must be 2, 4, 6 or 8");
    return Reduce8(p[0], p[spacing], p[2 * spacing], p[3 * spacing], p[4 * spacing], p[5 * spacing],
                   p[6 * spacing], p[7 * spacing]);
  }
}

// Reduction of N rows (`stride` apart) at one byte position.
template <int N>
inline uint8_t ReduceColumn(const uint8_t *p, ptrdiff_t stride) {
  return ReduceSpaced<N>(p, static_cast<int>(stride));
}

// Rows and validity shared by every downscale member. A non-positive lowWidth
// or an empty row range writes nothing. Null planes, non-positive sizes and
// sizes that would read outside the source (lowWidth * N > width or
// lowHeight * N > height) are refused with a log line. The reduced row range
// is clamped to the image.
struct DownscaleRows {
  bool ok;
  int32_t fv;     // height / lowHeight
  int32_t fh;     // width / lowWidth
  int32_t first;  // reduced rows first..last
  int32_t last;
};

inline DownscaleRows PlanDownscale(const char *name, int n, const uint8_t *src, const uint8_t *dst,
                                   const uint8_t *xinterp, int32_t width, int32_t height,
                                   int32_t lowWidth, int32_t lowHeight, int32_t lowRowFirst,
                                   int32_t lowRowLast) {
  DownscaleRows p{};
  if (lowWidth <= 0 || lowRowFirst > lowRowLast) return p;
  if (src == nullptr || dst == nullptr || xinterp == nullptr || width <= 0 || height <= 0 ||
      lowHeight <= 0 || static_cast<int64_t>(lowWidth) * n > width ||
      static_cast<int64_t>(lowHeight) * n > height) {
    PB_LOGD("%s: invalid arguments (src %p, dst %p, xinterp %p, %dx%d to %dx%d)\n", name,
            static_cast<const void *>(src), static_cast<const void *>(dst),
            static_cast<const void *>(xinterp), width, height, lowWidth, lowHeight);
    return p;
  }
  p.fv = height / lowHeight;
  p.fh = width / lowWidth;
  p.first = Max(lowRowFirst, 0);
  p.last = Min(lowRowLast, lowHeight - 1);
  p.ok = p.first <= p.last;
  return p;
}

// Pass 1 over every source row the plan's reduced rows read (N per reduced
// row): row(s, o) gets source row y and xinterp row y.
template <int N, class RowFn>
inline void ForEachSourceRow(const DownscaleRows &p, const uint8_t *src, int32_t width,
                             uint8_t *xinterp, int32_t lowWidth, RowFn row) {
  for (int32_t y = p.fv * p.first; y <= p.fv * p.last + N - 1; ++y) {
    row(src + Offset(y, width), xinterp + Offset(y, lowWidth));
  }
}

// count luma outputs o[i], each reducing N consecutive bytes from s + fh * i.
template <int N>
inline void ReduceLumaRun(const uint8_t *s, int32_t fh, uint8_t *o, int32_t count) {
  for (int32_t i = 0; i < count; ++i) o[i] = ReduceSpaced<N>(s + fh * i, 1);
}

// count chroma pairs o[2k], o[2k + 1], each reducing N source pairs (U and V
// apart) from s + pairStride * k.
template <int N>
inline void ReduceChromaRun(const uint8_t *s, int32_t pairStride, uint8_t *o, int32_t count) {
  for (int32_t k = 0; k < count; ++k) {
    const uint8_t *c = s + pairStride * k;
    o[2 * k] = ReduceSpaced<N>(c, 2);
    o[2 * k + 1] = ReduceSpaced<N>(c + 1, 2);
  }
}

// Pass 1 of the chroma members whose pair k reads from byte 2 * fh * k. Rows
// of odd length keep their last byte untouched; pass 2 covers bytes
// [0, lowWidth & ~1) and is due only where the returned plan is ok.
template <int N>
inline DownscaleRows ChromaStridedPass1(const char *name, const uint8_t *src, const uint8_t *dst,
                                        uint8_t *xinterp, int32_t width, int32_t height,
                                        int32_t lowWidth, int32_t lowHeight, int32_t lowRowFirst,
                                        int32_t lowRowLast) {
  if (lowWidth < 2) return DownscaleRows{};
  const DownscaleRows p = PlanDownscale(name, N, src, dst, xinterp, width, height, lowWidth,
                                        lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return p;
  ForEachSourceRow<N>(p, src, width, xinterp, lowWidth, [&](const uint8_t *s, uint8_t *o) {
    ReduceChromaRun<N>(s, 2 * p.fh, o, lowWidth / 2);
  });
  return p;
}

// Defines DownscaleLuma<n><suffix> as a call of this file's
// DownscaleLumaStrided<n>.
#define PB_DOWNSCALE_LUMA_STRIDED_KERNEL(n, suffix)                                         \
  PB_DOWNSCALE_KERNEL(DownscaleLuma##n##suffix) {                                           \
    DownscaleLumaStrided<n>("DownscaleLuma" #n, src, dst, xinterp, width, height, lowWidth, \
                            lowHeight, lowRowFirst, lowRowLast);                            \
  }

// Defines DownscaleChroma<n><suffix>: pass 1 by ChromaStridedPass1<n>, pass 2
// by this file's VerticalPass<n>.
#define PB_DOWNSCALE_CHROMA_STRIDED_KERNEL(n, suffix)                                              \
  PB_DOWNSCALE_KERNEL(DownscaleChroma##n##suffix) {                                                \
    const ::pb::scale::DownscaleRows p =                                                           \
        ::pb::scale::ChromaStridedPass1<n>("DownscaleChroma" #n, src, dst, xinterp, width, height, \
                                           lowWidth, lowHeight, lowRowFirst, lowRowLast);          \
    if (p.ok) VerticalPass<n>(p, xinterp, dst, lowWidth, lowWidth & ~1);                           \
  }

// ---------------------------------------------------------------------------
// Mixing the sharp sample s with the (upscaled) blurred sample b under map
// weight m and alpha (128 = unity).

// Arithmetic of the vector steps: w and 1024 - w as unsigned 16-bit lanes
// (1024 - w wraps for w > 1024), 32-bit products, rounded shift by 10
// narrowed to 16 bits, saturated to 0..255.
inline uint8_t MixLane(uint32_t s, uint32_t b, uint32_t m, uint32_t alpha) {
  const uint16_t w = static_cast<uint16_t>((m * alpha + 64) >> 7);
  const uint16_t iw = static_cast<uint16_t>(1024u - w);
  const uint32_t acc = static_cast<uint32_t>(w) * b + static_cast<uint32_t>(iw) * s;
  const uint16_t q = static_cast<uint16_t>((acc + 512) >> 10);
  return static_cast<uint8_t>(q > 255 ? 255 : q);
}

// Arithmetic of the one-at-a-time code: signed 32-bit, quotient truncated
// toward zero, limited to 255 from above only when kLimit, low 8 bits stored.
template <bool kLimit>
inline uint8_t MixOne(int32_t s, int32_t b, int32_t m, int32_t alpha) {
  const int32_t w = (m * alpha + 64) >> 7;
  const int32_t acc = w * b + (1024 - w) * s;
  int32_t q = (acc + 512) / 1024;
  if (kLimit && q > 255) q = 255;
  return static_cast<uint8_t>(q);
}

// Two-weight blend rounded to 8 bits.
inline uint32_t Blend(uint32_t wa, uint32_t a, uint32_t wb, uint32_t b) {
  return (wa * a + wb * b + 128) >> 8;
}

// Fixed ratio-6 horizontal weights for sub-positions 1..6 (8-bit lanes).
constexpr uint8_t kRatio6Left[6] = {214, 171, 129, 86, 43, 1};
constexpr uint8_t kRatio6Right[6] = {42, 85, 127, 170, 213, 255};

// Rows of the strip that a composite kernel writes, clamped to the plane. An
// empty row range does nothing; null planes, sizes that leave nothing to
// interpolate from (fewer than `elem` bytes per reduced row, no reduced rows)
// and reduced sizes above the plane's are refused with a log line.
struct ComposeRows {
  bool ok;
  int32_t first;
  int32_t last;
};

// Largest reduced size whose 16.16 positions fit in 32 bits.
constexpr int32_t kMaxLowSize = 32767;

inline ComposeRows PlanCompose(const char *name, int32_t elem, const uint8_t *src,
                               const uint16_t *weight, const uint8_t *blurred, const uint8_t *dst,
                               int32_t width, int32_t height, int32_t lowWidth, int32_t lowHeight,
                               int32_t rowFirst, int32_t rowLast) {
  ComposeRows p{};
  if (rowFirst > rowLast) return p;
  if (src == nullptr || weight == nullptr || blurred == nullptr || dst == nullptr || width < elem ||
      height <= 0 || lowWidth < elem || lowHeight <= 0 || lowWidth > width || lowHeight > height ||
      lowWidth > kMaxLowSize || lowHeight > kMaxLowSize) {
    PB_LOGD("%s: invalid arguments (src %p, weight %p, blurred %p, dst %p, %dx%d from %dx%d)\n",
            name, static_cast<const void *>(src), static_cast<const void *>(weight),
            static_cast<const void *>(blurred), static_cast<const void *>(dst), width, height,
            lowWidth, lowHeight);
    return p;
  }
  p.first = Max(rowFirst, 0);
  p.last = Min(rowLast, height - 1);
  p.ok = p.first <= p.last;
  return p;
}

// Largest multiple of `step` that is <= bound and >= 0.
inline int32_t FloorTo(int32_t bound, int32_t step) {
  return bound <= 0 ? 0 : bound - bound % step;
}

// ---------------------------------------------------------------------------
// Upscale-and-composite rows. Positions count elements: one byte for luma
// (E = 1), one U,V pair for chroma (E = 2), mixed with the weight of the
// pair's top-left luma pixel.

// Bytes one vector step of ratio N covers.
template <int N, int E>
constexpr int32_t UpscaleStepBytes() {
  return N == 2 || (N == 8 && E == 2) ? 16 : N == 6 ? 24 : 8;
}

// Geometry of one upscale-composite call. Elements below `body` are covered
// by the vector steps (for ratio 6: elements 1..body); the one-at-a-time code
// interpolates across elements below `plain` only; rows from `flatFrom` on
// are not interpolated vertically.
struct UpscalePlan {
  ComposeRows rows;
  int32_t elems, lowElems;
  int32_t stepX, stepY;  // 16.16 steps
  int32_t body, plain, flatFrom;
};

template <int N, int E>
inline UpscalePlan PlanUpscale(const char *name, const uint8_t *src, const uint16_t *weight,
                               const uint8_t *blurred, const uint8_t *dst, int32_t width,
                               int32_t height, int32_t lowWidth, int32_t lowHeight,
                               int32_t rowFirst, int32_t rowLast) {
  UpscalePlan u{};
  u.rows = PlanCompose(name, E, src, weight, blurred, dst, width, height, lowWidth, lowHeight,
                       rowFirst, rowLast);
  if (!u.rows.ok) return u;
  u.elems = width / E;
  u.lowElems = lowWidth / E;
  u.stepX = Step16(lowWidth, width);
  u.stepY = Step16(lowHeight, height);
  const int32_t stepElems = UpscaleStepBytes<N, E>() / E;
  u.body = Min(FloorTo(u.elems - N, stepElems), FloorTo(N * (u.lowElems - 1), stepElems));
  u.plain = N == 6 ? Max(u.elems - 5, u.body + 1) : Max(u.elems - N, u.body);
  const int32_t flatRows = N == 6 ? 5 : N;
  u.flatFrom = u.rows.last == height - 1 ? height - flatRows : INT32_MAX;
  return u;
}

// Low rows r and r1 (the row below, clamped to the image) and vertical
// sub-position fy of output row y at 16.16 step stepY.
struct LowRows {
  int32_t r, r1;
  uint32_t fy;
};

inline LowRows LowRowsAt(int32_t stepY, int32_t y, int32_t lowHeight) {
  const int32_t py = stepY * y;
  const int32_t r = Min(py >> 16, lowHeight - 1);
  return LowRows{r, Min(r + 1, lowHeight - 1), static_cast<uint32_t>((py >> 8) & 255)};
}

// One output row: source, weight and destination rows, low rows r and r1.
template <int E>
struct ComposeRow {
  const uint8_t *s;
  const uint16_t *m;  // weight of element e at m[e * E]
  uint8_t *d;
  const uint8_t *b0;  // low row r
  const uint8_t *b1;  // low row r1
};

template <int E>
inline ComposeRow<E> MakeComposeRow(const uint8_t *src, const uint16_t *weight,
                                    const uint8_t *blurred, uint8_t *dst, int32_t width,
                                    int32_t lowWidth, int32_t y, int32_t r, int32_t r1) {
  return ComposeRow<E>{src + Offset(y, width), weight + Offset(E * y, width),
                       dst + Offset(y, width), blurred + Offset(r, lowWidth),
                       blurred + Offset(r1, lowWidth)};
}

// Ratio 2, elements from..to-1 of a row: the rounded mean of low samples
// (r, c), (r, c1), (r1, c), (r1, c1) with c = e >> 1; elements from `plain`
// on use c1 = c. Elements below `body` mix with the vector-lane arithmetic.
template <int E>
inline void MidpointElems(ComposeRow<E> row, UpscalePlan u, int32_t from, int32_t to,
                          uint8_t alpha) {
  const int32_t lowElems = u.lowElems, body = u.body, plain = u.plain;
  for (int32_t e = from; e < to; ++e) {
    const int32_t c = Min(e >> 1, lowElems - 1);
    const int32_t c1 = e < plain ? Min(c + 1, lowElems - 1) : c;
    for (int32_t k = 0; k < E; ++k) {
      const int32_t i = E * c + k;
      const int32_t i1 = E * c1 + k;
      const uint32_t b = (row.b0[i] + row.b0[i1] + row.b1[i] + row.b1[i1] + 2u) >> 2;
      const int32_t x = E * e + k;
      row.d[x] = e < body ? MixLane(row.s[x], b, row.m[E * e], alpha)
                          : MixOne<false>(row.s[x], b, row.m[E * e], alpha);
    }
  }
}

// Ratios 4 and 8, elements from..to-1 of a row: bilinear, horizontal first.
// Elements below `body` take the fixed weights of sub-position e mod N and mix
// with the vector-lane arithmetic; the others follow the running position and
// take no interpolation across them from `plain` on. The interpolated sample
// is limited to 255.
template <int N, int E>
inline void BilinearElems(ComposeRow<E> row, UpscalePlan u, LowRows lr, bool vertical, int32_t from,
                          int32_t to, uint8_t alpha) {
  const int32_t lowElems = u.lowElems, body = u.body, plain = u.plain, stepX = u.stepX;
  const uint32_t fy = lr.fy;
  for (int32_t e = from; e < to; ++e) {
    int32_t c, c1;
    uint32_t fx;
    if (e < body) {
      c = e / N;
      c1 = c + 1;
      fx = 256u * static_cast<uint32_t>(e % N) / N;
    } else {
      const int32_t px = stepX * e;
      c = Min(px >> 16, lowElems - 1);
      c1 = Min(c + 1, lowElems - 1);
      fx = e < plain ? (px >> 8) & 255 : 0;
    }
    for (int32_t k = 0; k < E; ++k) {
      const int32_t i = E * c + k;
      const int32_t i1 = E * c1 + k;
      const int32_t x = E * e + k;
      const uint32_t h0 = Blend(256 - fx, row.b0[i], fx, row.b0[i1]);
      uint32_t b = h0;
      if (vertical) {
        const uint32_t h1 = Blend(256 - fx, row.b1[i], fx, row.b1[i1]);
        b = Min(static_cast<int32_t>(Blend(256 - fy, h0, fy, h1)), 255);
      }
      row.d[x] = e < body ? MixLane(row.s[x], b, row.m[E * e], alpha)
                          : MixOne<true>(row.s[x], b, row.m[E * e], alpha);
    }
  }
}

// Ratio 6, elements from..to-1 of a row. Vertical weights are
// ((256 - fy) & 255, fy). In vertically interpolated rows, elements 1..body
// take the fixed 8-bit pattern of sub-positions 1..6 on low elements
// c = (e - 1) / 6 and c + 1 and mix with the vector-lane arithmetic; the
// others follow the running position, element 0 and those from `plain` on
// without interpolation across them. The sample is not limited.
template <int E>
inline void Ratio6Elems(ComposeRow<E> row, UpscalePlan u, LowRows lr, bool vertical, int32_t from,
                        int32_t to, uint8_t alpha) {
  const int32_t lowElems = u.lowElems, body = u.body, plain = u.plain, stepX = u.stepX;
  const uint32_t fy = lr.fy;
  const uint32_t top = (256 - fy) & 255;
  for (int32_t e = from; e < to; ++e) {
    const bool lanes = vertical && e >= 1 && e <= body;
    int32_t c, c1;
    uint32_t wl, wr;
    if (lanes) {
      const int32_t j = (e - 1) % 6;
      c = (e - 1) / 6;
      c1 = c + 1;
      wl = kRatio6Left[j];
      wr = kRatio6Right[j];
    } else {
      const int32_t px = stepX * e;
      c = Min(px >> 16, lowElems - 1);
      c1 = Min(c + 1, lowElems - 1);
      wr = (e >= 1 && e < plain) ? (px >> 8) & 255 : 0;
      wl = 256 - wr;
    }
    for (int32_t k = 0; k < E; ++k) {
      const int32_t i = E * c + k;
      const int32_t i1 = E * c1 + k;
      const int32_t x = E * e + k;
      const uint32_t h0 = Blend(wl, row.b0[i], wr, row.b0[i1]);
      uint32_t b = h0;
      if (vertical) b = Blend(top, h0, fy, Blend(wl, row.b1[i], wr, row.b1[i1]));
      row.d[x] = lanes ? MixLane(row.s[x], b, row.m[E * e], alpha)
                       : MixOne<false>(row.s[x], b, row.m[E * e], alpha);
    }
  }
}

// Defines the eight upscale-composite kernels <Plane><N><suffix> from this
// file's templates Midpoint<E>, Bilinear<N, E> and Ratio6<E>.
#define PB_UPSCALE_COMPOSE_FORWARD(impl, name)                                                 \
  impl(name, src, width, height, lowWidth, lowHeight, weight, blurred, dst, rowFirst, rowLast, \
       alpha)
#define PB_DEFINE_UPSCALE_COMPOSE_KERNELS(suffix)                          \
  PB_COMPOSE_KERNEL(UpscaleComposeLuma2##suffix) {                         \
    PB_UPSCALE_COMPOSE_FORWARD(Midpoint<1>, "UpscaleComposeLuma2");        \
  }                                                                        \
  PB_COMPOSE_KERNEL(UpscaleComposeLuma4##suffix) {                         \
    PB_UPSCALE_COMPOSE_FORWARD((Bilinear<4, 1>), "UpscaleComposeLuma4");   \
  }                                                                        \
  PB_COMPOSE_KERNEL(UpscaleComposeLuma6##suffix) {                         \
    PB_UPSCALE_COMPOSE_FORWARD(Ratio6<1>, "UpscaleComposeLuma6");          \
  }                                                                        \
  PB_COMPOSE_KERNEL(UpscaleComposeLuma8##suffix) {                         \
    PB_UPSCALE_COMPOSE_FORWARD((Bilinear<8, 1>), "UpscaleComposeLuma8");   \
  }                                                                        \
  PB_COMPOSE_KERNEL(UpscaleComposeChroma2##suffix) {                       \
    PB_UPSCALE_COMPOSE_FORWARD(Midpoint<2>, "UpscaleComposeChroma2");      \
  }                                                                        \
  PB_COMPOSE_KERNEL(UpscaleComposeChroma4##suffix) {                       \
    PB_UPSCALE_COMPOSE_FORWARD((Bilinear<4, 2>), "UpscaleComposeChroma4"); \
  }                                                                        \
  PB_COMPOSE_KERNEL(UpscaleComposeChroma6##suffix) {                       \
    PB_UPSCALE_COMPOSE_FORWARD(Ratio6<2>, "UpscaleComposeChroma6");        \
  }                                                                        \
  PB_COMPOSE_KERNEL(UpscaleComposeChroma8##suffix) {                       \
    PB_UPSCALE_COMPOSE_FORWARD((Bilinear<8, 2>), "UpscaleComposeChroma8"); \
  }

}  // namespace scale
}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_SCALE_INTERNAL_H_
