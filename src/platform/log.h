// Logging under the tag "PreviewBokeh": the Android log on devices, one line
// per call on stderr on Linux hosts ("D/PreviewBokeh: message").
#ifndef PREVIEWBOKEH_PLATFORM_LOG_H_
#define PREVIEWBOKEH_PLATFORM_LOG_H_

#include <cstdarg>

namespace pb {

enum LogPriority {
  kLogVerbose = 2,
  kLogDebug = 3,
  kLogInfo = 4,
  kLogWarn = 5,
  kLogError = 6,
  kLogFatal = 7,
};

void Log(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Writes an already formatted message to the platform log (no capture).
void PlatformLogWrite(int priority, const char *message);

}  // namespace pb

#define PB_LOGD(...) ::pb::Log(::pb::kLogDebug, __VA_ARGS__)
#define PB_LOGI(...) ::pb::Log(::pb::kLogInfo, __VA_ARGS__)

#endif  // PREVIEWBOKEH_PLATFORM_LOG_H_
