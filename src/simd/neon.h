// NEON intrinsics: native on Arm; on other hosts the same source compiles
// through SIMDe's portable translation (host builds only).
#ifndef PREVIEWBOKEH_SIMD_NEON_H_
#define PREVIEWBOKEH_SIMD_NEON_H_

#if defined(__ARM_NEON) || defined(__aarch64__)
#include <arm_neon.h>
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#endif

#include <cstdint>

namespace pb {
namespace simd {

// Loads of 2, 3 or 4 consecutive registers: one instruction on Arm; separate
// 16-byte loads elsewhere (SIMDe copies the multi-register forms byte by
// byte).
#if defined(__aarch64__)
inline uint8x16x2_t Load2(const uint8_t *p) { return vld1q_u8_x2(p); }
inline uint8x16x3_t Load3(const uint8_t *p) { return vld1q_u8_x3(p); }
inline uint8x16x4_t Load4(const uint8_t *p) { return vld1q_u8_x4(p); }
inline uint16x8x4_t Load4(const uint16_t *p) { return vld1q_u16_x4(p); }
#else
inline uint8x16x2_t Load2(const uint8_t *p) {
  return uint8x16x2_t{{vld1q_u8(p), vld1q_u8(p + 16)}};
}
inline uint8x16x3_t Load3(const uint8_t *p) {
  return uint8x16x3_t{{vld1q_u8(p), vld1q_u8(p + 16), vld1q_u8(p + 32)}};
}
inline uint8x16x4_t Load4(const uint8_t *p) {
  return uint8x16x4_t{{vld1q_u8(p), vld1q_u8(p + 16), vld1q_u8(p + 32), vld1q_u8(p + 48)}};
}
inline uint16x8x4_t Load4(const uint16_t *p) {
  return uint16x8x4_t{{vld1q_u16(p), vld1q_u16(p + 8), vld1q_u16(p + 16), vld1q_u16(p + 24)}};
}
#endif

}  // namespace simd
}  // namespace pb

#endif  // PREVIEWBOKEH_SIMD_NEON_H_
