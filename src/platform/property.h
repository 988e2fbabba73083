// System properties: Android's property service on devices; on Linux hosts an
// in-process store seeded from the environment (persist.vendor.cam.x_y is read
// from PERSIST_VENDOR_CAM_X_Y).
#ifndef PREVIEWBOKEH_PLATFORM_PROPERTY_H_
#define PREVIEWBOKEH_PLATFORM_PROPERTY_H_

namespace pb {

// Longest property value including its terminating zero (Android's limit).
constexpr int kPropValueMax = 92;

// Copies the property's value (empty when unset) into value[kPropValueMax];
// returns its length.
int GetProperty(const char *name, char *value);

// Sets a property; returns 0 on success.
int SetProperty(const char *name, const char *value);

}  // namespace pb

#endif  // PREVIEWBOKEH_PLATFORM_PROPERTY_H_
