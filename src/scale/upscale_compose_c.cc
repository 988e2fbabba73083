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
#include "scale/compose.h"
#include "scale/scale_internal.h"

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

// Ratio 2: each output takes the rounded mean of low samples (r, c), (r, c1),
// (r1, c), (r1, c1) with r = y >> 1 and c = e >> 1. The last two elements of
// a row use c1 = c. Vector steps cover 16 bytes.
template <int E>
void Midpoint(const char *name, const uint8_t *src, int32_t width, int32_t height, int32_t lowWidth,
              int32_t lowHeight, const uint16_t *weight, const uint8_t *blurred, uint8_t *dst,
              int32_t rowFirst, int32_t rowLast, uint8_t alpha) {
  const UpscalePlan u = PlanUpscale<2, E>(name, src, weight, blurred, dst, width, height, lowWidth,
                                          lowHeight, rowFirst, rowLast);
  if (!u.rows.ok) return;
  // The strip's last two rows take the lower low row clamped to the image;
  // a one-row strip therefore rewrites the row above it as well.
  const int32_t yStart = u.rows.first < u.rows.last ? u.rows.first : Max(u.rows.last - 1, 0);
  for (int32_t y = yStart; y <= u.rows.last; ++y) {
    const int32_t r = Min(y >> 1, lowHeight - 1);
    const int32_t r1 = Min(r + 1, lowHeight - 1);
    const ComposeRow<E> row =
        MakeComposeRow<E>(src, weight, blurred, dst, width, lowWidth, y, r, r1);
    scale::MidpointElems<E>(row, u, 0, u.elems, alpha);
  }
}

// Ratios 4 and 8: bilinear 16.16 positions, horizontal first. Vector steps
// use the fixed sub-position weights of an exact ratio; the one-at-a-time code
// follows the running position; the last N elements of a row and, in the
// strip that ends the plane, its last N rows take no interpolation across
// them. The one-at-a-time quotient is limited to 255.
template <int N, int E>
void Bilinear(const char *name, const uint8_t *src, int32_t width, int32_t height, int32_t lowWidth,
              int32_t lowHeight, const uint16_t *weight, const uint8_t *blurred, uint8_t *dst,
              int32_t rowFirst, int32_t rowLast, uint8_t alpha) {
  const UpscalePlan u = PlanUpscale<N, E>(name, src, weight, blurred, dst, width, height, lowWidth,
                                          lowHeight, rowFirst, rowLast);
  if (!u.rows.ok) return;
  for (int32_t y = u.rows.first; y <= u.rows.last; ++y) {
    const LowRows lr = LowRowsAt(u.stepY, y, lowHeight);
    const ComposeRow<E> row =
        MakeComposeRow<E>(src, weight, blurred, dst, width, lowWidth, y, lr.r, lr.r1);
    scale::BilinearElems<N, E>(row, u, lr, y < u.flatFrom, 0, u.elems, alpha);
  }
}

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
  const UpscalePlan u = PlanUpscale<6, E>(name, src, weight, blurred, dst, width, height, lowWidth,
                                          lowHeight, rowFirst, rowLast);
  if (!u.rows.ok) return;
  for (int32_t y = u.rows.first; y <= u.rows.last; ++y) {
    const LowRows lr = LowRowsAt(u.stepY, y, lowHeight);
    const ComposeRow<E> row =
        MakeComposeRow<E>(src, weight, blurred, dst, width, lowWidth, y, lr.r, lr.r1);
    scale::Ratio6Elems<E>(row, u, lr, y != 0 && y < u.flatFrom, 0, u.elems, alpha);
  }
}

}  // namespace

PB_DEFINE_UPSCALE_COMPOSE_KERNELS(_C)

}  // namespace pb
