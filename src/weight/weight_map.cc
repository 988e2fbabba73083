#include "weight/weight_map.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simd/dispatch.h"
#include "simd/neon.h"
#include "weight/range_table.h"

namespace pb {

int32_t WeightStep(int32_t n, int32_t size) {
  if (size == 0) return 0;
  const int32_t scaled = static_cast<int32_t>(static_cast<uint32_t>(n) << 16);
  if (size == -1) return static_cast<int32_t>(0u - static_cast<uint32_t>(scaled));
  return scaled / size;
}

uint32_t BilinearSample(const uint8_t *src, int32_t width, int32_t height, int32_t px,
                        int32_t py) {
  const int32_t x0 = px >> 16;
  const int32_t y0 = py >> 16;
  const int32_t x1 = std::min(x0 + 1, width - 1);
  const int32_t y1 = std::min(y0 + 1, height - 1);
  const uint32_t ax = static_cast<uint32_t>(px >> 8) & 255u;
  const uint32_t ay = static_cast<uint32_t>(py >> 8) & 255u;
  const uint8_t *r0 = src + static_cast<ptrdiff_t>(y0) * width;
  const uint8_t *r1 = src + static_cast<ptrdiff_t>(y1) * width;
  const uint32_t top = (ax * r0[x1] + (256u - ax) * r0[x0] + 128u) >> 8;
  const uint32_t bottom = (ax * r1[x1] + (256u - ax) * r1[x0] + 128u) >> 8;
  return (ay * bottom + (256u - ay) * top + 128u) >> 8;
}

void FocusBand(uint32_t f, int32_t *low, int32_t *high) {
  if (f > 150) {
    *low = 150;
    *high = 255;
    return;
  }
  const double level = static_cast<double>(f);
  *low = static_cast<int32_t>(std::max(level * 0.8, 0.0));
  *high = static_cast<int32_t>(std::min(level * 1.25, 255.0));
}

uint16_t DistanceWeight(uint32_t d, float g, uint8_t gain) {
  int32_t w = TruncToInt32(static_cast<float>(d) * g);
  if (static_cast<uint32_t>(w) >= 1024u) w = 1024;
  return static_cast<uint16_t>((static_cast<uint32_t>(w) * gain + 64u) >> 7);
}

namespace {

inline uint32_t BandDistance(uint32_t v, int32_t low, int32_t high) {
  const int32_t value = static_cast<int32_t>(v);
  if (value < low) return static_cast<uint32_t>(low - value);
  if (value > high) return static_cast<uint32_t>(value - high);
  return 0;
}

inline int32_t Wrap(uint32_t v) { return static_cast<int32_t>(v); }

// Source steps of one call and the band around the value sampled at the
// selected point.
struct Sampling {
  int32_t xstep, ystep;
  int32_t low, high;
};

Sampling PlanSampling(int32_t width, int32_t height, int32_t selX, int32_t selY, int32_t srcWidth,
                      int32_t srcHeight, const uint8_t *src) {
  Sampling p;
  p.xstep = WeightStep(srcWidth, width);
  p.ystep = WeightStep(srcHeight, height);
  const uint32_t focus = BilinearSample(
      src, srcWidth, srcHeight, Wrap(static_cast<uint32_t>(p.xstep) * static_cast<uint32_t>(selX)),
      Wrap(static_cast<uint32_t>(p.ystep) * static_cast<uint32_t>(selY)));
  FocusBand(focus, &p.low, &p.high);
  return p;
}

}  // namespace

void ComputeWeights_C(int32_t width, int32_t height, int32_t selX, int32_t selY, int32_t first,
                      int32_t last, uint16_t *dst, int32_t srcWidth, int32_t srcHeight,
                      uint8_t bandScale, uint8_t gain, const uint8_t *src) {
  const Sampling sp = PlanSampling(width, height, selX, selY, srcWidth, srcHeight, src);
  if (first > last || width < 1) return;
  const int32_t xstep = sp.xstep, ystep = sp.ystep, low = sp.low, high = sp.high;
  const float g = 1024.0f / static_cast<float>(bandScale);

  uint32_t sy = static_cast<uint32_t>(ystep) * static_cast<uint32_t>(first);
  for (int32_t y = first; y <= last; ++y, sy += static_cast<uint32_t>(ystep)) {
    uint16_t *row = dst + static_cast<ptrdiff_t>(y) * width;
    uint32_t sx = 0;
    for (int32_t x = 0; x < width; ++x, sx += static_cast<uint32_t>(xstep)) {
      const uint32_t v = BilinearSample(src, srcWidth, srcHeight, Wrap(sx), Wrap(sy));
      row[x] = DistanceWeight(BandDistance(v, low, high), g, gain);
    }
  }
}

namespace {

constexpr int32_t kChunk = 1024;  // output columns handled per pass over the rows

// Per-column interpolation inputs of one chunk.
struct ColumnPlan {
  int32_t x0[kChunk];
  int32_t x1[kChunk];
  uint8_t ax[kChunk];
  int32_t paired;  // leading columns with x1 == x0 + 1 (x0 never decreases)
};

// (a * (256 - f) + b * f + 128) >> 8 for 16 lanes, as a * (255 - f) + a + b * f
// so that every factor fits 8 bits; the sum is at most 65280.
inline uint8x16_t Lerp16(uint8x16_t a, uint8x16_t b, uint8x16_t f, uint8x16_t inv) {
  uint16x8_t lo = vmull_u8(vget_low_u8(b), vget_low_u8(f));
  lo = vmlal_u8(lo, vget_low_u8(a), vget_low_u8(inv));
  lo = vaddw_u8(lo, vget_low_u8(a));
  uint16x8_t hi = vmull_u8(vget_high_u8(b), vget_high_u8(f));
  hi = vmlal_u8(hi, vget_high_u8(a), vget_high_u8(inv));
  hi = vaddw_u8(hi, vget_high_u8(a));
  return vcombine_u8(vrshrn_n_u16(lo, 8), vrshrn_n_u16(hi, 8));
}

// Horizontal interpolation of one source row at the chunk's n columns. The
// columns whose right neighbour is the next byte (all but the clamped ones at
// the right edge) gather both bytes with one two-byte copy.
void InterpolateRow(const uint8_t *row, const ColumnPlan &plan, int32_t n, uint8_t *out) {
  const int32_t paired = std::min(n, plan.paired);
  int32_t i = 0;
  for (; i + 16 <= paired; i += 16) {
    uint8_t pairs[32];
    for (int32_t j = 0; j < 16; ++j) std::memcpy(pairs + 2 * j, row + plan.x0[i + j], 2);
    const uint8x16x2_t lr = vld2q_u8(pairs);
    const uint8x16_t f = vld1q_u8(plan.ax + i);
    vst1q_u8(out + i, Lerp16(lr.val[0], lr.val[1], f, vmvnq_u8(f)));
  }
  for (; i < n; ++i) {
    const uint32_t f = plan.ax[i];
    out[i] = static_cast<uint8_t>((f * row[plan.x1[i]] + (256u - f) * row[plan.x0[i]] + 128u) >> 8);
  }
}

// Vertical interpolation between two interpolated rows.
void InterpolateColumns(const uint8_t *top, const uint8_t *bottom, uint32_t ay, int32_t n,
                        uint8_t *out) {
  const uint8x16_t f = vdupq_n_u8(static_cast<uint8_t>(ay));
  const uint8x16_t inv = vdupq_n_u8(static_cast<uint8_t>(255u - ay));
  int32_t i = 0;
  for (; i + 16 <= n; i += 16) {
    vst1q_u8(out + i, Lerp16(vld1q_u8(top + i), vld1q_u8(bottom + i), f, inv));
  }
  for (; i < n; ++i) {
    out[i] = static_cast<uint8_t>((ay * bottom[i] + (256u - ay) * top[i] + 128u) >> 8);
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

// Weights of 16 sampled values by the fitted formula.
inline void StoreWeights16(uint8x16_t v, uint8x16_t low, uint8x16_t high, const DistanceFormula &f,
                           uint16_t *out) {
  const uint8x16_t d = vminq_u8(vorrq_u8(vqsubq_u8(low, v), vqsubq_u8(v, high)), vdupq_n_u8(64));
  const uint16x8_t limit = vdupq_n_u16(1024);
  const uint16x8_t dl = vmovl_u8(vget_low_u8(d));
  const uint16x8_t dh = vmovl_u8(vget_high_u8(d));
  const uint16x8_t wl = vaddq_u16(vmulq_n_u16(dl, f.a), vshrq_n_u16(vmulq_n_u16(dl, f.m), 8));
  const uint16x8_t wh = vaddq_u16(vmulq_n_u16(dh, f.a), vshrq_n_u16(vmulq_n_u16(dh, f.m), 8));
  vst1q_u16(out, vminq_u16(wl, limit));
  vst1q_u16(out + 8, vminq_u16(wh, limit));
}

// Weights of n sampled values: by the formula sixteen at a time when it is
// exact, the rest from the value table.
void WeightsOfValues(const uint8_t *v, int32_t n, uint8x16_t low, uint8x16_t high,
                     const DistanceFormula &f, const uint16_t weightOf[256], uint16_t *out) {
  int32_t i = 0;
  if (f.exact) {
    for (; i + 16 <= n; i += 16) StoreWeights16(vld1q_u8(v + i), low, high, f, out + i);
  }
  for (; i < n; ++i) out[i] = weightOf[v[i]];
}

}  // namespace

void ComputeWeights_NEON(int32_t width, int32_t height, int32_t selX, int32_t selY,
                         int32_t first, int32_t last, uint16_t *dst, int32_t srcWidth,
                         int32_t srcHeight, uint8_t bandScale, uint8_t gain, const uint8_t *src) {
  const Sampling sp = PlanSampling(width, height, selX, selY, srcWidth, srcHeight, src);
  if (first > last || width < 1) return;
  const int32_t xstep = sp.xstep, ystep = sp.ystep, low = sp.low, high = sp.high;

  // The weight depends on the sampled value only: one table per call.
  const float g = 1024.0f / static_cast<float>(bandScale);
  uint16_t weightOfDistance[256];
  for (uint32_t d = 0; d < 256; ++d) weightOfDistance[d] = DistanceWeight(d, g, gain);
  uint16_t weightOf[256];
  for (uint32_t v = 0; v < 256; ++v) weightOf[v] = weightOfDistance[BandDistance(v, low, high)];
  const DistanceFormula formula = FitDistanceFormula(weightOfDistance, g);
  const uint8x16_t lowV = vdupq_n_u8(static_cast<uint8_t>(low));
  const uint8x16_t highV = vdupq_n_u8(static_cast<uint8_t>(high));

  ColumnPlan plan;
  uint8_t rows[2][kChunk];
  uint8_t values[kChunk];
  for (int32_t c0 = 0; c0 < width; c0 += kChunk) {
    const int32_t n = std::min(kChunk, width - c0);
    uint32_t sx = static_cast<uint32_t>(xstep) * static_cast<uint32_t>(c0);
    for (int32_t i = 0; i < n; ++i, sx += static_cast<uint32_t>(xstep)) {
      const int32_t px = Wrap(sx);
      plan.x0[i] = px >> 16;
      plan.x1[i] = std::min(plan.x0[i] + 1, srcWidth - 1);
      plan.ax[i] = static_cast<uint8_t>(px >> 8);
    }
    plan.paired = 0;
    while (plan.paired < n && plan.x1[plan.paired] == plan.x0[plan.paired] + 1) ++plan.paired;

    // Two cached interpolated source rows: consecutive output rows mostly
    // share them.
    int32_t cached[2] = {-1, -1};
    auto rowFor = [&](int32_t r, int32_t keep) -> const uint8_t * {
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
      const uint8_t *top = rowFor(y0, y1);
      uint16_t *out = dst + static_cast<ptrdiff_t>(y) * width + c0;
      if (ay == 0) {  // the values are the top row's
        WeightsOfValues(top, n, lowV, highV, formula, weightOf, out);
        continue;
      }
      const uint8_t *bottom = rowFor(y1, y0);
      int32_t i = 0;
      if (formula.exact) {
        const uint8x16_t f = vdupq_n_u8(static_cast<uint8_t>(ay));
        const uint8x16_t inv = vdupq_n_u8(static_cast<uint8_t>(255u - ay));
        for (; i + 16 <= n; i += 16) {
          StoreWeights16(Lerp16(vld1q_u8(top + i), vld1q_u8(bottom + i), f, inv), lowV, highV,
                         formula, out + i);
        }
      }
      if (i < n) {
        InterpolateColumns(top + i, bottom + i, ay, n - i, values);
        WeightsOfValues(values, n - i, lowV, highV, formula, weightOf, out + i);
      }
    }
  }
}

ComputeWeightsFn ComputeWeightsKernel() {
  return ScalarKernelsInUse() ? ComputeWeights_C : ComputeWeights_NEON;
}

}  // namespace pb
