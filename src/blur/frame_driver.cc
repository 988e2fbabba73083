#include "blur/frame_driver.h"

#include <algorithm>
#include <cstring>

#include "blur/strip_task.h"
#include "platform/diagnostics.h"
#include "platform/log.h"

namespace pb {
namespace {

constexpr uint8_t kAlphaTable[21] = {0,   60,  68,  76,  82,  87,  92,  100, 103, 107, 110,
                                     112, 114, 116, 118, 120, 122, 124, 126, 128, 0};

constexpr char kSaveProperty[] = "persist.vendor.cam.prebokeh_save";
constexpr char kPathProperty[] = "persist.vendor.cam.prebokeh_path";

// Fills the records of one plane's strips and queues them. rows_per_strip is
// the plane's rows / strips; remainder rows belong to no strip.
void QueuePlane(const FrameResources &r, StripTaskArgs *records, bool chroma, const uint8_t *src,
                uint8_t *dst, uint8_t *scaled, uint8_t *smoothed, uint8_t alpha,
                const uint16_t *weight_map) {
  const BlurWorkState *ws = r.work;
  const int32_t n = r.thread_count;
  const int32_t ratio = ws->Scalingratio;
  const int32_t plane_height = chroma ? r.height / 2 : r.height;
  const int32_t working_height = chroma ? ws->working_height / 2 : ws->working_height;
  const int32_t rows = plane_height / n;
  for (int32_t i = 0; i < n; ++i) {
    StripTaskArgs &a = records[i];
    const StripScratch &scratch = ws->strip[(chroma ? kStripsPerPlane : 0) + i];
    a.strip_index = static_cast<uint32_t>(i);
    a.first_row = i * rows;
    a.last_row = a.first_row + rows - 1;
    a.width = r.width;
    a.height = plane_height;
    a.ratio = ratio;
    a.working_width = ws->working_width;
    a.working_height = working_height;
    a.low_first_row = std::max(0, a.first_row / ratio - 1);
    a.low_last_row = std::min(a.last_row / ratio + 1, working_height - 1);
    a.window_size = ws->SmoothWinSize;
    a.kernel = ws->kernel;
    a.alpha = alpha;
    a.weight_map = weight_map;
    a.src = src;
    a.dst = dst;
    a.scaled = scaled;
    a.xinterp = scratch.xinterp;
    a.padded = scratch.padded;
    a.intermediate = scratch.intermediate;
    a.reduced = scratch.reduced;
    a.smoothed = ratio == 1 ? smoothed : scratch.smoothed;
  }
  // The shared reduced image: each strip publishes the rows from its own
  // first working row up to the next strip's, the first and last strips
  // reaching the image's edges.
  for (int32_t i = 0; i < n; ++i) {
    records[i].owned_low_first = i == 0 ? 0 : records[i].low_first_row;
    records[i].owned_low_last = i == n - 1 ? working_height - 1 : records[i + 1].low_first_row - 1;
  }
  for (int32_t i = 0; i < n; ++i) {
    PoolAddJob(r.pool, chroma ? ChromaStripTask : LumaStripTask, &records[i]);
  }
}

}  // namespace

uint8_t AlphaForLevel(int32_t level) {
  return (level >= 0 && level <= 20) ? kAlphaTable[level] : 0;
}

void RunFrame(const FrameResources &r, const BokehFrameState &settings, const uint8_t *src_y,
              const uint8_t *src_uv, uint8_t *dst_y, uint8_t *dst_uv, uint8_t *smooth_override) {
  const BokehFrameState *fs = &settings;
  BlurWorkState *ws = r.work;
  const int32_t level = fs->level;
  const uint8_t alpha = AlphaForLevel(level);
  PB_LOGD("F_number: %d, sel_x: %d, sel_y: %d, alpha: %d\n", 20 - level, fs->sel_x, fs->sel_y,
          alpha);

  const int32_t width = r.width, height = r.height;
  uint8_t *smooth = smooth_override ? smooth_override : ws->smooth_img;
  const int32_t n = width * height;
  const int32_t frame_bytes = (width * height * 3) / 2;

  char stamp[256] = {};
  DumpTimestamp(stamp, sizeof stamp);
  DumpImage(kSaveProperty, "yes", kPathProperty, "imagein", stamp, src_y, width, height,
            frame_bytes);
  DumpImage(kSaveProperty, "yes", kPathProperty, "weightin", stamp, fs->weight_map, width,
            height, width * height * 2);

  PoolResetCompletion(r.pool);

  // In place, a strip's smoothing would read rows a neighbouring strip may
  // already have overwritten: blur from a copy of the whole plane.
  const uint8_t *luma = src_y;
  const uint8_t *chroma = src_uv;
  if (src_y == dst_y || level == 20) {
    std::memcpy(ws->Src_copy, src_y, static_cast<size_t>(n));
    luma = ws->Src_copy;
  }
  if (src_uv == dst_uv || level == 20) {
    std::memcpy(ws->Src_copy + n, src_uv, static_cast<size_t>(n / 2));
    chroma = ws->Src_copy + n;
  }

  const size_t working_luma = static_cast<size_t>(ws->working_width) * ws->working_height;
  QueuePlane(r, r.records, false, luma, dst_y, ws->scale_img, smooth, alpha, fs->weight_map);
  QueuePlane(r, r.records + r.thread_count, true, chroma, dst_uv,
             ws->scale_img + working_luma, smooth + working_luma, alpha, fs->weight_map);

  PoolWaitCompletion(r.pool, 2 * r.thread_count);

  DumpImage(kSaveProperty, "yes", kPathProperty, "imageout", stamp, dst_y, width, height,
            frame_bytes);
}

}  // namespace pb
