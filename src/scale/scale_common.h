// Integer helpers shared by the downscale and upscale-composite planning.
#ifndef PREVIEWBOKEH_SCALE_SCALE_COMMON_H_
#define PREVIEWBOKEH_SCALE_SCALE_COMMON_H_

#include <cstddef>
#include <cstdint>

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

// Largest multiple of `step` that is <= bound and >= 0.
inline int32_t FloorTo(int32_t bound, int32_t step) {
  return bound <= 0 ? 0 : bound - bound % step;
}

}  // namespace scale
}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_SCALE_COMMON_H_
