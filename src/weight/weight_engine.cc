// The exported depth-weight interface: engine lifecycle and the per-frame flow
// (range table, box smoothing, statistics, weight map).
#include "weight/weight_engine.h"

#include <cstddef>
#include <cstdint>

#include "platform/diagnostics.h"
#include "blur/smooth.h"
#include "platform/alloc.h"
#include "platform/log.h"
#include "previewbokeh/weight.h"
#include "weight/disparity_stats.h"
#include "weight/range_table.h"
#include "weight/weight_map.h"

namespace pb {

const uint8_t WeightGainTable[kWeightGainTableSize] = {128, 128, 128, 128, 128, 128, 128,
                                                        128, 128, 128, 128, 128, 128, 128,
                                                        128, 128, 128, 128, 128, 128};

namespace {

constexpr uint8_t kBandScale = 50;
constexpr int32_t kHistMinNumberRatio = 3;
constexpr int32_t kHistMinRange = 4;
constexpr uint8_t kUnityGain = 128;

// Buffer sizes in bytes, from the init sizes.
struct BufferSizes {
  int64_t weightMap;
  int64_t disparity;  // RangedDisparity and SmoothDisparity each
  int64_t expand;
  int64_t tempim;
};

BufferSizes SizesFor(const WeightEngine &e) {
  const int64_t h = e.DisparityWinSize / 2;
  const int64_t w2 = e.DisparityWidth + 2 * h;
  const int64_t h2 = e.DisparityHeight + 2 * h;
  return {int64_t{e.WeightWidth} * e.WeightHeight * 2,
          int64_t{e.DisparityWidth} * e.DisparityHeight, w2 * h2, w2 * (h2 + 1) * 4};
}

// Sizes the engine can work with: positive, positions in 16.16 without
// overflow, every buffer size and the counted sum within 32-bit signed range.
bool SizesValid(const WeightEngine &e) {
  if (e.WeightWidth < 1 || e.WeightHeight < 1 || e.DisparityWidth < 1 ||
      e.DisparityHeight < 1 || e.DisparityWinSize < 1) {
    return false;
  }
  if (e.DisparityWidth >= 32768 || e.DisparityHeight >= 32768 || e.DisparityWinSize >= 32768) {
    return false;
  }
  const BufferSizes s = SizesFor(e);
  return s.weightMap + 2 * s.disparity + s.expand + s.tempim <= INT32_MAX;
}

void *AllocateOrLog(size_t bytes, const char *message) {
  void *p = Malloc(bytes);
  if (!p) PB_LOGD("%s", message);
  return p;
}

WeightEngine *EngineOf(WeightContext *context) {
  return static_cast<WeightEngine *>(context->engine);
}

int32_t Clamp(int32_t v, int32_t lo, int32_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

}  // namespace
}  // namespace pb

using pb::WeightEngine;

extern "C" PREVIEWBOKEH_EXPORT int weight_init(const WeightInitParams *params,
                                               WeightContext *context) {
  if (!context) {
    PB_LOGD("weight_init: null context\n");
    return 1;
  }
  if (!params) {
    PB_LOGD("weight_init: null params\n");
    context->engine = nullptr;
    return 1;
  }
  // Attached at once, so that weight_deinit releases it whatever fails later.
  auto *e = static_cast<WeightEngine *>(pb::Calloc(1, sizeof(WeightEngine)));
  context->engine = e;
  if (!e) {
    PB_LOGD("WeightEngine malloc error\n");
    return 1;
  }
  e->WeightWidth = params->WeightWidth;
  e->WeightHeight = params->WeightHeight;
  e->DisparityWidth = params->DisparityWidth;
  e->DisparityHeight = params->DisparityHeight;
  e->DisparityWinSize = params->DisparityWinSize;
  e->HistMinNumberRatio = pb::kHistMinNumberRatio;
  e->HistMinRange = pb::kHistMinRange;
  if (!pb::SizesValid(*e)) {
    PB_LOGD("weight_init: unsupported sizes weight %dx%d disparity %dx%d window %d\n",
            e->WeightWidth, e->WeightHeight, e->DisparityWidth, e->DisparityHeight,
            e->DisparityWinSize);
    return 1;
  }

  // 2h + 1 taps: an even window leaves its last tap at zero.
  const int32_t h = e->DisparityWinSize / 2;
  const int32_t taps = 2 * h + 1;
  e->SmoothKernel = static_cast<uint16_t *>(pb::Calloc(static_cast<size_t>(taps), sizeof(uint16_t)));
  if (!e->SmoothKernel) {
    PB_LOGD("SmoothKernel malloc error\n");
    return 1;
  }
  const uint16_t tap = static_cast<uint16_t>(1024u / static_cast<uint32_t>(e->DisparityWinSize));
  for (int32_t i = 0; i < e->DisparityWinSize; ++i) e->SmoothKernel[i] = tap;

  const pb::BufferSizes s = pb::SizesFor(*e);
  e->WeightMap = static_cast<uint16_t *>(
      pb::AllocateOrLog(static_cast<size_t>(s.weightMap), "WeightMap malloc error\n"));
  if (!e->WeightMap) return 1;
  e->RangedDisparity = static_cast<uint8_t *>(
      pb::AllocateOrLog(static_cast<size_t>(s.disparity), "RangedDisparity malloc error\n"));
  if (!e->RangedDisparity) return 1;
  e->ExpandDisparity = static_cast<uint8_t *>(
      pb::AllocateOrLog(static_cast<size_t>(s.expand), "ExpandDisparity malloc error\n"));
  if (!e->ExpandDisparity) return 1;
  e->TempimDisparity = static_cast<uint32_t *>(
      pb::AllocateOrLog(static_cast<size_t>(s.tempim), "TempimDisparity malloc error\n"));
  if (!e->TempimDisparity) return 1;
  e->SmoothDisparity = static_cast<uint8_t *>(
      pb::AllocateOrLog(static_cast<size_t>(s.disparity), "SmoothDisparity malloc error\n"));
  if (!e->SmoothDisparity) return 1;

  context->MemorySize += static_cast<uint32_t>(s.weightMap + 2 * s.disparity + s.expand + s.tempim);
  return 0;
}

extern "C" PREVIEWBOKEH_EXPORT int weight_async_process(const WeightProcessParams *params,
                                                        WeightContext *context,
                                                        uint16_t *weight_map) {
  if (!params || !context || !weight_map) {
    PB_LOGD("weight_async_process: null argument (params %p, context %p, weight map %p)\n",
            static_cast<const void *>(params), static_cast<void *>(context),
            static_cast<void *>(weight_map));
    return 1;
  }
  WeightEngine *e = pb::EngineOf(context);
  if (!e || !e->SmoothDisparity) {
    PB_LOGD("weight_async_process: engine not initialised\n");
    return 1;
  }
  if (!params->frame) {
    PB_LOGD("weight_async_process: null disparity frame\n");
    return 1;
  }

  const int32_t A = e->WeightWidth;
  const int32_t B = e->WeightHeight;
  const int32_t C = e->DisparityWidth;
  const int32_t D = e->DisparityHeight;

  e->sel_x = pb::Clamp(params->sel_x, 0, A - 1);
  e->sel_y = pb::Clamp(params->sel_y, 0, B - 1);
  if (e->sel_x != params->sel_x || e->sel_y != params->sel_y) {
    PB_LOGD("focus point (%d,%d) outside the %dx%d weight map, clamped to (%d,%d)\n",
            params->sel_x, params->sel_y, A, B, e->sel_x, e->sel_y);
  }
  e->F_Index = static_cast<int32_t>(20u - static_cast<uint32_t>(params->F_number));
  e->Disparity = reinterpret_cast<const uint8_t *>(params->frame) + DISPARITY_FRAME_HEADER_BYTES;
  PB_LOGD("F_Index:%d,DisparityWidth/Height: %d/%d\n", e->F_Index, C, D);

  uint8_t rangeTable[256];
  pb::BuildRangeTable(params->frame, rangeTable);
  const int32_t n = C * D;
  const pb::KernelTable &kernels = pb::Kernels();
  kernels.disparity.apply_range(e->Disparity, e->RangedDisparity, n, rangeTable);

  const int32_t h = e->DisparityWinSize / 2;
  kernels.smooth.luma(e->RangedDisparity, e->ExpandDisparity, e->SmoothDisparity, C, D,
                      e->SmoothKernel, h, h, reinterpret_cast<uint8_t *>(e->TempimDisparity), 0,
                      D - 1);
  // The absolute clock reading, not a duration.
  PB_LOGD("Weight Boxfilter: %.3f ms\n", pb::MonotonicSeconds() * 1000.0);

  // Diagnostic only: the trimmed range is logged, not used.
  uint8_t minValue = 0;
  uint8_t maxValue = 0;
  kernels.disparity.min_max(e->SmoothDisparity, n, &minValue, &maxValue);
  pb::DisparityHistogramRange(e->SmoothDisparity, e->Histogram, n, e->HistMinNumberRatio,
                              e->HistMinRange, &minValue, &maxValue);

  if (e->F_Index >= 0 && e->F_Index < pb::kWeightGainTableSize) {
    e->Gain = pb::WeightGainTable[e->F_Index];
  } else {
    PB_LOGD("F_number %d outside 1..20, unity gain used\n", params->F_number);
    e->Gain = pb::kUnityGain;
  }
  e->BandScale = pb::kBandScale;

  kernels.weight.compute(A, B, e->sel_x, e->sel_y, 0, B - 1, weight_map, C, D, e->BandScale,
                         static_cast<uint8_t>(e->Gain), e->SmoothDisparity);
  return 0;
}

extern "C" PREVIEWBOKEH_EXPORT int weight_deinit(WeightContext *context) {
  if (!context) {
    PB_LOGD("weight_deinit: null context\n");
    return 0;
  }
  WeightEngine *e = pb::EngineOf(context);
  if (!e) {
    PB_LOGD("weight_deinit: no engine\n");
    return 0;
  }
  pb::Free(e->SmoothKernel);
  e->SmoothKernel = nullptr;
  pb::Free(e->WeightMap);
  e->WeightMap = nullptr;
  pb::Free(e->RangedDisparity);
  e->RangedDisparity = nullptr;
  pb::Free(e->ExpandDisparity);
  e->ExpandDisparity = nullptr;
  pb::Free(e->TempimDisparity);
  e->TempimDisparity = nullptr;
  pb::Free(e->SmoothDisparity);
  e->SmoothDisparity = nullptr;
  pb::Free(e);
  return 0;
}
