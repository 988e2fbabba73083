// Scalar building blocks shared by the reduced-resolution kernels (downscale
// and upscale-composite) in their scalar and vector forms. The vector kernels
// use these for the columns and rows their vector steps do not cover.
#ifndef PREVIEWBOKEH_SCALE_SCALE_INTERNAL_H_
#define PREVIEWBOKEH_SCALE_SCALE_INTERNAL_H_

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

}  // namespace scale
}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_SCALE_INTERNAL_H_
