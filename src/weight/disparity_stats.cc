#include "weight/disparity_stats.h"

#include <cstring>

#include "platform/log.h"
#include "weight/disparity_stats_internal.h"

namespace pb {
using disparity::MinMaxTail;

void DisparityMinMax_C(const uint8_t *src, int32_t n, uint8_t *min, uint8_t *max) {
  if (n < 0) n = 0;
  const int32_t m = n & ~15;
  uint8_t lo = 255;
  uint8_t hi = 0;
  for (int32_t i = 0; i < m; ++i) {
    if (src[i] < lo) lo = src[i];
    if (src[i] > hi) hi = src[i];
  }
  *min = lo;
  *max = hi;
  MinMaxTail(src, m, n, min, max);
}

void DisparityHistogramRange(const uint8_t *src, uint16_t hist[256], int32_t n, int32_t ratio,
                             int32_t minRange, uint8_t *min, uint8_t *max) {
  PB_LOGD("pixel_num : %d\n", n);
  PB_LOGD("HistMinNumberRatio : %d\n", ratio);
  PB_LOGD("min : %d\n", *min);
  PB_LOGD("max : %d\n", *max);
  // 32-bit product (wrapping), signed division.
  const int32_t th =
      static_cast<int32_t>(static_cast<uint32_t>(ratio) * static_cast<uint32_t>(n)) / 256;
  PB_LOGD("Hist_th : %d\n", th);

  // Four counter tables, each its own array (its own base register): smoothed
  // disparity repeats values, and one table would serialise on its own
  // increments. Eight samples per 64-bit load. The sums keep the 16-bit
  // counters' wrap-around.
  uint32_t c0[256] = {}, c1[256] = {}, c2[256] = {}, c3[256] = {};
  int32_t i = 0;
  for (; i + 16 <= n; i += 16) {
    uint64_t w[2];
    std::memcpy(w, src + i, sizeof w);
    for (const uint64_t v : w) {
      ++c0[v & 255];
      ++c1[(v >> 8) & 255];
      ++c2[(v >> 16) & 255];
      ++c3[(v >> 24) & 255];
      ++c0[(v >> 32) & 255];
      ++c1[(v >> 40) & 255];
      ++c2[(v >> 48) & 255];
      ++c3[v >> 56];
    }
  }
  for (; i < n; ++i) ++c0[src[i]];
  for (int32_t j = 0; j < 256; ++j) hist[j] = static_cast<uint16_t>(c0[j] + c1[j] + c2[j] + c3[j]);

  int32_t lo = 255;
  for (int32_t j = 0; j <= 254; ++j) {
    if (static_cast<int32_t>(hist[j]) >= th) {
      lo = j;
      break;
    }
  }
  // Downward from the incoming maximum; bin 0 is never examined.
  int32_t hi = 0;
  for (int32_t j = *max; j >= 1; --j) {
    if (static_cast<int32_t>(hist[j]) >= th) {
      hi = j;
      break;
    }
  }
  if (hi - lo >= minRange) {
    *min = static_cast<uint8_t>(lo);
    *max = static_cast<uint8_t>(hi);
  }
}

}  // namespace pb
