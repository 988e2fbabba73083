// Downscale by N (2, 4, 6, 8): the reduction filters, the planning of a call
// and the scalar runs shared by the scalar kernels and the vector kernels'
// left-over columns.
#ifndef PREVIEWBOKEH_SCALE_DOWNSCALE_INTERNAL_H_
#define PREVIEWBOKEH_SCALE_DOWNSCALE_INTERNAL_H_

#include <cstddef>
#include <cstdint>

#include "platform/log.h"
#include "scale/scale_common.h"

namespace pb {
namespace scale {

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

// The arguments of a downscale kernel (simd/kernel_table.h).
struct DownscaleCall {
  const uint8_t *src;
  uint8_t *dst;
  uint8_t *xinterp;
  int32_t width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast;
};

// A downscale member: plans the call and, where there is work, runs pass 1
// as row(s, o, fh) over every source row read and pass 2 as
// vertical(plan, xinterp, dst, lowWidth, bytes) over bytes [0, bytes) of every
// reduced row.
template <int N, class RowFn, class VerticalFn>
inline void RunDownscale(const char *name, const DownscaleCall &c, int32_t bytes, RowFn row,
                         VerticalFn vertical) {
  const DownscaleRows p = PlanDownscale(name, N, c.src, c.dst, c.xinterp, c.width, c.height,
                                        c.lowWidth, c.lowHeight, c.lowRowFirst, c.lowRowLast);
  if (!p.ok) return;
  ForEachSourceRow<N>(p, c.src, c.width, c.xinterp, c.lowWidth,
                      [&](const uint8_t *s, uint8_t *o) { row(s, o, p.fh); });
  vertical(p, c.xinterp, c.dst, c.lowWidth, bytes);
}

}  // namespace scale
}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_DOWNSCALE_INTERNAL_H_
