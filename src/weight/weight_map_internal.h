// Pieces shared by the scalar and vector weight-map kernels: the source
// steps and the in-focus band of one call.
#ifndef PREVIEWBOKEH_WEIGHT_WEIGHT_MAP_INTERNAL_H_
#define PREVIEWBOKEH_WEIGHT_WEIGHT_MAP_INTERNAL_H_

#include <cstdint>

#include "weight/weight_map.h"

namespace pb {
namespace weightmap {

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

inline Sampling PlanSampling(int32_t width, int32_t height, int32_t selX, int32_t selY, int32_t srcWidth,
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

}  // namespace weightmap
}  // namespace pb

#endif  // PREVIEWBOKEH_WEIGHT_WEIGHT_MAP_INTERNAL_H_
