// Monotonic clock, timestamps and the raw image dumps switched on by the
// "persist.vendor.cam.prebokeh_save" property.
#ifndef PREVIEWBOKEH_PLATFORM_DIAGNOSTICS_H_
#define PREVIEWBOKEH_PLATFORM_DIAGNOSTICS_H_

#include <cstddef>
#include <cstdint>

namespace pb {

// Seconds from the monotonic clock.
double MonotonicSeconds();

// Milliseconds elapsed since `start` (from MonotonicSeconds()).
inline double ElapsedMs(double start) { return (MonotonicSeconds() - start) * 1000.0; }

// Writes local time as "%Y%m%d%H%M%S" into buf; leaves it unchanged when the
// local time is unavailable.
void DumpTimestamp(char *buf, size_t capacity);

// Writes `bytes` of `data` to "<path><name>_<w>x<h>_<stamp>.img" when the save
// property equals `required`. Failures are logged and otherwise ignored.
void DumpImage(const char *switch_property, const char *required, const char *path_property,
               const char *name, const char *stamp, const void *data, int32_t width,
               int32_t height, int32_t bytes);

}  // namespace pb

#endif  // PREVIEWBOKEH_PLATFORM_DIAGNOSTICS_H_
