// The scalar rows of the upscale composites: the interpolation and mixing of
// elements from..to-1 of one output row, used whole by the scalar kernels and
// for the elements outside the vector steps by the vector kernels. Which
// elements the vector steps cover (UpscalePlan::body) and the arithmetic
// they mirror is said here, beside the scalar code that mirrors them.
#ifndef PREVIEWBOKEH_SCALE_UPSCALE_ROWS_H_
#define PREVIEWBOKEH_SCALE_UPSCALE_ROWS_H_

#include <cstdint>

#include "scale/mix.h"
#include "scale/upscale_plan.h"

namespace pb {
namespace scale {

using mix::MixLane;
using mix::MixOne;

// Two-weight blend rounded to 8 bits.
inline uint32_t Blend(uint32_t wa, uint32_t a, uint32_t wb, uint32_t b) {
  return (wa * a + wb * b + 128) >> 8;
}

// Fixed ratio-6 horizontal weights for sub-positions 1..6 (8-bit lanes).
constexpr uint8_t kRatio6Left[6] = {214, 171, 129, 86, 43, 1};
constexpr uint8_t kRatio6Right[6] = {42, 85, 127, 170, 213, 255};

// Ratio 2, byte k of element e: the rounded mean of low samples (r, c),
// (r, c1), (r1, c), (r1, c1) with c = e >> 1; elements from `plain` on use
// c1 = c.
template <int E>
inline uint32_t MidpointSample(const ComposeRow<E> &row, const UpscalePlan &u, int32_t e,
                               int32_t k) {
  const int32_t c = Min(e >> 1, u.lowElems - 1);
  const int32_t c1 = e < u.plain ? Min(c + 1, u.lowElems - 1) : c;
  const int32_t i = E * c + k;
  const int32_t i1 = E * c1 + k;
  return (row.b0[i] + row.b0[i1] + row.b1[i] + row.b1[i1] + 2u) >> 2;
}

// Ratio 2, elements from..to-1 of a row (MidpointSample). Elements below
// `body` mix with the vector-lane arithmetic.
template <int E>
inline void MidpointElems(ComposeRow<E> row, UpscalePlan u, int32_t from, int32_t to,
                          uint8_t alpha) {
  for (int32_t e = from; e < to; ++e) {
    for (int32_t k = 0; k < E; ++k) {
      const uint32_t b = MidpointSample<E>(row, u, e, k);
      const int32_t x = E * e + k;
      row.d[x] = e < u.body ? MixLane(row.m[E * e], alpha, row.s[x], b)
                            : MixOne<false>(row.m[E * e], alpha, row.s[x], b);
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
      row.d[x] = e < body ? MixLane(row.m[E * e], alpha, row.s[x], b)
                          : MixOne<true>(row.m[E * e], alpha, row.s[x], b);
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
      row.d[x] = lanes ? MixLane(row.m[E * e], alpha, row.s[x], b)
                       : MixOne<false>(row.m[E * e], alpha, row.s[x], b);
    }
  }
}

}  // namespace scale
}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_UPSCALE_ROWS_H_
