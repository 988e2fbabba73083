// Vector weight map: same bytes as ComputeWeights_C.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simd/neon.h"
#include "weight/range_table.h"
#include "weight/weight_map.h"
#include "weight/weight_map_internal.h"

namespace pb {

using weightmap::BandDistance;
using weightmap::PlanSampling;
using weightmap::Sampling;
using weightmap::Wrap;

namespace {

constexpr int32_t kChunk = 1024;  // output columns handled per pass over the rows

// Per-column interpolation inputs of one chunk.
struct ColumnPlan {
  int32_t x0[kChunk];
  int32_t x1[kChunk];
  uint16_t ax[kChunk];   // weight of the right neighbour, 0..255
  uint16_t inv[kChunk];  // 256 - ax
  int32_t paired;        // leading columns with x1 == x0 + 1 (x0 never decreases)
};

inline uint32_t Lerp(uint32_t a, uint32_t b, uint32_t f) {
  return (f * b + (256u - f) * a + 128u) >> 8;
}

// (a * inv + b * f + 128) >> 8 with inv = 256 - f, eight lanes of 16 bits:
// a and b are at most 255, so the sum stays below 65536.
inline uint16x8_t Lerp8(uint16x8_t a, uint16x8_t b, uint16x8_t f, uint16x8_t inv) {
  const uint16x8_t sum = vmlaq_u16(vmulq_u16(a, inv), b, f);
  return vshrq_n_u16(vaddq_u16(sum, vdupq_n_u16(128)), 8);
}

// The byte at x and its right neighbour as one 16-bit lane, left byte low:
// one 16-bit load on the little-endian targets.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "pair loads assume little endian");
inline uint16_t PairAt(const uint8_t *row, int32_t x) {
  uint16_t pair;
  std::memcpy(&pair, row + x, sizeof pair);
  return pair;
}

inline uint16x8_t GatherPairs(const uint8_t *row, const int32_t *x0) {
  uint16x8_t p = vdupq_n_u16(0);
  p = vsetq_lane_u16(PairAt(row, x0[0]), p, 0);
  p = vsetq_lane_u16(PairAt(row, x0[1]), p, 1);
  p = vsetq_lane_u16(PairAt(row, x0[2]), p, 2);
  p = vsetq_lane_u16(PairAt(row, x0[3]), p, 3);
  p = vsetq_lane_u16(PairAt(row, x0[4]), p, 4);
  p = vsetq_lane_u16(PairAt(row, x0[5]), p, 5);
  p = vsetq_lane_u16(PairAt(row, x0[6]), p, 6);
  p = vsetq_lane_u16(PairAt(row, x0[7]), p, 7);
  return p;
}

// Horizontal interpolation of one source row at the chunk's n columns, one
// 16-bit value per column. The columns whose right neighbour is the next byte
// (all but the clamped ones at the right edge) gather both bytes at once.
void InterpolateRow(const uint8_t *row, const ColumnPlan &plan, int32_t n, uint16_t *out) {
  const int32_t paired = std::min(n, plan.paired);
  int32_t i = 0;
  for (; i + 8 <= paired; i += 8) {
    const uint16x8_t pairs = GatherPairs(row, plan.x0 + i);
    const uint16x8_t left = vandq_u16(pairs, vdupq_n_u16(255));
    const uint16x8_t right = vshrq_n_u16(pairs, 8);
    vst1q_u16(out + i, Lerp8(left, right, vld1q_u16(plan.ax + i), vld1q_u16(plan.inv + i)));
  }
  for (; i < n; ++i) {
    out[i] = static_cast<uint16_t>(Lerp(row[plan.x0[i]], row[plan.x1[i]], plan.ax[i]));
  }
}

// Integer form of the distance-to-weight table for the vector path:
// w(d) = min(a * min(d, 64) + ((m * min(d, 64)) >> 8), 1024), all in 16 bits.
// Used only when it reproduces the float-built table for every distance (it
// does for band scale 50 and unity gain); otherwise weights are looked up.
struct DistanceFormula {
  bool exact;
  uint16_t a;
  uint16_t m;
};

DistanceFormula FitDistanceFormula(const uint16_t weightOfDistance[256], float g) {
  const int32_t a = TruncToInt32(g);
  if (a < 0 || a > 1000) return {false, 0, 0};
  const float frac = (g - static_cast<float>(a)) * 256.0f;
  const int32_t lo = TruncToInt32(frac);
  for (int32_t m = lo; m <= lo + 1 && m <= 255; ++m) {
    bool exact = true;
    for (uint32_t d = 0; d < 256 && exact; ++d) {
      const uint32_t dc = std::min(d, 64u);
      const uint32_t w =
          std::min(static_cast<uint32_t>(a) * dc + ((static_cast<uint32_t>(m) * dc) >> 8), 1024u);
      exact = w == weightOfDistance[d];
    }
    if (exact) return {true, static_cast<uint16_t>(a), static_cast<uint16_t>(m)};
  }
  return {false, 0, 0};
}

// Weights of eight sampled values (0..255) by the fitted formula.
inline uint16x8_t Weights8(uint16x8_t v, uint16x8_t low, uint16x8_t high,
                           const DistanceFormula &f) {
  const uint16x8_t beyond = vorrq_u16(vqsubq_u16(low, v), vqsubq_u16(v, high));
  const uint16x8_t d = vminq_u16(beyond, vdupq_n_u16(64));
  const uint16x8_t w = vaddq_u16(vmulq_n_u16(d, f.a), vshrq_n_u16(vmulq_n_u16(d, f.m), 8));
  return vminq_u16(w, vdupq_n_u16(1024));
}

// What turns one call's sampled values into weights.
struct RowWeights {
  DistanceFormula formula;
  uint16x8_t low, high;
  uint16_t weightOf[256];
};

// One output row from two horizontally interpolated rows mixed with ay
// (bottom unused when ay is 0): by the formula eight at a time when it is
// exact, the rest through the value table.
void WeightRow(const uint16_t *top, const uint16_t *bottom, uint32_t ay, int32_t n,
               const RowWeights &rw, uint16_t *out) {
  int32_t i = 0;
  if (rw.formula.exact) {
    if (ay == 0) {
      for (; i + 8 <= n; i += 8) {
        vst1q_u16(out + i, Weights8(vld1q_u16(top + i), rw.low, rw.high, rw.formula));
      }
    } else {
      const uint16x8_t f = vdupq_n_u16(static_cast<uint16_t>(ay));
      const uint16x8_t inv = vdupq_n_u16(static_cast<uint16_t>(256u - ay));
      for (; i + 8 <= n; i += 8) {
        const uint16x8_t v = Lerp8(vld1q_u16(top + i), vld1q_u16(bottom + i), f, inv);
        vst1q_u16(out + i, Weights8(v, rw.low, rw.high, rw.formula));
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

  // The weight depends on the sampled value only: one table per call.
  const float g = 1024.0f / static_cast<float>(bandScale);
  uint16_t weightOfDistance[256];
  for (uint32_t d = 0; d < 256; ++d) weightOfDistance[d] = DistanceWeight(d, g, gain);
  RowWeights rw;
  for (uint32_t v = 0; v < 256; ++v) {
    rw.weightOf[v] = weightOfDistance[BandDistance(v, sp.low, sp.high)];
  }
  rw.formula = FitDistanceFormula(weightOfDistance, g);
  rw.low = vdupq_n_u16(static_cast<uint16_t>(sp.low));
  rw.high = vdupq_n_u16(static_cast<uint16_t>(sp.high));

  ColumnPlan plan;
  uint16_t rows[2][kChunk];
  for (int32_t c0 = 0; c0 < width; c0 += kChunk) {
    const int32_t n = std::min(kChunk, width - c0);
    uint32_t sx = static_cast<uint32_t>(xstep) * static_cast<uint32_t>(c0);
    for (int32_t i = 0; i < n; ++i, sx += static_cast<uint32_t>(xstep)) {
      const int32_t px = Wrap(sx);
      plan.x0[i] = px >> 16;
      plan.x1[i] = std::min(plan.x0[i] + 1, srcWidth - 1);
      plan.ax[i] = static_cast<uint16_t>((px >> 8) & 255);
      plan.inv[i] = static_cast<uint16_t>(256 - plan.ax[i]);
    }
    plan.paired = 0;
    while (plan.paired < n && plan.x1[plan.paired] == plan.x0[plan.paired] + 1) ++plan.paired;

    // Two cached interpolated source rows: consecutive output rows mostly
    // share them.
    int32_t cached[2] = {-1, -1};
    auto rowFor = [&](int32_t r, int32_t keep) -> const uint16_t * {
      if (cached[0] == r) return rows[0];
      if (cached[1] == r) return rows[1];
      const int slot = cached[0] == keep ? 1 : 0;
      InterpolateRow(src + static_cast<ptrdiff_t>(r) * srcWidth, plan, n, rows[slot]);
      cached[slot] = r;
      return rows[slot];
    };

    uint32_t sy = static_cast<uint32_t>(ystep) * static_cast<uint32_t>(first);
    for (int32_t y = first; y <= last; ++y, sy += static_cast<uint32_t>(ystep)) {
      const int32_t py = Wrap(sy);
      const int32_t y0 = py >> 16;
      const int32_t y1 = std::min(y0 + 1, srcHeight - 1);
      const uint32_t ay = static_cast<uint32_t>(py >> 8) & 255u;
      const uint16_t *top = rowFor(y0, y1);
      const uint16_t *bottom = ay == 0 ? top : rowFor(y1, y0);
      WeightRow(top, bottom, ay, n, rw, dst + static_cast<ptrdiff_t>(y) * width + c0);
    }
  }
}

}  // namespace pb
