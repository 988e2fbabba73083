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
// Radii above 32, and planes too small for this layout within the
// intermediate, run the scalar code instead (same bytes).
#include <cstring>

#include "blur/smooth.h"
#include "blur/smooth_internal.h"
#include "simd/neon.h"

namespace pb {
namespace {

constexpr int32_t kMaxVectorRadius = 32;  // larger radii use the scalar code
constexpr int kSplitBits = 4;

struct Taps {
  const uint16_t *t;
  int32_t h;
  bool fast16;
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

}  // namespace

void SmoothLuma_NEON(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                     int32_t height, const uint16_t *kernel, int32_t hradius, int32_t vradius,
                     uint8_t *intermediate, int32_t firstRow, int32_t lastRow) {
  switch (smooth::Screen("SmoothLuma", false, input, output, width, height, kernel, hradius,
                         vradius, intermediate, firstRow, lastRow)) {
    case smooth::Plan::kSkip:
      return;
    case smooth::Plan::kZero:
      smooth::ZeroRows(output, width, firstRow, lastRow);
      return;
    case smooth::Plan::kRun:
      break;
  }
  if (!SmoothVector(input, output, width, height, kernel, hradius, intermediate, firstRow,
                    lastRow, false)) {
    SmoothLuma_C(input, padded, output, width, height, kernel, hradius, vradius, intermediate,
                 firstRow, lastRow);
  }
}

void SmoothChroma_NEON(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                       int32_t height, const uint16_t *kernel, int32_t hradius,
                       int32_t vradius, uint8_t *intermediate, int32_t firstRow,
                       int32_t lastRow) {
  switch (smooth::Screen("SmoothChroma", true, input, output, width, height, kernel, hradius,
                         vradius, intermediate, firstRow, lastRow)) {
    case smooth::Plan::kSkip:
      return;
    case smooth::Plan::kZero:
      smooth::ZeroRows(output, width, firstRow, lastRow);
      return;
    case smooth::Plan::kRun:
      break;
  }
  if (!SmoothVector(input, output, width, height, kernel, hradius, intermediate, firstRow,
                    lastRow, true)) {
    SmoothChroma_C(input, padded, output, width, height, kernel, hradius, vradius, intermediate,
                   firstRow, lastRow);
  }
}

}  // namespace pb
