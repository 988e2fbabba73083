#include <sys/system_properties.h>

#include "platform/property.h"
#include "platform/test_hooks.h"

namespace pb {

int GetProperty(const char *name, char *value) { return __system_property_get(name, value); }

int SetProperty(const char *name, const char *value) { return __system_property_set(name, value); }

namespace hooks {
void ResetProperties() {}
}  // namespace hooks

}  // namespace pb
