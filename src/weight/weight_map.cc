#include "weight/weight_map.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "weight/weight_map_internal.h"
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

using weightmap::BandDistance;
using weightmap::PlanSampling;
using weightmap::Sampling;
using weightmap::Wrap;

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

}  // namespace pb
