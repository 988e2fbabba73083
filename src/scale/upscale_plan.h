// Planning of an upscale-and-composite call: the rows it writes, its
// geometry (which elements the vector steps cover and which interpolate
// across), the low rows of an output row and the walk over output rows.
// Positions count elements: one byte for luma (E = 1), one U,V pair for
// chroma (E = 2), mixed with the weight of the pair's top-left luma pixel.
#ifndef PREVIEWBOKEH_SCALE_UPSCALE_PLAN_H_
#define PREVIEWBOKEH_SCALE_UPSCALE_PLAN_H_

#include <climits>
#include <cstdint>

#include "platform/log.h"
#include "scale/scale_common.h"

namespace pb {
namespace scale {

// The arguments of an upscale-composite kernel (simd/kernel_table.h) and its
// name for log lines.
struct ComposeCall {
  const char *name;
  const uint8_t *src;
  int32_t width, height, lowWidth, lowHeight;
  const uint16_t *weight;
  const uint8_t *blurred;
  uint8_t *dst;
  int32_t rowFirst, rowLast;
  uint8_t alpha;
};

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

inline ComposeRows PlanCompose(const ComposeCall &c, int32_t elem) {
  const uint8_t *src = c.src, *blurred = c.blurred, *dst = c.dst;
  const uint16_t *weight = c.weight;
  const int32_t width = c.width, height = c.height, lowWidth = c.lowWidth,
                lowHeight = c.lowHeight, rowFirst = c.rowFirst, rowLast = c.rowLast;
  const char *name = c.name;
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
inline UpscalePlan PlanUpscale(const ComposeCall &c) {
  const int32_t width = c.width, height = c.height, lowWidth = c.lowWidth,
                lowHeight = c.lowHeight;
  UpscalePlan u{};
  u.rows = PlanCompose(c, E);
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
inline ComposeRow<E> MakeComposeRow(const ComposeCall &c, int32_t y, int32_t r, int32_t r1) {
  return ComposeRow<E>{c.src + Offset(y, c.width), c.weight + Offset(E * y, c.width),
                       c.dst + Offset(y, c.width), c.blurred + Offset(r, c.lowWidth),
                       c.blurred + Offset(r1, c.lowWidth)};
}

// Output rows of a call and, for each, row(ComposeRow<E>, LowRows, vertical).
// Ratio 2: low rows r = y >> 1 and r + 1 (clamped); the strip's last two rows
// take the lower low row clamped to the image, so a one-row strip rewrites the
// row above it as well. Ratios 4, 6, 8: the 16.16 positions of LowRowsAt;
// rows from flatFrom on, and at ratio 6 row 0, are not interpolated
// vertically.
template <int N, int E, class RowFn>
inline void ForEachOutputRow(const ComposeCall &c, const UpscalePlan &u, RowFn row) {
  int32_t y = u.rows.first;
  if (N == 2 && u.rows.first == u.rows.last) y = Max(u.rows.last - 1, 0);
  for (; y <= u.rows.last; ++y) {
    LowRows lr;
    if (N == 2) {
      const int32_t r = Min(y >> 1, c.lowHeight - 1);
      lr = LowRows{r, Min(r + 1, c.lowHeight - 1), 0};
    } else {
      lr = LowRowsAt(u.stepY, y, c.lowHeight);
    }
    const bool vertical = y < u.flatFrom && (N != 6 || y != 0);
    row(MakeComposeRow<E>(c, y, lr.r, lr.r1), lr, vertical);
  }
}

}  // namespace scale
}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_UPSCALE_PLAN_H_
