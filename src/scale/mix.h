// Mixing a sharp sample s with a blurred sample b under map weight m and the
// frame's alpha (128 = unity): w = (m * alpha + 64) >> 7,
// out = (w * b + (1024 - w) * s + 512) >> 10. Shared by the full-resolution
// and the upscale composites, scalar and vector.
//
// Vector steps work in unsigned lanes: w is narrowed to a 16-bit lane (its
// low 16 bits; m * alpha and the rounding are exact), 1024 - w is a 16-bit
// lane (it wraps when w > 1024), the products and their sum are 32-bit lanes,
// and (acc + 512) >> 10, narrowed to 16 bits, is saturated to 0..255.
// The one-at-a-time code is signed 32-bit: w is not narrowed, 1024 - w may be
// negative, (acc + 512) / 1024 truncates toward zero, the quotient is limited
// to at most 255 where the kernel says so, and its low 8 bits are stored.
// Both give w * b + (1024 - w) * s rounded whenever m * alpha <= 131135.
#ifndef PREVIEWBOKEH_SCALE_MIX_H_
#define PREVIEWBOKEH_SCALE_MIX_H_

#include <cstdint>

namespace pb {
namespace mix {

// Largest m * alpha whose w is at most 1024.
constexpr uint32_t kMaxInRangeProduct = 131135;

// The arithmetic of a vector lane.
inline uint8_t MixLane(uint32_t m, uint32_t alpha, uint32_t s, uint32_t b) {
  const uint16_t w = static_cast<uint16_t>((m * alpha + 64u) >> 7);
  const uint16_t iw = static_cast<uint16_t>(1024u - w);
  const uint32_t acc = static_cast<uint32_t>(w) * b + static_cast<uint32_t>(iw) * s;  // < 2^25
  const uint16_t q = static_cast<uint16_t>((acc + 512u) >> 10);
  return static_cast<uint8_t>(q > 255u ? 255u : q);
}

// The one-at-a-time arithmetic; the quotient is limited to 255 when kLimit.
template <bool kLimit>
inline uint8_t MixOne(int32_t m, int32_t alpha, int32_t s, int32_t b) {
  const int32_t w = (m * alpha + 64) >> 7;
  const int32_t acc = w * b + (1024 - w) * s;
  int32_t q = (acc + 512) / 1024;
  if (kLimit && q > 255) q = 255;
  return static_cast<uint8_t>(q);
}

}  // namespace mix
}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_MIX_H_
