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
// Elements covered by the vector kernels' steps (UpscalePlan::body) are mixed
// with the vector-lane arithmetic (mix::MixLane), the rest with the signed
// one-at-a-time arithmetic (mix::MixOne), so that both implementations agree
// byte for byte for every weight, also beyond 1024. The rows themselves are
// the scalar rows of upscale_rows.h, whole.
#include "scale/compose.h"
#include "scale/upscale_plan.h"
#include "scale/upscale_rows.h"

namespace pb {
namespace {

using scale::ComposeCall;
using scale::ComposeRow;
using scale::LowRows;
using scale::UpscalePlan;

// Ratio 2: each output takes the rounded mean of low samples (r, c), (r, c1),
// (r1, c), (r1, c1) with r = y >> 1 and c = e >> 1; the last two elements of
// a row use c1 = c.
template <int E>
void Midpoint(const ComposeCall &c) {
  const UpscalePlan u = scale::PlanUpscale<2, E>(c);
  if (!u.rows.ok) return;
  scale::ForEachOutputRow<2, E>(c, u, [&](ComposeRow<E> row, LowRows, bool) {
    scale::MidpointElems<E>(row, u, 0, u.elems, c.alpha);
  });
}

// Ratios 4 and 8: bilinear, horizontal first; the last N elements of a row
// and, in the strip that ends the plane, its last N rows take no interpolation
// across them. The one-at-a-time quotient is limited to 255.
template <int N, int E>
void Bilinear(const ComposeCall &c) {
  const UpscalePlan u = scale::PlanUpscale<N, E>(c);
  if (!u.rows.ok) return;
  scale::ForEachOutputRow<N, E>(c, u, [&](ComposeRow<E> row, LowRows lr, bool vertical) {
    scale::BilinearElems<N, E>(row, u, lr, vertical, 0, u.elems, c.alpha);
  });
}

// Ratio 6: the 8-bit weights of sub-positions 1..6 in vertically
// interpolated rows, the running position elsewhere. The one-at-a-time
// quotient is not limited.
template <int E>
void Ratio6(const ComposeCall &c) {
  const UpscalePlan u = scale::PlanUpscale<6, E>(c);
  if (!u.rows.ok) return;
  scale::ForEachOutputRow<6, E>(c, u, [&](ComposeRow<E> row, LowRows lr, bool vertical) {
    scale::Ratio6Elems<E>(row, u, lr, vertical, 0, u.elems, c.alpha);
  });
}

}  // namespace

PB_COMPOSE_KERNEL(UpscaleComposeLuma2_C) {
  Midpoint<1>({"UpscaleComposeLuma2", src, width, height, lowWidth, lowHeight, weight, blurred, dst,
               rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeLuma4_C) {
  Bilinear<4, 1>({"UpscaleComposeLuma4", src, width, height, lowWidth, lowHeight, weight, blurred,
                  dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeLuma6_C) {
  Ratio6<1>({"UpscaleComposeLuma6", src, width, height, lowWidth, lowHeight, weight, blurred, dst,
             rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeLuma8_C) {
  Bilinear<8, 1>({"UpscaleComposeLuma8", src, width, height, lowWidth, lowHeight, weight, blurred,
                  dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeChroma2_C) {
  Midpoint<2>({"UpscaleComposeChroma2", src, width, height, lowWidth, lowHeight, weight, blurred,
               dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeChroma4_C) {
  Bilinear<4, 2>({"UpscaleComposeChroma4", src, width, height, lowWidth, lowHeight, weight,
                  blurred, dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeChroma6_C) {
  Ratio6<2>({"UpscaleComposeChroma6", src, width, height, lowWidth, lowHeight, weight, blurred,
             dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeChroma8_C) {
  Bilinear<8, 2>({"UpscaleComposeChroma8", src, width, height, lowWidth, lowHeight, weight,
                  blurred, dst, rowFirst, rowLast, alpha});
}

}  // namespace pb
