// Runs one frame through the blur pipeline on the handle's worker pool.
#ifndef PREVIEWBOKEH_BLUR_FRAME_DRIVER_H_
#define PREVIEWBOKEH_BLUR_FRAME_DRIVER_H_

#include <cstdint>

#include "blur/strip_task.h"
#include "blur/work_state.h"
#include "pool/thread_pool.h"

namespace pb {

// Settings of the coming frames, from iBokehCreateWeightMap; zero until then.
struct BokehFrameState {
  int32_t sel_x;
  int32_t sel_y;
  int32_t level;  // blur level, 0..20 for meaningful apertures
  const uint16_t *weight_map;
};

// What a frame runs on, lent by its handle for the duration of the frame.
struct FrameResources {
  ThreadPool *pool;
  int32_t thread_count;    // strips per plane
  StripTaskArgs *records;  // 2 x thread_count: luma strips, then chroma
  int32_t width;
  int32_t height;
  BlurWorkState *work;
};

// Blend strength for a blur level; levels outside 0..20 give 0.
uint8_t AlphaForLevel(int32_t level);

// Blurs the frame (luma planes, chroma planes) of size r.width x r.height
// into the destination under the frame settings. smooth_override replaces the
// working state's smoothing buffer when non-null. Returns after every strip
// task has finished.
void RunFrame(const FrameResources &r, const BokehFrameState &settings, const uint8_t *src_y,
              const uint8_t *src_uv, uint8_t *dst_y, uint8_t *dst_uv, uint8_t *smooth_override);

}  // namespace pb

#endif  // PREVIEWBOKEH_BLUR_FRAME_DRIVER_H_
