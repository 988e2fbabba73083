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

// Byte-to-16-bit widenings of the low or high 8 of 16 lanes, alone, added or
// subtracted in pairs, or added to 16-bit lanes. On Arm each is one widening
// instruction. Through SIMDe (x86-64 hosts) the intrinsics on 64-bit halves
// lower to chains of shuffles while zipping with zero is one unpack, so there
// the same values are formed by zips and 16-bit arithmetic. Both forms are
// exact; the differential tests run each on its target.
#if defined(__aarch64__)
inline uint16x8_t WidenLow(uint8x16_t v) { return vmovl_u8(vget_low_u8(v)); }
inline uint16x8_t WidenHigh(uint8x16_t v) { return vmovl_high_u8(v); }
inline uint16x8_t AddLow(uint8x16_t a, uint8x16_t b) {
  return vaddl_u8(vget_low_u8(a), vget_low_u8(b));
}
inline uint16x8_t AddHigh(uint8x16_t a, uint8x16_t b) { return vaddl_high_u8(a, b); }
inline uint16x8_t SubLow(uint8x16_t a, uint8x16_t b) {
  return vsubl_u8(vget_low_u8(a), vget_low_u8(b));
}
inline uint16x8_t SubHigh(uint8x16_t a, uint8x16_t b) { return vsubl_high_u8(a, b); }
inline uint16x8_t AddWideLow(uint16x8_t acc, uint8x16_t v) {
  return vaddw_u8(acc, vget_low_u8(v));
}
inline uint16x8_t AddWideHigh(uint16x8_t acc, uint8x16_t v) { return vaddw_high_u8(acc, v); }
#else
inline uint16x8_t WidenLow(uint8x16_t v) {
  return vreinterpretq_u16_u8(vzip1q_u8(v, vdupq_n_u8(0)));
}
inline uint16x8_t WidenHigh(uint8x16_t v) {
  return vreinterpretq_u16_u8(vzip2q_u8(v, vdupq_n_u8(0)));
}
inline uint16x8_t AddLow(uint8x16_t a, uint8x16_t b) {
  return vaddq_u16(WidenLow(a), WidenLow(b));
}
inline uint16x8_t AddHigh(uint8x16_t a, uint8x16_t b) {
  return vaddq_u16(WidenHigh(a), WidenHigh(b));
}
inline uint16x8_t SubLow(uint8x16_t a, uint8x16_t b) {
  return vsubq_u16(WidenLow(a), WidenLow(b));
}
inline uint16x8_t SubHigh(uint8x16_t a, uint8x16_t b) {
  return vsubq_u16(WidenHigh(a), WidenHigh(b));
}
inline uint16x8_t AddWideLow(uint16x8_t acc, uint8x16_t v) { return vaddq_u16(acc, WidenLow(v)); }
inline uint16x8_t AddWideHigh(uint16x8_t acc, uint8x16_t v) {
  return vaddq_u16(acc, WidenHigh(v));
}
#endif

}  // namespace simd
}  // namespace pb

#endif  // PREVIEWBOKEH_SIMD_NEON_H_
