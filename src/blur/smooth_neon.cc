// Vector separable smoothing, byte-identical to the scalar reference.
//
// Layout: everything lives in the caller's private intermediate (the shared
// padded scratch is left alone, so concurrent strips never write the same
// memory). The intermediate holds a ring of S = min(2h + 1, rows needed)
// horizontal result rows (bytes) and one more row. Each plane row is filtered
// horizontally once, just before the first output row that needs it, and
// each output row is produced from the ring as soon as its 2h + 1 rows are
// present, so the working set stays within a few dozen rows. Rows above and
// below the plane map to the edge rows' ring slots.
//
// Arithmetic: both passes compute sums of taps x 8-bit samples.
//  - 16-bit path (when the taps allow it, which covers the Gaussian and the
//    uniform kernels): each tap t is split as t = 16 * th + tl and the two
//    partial sums C = sum th * p and R = sum tl * p are accumulated in 16-bit
//    lanes without overflow. Then (16C + R + 512) >> 10 ==
//    (C + (R >> 4) + 32) >> 6 exactly, which is a shift-accumulate and a
//    saturating rounding narrowing shift. Symmetric kernels add the two
//    samples of each tap pair first (bytes to 16 bits), halving the
//    multiplies.
//  - 32-bit path (any taps): 16 x 16 -> 32-bit multiply-accumulate, then a
//    saturating rounding narrowing shift by 10.
// Grouped columns saturate to 255; the horizontal left-over columns keep the
// low 8 bits, computed one at a time as in the reference.
//
// Two forms of this layout. The ring form (16-bit path) takes 16 columns a
// step, reads each plane row in place (chroma still interleaved) and can hand
// each finished row to the full-resolution composite at once
// (SmoothCompose*), so the smoothed plane is never stored. The 32-bit path
// copies each row padded (chroma split into U and V) and takes 8 columns a
// step. Radii above 32, and planes too small for either within the
// intermediate, run the scalar code instead (same bytes).
#include <cstdint>
#include <cstring>

#include "blur/smooth.h"
#include "blur/smooth_internal.h"
#include "scale/compose.h"
#include "scale/compose_internal.h"
#include "simd/neon.h"

namespace pb {
namespace {

constexpr int32_t kMaxVectorRadius = 32;  // larger radii use the scalar code
constexpr int kSplitBits = 4;

using simd::AddHigh;
using simd::AddLow;
using simd::WidenHigh;
using simd::WidenLow;

// v times a tap held as bytes (t8, for the widening multiply on Arm) and as
// 16-bit lanes (t16, for a widening and a 16-bit multiply through SIMDe).
inline uint16x8_t MulLow(uint8x16_t v, uint8x16_t t8, uint16x8_t t16) {
#if defined(__aarch64__)
  (void)t16;
  return vmull_u8(vget_low_u8(v), vget_low_u8(t8));
#else
  (void)t8;
  return vmulq_u16(WidenLow(v), t16);
#endif
}
inline uint16x8_t MulHigh(uint8x16_t v, uint8x16_t t8, uint16x8_t t16) {
#if defined(__aarch64__)
  (void)t16;
  return vmull_high_u8(v, t8);
#else
  (void)t8;
  return vmulq_u16(WidenHigh(v), t16);
#endif
}
// (v + 32) >> 6 of two sets of 8 lanes as 16 bytes, for sums whose rounded
// results fit 8 bits (no saturation needed). Through SIMDe the rounding
// shift is ((v >> 5) + 1) >> 1, a shift and an average, and the narrowing an
// unzip; on Arm the rounding narrowing shift itself.
inline uint8x16_t RoundNarrow6(uint16x8_t a, uint16x8_t b) {
#if defined(__aarch64__)
  return vcombine_u8(vrshrn_n_u16(a, 6), vrshrn_n_u16(b, 6));
#else
  const uint16x8_t zero = vdupq_n_u16(0);
  return vuzp1q_u8(vreinterpretq_u8_u16(vrhaddq_u16(vshrq_n_u16(a, 5), zero)),
                   vreinterpretq_u8_u16(vrhaddq_u16(vshrq_n_u16(b, 5), zero)));
#endif
}

struct Taps {
  const uint16_t *t;
  int32_t h;
  bool fast16;
  bool small;  // fast16, and (C + (R >> 4) + 32) >> 6 never exceeds 255
  bool symmetric;
  uint16_t hi[2 * kMaxVectorRadius + 1];
  uint16_t lo[2 * kMaxVectorRadius + 1];
  uint16x8_t hiv[2 * kMaxVectorRadius + 1];  // hi and lo broadcast to lanes
  uint16x8_t lov[2 * kMaxVectorRadius + 1];
};

void PrepareTaps(const uint16_t *kernel, int32_t h, Taps *tp) {
  tp->t = kernel;
  tp->h = h;
  uint64_t sumHi = 0;
  uint64_t sumLo = 0;
  tp->symmetric = true;
  for (int32_t j = 0; j <= 2 * h; ++j) {
    tp->hi[j] = static_cast<uint16_t>(kernel[j] >> kSplitBits);
    tp->lo[j] = static_cast<uint16_t>(kernel[j] & ((1u << kSplitBits) - 1u));
    tp->hiv[j] = vdupq_n_u16(tp->hi[j]);
    tp->lov[j] = vdupq_n_u16(tp->lo[j]);
    sumHi += tp->hi[j];
    sumLo += tp->lo[j];
    if (kernel[j] != kernel[2 * h - j]) tp->symmetric = false;
  }
  // Largest C, R and C + (R >> 4) over 8-bit samples must fit 16 bits.
  const uint64_t maxC = 255u * sumHi;
  const uint64_t maxR = 255u * sumLo;
  tp->fast16 = maxC <= 65535u && maxR <= 65535u && maxC + (maxR >> kSplitBits) <= 65535u;
  tp->small = tp->fast16 && maxC + (maxR >> kSplitBits) + 32u <= 16383u;
}

// Columns [0, end) of one output row, end a multiple of 8; sample j of column
// x is base[j][x]. Any taps: 32-bit accumulation.
void DotGroups32(const uint8_t *const *base, const Taps &tp, uint8_t *out, int32_t end) {
  const int32_t n = 2 * tp.h + 1;
  for (int32_t x = 0; x < end; x += 8) {
    uint32x4_t a0 = vdupq_n_u32(0);
    uint32x4_t a1 = vdupq_n_u32(0);
    for (int32_t j = 0; j < n; ++j) {
      const uint16x8_t p = vmovl_u8(vld1_u8(base[j] + x));
      a0 = vmlal_n_u16(a0, vget_low_u16(p), tp.t[j]);
      a1 = vmlal_n_u16(a1, vget_high_u16(p), tp.t[j]);
    }
    const uint16x8_t v = vcombine_u16(vqrshrn_n_u32(a0, 10), vqrshrn_n_u32(a1, 10));
    vst1_u8(out + x, vqmovn_u16(v));
  }
}

// One output row of n columns: groups of 8 over [0, bodyEnd), then one column
// at a time, keeping the low 8 bits when `wrapTail`, else saturating.
void DotRow(const uint8_t *const *base, const Taps &tp, uint8_t *out, int32_t n,
            int32_t bodyEnd, bool wrapTail) {
  DotGroups32(base, tp, out, bodyEnd);
  const int32_t taps = 2 * tp.h + 1;
  for (int32_t x = bodyEnd; x < n; ++x) {
    uint32_t acc = 0;
    for (int32_t j = 0; j < taps; ++j) acc += static_cast<uint32_t>(tp.t[j]) * base[j][x];
    const uint32_t v = smooth::RoundShift10(acc);
    out[x] = wrapTail ? static_cast<uint8_t>(v) : smooth::Saturate8(v);
  }
}

// Fills `pad` with the n samples of `src` and h copies of the first and last
// sample on either side.
void PadRow(const uint8_t *src, int32_t n, int32_t h, uint8_t *pad) {
  std::memset(pad, src[0], static_cast<size_t>(h));
  std::memcpy(pad + h, src, static_cast<size_t>(n));
  std::memset(pad + h + n, src[n - 1], static_cast<size_t>(h));
}

// Splits an interleaved row of `pairs` pairs into two padded channel rows.
void PadPairs(const uint8_t *src, int32_t pairs, int32_t h, uint8_t *padU, uint8_t *padV) {
  int32_t i = 0;
  for (; i + 16 <= pairs; i += 16) {
    const uint8x16x2_t v = vld2q_u8(src + 2 * i);
    vst1q_u8(padU + h + i, v.val[0]);
    vst1q_u8(padV + h + i, v.val[1]);
  }
  for (; i < pairs; ++i) {
    padU[h + i] = src[2 * i];
    padV[h + i] = src[2 * i + 1];
  }
  std::memset(padU, src[0], static_cast<size_t>(h));
  std::memset(padV, src[1], static_cast<size_t>(h));
  std::memset(padU + h + pairs, src[2 * pairs - 2], static_cast<size_t>(h));
  std::memset(padV + h + pairs, src[2 * pairs - 1], static_cast<size_t>(h));
}

// Interleaves two channel rows of `pairs` samples into pairs.
void Interleave(const uint8_t *u, const uint8_t *v, int32_t pairs, uint8_t *dst) {
  int32_t i = 0;
  for (; i + 16 <= pairs; i += 16) {
    uint8x16x2_t p;
    p.val[0] = vld1q_u8(u + i);
    p.val[1] = vld1q_u8(v + i);
    vst2q_u8(dst + 2 * i, p);
  }
  for (; i < pairs; ++i) {
    dst[2 * i] = u[i];
    dst[2 * i + 1] = v[i];
  }
}

// Returns false (nothing written) when the scratch or radius does not suit
// this layout; the caller then uses the scalar code, which gives the same bytes.
bool SmoothVector(const uint8_t *input, uint8_t *output, int32_t width, int32_t height,
                  const uint16_t *kernel, int32_t h, uint8_t *intermediate, int32_t firstRow,
                  int32_t lastRow, bool chroma) {
  if (h > kMaxVectorRadius) return false;
  const size_t stride = static_cast<size_t>(width);
  const int32_t rowLo = firstRow - h > 0 ? firstRow - h : 0;
  const int32_t rowHi = lastRow + h < height - 1 ? lastRow + h : height - 1;
  const int32_t slots = rowHi - rowLo + 1 < 2 * h + 1 ? rowHi - rowLo + 1 : 2 * h + 1;
  const size_t padBytes = stride + static_cast<size_t>(chroma ? 4 * h : 2 * h);
  if (static_cast<size_t>(slots) * stride + padBytes > SmoothIntermediateBytes(width, height, h)) {
    return false;
  }
  uint8_t *const pad = intermediate + static_cast<size_t>(slots) * stride;
  auto slot = [&](int32_t row) { return intermediate + static_cast<size_t>(row % slots) * stride; };

  Taps tp;
  PrepareTaps(kernel, h, &tp);
  const uint8_t *base[2 * kMaxVectorRadius + 1];
  const int32_t pairs = width / 2;
  uint8_t *const padU = pad;
  uint8_t *const padV = pad + pairs + 2 * h;

  int32_t next = rowLo;  // next plane row to filter horizontally
  for (int32_t y = firstRow; y <= lastRow; ++y) {
    const int32_t need = y + h < height - 1 ? y + h : height - 1;
    for (; next <= need; ++next) {
      const uint8_t *src = input + static_cast<size_t>(next) * stride;
      uint8_t *dst = slot(next);
      if (chroma) {
        PadPairs(src, pairs, h, padU, padV);
        for (int32_t j = 0; j <= 2 * h; ++j) base[j] = padU + j;
        DotRow(base, tp, dst, pairs, pairs & ~7, true);
        for (int32_t j = 0; j <= 2 * h; ++j) base[j] = padV + j;
        DotRow(base, tp, dst + pairs, pairs, pairs & ~7, true);
      } else {
        PadRow(src, width, h, pad);
        for (int32_t j = 0; j <= 2 * h; ++j) base[j] = pad + j;
        DotRow(base, tp, dst, width, width & ~7, true);
      }
    }
    for (int32_t j = 0; j <= 2 * h; ++j) {
      int32_t r = y - h + j;
      r = r < 0 ? 0 : (r > height - 1 ? height - 1 : r);
      base[j] = slot(r);
    }
    uint8_t *out = output + static_cast<size_t>(y) * stride;
    if (chroma) {
      // Channel rows stay apart in the ring; the padded row area is free now.
      DotRow(base, tp, pad, width, width & ~7, false);
      Interleave(pad, pad + pairs, pairs, out);
    } else {
      DotRow(base, tp, out, width, width & ~7, false);
    }
  }
  return true;
}

// ---------------------------------------------------------------------------
// Byte ring form (taps passing the fast16 test): the ring holds the 8-bit
// horizontal results, both passes take 16 columns a step straight from bytes
// (widened by the pair additions), and the horizontal pass reads the plane
// row in place, through a small padded copy only where a step reaches past
// an edge. Chroma rows stay interleaved: the horizontal taps are two bytes
// apart, which filters U and V together.

// Tap lanes for Dot16. kH >= 0 (symmetric taps of that radius): copies of
// the lanes of taps h..2h, and the centre tap's parts as bytes (its high part
// must fit a byte), held in registers across a row: output stores could
// otherwise alias a Taps in memory and force reloads every step. kH < 0: the
// lanes in the Taps.
template <int kH>
struct TapLanes {
  uint16x8_t hi[kH + 1], lo[kH + 1];
  uint8x16_t hc, lc;
  explicit TapLanes(const Taps &tp) {
    for (int32_t k = 0; k <= kH; ++k) {
      hi[k] = tp.hiv[kH + k];
      lo[k] = tp.lov[kH + k];
    }
    hc = vdupq_n_u8(static_cast<uint8_t>(tp.hi[kH]));
    lc = vdupq_n_u8(static_cast<uint8_t>(tp.lo[kH]));
  }
  uint16x8_t Hi(const Taps &, int32_t j) const { return hi[j - kH]; }
  uint16x8_t Lo(const Taps &, int32_t j) const { return lo[j - kH]; }
};
template <>
struct TapLanes<-1> {
  explicit TapLanes(const Taps &) {}
  uint16x8_t Hi(const Taps &tp, int32_t j) const { return tp.hiv[j]; }
  uint16x8_t Lo(const Taps &tp, int32_t j) const { return tp.lov[j]; }
};

// 16 columns: C + (R >> 4) per column (see the arithmetic note at the top),
// rounded and saturated to bytes. win(j) is sample j (0..2h) of the 16
// columns.
template <bool kSymmetric, int kH, class Win>
inline uint8x16_t Dot16(const Win &win, const Taps &tp, const TapLanes<kH> &tl) {
  const int32_t h = kH >= 0 ? kH : tp.h;
  uint16x8_t c0, c1, r0, r1;
  if (kSymmetric) {
    const uint8x16_t m = win(h);
    if constexpr (kH >= 0) {
      c0 = MulLow(m, tl.hc, tl.hi[0]);
      c1 = MulHigh(m, tl.hc, tl.hi[0]);
      r0 = MulLow(m, tl.lc, tl.lo[0]);
      r1 = MulHigh(m, tl.lc, tl.lo[0]);
    } else {
      const uint16x8_t a = WidenLow(m);
      const uint16x8_t b = WidenHigh(m);
      c0 = vmulq_u16(a, tl.Hi(tp, h));
      c1 = vmulq_u16(b, tl.Hi(tp, h));
      r0 = vmulq_u16(a, tl.Lo(tp, h));
      r1 = vmulq_u16(b, tl.Lo(tp, h));
    }
    for (int32_t k = 1; k <= h; ++k) {
      const uint8x16_t l = win(h - k);
      const uint8x16_t r = win(h + k);
      const uint16x8_t s0 = AddLow(l, r);
      const uint16x8_t s1 = AddHigh(l, r);
      c0 = vmlaq_u16(c0, s0, tl.Hi(tp, h + k));
      c1 = vmlaq_u16(c1, s1, tl.Hi(tp, h + k));
      r0 = vmlaq_u16(r0, s0, tl.Lo(tp, h + k));
      r1 = vmlaq_u16(r1, s1, tl.Lo(tp, h + k));
    }
  } else {
    c0 = c1 = r0 = r1 = vdupq_n_u16(0);
    for (int32_t j = 0; j <= 2 * h; ++j) {
      const uint8x16_t m = win(j);
      const uint16x8_t a = WidenLow(m);
      const uint16x8_t b = WidenHigh(m);
      c0 = vmlaq_u16(c0, a, tl.Hi(tp, j));
      c1 = vmlaq_u16(c1, b, tl.Hi(tp, j));
      r0 = vmlaq_u16(r0, a, tl.Lo(tp, j));
      r1 = vmlaq_u16(r1, b, tl.Lo(tp, j));
    }
  }
  const uint16x8_t s0 = vsraq_n_u16(c0, r0, kSplitBits);
  const uint16x8_t s1 = vsraq_n_u16(c1, r1, kSplitBits);
  if constexpr (kH >= 0) {  // taps passing `small`: results fit 8 bits
    static_assert(10 - kSplitBits == 6, "RoundNarrow6 shifts by 6");
    return RoundNarrow6(s0, s1);
  }
  return vcombine_u8(vqrshrn_n_u16(s0, 10 - kSplitBits), vqrshrn_n_u16(s1, 10 - kSplitBits));
}

template <int kStep>
struct RowWin {  // horizontal: sample j of column i is p[i + j * kStep]
  const uint8_t *p;
  uint8x16_t operator()(int32_t j) const { return vld1q_u8(p + j * kStep); }
};
struct RingWin {  // vertical: sample j of column i is rows[j][x + i]
  const uint8_t *const *rows;
  int32_t x;
  uint8x16_t operator()(int32_t j) const { return vld1q_u8(rows[j] + x); }
};

// Scalar sum of one column; at(j) is its sample j.
template <class At>
inline uint32_t DotOne(const Taps &tp, At at) {
  uint32_t acc = 0;
  for (int32_t j = 0; j <= 2 * tp.h; ++j) acc += static_cast<uint32_t>(tp.t[j]) * at(j);
  return smooth::RoundShift10(acc);
}

// Widest reach of a horizontal step past its columns, and the bytes of the
// padded copy that the steps at an edge read (see HorizontalRow).
constexpr int32_t kMaxReach = 2 * kMaxVectorRadius;
constexpr int32_t kSpanBytes = 4 * kMaxReach + 48;

// Horizontal steps x = from, from + 16, .. < to of one row, from a padded
// copy of its bytes from - reach .. to + reach - 1 (bytes past an edge repeat
// the edge sample of their channel). A step that ends past `body` stores
// only its first 8 columns.
template <bool kSymmetric, int kH, int kStep>
void HorizontalSpan(const uint8_t *src, int32_t width, const Taps &tp, uint8_t *out,
                    int32_t from, int32_t to, int32_t body) {
  if (from >= to) return;
  const int32_t reach = tp.h * kStep;
  const int32_t first = from - reach, last = to + reach;  // bytes [first, last)
  uint8_t buf[kSpanBytes];
  int32_t i = first;
  for (; i < 0 && i < last; ++i) buf[i - first] = src[i & (kStep - 1)];
  const int32_t mid = last < width ? last : width;
  if (i < mid) {
    std::memcpy(buf + (i - first), src + i, static_cast<size_t>(mid - i));
    i = mid;
  }
  for (; i < last; ++i) buf[i - first] = src[width - kStep + (i & (kStep - 1))];
  const TapLanes<kH> tl(tp);
  for (int32_t x = from; x < to; x += 16) {
    const uint8x16_t v = Dot16<kSymmetric, kH>(RowWin<kStep>{buf + (x - from)}, tp, tl);
    if (x + 16 <= body) {
      vst1q_u8(out + x, v);
    } else {
      vst1_u8(out + x, vget_low_u8(v));
    }
  }
}

// Horizontal pass of one plane row into out, width bytes. kStep 1: luma;
// kStep 2: interleaved chroma pairs, each channel filtered on its own.
// Vector body: 16 columns a step over [0, body), body = width & ~7 (luma) or
// width & ~15 (chroma), saturating; a luma body 8 past a multiple of 16 ends
// with a step that stores 8. Steps that reach past the row's ends read a
// padded copy (HorizontalSpan), the others the row in place. Tail: columns
// [body, width) one at a time, keeping the low 8 bits, as the scalar twin
// (SmoothPlane in smooth_c.cc) does past its bodyEnd.
template <bool kSymmetric, int kH, int kStep>
void HorizontalRow(const uint8_t *src, int32_t width, const Taps &tp, uint8_t *out) {
  const int32_t reach = tp.h * kStep;
  const int32_t body = kStep == 1 ? width & ~7 : width & ~15;
  const int32_t end = (body + 15) & ~15;
  // Steps at x in [xa, xb) read bytes x - reach .. x + 15 + reach in place.
  const int32_t xa = (reach + 15) & ~15;
  int32_t xb = width - reach - 16 >= 0 ? ((width - reach - 16) & ~15) + 16 : 0;
  if (xb > (body & ~15)) xb = body & ~15;
  const TapLanes<kH> tl(tp);
  if (xb <= xa) {
    HorizontalSpan<kSymmetric, kH, kStep>(src, width, tp, out, 0, end, body);
  } else {
    HorizontalSpan<kSymmetric, kH, kStep>(src, width, tp, out, 0, xa, body);
    for (int32_t x = xa; x < xb; x += 16) {
      const uint8x16_t v = Dot16<kSymmetric, kH>(RowWin<kStep>{src + x - reach}, tp, tl);
      vst1q_u8(out + x, v);
    }
    HorizontalSpan<kSymmetric, kH, kStep>(src, width, tp, out, xb, end, body);
  }
  for (int32_t x = body; x < width; ++x) {
    const int32_t lo = x & (kStep - 1), hi = width - kStep + lo;
    const uint32_t v = DotOne(tp, [&](int32_t j) {
      const int32_t c = x + (j - tp.h) * kStep;
      return src[c < lo ? lo : (c > hi ? hi : c)];
    });
    out[x] = static_cast<uint8_t>(v);
  }
}

// Vertical pass of one row from the 2h + 1 ring rows, width bytes, all
// saturating. Vector body: 16 columns a step; a width that is not a multiple
// of 16 (and at least 16) ends with a step over the last 16 columns, which
// rewrites some columns with the same bytes. Narrower rows: one column at a
// time (the scalar twin's vertical loop).
template <bool kSymmetric, int kH>
void VerticalRow(const uint8_t *const *ring, const Taps &tp, uint8_t *out, int32_t width) {
  const int32_t n = 2 * (kH >= 0 ? kH : tp.h) + 1;
  const uint8_t *rows[2 * kMaxVectorRadius + 1];
  for (int32_t j = 0; j < n; ++j) rows[j] = ring[j];
  if (width < 16) {
    for (int32_t x = 0; x < width; ++x) {
      out[x] = smooth::Saturate8(DotOne(tp, [&](int32_t j) { return rows[j][x]; }));
    }
    return;
  }
  const TapLanes<kH> tl(tp);
  int32_t x = 0;
  for (; x + 16 <= width; x += 16) {
    const uint8x16_t v = Dot16<kSymmetric, kH>(RingWin{rows, x}, tp, tl);
    vst1q_u8(out + x, v);
  }
  if (x < width) {
    x = width - 16;
    const uint8x16_t v = Dot16<kSymmetric, kH>(RingWin{rows, x}, tp, tl);
    vst1q_u8(out + x, v);
  }
}

// Output rows go to the plane.
struct PlaneSink {
  uint8_t *out;
  size_t stride;
  uint8_t *Target(int32_t y, uint8_t * /*row*/) const { return out + static_cast<size_t>(y) * stride; }
  void Done(int32_t /*y*/, const uint8_t * /*row*/) const {}
};

// Output rows go to a scratch row and are mixed into dst at once.
struct ComposeSink {
  const uint8_t *src;
  const uint16_t *weight;
  uint8_t *dst;
  size_t stride;
  uint8_t alpha;
  bool chroma;
  uint8_t *Target(int32_t /*y*/, uint8_t *row) const { return row; }
  void Done(int32_t y, const uint8_t *row) const {
    const size_t off = static_cast<size_t>(y) * stride;
    if (chroma) {
      compose::ComposeChromaRow_NEON(src + off, row, weight + 2 * off, dst + off,
                                     static_cast<int32_t>(stride), alpha);
    } else {
      compose::ComposeLumaRow_NEON(src + off, row, weight + off, dst + off,
                                   static_cast<int32_t>(stride), alpha);
    }
  }
};

// The ring in the intermediate: S = min(2h + 1, rows needed) horizontal rows
// and one output row for the composite.
struct Ring {
  uint8_t *rows;
  uint8_t *out;
  int32_t slots;
  int32_t rowLo;
};

template <bool kSymmetric, int kH, int kStep, class Sink>
void RunRing(const uint8_t *input, int32_t width, int32_t height, const Taps &tp, const Ring &l,
             int32_t firstRow, int32_t lastRow, const Sink &sink) {
  const int32_t h = tp.h;
  const size_t stride = static_cast<size_t>(width);
  auto slot = [&](int32_t row) { return l.rows + static_cast<size_t>(row % l.slots) * stride; };
  const uint8_t *ring[2 * kMaxVectorRadius + 1];
  int32_t next = l.rowLo;  // next plane row to filter horizontally
  for (int32_t y = firstRow; y <= lastRow; ++y) {
    const int32_t need = y + h < height - 1 ? y + h : height - 1;
    for (; next <= need; ++next) {
      HorizontalRow<kSymmetric, kH, kStep>(input + static_cast<size_t>(next) * stride, width, tp,
                                           slot(next));
    }
    for (int32_t j = 0; j <= 2 * h; ++j) {
      int32_t r = y - h + j;
      r = r < 0 ? 0 : (r > height - 1 ? height - 1 : r);
      ring[j] = slot(r);
    }
    uint8_t *out = sink.Target(y, l.out);
    VerticalRow<kSymmetric, kH>(ring, tp, out, width);
    sink.Done(y, out);
  }
}

template <bool kSymmetric, int kH, class Sink>
void RunRingPlane(bool chroma, const uint8_t *input, int32_t width, int32_t height,
                  const Taps &tp, const Ring &l, int32_t firstRow, int32_t lastRow,
                  const Sink &sink) {
  if (chroma) {
    RunRing<kSymmetric, kH, 2>(input, width, height, tp, l, firstRow, lastRow, sink);
  } else {
    RunRing<kSymmetric, kH, 1>(input, width, height, tp, l, firstRow, lastRow, sink);
  }
}

// False (nothing written) when the taps or the scratch do not suit the ring
// form.
template <class Sink>
bool SmoothRing(const uint8_t *input, int32_t width, int32_t height, const uint16_t *kernel,
                int32_t h, uint8_t *intermediate, int32_t firstRow, int32_t lastRow, bool chroma,
                const Sink &sink) {
  if (h > kMaxVectorRadius) return false;
  Ring l;
  l.rowLo = firstRow - h > 0 ? firstRow - h : 0;
  const int32_t rowHi = lastRow + h < height - 1 ? lastRow + h : height - 1;
  l.slots = rowHi - l.rowLo + 1 < 2 * h + 1 ? rowHi - l.rowLo + 1 : 2 * h + 1;
  const size_t stride = static_cast<size_t>(width);
  if (static_cast<size_t>(l.slots + 1) * stride > SmoothIntermediateBytes(width, height, h)) {
    return false;
  }
  Taps tp;
  PrepareTaps(kernel, h, &tp);
  if (!tp.fast16) return false;
  l.rows = intermediate;
  l.out = intermediate + static_cast<size_t>(l.slots) * stride;
  if (tp.symmetric && h == 5 && tp.small) {  // the blur's 11-tap Gaussian
    RunRingPlane<true, 5>(chroma, input, width, height, tp, l, firstRow, lastRow, sink);
  } else if (tp.symmetric) {
    RunRingPlane<true, -1>(chroma, input, width, height, tp, l, firstRow, lastRow, sink);
  } else {
    RunRingPlane<false, -1>(chroma, input, width, height, tp, l, firstRow, lastRow, sink);
  }
  return true;
}
// The ring form where it applies, else the 32-bit vector passes, else the
// scalar reference.
void SmoothPlaneNeon(const char *name, bool chroma, SmoothFn scalar, const uint8_t *input,
                     uint8_t *padded, uint8_t *output, int32_t width, int32_t height,
                     const uint16_t *kernel, int32_t hradius, int32_t vradius,
                     uint8_t *intermediate, int32_t firstRow, int32_t lastRow) {
  if (!smooth::ScreenOrZero(name, chroma, input, output, width, height, kernel, hradius, vradius,
                            intermediate, firstRow, lastRow)) {
    return;
  }
  const PlaneSink sink{output, static_cast<size_t>(width)};
  if (!SmoothRing(input, width, height, kernel, hradius, intermediate, firstRow, lastRow, chroma,
                  sink) &&
      !SmoothVector(input, output, width, height, kernel, hradius, intermediate, firstRow, lastRow,
                    chroma)) {
    scalar(input, padded, output, width, height, kernel, hradius, vradius, intermediate, firstRow,
           lastRow);
  }
}

}  // namespace

void SmoothLuma_NEON(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                     int32_t height, const uint16_t *kernel, int32_t hradius, int32_t vradius,
                     uint8_t *intermediate, int32_t firstRow, int32_t lastRow) {
  SmoothPlaneNeon("SmoothLuma", false, SmoothLuma_C, input, padded, output, width, height, kernel,
                  hradius, vradius, intermediate, firstRow, lastRow);
}

void SmoothChroma_NEON(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                       int32_t height, const uint16_t *kernel, int32_t hradius,
                       int32_t vradius, uint8_t *intermediate, int32_t firstRow,
                       int32_t lastRow) {
  SmoothPlaneNeon("SmoothChroma", true, SmoothChroma_C, input, padded, output, width, height,
                  kernel, hradius, vradius, intermediate, firstRow, lastRow);
}

namespace {

// Smoothing then compositing of rows firstRow..lastRow, as two calls.
void SmoothThenCompose(SmoothFn smoothFn, ComposeKernel composeFn, const uint8_t *input,
                       uint8_t *padded, uint8_t *smoothed, int32_t width, int32_t height,
                       const uint16_t *kernel, int32_t hradius, int32_t vradius,
                       uint8_t *intermediate, int32_t firstRow, int32_t lastRow,
                       const uint16_t *weight, uint8_t alpha, uint8_t *dst) {
  smoothFn(input, padded, smoothed, width, height, kernel, hradius, vradius, intermediate,
           firstRow, lastRow);
  composeFn(input, width, height, width, height, weight, smoothed, dst, firstRow, lastRow, alpha);
}

// The fused form applies when the arguments are plainly valid and dst does not
// overlap the input plane (each row is written while later input rows are
// still to be read).
bool FusedApplies(bool chroma, const uint8_t *input, uint8_t *output, int32_t width,
                  int32_t height, const uint16_t *kernel, int32_t hradius, int32_t vradius,
                  const uint8_t *intermediate, int32_t firstRow, int32_t lastRow,
                  const uint16_t *weight, const uint8_t *dst) {
  if (input == nullptr || output == nullptr || weight == nullptr || dst == nullptr ||
      kernel == nullptr || intermediate == nullptr || width < 1 || height < 1 ||
      hradius != vradius || hradius < 0 || firstRow < 0 || firstRow > lastRow ||
      lastRow >= height || (chroma && (width & 1) != 0)) {
    return false;
  }
  const uintptr_t in0 = reinterpret_cast<uintptr_t>(input);
  const uintptr_t in1 = in0 + static_cast<uintptr_t>(width) * static_cast<uintptr_t>(height);
  const uintptr_t d0 = reinterpret_cast<uintptr_t>(dst);
  const uintptr_t d1 = d0 + static_cast<uintptr_t>(width) * static_cast<uintptr_t>(height);
  return d1 <= in0 || in1 <= d0;
}

}  // namespace

void SmoothComposeLuma_NEON(const uint8_t *input, uint8_t *padded, uint8_t *smoothed,
                            int32_t width, int32_t height, const uint16_t *kernel,
                            int32_t hradius, int32_t vradius, uint8_t *intermediate,
                            int32_t firstRow, int32_t lastRow, const uint16_t *weight,
                            uint8_t alpha, uint8_t *dst) {
  if (FusedApplies(false, input, smoothed, width, height, kernel, hradius, vradius,
                   intermediate, firstRow, lastRow, weight, dst)) {
    const ComposeSink sink{input, weight, dst, static_cast<size_t>(width), alpha, false};
    if (SmoothRing(input, width, height, kernel, hradius, intermediate, firstRow, lastRow, false,
                 sink)) {
      return;
    }
  }
  SmoothThenCompose(SmoothLuma_NEON, ComposeLuma_NEON, input, padded, smoothed, width, height,
                    kernel, hradius, vradius, intermediate, firstRow, lastRow, weight, alpha, dst);
}

void SmoothComposeChroma_NEON(const uint8_t *input, uint8_t *padded, uint8_t *smoothed,
                              int32_t width, int32_t height, const uint16_t *kernel,
                              int32_t hradius, int32_t vradius, uint8_t *intermediate,
                              int32_t firstRow, int32_t lastRow, const uint16_t *weight,
                              uint8_t alpha, uint8_t *dst) {
  if (FusedApplies(true, input, smoothed, width, height, kernel, hradius, vradius, intermediate,
                   firstRow, lastRow, weight, dst)) {
    const ComposeSink sink{input, weight, dst, static_cast<size_t>(width), alpha, true};
    if (SmoothRing(input, width, height, kernel, hradius, intermediate, firstRow, lastRow, true,
                 sink)) {
      return;
    }
  }
  SmoothThenCompose(SmoothChroma_NEON, ComposeChroma_NEON, input, padded, smoothed, width,
                    height, kernel, hradius, vradius, intermediate, firstRow, lastRow, weight,
                    alpha, dst);
}

}  // namespace pb
