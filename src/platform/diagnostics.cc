#include "platform/diagnostics.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "platform/log.h"
#include "platform/property.h"

namespace pb {

double MonotonicSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  // One fused multiply-add, then truncation to whole nanoseconds.
  return std::trunc(std::fma(static_cast<double>(ts.tv_sec), 1e9,
                             static_cast<double>(ts.tv_nsec))) *
         1e-9;
}

void DumpTimestamp(char *buf, size_t capacity) {
  const time_t now = time(nullptr);
  tm local{};
  if (localtime_r(&now, &local)) strftime(buf, capacity, "%Y%m%d%H%M%S", &local);
}

void DumpImage(const char *switch_property, const char *required, const char *path_property,
               const char *name, const char *stamp, const void *data, int32_t width,
               int32_t height, int32_t bytes) {
  char save[kPropValueMax] = {};
  char path[kPropValueMax] = {};
  if (GetProperty(switch_property, save) <= 0) snprintf(save, sizeof save, "%s", "no");
  if (GetProperty(path_property, path) <= 0) {
    snprintf(path, sizeof path, "%s", "/data/vendor/cameraserver/");
  }
  if (std::string_view(save) != required) return;
  char file[256];
  snprintf(file, sizeof file, "%s%s_%dx%d_%s.img", path, name, width, height, stamp);
  FILE *f = fopen(file, "wb");
  if (!f) {
    PB_LOGD("fopen %s fail! errno=%d\n", file, errno);
    return;
  }
  if (!data || bytes < 0 ||
      fwrite(data, 1, static_cast<size_t>(bytes), f) < static_cast<size_t>(bytes)) {
    PB_LOGD("fwrite %s error! errno=%d\n", file, errno);
  }
  fclose(f);
}

}  // namespace pb
