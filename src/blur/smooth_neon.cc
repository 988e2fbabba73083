// Vector separable smoothing, byte-identical to the scalar reference.
//
// Layout: everything lives in the caller's private intermediate (the shared
// padded scratch is left alone, so concurrent strips never write the same
// memory). The intermediate holds a ring of S = min(2h + 1, rows needed)
// horizontal result rows followed by one padded source row. Each plane row is
// filtered horizontally once, just before the first output row that needs
// it, and each output row is produced from the ring as soon as its 2h + 1
// rows are present, so the working set stays within a few dozen rows. Rows
// above and below the plane map to the edge rows' ring slots.
//
// Arithmetic: both passes compute sums of taps x 8-bit samples.
//  - 16-bit path (when the taps allow it, which covers the Gaussian and the
//    uniform kernels): each tap t is split as t = 16 * th + tl and the two
//    partial sums C = sum th * p and R = sum tl * p are accumulated in 16-bit
//    lanes without overflow. Then (16C + R + 512) >> 10 ==
//    (C + (R >> 4) + 32) >> 6 exactly, which is a shift-accumulate and a
//    rounding narrowing shift. Symmetric kernels add the two samples of each
//    tap pair first, halving the multiplies.
//  - 32-bit path (any taps): 16 x 16 -> 32-bit multiply-accumulate, then a
//    saturating rounding narrowing shift by 10.
// Grouped columns saturate to 255; the horizontal left-over columns keep the
// low 8 bits, computed one at a time as in the reference.
//
// Two forms of this layout: where the 16-bit path applies and the
// intermediate has room, the ring rows and the padded row are 16-bit lanes
// (each source row is widened once and every tap is a plain load); otherwise
// they are bytes, widened at every tap. The 16-bit form can also hand each
// finished row to the full-resolution composite at once (SmoothCompose*), so
// the smoothed plane is never stored.
// Radii above 32, and planes too small for the byte form within the
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
// x is base[j][x]. 16-bit path; kH >= 0 fixes the radius at compile time.
template <bool kSymmetric, int kH>
void DotGroups16(const uint8_t *const *base, const Taps &tp, uint8_t *out, int32_t end) {
  const int32_t h = kH >= 0 ? kH : tp.h;
  const int32_t n = 2 * h + 1;
  const uint16x8_t *hiv = tp.hiv;
  const uint16x8_t *lov = tp.lov;
  int32_t x = 0;
  for (; x + 16 <= end; x += 16) {
    uint16x8_t c0, c1, r0, r1;
    if (kSymmetric) {
      const uint8x16_t m = vld1q_u8(base[h] + x);
      const uint16x8_t a = vmovl_u8(vget_low_u8(m));
      const uint16x8_t b = vmovl_u8(vget_high_u8(m));
      c0 = vmulq_u16(a, hiv[h]);
      c1 = vmulq_u16(b, hiv[h]);
      r0 = vmulq_u16(a, lov[h]);
      r1 = vmulq_u16(b, lov[h]);
      for (int32_t k = 1; k <= h; ++k) {
        const uint8x16_t l = vld1q_u8(base[h - k] + x);
        const uint8x16_t r = vld1q_u8(base[h + k] + x);
        const uint16x8_t s0 = vaddl_u8(vget_low_u8(l), vget_low_u8(r));
        const uint16x8_t s1 = vaddl_u8(vget_high_u8(l), vget_high_u8(r));
        c0 = vmlaq_u16(c0, s0, hiv[h + k]);
        c1 = vmlaq_u16(c1, s1, hiv[h + k]);
        r0 = vmlaq_u16(r0, s0, lov[h + k]);
        r1 = vmlaq_u16(r1, s1, lov[h + k]);
      }
    } else {
      c0 = c1 = r0 = r1 = vdupq_n_u16(0);
      for (int32_t j = 0; j < n; ++j) {
        const uint8x16_t m = vld1q_u8(base[j] + x);
        const uint16x8_t a = vmovl_u8(vget_low_u8(m));
        const uint16x8_t b = vmovl_u8(vget_high_u8(m));
        c0 = vmlaq_u16(c0, a, hiv[j]);
        c1 = vmlaq_u16(c1, b, hiv[j]);
        r0 = vmlaq_u16(r0, a, lov[j]);
        r1 = vmlaq_u16(r1, b, lov[j]);
      }
    }
    const uint16x8_t s0 = vsraq_n_u16(c0, r0, kSplitBits);
    const uint16x8_t s1 = vsraq_n_u16(c1, r1, kSplitBits);
    vst1q_u8(out + x, vcombine_u8(vqrshrn_n_u16(s0, 10 - kSplitBits),
                                  vqrshrn_n_u16(s1, 10 - kSplitBits)));
  }
  if (x < end) {  // one group of 8
    uint16x8_t c, r;
    if (kSymmetric) {
      const uint16x8_t a = vmovl_u8(vld1_u8(base[h] + x));
      c = vmulq_u16(a, hiv[h]);
      r = vmulq_u16(a, lov[h]);
      for (int32_t k = 1; k <= h; ++k) {
        const uint16x8_t s = vaddl_u8(vld1_u8(base[h - k] + x), vld1_u8(base[h + k] + x));
        c = vmlaq_u16(c, s, hiv[h + k]);
        r = vmlaq_u16(r, s, lov[h + k]);
      }
    } else {
      c = r = vdupq_n_u16(0);
      for (int32_t j = 0; j < n; ++j) {
        const uint16x8_t a = vmovl_u8(vld1_u8(base[j] + x));
        c = vmlaq_u16(c, a, hiv[j]);
        r = vmlaq_u16(r, a, lov[j]);
      }
    }
    vst1_u8(out + x, vqrshrn_n_u16(vsraq_n_u16(c, r, kSplitBits), 10 - kSplitBits));
  }
}

// Same contract, any taps: 32-bit accumulation.
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
  if (tp.fast16) {
    if (tp.symmetric && tp.h == 5) {  // the blur's 11-tap Gaussian
      DotGroups16<true, 5>(base, tp, out, bodyEnd);
    } else if (tp.symmetric) {
      DotGroups16<true, -1>(base, tp, out, bodyEnd);
    } else {
      DotGroups16<false, -1>(base, tp, out, bodyEnd);
    }
  } else {
    DotGroups32(base, tp, out, bodyEnd);
  }
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

// ---------------------------------------------------------------------------
// 16-bit row layout (taps passing the fast16 test). Horizontal results are
// kept as 16-bit values (0..255, already rounded and stored by the 8-bit
// rules), and each padded source row is widened once, so every tap is a plain
// 16-bit load: no per-tap widening.

struct ContigRows {  // sample j of column x: p[x + j]
  const uint16_t *p;
  const uint16_t *At(int32_t j, int32_t x) const { return p + x + j; }
};
struct RingRows {  // sample j of column x: rows[j][x]
  const uint16_t *const *rows;
  const uint16_t *At(int32_t j, int32_t x) const { return rows[j] + x; }
};

// C + (R >> 4) for 8 columns from x (see the arithmetic note at the top); the
// rounded result is (value + 32) >> 6.
template <bool kSymmetric, int kH, class Rows>
inline uint16x8_t Dot8(const Rows &rows, const Taps &tp, int32_t x) {
  const int32_t h = kH >= 0 ? kH : tp.h;
  uint16x8_t c, r;
  if (kSymmetric) {
    const uint16x8_t m = vld1q_u16(rows.At(h, x));
    c = vmulq_u16(m, tp.hiv[h]);
    r = vmulq_u16(m, tp.lov[h]);
    for (int32_t k = 1; k <= h; ++k) {
      const uint16x8_t s = vaddq_u16(vld1q_u16(rows.At(h - k, x)), vld1q_u16(rows.At(h + k, x)));
      c = vmlaq_u16(c, s, tp.hiv[h + k]);
      r = vmlaq_u16(r, s, tp.lov[h + k]);
    }
  } else {
    c = r = vdupq_n_u16(0);
    for (int32_t j = 0; j <= 2 * h; ++j) {
      const uint16x8_t s = vld1q_u16(rows.At(j, x));
      c = vmlaq_u16(c, s, tp.hiv[j]);
      r = vmlaq_u16(r, s, tp.lov[j]);
    }
  }
  return vsraq_n_u16(c, r, kSplitBits);
}

// Rounded and saturated to 0..255, still in 16-bit lanes. kSmall: the taps
// keep every sum below the saturation (and the rounding addition within 16
// bits), so a plain add and shift give the same lanes.
template <bool kSmall>
inline uint16x8_t Round8(uint16x8_t v) {
  if (kSmall) return vshrq_n_u16(vaddq_u16(v, vdupq_n_u16(32)), 10 - kSplitBits);
  return vminq_u16(vrshrq_n_u16(v, 10 - kSplitBits), vdupq_n_u16(255));
}

// Scalar sum of one column for the left-over columns.
template <class Rows>
inline uint32_t DotOne(const Rows &rows, const Taps &tp, int32_t x) {
  uint32_t acc = 0;
  for (int32_t j = 0; j <= 2 * tp.h; ++j) acc += static_cast<uint32_t>(tp.t[j]) * *rows.At(j, x);
  return smooth::RoundShift10(acc);
}

// Horizontal pass of one padded channel row of n samples into out: groups of
// 8 saturate, the left-over columns keep the low 8 bits.
template <bool kSymmetric, int kH, bool kSmall>
void HorizontalRow16(const uint16_t *pad, const Taps &tp, uint16_t *out, int32_t n) {
  const ContigRows rows{pad};
  const int32_t body = n & ~7;
  for (int32_t x = 0; x < body; x += 8) {
    vst1q_u16(out + x, Round8<kSmall>(Dot8<kSymmetric, kH>(rows, tp, x)));
  }
  for (int32_t x = body; x < n; ++x) out[x] = static_cast<uint16_t>(DotOne(rows, tp, x) & 255u);
}

// Vertical pass of one luma row: n columns, all saturating.
template <bool kSymmetric, int kH, bool kSmall>
void VerticalLuma16(const uint16_t *const *ring, const Taps &tp, uint8_t *out, int32_t n) {
  const RingRows rows{ring};
  int32_t x = 0;
  for (; x + 16 <= n; x += 16) {
    const uint16x8_t a = Round8<kSmall>(Dot8<kSymmetric, kH>(rows, tp, x));
    const uint16x8_t b = Round8<kSmall>(Dot8<kSymmetric, kH>(rows, tp, x + 8));
    vst1q_u8(out + x, vcombine_u8(vmovn_u16(a), vmovn_u16(b)));
  }
  for (; x + 8 <= n; x += 8) {
    vst1_u8(out + x, vmovn_u16(Round8<kSmall>(Dot8<kSymmetric, kH>(rows, tp, x))));
  }
  for (; x < n; ++x) out[x] = smooth::Saturate8(DotOne(rows, tp, x));
}

// Vertical pass of one chroma row: ring rows hold the U samples of the row's
// `pairs` pairs, then the V samples; the output is interleaved again (U in
// the low byte of each 16-bit lane: little-endian lanes, as on both targets).
template <bool kSymmetric, int kH, bool kSmall>
void VerticalChroma16(const uint16_t *const *ring, const Taps &tp, uint8_t *out, int32_t pairs) {
  const RingRows rows{ring};
  int32_t i = 0;
  for (; i + 8 <= pairs; i += 8) {
    const uint16x8_t u = Round8<kSmall>(Dot8<kSymmetric, kH>(rows, tp, i));
    const uint16x8_t v = Round8<kSmall>(Dot8<kSymmetric, kH>(rows, tp, pairs + i));
    vst1q_u8(out + 2 * i, vreinterpretq_u8_u16(vorrq_u16(u, vshlq_n_u16(v, 8))));
  }
  for (; i < pairs; ++i) {
    out[2 * i] = smooth::Saturate8(DotOne(rows, tp, i));
    out[2 * i + 1] = smooth::Saturate8(DotOne(rows, tp, pairs + i));
  }
}

// Widens a luma row into pad with h edge copies on either side.
void PadRow16(const uint8_t *src, int32_t n, int32_t h, uint16_t *pad) {
  const uint8x16_t zero = vdupq_n_u8(0);
  uint16_t *p = pad + h;
  int32_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const uint8x16_t v = vld1q_u8(src + i);
    vst1q_u16(p + i, vreinterpretq_u16_u8(vzip1q_u8(v, zero)));
    vst1q_u16(p + i + 8, vreinterpretq_u16_u8(vzip2q_u8(v, zero)));
  }
  for (; i < n; ++i) p[i] = src[i];
  for (int32_t k = 0; k < h; ++k) {
    pad[k] = src[0];
    p[n + k] = src[n - 1];
  }
}

// Splits an interleaved row of `pairs` pairs into two widened, padded channel
// rows.
void PadPairs16(const uint8_t *src, int32_t pairs, int32_t h, uint16_t *padU, uint16_t *padV) {
  const uint16x8_t low = vdupq_n_u16(255);
  uint16_t *u = padU + h;
  uint16_t *v = padV + h;
  int32_t i = 0;
  for (; i + 8 <= pairs; i += 8) {
    const uint16x8_t w = vreinterpretq_u16_u8(vld1q_u8(src + 2 * i));
    vst1q_u16(u + i, vandq_u16(w, low));
    vst1q_u16(v + i, vshrq_n_u16(w, 8));
  }
  for (; i < pairs; ++i) {
    u[i] = src[2 * i];
    v[i] = src[2 * i + 1];
  }
  for (int32_t k = 0; k < h; ++k) {
    padU[k] = src[0];
    padV[k] = src[1];
    u[pairs + k] = src[2 * pairs - 2];
    v[pairs + k] = src[2 * pairs - 1];
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


// Where the 16-bit layout lives in the intermediate: the ring of horizontal
// rows, the widened padded source row, and one 8-bit output row.
struct Layout16 {
  uint16_t *ring;
  uint16_t *pad;
  uint8_t *row;
  int32_t slots;
  int32_t rowLo;
};

bool PlanLayout16(uint8_t *intermediate, int32_t width, int32_t height, int32_t h,
                  int32_t firstRow, int32_t lastRow, bool chroma, Layout16 *l) {
  if (h > kMaxVectorRadius) return false;
  l->rowLo = firstRow - h > 0 ? firstRow - h : 0;
  const int32_t rowHi = lastRow + h < height - 1 ? lastRow + h : height - 1;
  l->slots = rowHi - l->rowLo + 1 < 2 * h + 1 ? rowHi - l->rowLo + 1 : 2 * h + 1;
  const size_t stride = static_cast<size_t>(width);
  const size_t align = (16u - reinterpret_cast<uintptr_t>(intermediate) % 16u) % 16u;
  const size_t ringBytes = static_cast<size_t>(l->slots) * stride * 2u;
  const size_t padBytes = (stride + static_cast<size_t>(chroma ? 4 * h : 2 * h)) * 2u;
  if (align + ringBytes + padBytes + stride > SmoothIntermediateBytes(width, height, h)) {
    return false;
  }
  l->ring = reinterpret_cast<uint16_t *>(intermediate + align);
  l->pad = l->ring + static_cast<size_t>(l->slots) * stride;
  l->row = reinterpret_cast<uint8_t *>(l->pad) + padBytes;
  return true;
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

template <bool kSymmetric, int kH, bool kSmall, class Sink>
void Run16(const uint8_t *input, int32_t width, int32_t height, const Taps &tp,
           const Layout16 &l, int32_t firstRow, int32_t lastRow, bool chroma, const Sink &sink) {
  const int32_t h = tp.h;
  const size_t stride = static_cast<size_t>(width);
  const int32_t pairs = width / 2;
  uint16_t *const padU = l.pad;
  uint16_t *const padV = l.pad + pairs + 2 * h;
  auto slot = [&](int32_t row) { return l.ring + static_cast<size_t>(row % l.slots) * stride; };
  const uint16_t *ring[2 * kMaxVectorRadius + 1];
  int32_t next = l.rowLo;  // next plane row to filter horizontally
  for (int32_t y = firstRow; y <= lastRow; ++y) {
    const int32_t need = y + h < height - 1 ? y + h : height - 1;
    for (; next <= need; ++next) {
      const uint8_t *src = input + static_cast<size_t>(next) * stride;
      uint16_t *dst = slot(next);
      if (chroma) {
        PadPairs16(src, pairs, h, padU, padV);
        HorizontalRow16<kSymmetric, kH, kSmall>(padU, tp, dst, pairs);
        HorizontalRow16<kSymmetric, kH, kSmall>(padV, tp, dst + pairs, pairs);
      } else {
        PadRow16(src, width, h, l.pad);
        HorizontalRow16<kSymmetric, kH, kSmall>(l.pad, tp, dst, width);
      }
    }
    for (int32_t j = 0; j <= 2 * h; ++j) {
      int32_t r = y - h + j;
      r = r < 0 ? 0 : (r > height - 1 ? height - 1 : r);
      ring[j] = slot(r);
    }
    uint8_t *out = sink.Target(y, l.row);
    if (chroma) {
      VerticalChroma16<kSymmetric, kH, kSmall>(ring, tp, out, pairs);
    } else {
      VerticalLuma16<kSymmetric, kH, kSmall>(ring, tp, out, width);
    }
    sink.Done(y, out);
  }
}

// False (nothing written) when the taps or the scratch do not suit the 16-bit
// layout.
template <class Sink>
bool Smooth16(const uint8_t *input, int32_t width, int32_t height, const uint16_t *kernel,
              int32_t h, uint8_t *intermediate, int32_t firstRow, int32_t lastRow, bool chroma,
              const Sink &sink) {
  Layout16 l;
  if (!PlanLayout16(intermediate, width, height, h, firstRow, lastRow, chroma, &l)) return false;
  Taps tp;
  PrepareTaps(kernel, h, &tp);
  if (!tp.fast16) return false;
  if (tp.symmetric && h == 5 && tp.small) {  // the blur's 11-tap Gaussian
    Run16<true, 5, true>(input, width, height, tp, l, firstRow, lastRow, chroma, sink);
  } else if (tp.symmetric) {
    Run16<true, -1, false>(input, width, height, tp, l, firstRow, lastRow, chroma, sink);
  } else {
    Run16<false, -1, false>(input, width, height, tp, l, firstRow, lastRow, chroma, sink);
  }
  return true;
}
// The 16-bit layout where it applies, else the 8-bit vector passes, else
// the scalar reference.
void SmoothPlaneNeon(const char *name, bool chroma, SmoothFn scalar, const uint8_t *input,
                     uint8_t *padded, uint8_t *output, int32_t width, int32_t height,
                     const uint16_t *kernel, int32_t hradius, int32_t vradius,
                     uint8_t *intermediate, int32_t firstRow, int32_t lastRow) {
  if (!smooth::ScreenOrZero(name, chroma, input, output, width, height, kernel, hradius, vradius,
                            intermediate, firstRow, lastRow)) {
    return;
  }
  const PlaneSink sink{output, static_cast<size_t>(width)};
  if (!Smooth16(input, width, height, kernel, hradius, intermediate, firstRow, lastRow, chroma,
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
    if (Smooth16(input, width, height, kernel, hradius, intermediate, firstRow, lastRow, false,
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
    if (Smooth16(input, width, height, kernel, hradius, intermediate, firstRow, lastRow, true,
                 sink)) {
      return;
    }
  }
  SmoothThenCompose(SmoothChroma_NEON, ComposeChroma_NEON, input, padded, smoothed, width,
                    height, kernel, hradius, vradius, intermediate, firstRow, lastRow, weight,
                    alpha, dst);
}

}  // namespace pb
