// Scalar upscale-and-composite kernels: the reference formulas. Each output
// interpolates the reduced blurred image at its position and mixes it into the
// sharp source at once.
//
// Luma and chroma share one implementation per interpolation family. Positions
// count elements: a luma element is one byte (E = 1), a chroma element is one
// U,V pair (E = 2) whose two bytes are interpolated alike, each from the bytes
// of its own component, and mixed with the weight of the pair's top-left luma
// pixel (weight row 2 * y, column 2 * k).
//
// Columns covered by the vector kernels' steps are mixed here with the
// vector-lane arithmetic (MixLane), and the rest with the signed one-at-a-time
// arithmetic (MixOne), so that both implementations agree byte for byte for
// every weight, also beyond 1024.
#include <climits>

#include "scale/compose.h"
#include "scale/scale_internal.h"

namespace pb {
namespace {

using scale::Blend;
using scale::ComposeRows;
using scale::FloorTo;
using scale::kRatio6Left;
using scale::kRatio6Right;
using scale::Max;
using scale::Min;
using scale::MixLane;
using scale::MixOne;
using scale::Offset;
using scale::PlanCompose;
using scale::Step16;

// One output row: source, weight and destination rows, low rows r and r1.
template <int E>
struct Row {
  const uint8_t *s;
  const uint16_t *m;  // weight of element e at m[e * E]
  uint8_t *d;
  const uint8_t *b0;  // low row r
  const uint8_t *b1;  // low row r1 (the row below, clamped to the image)
};

template <int E>
Row<E> MakeRow(const uint8_t *src, const uint16_t *weight, const uint8_t *blurred, uint8_t *dst,
               int32_t width, int32_t lowWidth, int32_t y, int32_t r, int32_t r1) {
  return Row<E>{src + Offset(y, width), weight + Offset(E * y, width), dst + Offset(y, width),
                blurred + Offset(r, lowWidth), blurred + Offset(r1, lowWidth)};
}

// ---------------------------------------------------------------------------
// Ratio 2: each output takes the rounded mean of low samples (r, c), (r, c1),
// (r1, c), (r1, c1) with r = y >> 1 and c = e >> 1. The last two elements of
// a row use c1 = c. Vector steps cover 16 bytes.

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
  const int32_t plain = Max(elems - 2, body);
  // The strip's last two rows take the lower low row clamped to the image;
  // a one-row strip therefore rewrites the row above it as well.
  const int32_t yStart = p.first < p.last ? p.first : Max(p.last - 1, 0);
  for (int32_t y = yStart; y <= p.last; ++y) {
    const int32_t r = Min(y >> 1, lowHeight - 1);
    const int32_t r1 = Min(r + 1, lowHeight - 1);
    const Row<E> row = MakeRow<E>(src, weight, blurred, dst, width, lowWidth, y, r, r1);
    for (int32_t e = 0; e < elems; ++e) {
      const int32_t c = Min(e >> 1, lowElems - 1);
      const int32_t c1 = e < plain ? Min(c + 1, lowElems - 1) : c;
      for (int32_t k = 0; k < E; ++k) {
        const int32_t i = E * c + k;
        const int32_t i1 = E * c1 + k;
        const uint32_t u = (row.b0[i] + row.b0[i1] + row.b1[i] + row.b1[i1] + 2u) >> 2;
        const int32_t x = E * e + k;
        row.d[x] = e < body ? MixLane(row.s[x], u, row.m[E * e], alpha)
                            : MixOne<false>(row.s[x], u, row.m[E * e], alpha);
      }
    }
  }
}

// ---------------------------------------------------------------------------
// Ratios 4 and 8: bilinear 16.16 positions, horizontal first. Vector steps
// use the fixed sub-position weights of an exact ratio; the one-at-a-time code
// follows the running position; the last N elements of a row and, in the
// strip that ends the plane, its last N rows take no interpolation across
// them. The one-at-a-time quotient is limited to 255.

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
  const int32_t stepElems = (N == 8 && E == 2 ? 16 : 8) / E;
  const int32_t body = Min(FloorTo(elems - N, stepElems), FloorTo(N * (lowElems - 1), stepElems));
  const int32_t plain = Max(elems - N, body);
  const int32_t flatFrom = p.last == height - 1 ? height - N : INT32_MAX;
  for (int32_t y = p.first; y <= p.last; ++y) {
    const int32_t py = stepY * y;
    const int32_t r = Min(py >> 16, lowHeight - 1);
    const int32_t r1 = Min(r + 1, lowHeight - 1);
    const uint32_t fy = (py >> 8) & 255;
    const bool vertical = y < flatFrom;
    const Row<E> row = MakeRow<E>(src, weight, blurred, dst, width, lowWidth, y, r, r1);
    for (int32_t e = 0; e < elems; ++e) {
      const int32_t px = stepX * e;
      int32_t c, c1;
      uint32_t fx;
      if (e < body) {  // fixed weights of sub-position e mod N
        c = e / N;
        c1 = c + 1;
        fx = 256u * static_cast<uint32_t>(e % N) / N;
      } else {
        c = Min(px >> 16, lowElems - 1);
        c1 = Min(c + 1, lowElems - 1);
        fx = e < plain ? (px >> 8) & 255 : 0;
      }
      for (int32_t k = 0; k < E; ++k) {
        const int32_t i = E * c + k;
        const int32_t i1 = E * c1 + k;
        const int32_t x = E * e + k;
        const uint32_t h0 = Blend(256 - fx, row.b0[i], fx, row.b0[i1]);
        uint32_t u = h0;
        if (vertical) {
          const uint32_t h1 = Blend(256 - fx, row.b1[i], fx, row.b1[i1]);
          u = Min(static_cast<int32_t>(Blend(256 - fy, h0, fy, h1)), 255);
        }
        row.d[x] = e < body ? MixLane(row.s[x], u, row.m[E * e], alpha)
                            : MixOne<true>(row.s[x], u, row.m[E * e], alpha);
      }
    }
  }
}

// ---------------------------------------------------------------------------
// Ratio 6. Vertical weights are ((256 - fy) & 255, fy). In rows 1 .. the row
// split: element 0 is interpolated vertically only; elements 1..body (vector
// steps of 24 bytes) take the fixed 8-bit pattern of sub-positions 1..6 on
// low elements c = (e - 1) / 6 and c + 1; then one at a time with the running
// position; the last five elements vertically only. Row 0 and, in the strip
// that ends the plane, the last five rows are interpolated horizontally only,
// with the running position. The one-at-a-time quotient is not limited.

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
  for (int32_t y = p.first; y <= p.last; ++y) {
    const int32_t py = stepY * y;
    const int32_t r = Min(py >> 16, lowHeight - 1);
    const int32_t r1 = Min(r + 1, lowHeight - 1);
    const uint32_t fy = (py >> 8) & 255;
    const uint32_t top = (256 - fy) & 255;
    const bool vertical = y != 0 && y < flatFrom;
    const Row<E> row = MakeRow<E>(src, weight, blurred, dst, width, lowWidth, y, r, r1);
    for (int32_t e = 0; e < elems; ++e) {
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
        wr = (e >= 1 && e < plain) ? (px >> 8) & 255 : 0;  // element 0, last five: none
        wl = 256 - wr;
      }
      for (int32_t k = 0; k < E; ++k) {
        const int32_t i = E * c + k;
        const int32_t i1 = E * c1 + k;
        const int32_t x = E * e + k;
        const uint32_t h0 = Blend(wl, row.b0[i], wr, row.b0[i1]);
        uint32_t u = h0;
        if (vertical) u = Blend(top, h0, fy, Blend(wl, row.b1[i], wr, row.b1[i1]));
        row.d[x] = lanes ? MixLane(row.s[x], u, row.m[E * e], alpha)
                         : MixOne<false>(row.s[x], u, row.m[E * e], alpha);
      }
    }
  }
}

}  // namespace

#define PB_FORWARD_COMPOSE(impl, name)                                                         \
  impl(name, src, width, height, lowWidth, lowHeight, weight, blurred, dst, rowFirst, rowLast, \
       alpha)

PB_COMPOSE_KERNEL(UpscaleComposeLuma2_C) { PB_FORWARD_COMPOSE(Midpoint<1>, "UpscaleComposeLuma2"); }
PB_COMPOSE_KERNEL(UpscaleComposeLuma4_C) {
  PB_FORWARD_COMPOSE((Bilinear<4, 1>), "UpscaleComposeLuma4");
}
PB_COMPOSE_KERNEL(UpscaleComposeLuma6_C) { PB_FORWARD_COMPOSE(Ratio6<1>, "UpscaleComposeLuma6"); }
PB_COMPOSE_KERNEL(UpscaleComposeLuma8_C) {
  PB_FORWARD_COMPOSE((Bilinear<8, 1>), "UpscaleComposeLuma8");
}
PB_COMPOSE_KERNEL(UpscaleComposeChroma2_C) {
  PB_FORWARD_COMPOSE(Midpoint<2>, "UpscaleComposeChroma2");
}
PB_COMPOSE_KERNEL(UpscaleComposeChroma4_C) {
  PB_FORWARD_COMPOSE((Bilinear<4, 2>), "UpscaleComposeChroma4");
}
PB_COMPOSE_KERNEL(UpscaleComposeChroma6_C) {
  PB_FORWARD_COMPOSE(Ratio6<2>, "UpscaleComposeChroma6");
}
PB_COMPOSE_KERNEL(UpscaleComposeChroma8_C) {
  PB_FORWARD_COMPOSE((Bilinear<8, 2>), "UpscaleComposeChroma8");
}

#undef PB_FORWARD_COMPOSE

}  // namespace pb
