#include "weight/range_table.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace pb {

int32_t TruncToInt32(float f) {
  if (std::isnan(f)) return 0;
  if (f >= 2147483648.0f) return INT32_MAX;
  if (f <= -2147483648.0f) return INT32_MIN;
  return static_cast<int32_t>(f);
}

int64_t TruncToInt64(double d) {
  if (std::isnan(d)) return 0;
  if (d >= 9223372036854775808.0) return INT64_MAX;
  if (d <= -9223372036854775808.0) return INT64_MIN;
  return static_cast<int64_t>(d);
}

namespace {

template <typename T>
T ReadField(const DisparityFrame *header, size_t offset) {
  T value;
  std::memcpy(&value, reinterpret_cast<const uint8_t *>(header) + offset, sizeof value);
  return value;
}

}  // namespace

void BuildRangeTable(const DisparityFrame *header, uint8_t table[256]) {
  const int32_t num = ReadField<int32_t>(header, offsetof(DisparityFrame, ScaleNumeratorQ19));
  const int32_t den = ReadField<int32_t>(header, offsetof(DisparityFrame, ScaleDenominatorQ19));
  const uint16_t ref = ReadField<uint16_t>(header, offsetof(DisparityFrame, RefWidth));
  const uint16_t width = ReadField<uint16_t>(header, offsetof(DisparityFrame, DisparityWidth));

  // Single precision throughout, one rounding per operation in this order.
  const float kQ19 = 1.9073486328125e-06f;  // 2^-19
  const float a = static_cast<float>(num) * kQ19;
  const float b = static_cast<float>(den) * kQ19;
  const float q = std::fabs(a / b);
  const float scaled = 0.4f * q;
  const float s = (static_cast<float>(width) * scaled) / static_cast<float>(ref);
  const uint32_t d0 = ref != 0 ? (static_cast<uint32_t>(width) * 16u) / ref : 0u;
  const int32_t k = TruncToInt32(s) / 250;
  const int32_t c = TruncToInt32(s * 0.003921568859368563f);  // 1/255

  for (int32_t i = 0; i < 256; ++i) {
    const int32_t m = std::max(i, k);
    const int32_t t = std::max(m - static_cast<int32_t>(d0), 1);
    // t + c wraps like the 32-bit add it is (c saturates for huge s).
    const int32_t tc = static_cast<int32_t>(static_cast<uint32_t>(t) + static_cast<uint32_t>(c));
    const float r = s / static_cast<float>(tc);
    const int64_t v = TruncToInt64(static_cast<double>(r) + 0.5);
    table[i] = static_cast<uint8_t>(v);  // modulo 256, no clamping
  }
}

void ApplyRangeTable_C(const uint8_t *samples, uint8_t *out, int32_t count,
                       const uint8_t table[256]) {
  for (int32_t i = 0; i < count; ++i) out[i] = table[samples[i]];
}

}  // namespace pb
