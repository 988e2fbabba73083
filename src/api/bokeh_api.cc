// The exported bokeh entry points.
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <dlfcn.h>

#include "api/handle.h"
#include "blur/frame_driver.h"
#include "blur/strip_task.h"
#include "blur/work_state.h"
#include "platform/alloc.h"
#include "platform/diagnostics.h"
#include "platform/log.h"
#include "platform/property.h"
#include "pool/thread_pool.h"
#include "previewbokeh/bokeh.h"

namespace pb {
namespace {

constexpr char kVersion[] = "CAM_ALGO_CV_PREBOKEH_LIBVER[1.1.5.0.1355857][Jul 19 2021][11:25:39]";
constexpr int32_t kThreadCount = 2;
constexpr int32_t kSmoothWinSize = 11;

// Numbers the timing lines of every handle in the process.
std::atomic<int32_t> g_frame_counter{0};

int32_t LevelForFNumber(int32_t f_number) {
  if (f_number == 20) return 0;
  return 20 - static_cast<int32_t>((static_cast<int64_t>(f_number) + 1) / 2);
}

bool FrameSizeSupported(int32_t width, int32_t height) {
  if (width <= 0 || (width & 1) || height < 2) return false;
  return static_cast<int64_t>(width) * height * 3 / 2 <= INT32_MAX;
}

int InitHandle(BokehHandle *h, BokehInitParams *params) {
  h->buffer_sum = 0;
  h->thread_count = kThreadCount;
  h->pThreadArg = static_cast<StripTaskArgs *>(
      Malloc(sizeof(StripTaskArgs) * static_cast<size_t>(2 * h->thread_count)));
  if (!h->pThreadArg) {
    PB_LOGD("pThreadArg malloc error\n");
    return 1;
  }
  if (PoolCreate(&h->pool, h->thread_count, 2 * h->thread_count) != 0) {
    h->pool = nullptr;  // creation freed the object
    PB_LOGD("pool_init error\n");
    return 1;
  }
  if (CreateWorkState(&h->work, &h->buffer_sum, h->width, h->height, params->SmoothWinSize) != 0) {
    return 1;
  }
  h->frame = static_cast<BokehFrameState *>(Calloc(1, sizeof(BokehFrameState)));
  if (!h->frame) {
    PB_LOGD("BokehFrameState malloc error\n");
    return 1;
  }
  return velk_load_caa_api(&h->api) != 0 ? 1 : 0;
}

}  // namespace
}  // namespace pb

using pb::BokehHandle;

extern "C" PREVIEWBOKEH_EXPORT int iBokehInit(void **handle, BokehInitParams *params) {
  PB_LOGD("iBokehInit start\n");
  const double start = pb::MonotonicSeconds();
  char version[256];
  snprintf(version, sizeof version, "PreBokeh version: %s", pb::kVersion);
  PB_LOGI("%s\n", version);
  if (!handle || !params) return 1;

  pb::SetProperty("vendor.cam.dualmode", "high_mode");
  // Loads the time zone now rather than in the first frame's dump timestamp
  // (localtime_r), where loading it would allocate.
  tzset();
  PB_LOGD("Open execute finish !\n");

  auto *h = static_cast<BokehHandle *>(pb::Calloc(1, sizeof(BokehHandle)));
  *handle = h;
  if (!h) {
    PB_LOGD("BokehHandle malloc error\n");
    return 1;
  }
  h->width = params->width;
  h->height = params->height;
  PB_LOGD("iBokehInit: width : %d   height:%d \n", h->width, h->height);
  params->SmoothWinSize = pb::kSmoothWinSize;
  params->WindowRadius = pb::kSmoothWinSize / 2;
  if (!pb::FrameSizeSupported(h->width, h->height)) {
    PB_LOGD("iBokehInit: unsupported frame size %dx%d\n", h->width, h->height);
    iBokehDeinit(h);
    return 1;
  }
  if (pb::InitHandle(h, params) != 0) {
    iBokehDeinit(h);
    return 1;
  }
  PB_LOGD("iBokehInit end: buffer sum: %d KB, %.3f ms\n", h->buffer_sum / 1024,
          pb::ElapsedMs(start));
  return 0;
}

extern "C" PREVIEWBOKEH_EXPORT int iBokehCreateWeightMap(void *handle, BokehFrameParams *params) {
  PB_LOGD("iBokehCreateWeightMap start[handle:%p,params:%p]\n", handle,
          static_cast<void *>(params));
  const double start = pb::MonotonicSeconds();
  auto *h = static_cast<BokehHandle *>(handle);
  if (!h) return 1;
  if (!params) {
    PB_LOGD("iBokehCreateWeightMap: null params\n");
    return 1;
  }
  h->frame->weight_map = params->WeightMap;
  h->frame->sel_x = params->sel_x;
  h->frame->sel_y = params->sel_y;
  h->frame->level = pb::LevelForFNumber(params->F_number);
  PB_LOGD("F_number: %d, sel_x: %d, sel_y: %d\n", params->F_number, params->sel_x,
          params->sel_y);
  PB_LOGD("iBokehCreateWeightMap end: %.3f ms\n", pb::ElapsedMs(start));
  return 0;
}

extern "C" PREVIEWBOKEH_EXPORT int iBokehBlurImage(void *handle, void *SrcImg, void *dstImg) {
  PB_LOGD("iBokehBlurImage start[handle:%p,SrcImg:%p,dstImg:%p]\n", handle, SrcImg, dstImg);
  auto *h = static_cast<BokehHandle *>(handle);
  if (!h || !SrcImg || !dstImg) {
    PB_LOGD("invalid handle\n");
    return 1;
  }
  if (!h->frame->weight_map) {
    PB_LOGD("iBokehBlurImage: no weight map set\n");
    return 1;
  }
  const double start = pb::MonotonicSeconds();
  auto *src = static_cast<uint8_t *>(h->api.GraphicBufferPointer_lock(SrcImg));
  auto *dst = static_cast<uint8_t *>(h->api.GraphicBufferPointer_lock(dstImg));
  if (src && dst) {
    const int64_t luma = static_cast<int64_t>(h->width) * h->height;
    const pb::FrameResources resources{h->pool,   h->thread_count, h->pThreadArg,
                                      h->width,  h->height,       h->work};
    pb::RunFrame(resources, *h->frame, src, src + luma, dst, dst + luma, nullptr);
  } else {
    PB_LOGD("iBokehBlurImage: lock failed (src:%p, dst:%p)\n", static_cast<void *>(src),
            static_cast<void *>(dst));
  }
  h->api.GraphicBufferPointer_unlock(SrcImg);
  h->api.GraphicBufferPointer_unlock(dstImg);
  if (!src || !dst) return 1;
  const int32_t count = pb::g_frame_counter.fetch_add(1, std::memory_order_relaxed) + 1;
  PB_LOGD("iBokehBlurImage %d: %.3f ms\n", count, pb::ElapsedMs(start));
  return 0;
}

extern "C" PREVIEWBOKEH_EXPORT int iBokehDeinit(void *handle) {
  PB_LOGD("iBokehDeinit start[handle:%p]\n", handle);
  auto *h = static_cast<BokehHandle *>(handle);
  if (!h) return 1;
  if (h->pool) {
    pb::PoolDestroy(h->pool);
    h->pool = nullptr;
  }
  if (h->pThreadArg) {
    pb::Free(h->pThreadArg);
    h->pThreadArg = nullptr;
  }
  pb::ReleaseWorkState(&h->work);
  if (h->frame) {
    pb::Free(h->frame);
    h->frame = nullptr;
  }
  if (h->api.handle) {
    dlclose(h->api.handle);
    h->api.handle = nullptr;
  }
  pb::Free(h);
  PB_LOGD("iBokehDeinit end\n");
  return 0;
}
