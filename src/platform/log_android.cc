#include <android/log.h>

#include "platform/log.h"

namespace pb {

void PlatformLogWrite(int priority, const char *message) {
  __android_log_print(priority, "PreviewBokeh", "%s", message);
}

}  // namespace pb
