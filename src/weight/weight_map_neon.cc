// Vector weight map: same bytes as ComputeWeights_C.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simd/neon.h"
#include "weight/weight_map.h"
#include "weight/weight_map_internal.h"

namespace pb {

using weightmap::BandDistance;
using weightmap::PlanSampling;
using weightmap::Sampling;
using weightmap::Wrap;

namespace {

constexpr int32_t kBlock = 16;    // output columns per vector step
constexpr int32_t kChunk = 2048;  // output columns per pass over the rows, whole blocks
constexpr int32_t kWindow = 32;   // source bytes a block's columns may span
constexpr int32_t kFlatFrom = 63;  // distances from here on must share one weight for the tbl path

inline uint32_t Lerp(uint32_t a, uint32_t b, uint32_t f) {
  return (f * b + (256u - f) * a + 128u) >> 8;
}

// (a * fa + b * fb + 128) >> 8 in sixteen lanes, fa + fb = 256 with both
// below 256: the sum stays below 65536. On Arm widening multiplies and the
// rounding narrowing shift; through SIMDe, where the intrinsics on 64-bit
// halves lower to chains of shuffles, bytes zipped with zero, 16-bit
// multiplies and the high bytes of the rounded sums. Same values either way.
inline uint8x16_t Mix16(uint8x16_t a, uint8x16_t b, uint8x16_t fa, uint8x16_t fb) {
#if defined(__aarch64__)
  const uint16x8_t lo = vmlal_u8(vmull_u8(vget_low_u8(a), vget_low_u8(fa)), vget_low_u8(b),
                                 vget_low_u8(fb));
  const uint16x8_t hi = vmlal_high_u8(vmull_high_u8(a, fa), b, fb);
  return vcombine_u8(vrshrn_n_u16(lo, 8), vrshrn_n_u16(hi, 8));
#else
  using simd::WidenHigh;
  using simd::WidenLow;
  const uint16x8_t half = vdupq_n_u16(128);
  const uint16x8_t lo =
      vmlaq_u16(vmlaq_u16(half, WidenLow(a), WidenLow(fa)), WidenLow(b), WidenLow(fb));
  const uint16x8_t hi =
      vmlaq_u16(vmlaq_u16(half, WidenHigh(a), WidenHigh(fa)), WidenHigh(b), WidenHigh(fb));
  return vuzp2q_u8(vreinterpretq_u8_u16(lo), vreinterpretq_u8_u16(hi));  // high bytes
#endif
}

// Horizontal interpolation plan of one chunk, per block of 16 output columns:
// the block reads the source row's bytes [base, base + 32) and picks its
// columns' left and right neighbours from them with table look-ups. A column
// with ax == 0 takes its left neighbour twice at weights 128/128 (same value),
// so that both weights stay below 256.
struct ColumnPlan {
  uint8_t lanes[kChunk / kBlock][4][kBlock];  // left offset, right offset, ax, 256 - ax
  int32_t base[kChunk / kBlock];
  int32_t windowed;  // leading blocks whose neighbours all lie within their window
  int32_t direct;    // leading blocks whose window lies within the row
  int32_t period;    // base step when the direct blocks all share block 0's lanes, else -1
};

void PlanColumns(int32_t c0, int32_t n, int32_t xstep, int32_t srcWidth, ColumnPlan *plan) {
  plan->windowed = 0;
  plan->direct = 0;
  uint32_t sx = static_cast<uint32_t>(xstep) * static_cast<uint32_t>(c0);
  for (int32_t b = 0; b < n / kBlock; ++b) {
    const int32_t base = Wrap(sx) >> 16;
    for (int32_t j = 0; j < kBlock; ++j, sx += static_cast<uint32_t>(xstep)) {
      const int32_t px = Wrap(sx);
      const int32_t x0 = px >> 16;
      int32_t x1 = std::min(x0 + 1, srcWidth - 1);
      int32_t ax = (px >> 8) & 255;
      if (x1 - base >= kWindow) return;
      if (ax == 0) {
        x1 = x0;
        ax = 128;
      }
      plan->lanes[b][0][j] = static_cast<uint8_t>(x0 - base);
      plan->lanes[b][1][j] = static_cast<uint8_t>(x1 - base);
      plan->lanes[b][2][j] = static_cast<uint8_t>(ax);
      plan->lanes[b][3][j] = static_cast<uint8_t>(256 - ax);
    }
    plan->base[b] = base;
    plan->windowed = b + 1;
    if (base + kWindow <= srcWidth) plan->direct = b + 1;  // bases never decrease
  }
  // Integer ratios (4 output columns per source column at 480 -> 1920) repeat
  // one block's lanes at a fixed base step.
  plan->period = plan->direct >= 2 ? plan->base[1] - plan->base[0] : -1;
  for (int32_t b = 1; b < plan->direct && plan->period >= 0; ++b) {
    if (plan->base[b] - plan->base[b - 1] != plan->period ||
        std::memcmp(plan->lanes[b], plan->lanes[0], sizeof plan->lanes[0]) != 0) {
      plan->period = -1;
    }
  }
}

inline uint8x16_t InterpolateBlock(const uint8_t *window, const uint8x16x4_t &l) {
  const uint8x16x2_t w = simd::Load2(window);
  return Mix16(vqtbl2q_u8(w, l.val[0]), vqtbl2q_u8(w, l.val[1]), l.val[3], l.val[2]);
}

// Horizontal interpolation of one source row at the chunk's n columns (c0
// onwards), one byte per column: the windowed blocks by table look-ups (the
// last ones from a copy of the row's end, as their window may run past it),
// the remaining columns one at a time.
void InterpolateRow(const uint8_t *row, int32_t srcWidth, const ColumnPlan &plan, int32_t c0,
                    int32_t n, int32_t xstep, uint8_t *out) {
  const int32_t direct = plan.direct, windowed = plan.windowed;
  int32_t b = 0;
  if (plan.period >= 0) {
    const uint8x16x4_t lanes = simd::Load4(plan.lanes[0][0]);
    const int32_t period = plan.period;
    const uint8_t *window = row + plan.base[0];
    for (; b < direct; ++b, window += period) {
      vst1q_u8(out + b * kBlock, InterpolateBlock(window, lanes));
    }
  }
  for (; b < direct; ++b) {
    const uint8x16x4_t lanes = simd::Load4(plan.lanes[b][0]);
    vst1q_u8(out + b * kBlock, InterpolateBlock(row + plan.base[b], lanes));
  }
  if (b < windowed) {
    // Holds the row's last k bytes at 0; every remaining window starts inside them.
    uint8_t end[2 * kWindow] = {};
    const int32_t k = std::min(srcWidth, kWindow);
    std::memcpy(end, row + srcWidth - k, static_cast<size_t>(k));
    for (; b < windowed; ++b) {
      const uint8_t *window = end + (plan.base[b] - (srcWidth - k));
      const uint8x16x4_t lanes = simd::Load4(plan.lanes[b][0]);
      vst1q_u8(out + b * kBlock, InterpolateBlock(window, lanes));
    }
  }
  uint32_t sx = static_cast<uint32_t>(xstep) * static_cast<uint32_t>(c0 + b * kBlock);
  for (int32_t i = b * kBlock; i < n; ++i, sx += static_cast<uint32_t>(xstep)) {
    const int32_t px = Wrap(sx);
    const int32_t x0 = px >> 16;
    const int32_t x1 = std::min(x0 + 1, srcWidth - 1);
    out[i] = static_cast<uint8_t>(Lerp(row[x0], row[x1], static_cast<uint32_t>(px >> 8) & 255u));
  }
}

// What turns one call's sampled values into weights: a value table for the
// one-at-a-time columns and, when the distance-to-weight table is flat from
// distance 63 on, its first 64 entries split into low and high bytes for
// sixteen-lane look-ups of min(distance, 63).
struct RowWeights {
  bool vector;
  uint8_t lo[64], hi[64];
  uint8_t low, high;
  uint16_t weightOf[256];
};

// Entries d (0..63) of a 64-byte table: one four-register look-up.
inline uint8x16_t Lookup64(const uint8x16x4_t &t, uint8x16_t d) { return vqtbl4q_u8(t, d); }

// Weights of sixteen sampled values.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "interleaved byte stores assume little endian");
inline void StoreWeights16(uint8x16_t v, const uint8x16x4_t &lo, const uint8x16x4_t &hi,
                           uint8x16_t low, uint8x16_t high, uint16_t *out) {
  const uint8x16_t beyond = vorrq_u8(vqsubq_u8(low, v), vqsubq_u8(v, high));
  const uint8x16_t d = vminq_u8(beyond, vdupq_n_u8(kFlatFrom));
  uint8x16x2_t w;
  w.val[0] = Lookup64(lo, d);
  w.val[1] = Lookup64(hi, d);
  vst2q_u8(reinterpret_cast<uint8_t *>(out), w);  // little endian: low byte first
}

// One output row from two horizontally interpolated rows mixed with ay
// (bottom unused when ay is 0; ay 128 is the rounded average), sixteen at a
// time when the look-up applies, the rest through the value table.
// Kept out of line: inlined into the row loop, its four-register table
// groups are spilled and reloaded at every step.
__attribute__((noinline)) void WeightRow(const uint8_t *top, const uint8_t *bottom, uint32_t ay,
                                         int32_t n, const RowWeights &rw, uint16_t *out) {
  int32_t i = 0;
  if (rw.vector) {
    const uint8x16_t low = vdupq_n_u8(rw.low), high = vdupq_n_u8(rw.high);
    const uint8x16x4_t lo = simd::Load4(rw.lo), hi = simd::Load4(rw.hi);
    if (ay == 0) {
      for (; i + kBlock <= n; i += kBlock) {
        StoreWeights16(vld1q_u8(top + i), lo, hi, low, high, out + i);
      }
    } else if (ay == 128) {
      for (; i + kBlock <= n; i += kBlock) {
        const uint8x16_t v = vrhaddq_u8(vld1q_u8(top + i), vld1q_u8(bottom + i));
        StoreWeights16(v, lo, hi, low, high, out + i);
      }
    } else {
      const uint8x16_t fb = vdupq_n_u8(static_cast<uint8_t>(ay));
      const uint8x16_t fa = vdupq_n_u8(static_cast<uint8_t>(256u - ay));
      for (; i + kBlock <= n; i += kBlock) {
        StoreWeights16(Mix16(vld1q_u8(top + i), vld1q_u8(bottom + i), fa, fb), lo, hi, low,
                       high, out + i);
      }
    }
  }
  for (; i < n; ++i) out[i] = rw.weightOf[ay == 0 ? top[i] : Lerp(top[i], bottom[i], ay)];
}

}  // namespace

void ComputeWeights_NEON(int32_t width, int32_t height, int32_t selX, int32_t selY,
                         int32_t first, int32_t last, uint16_t *dst, int32_t srcWidth,
                         int32_t srcHeight, uint8_t bandScale, uint8_t gain, const uint8_t *src) {
  const Sampling sp = PlanSampling(width, height, selX, selY, srcWidth, srcHeight, src);
  if (first > last || width < 1) return;
  const int32_t xstep = sp.xstep, ystep = sp.ystep;

  // The weight depends on the sampled value only: tables per call.
  const float g = 1024.0f / static_cast<float>(bandScale);
  uint16_t weightOfDistance[256];
  for (uint32_t d = 0; d < 256; ++d) weightOfDistance[d] = DistanceWeight(d, g, gain);
  RowWeights rw;
  for (uint32_t v = 0; v < 256; ++v) {
    rw.weightOf[v] = weightOfDistance[BandDistance(v, sp.low, sp.high)];
  }
  rw.vector = true;
  for (int32_t d = kFlatFrom; d < 256; ++d) {
    rw.vector = rw.vector && weightOfDistance[d] == weightOfDistance[kFlatFrom];
  }
  for (int32_t d = 0; d < 64; ++d) {
    rw.lo[d] = static_cast<uint8_t>(weightOfDistance[d]);
    rw.hi[d] = static_cast<uint8_t>(weightOfDistance[d] >> 8);
  }
  rw.low = static_cast<uint8_t>(sp.low);
  rw.high = static_cast<uint8_t>(sp.high);

  ColumnPlan plan;
  uint8_t rows[2][kChunk];
  for (int32_t c0 = 0; c0 < width; c0 += kChunk) {
    const int32_t n = std::min(kChunk, width - c0);
    PlanColumns(c0, n, xstep, srcWidth, &plan);

    // Two cached interpolated source rows: each source row is interpolated
    // once per chunk and serves every output row between it and the next.
    int32_t cached[2] = {-1, -1};
    auto rowFor = [&](int32_t r, int32_t keep) -> const uint8_t * {
      if (cached[0] == r) return rows[0];
      if (cached[1] == r) return rows[1];
      const int slot = cached[0] == keep ? 1 : 0;
      InterpolateRow(src + static_cast<ptrdiff_t>(r) * srcWidth, srcWidth, plan, c0, n, xstep,
                     rows[slot]);
      cached[slot] = r;
      return rows[slot];
    };

    uint32_t sy = static_cast<uint32_t>(ystep) * static_cast<uint32_t>(first);
    for (int32_t y = first; y <= last; ++y, sy += static_cast<uint32_t>(ystep)) {
      const int32_t py = Wrap(sy);
      const int32_t y0 = py >> 16;
      const int32_t y1 = std::min(y0 + 1, srcHeight - 1);
      const uint32_t ay = static_cast<uint32_t>(py >> 8) & 255u;
      const uint8_t *top = rowFor(y0, y1);
      const uint8_t *bottom = ay == 0 ? top : rowFor(y1, y0);
      WeightRow(top, bottom, ay, n, rw, dst + static_cast<ptrdiff_t>(y) * width + c0);
    }
  }
}

}  // namespace pb
