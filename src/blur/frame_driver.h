// Runs one frame through the blur pipeline on the handle's worker pool.
#ifndef PREVIEWBOKEH_BLUR_FRAME_DRIVER_H_
#define PREVIEWBOKEH_BLUR_FRAME_DRIVER_H_

#include <cstdint>

namespace pb {

struct BokehHandle;

// Blend strength for a blur level; levels outside 0..20 give 0.
uint8_t AlphaForLevel(int32_t level);

// Blurs the frame (luma planes, chroma planes) of the handle's size into the
// destination. smooth_override replaces the handle's smoothing buffer when
// non-null. Returns after every strip task has finished.
void RunFrame(BokehHandle *handle, const uint8_t *src_y, const uint8_t *src_uv, uint8_t *dst_y,
              uint8_t *dst_uv, uint8_t *smooth_override);

}  // namespace pb

#endif  // PREVIEWBOKEH_BLUR_FRAME_DRIVER_H_
