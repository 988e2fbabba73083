#include "weight/disparity_stats.h"

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

  // Four interleaved counters per bin: smoothed disparity repeats values, and
  // one counter would serialise on its own increments. The sums keep the
  // 16-bit counters' wrap-around.
  uint32_t counts[4][256] = {};
  int32_t i = 0;
  for (; i + 4 <= n; i += 4) {
    ++counts[0][src[i]];
    ++counts[1][src[i + 1]];
    ++counts[2][src[i + 2]];
    ++counts[3][src[i + 3]];
  }
  for (; i < n; ++i) ++counts[0][src[i]];
  for (int32_t j = 0; j < 256; ++j) {
    hist[j] = static_cast<uint16_t>(counts[0][j] + counts[1][j] + counts[2][j] + counts[3][j]);
  }

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
