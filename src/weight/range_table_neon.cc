// Vector range-table application: same bytes as ApplyRangeTable_C.
#include "simd/neon.h"
#include "weight/range_table.h"

namespace pb {

void ApplyRangeTable_NEON(const uint8_t *samples, uint8_t *out, int32_t count,
                          const uint8_t table[256]) {
  int32_t i = 0;
  if (count >= 16) {
    // Table quarter q answers the samples whose top two bits are q: the
    // exclusive or maps them to 0..63 and every other sample out of range,
    // where the look-up leaves the lane as it was.
    const uint8x16x4_t t0 = simd::Load4(table);
    const uint8x16x4_t t1 = simd::Load4(table + 64);
    const uint8x16x4_t t2 = simd::Load4(table + 128);
    const uint8x16x4_t t3 = simd::Load4(table + 192);
    const uint8x16_t q1 = vdupq_n_u8(0x40), q2 = vdupq_n_u8(0x80), q3 = vdupq_n_u8(0xC0);
    for (; i + 16 <= count; i += 16) {
      const uint8x16_t v = vld1q_u8(samples + i);
      uint8x16_t r = vqtbl4q_u8(t0, v);
      r = vqtbx4q_u8(r, t1, veorq_u8(v, q1));
      r = vqtbx4q_u8(r, t2, veorq_u8(v, q2));
      r = vqtbx4q_u8(r, t3, veorq_u8(v, q3));
      vst1q_u8(out + i, r);
    }
  }
  for (; i < count; ++i) out[i] = table[samples[i]];
}

}  // namespace pb
