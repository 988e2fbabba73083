#include "blur/strip_task.h"

#include <algorithm>
#include <cstring>

#include "blur/smooth.h"
#include "scale/kernel_table.h"

namespace pb {
namespace {

// fused: the smoothing-and-composite kernel that stands for the pair
// (smooth, compose) on the full-resolution path, or null.
void RunStrip(StripTaskArgs *a, DownscaleKernel downscale, SmoothFn smooth,
              ComposeKernel compose, SmoothComposeFn fused) {
  const int32_t h = a->window_size / 2;
  if (a->first_row > a->last_row) return;
  if (downscale) {
    // Reduce the rows the smoothing will read (strip plus halo) into this
    // strip's private plane, publish the rows this strip owns in the shared
    // reduced image, smooth the strip's working rows, then upscale and mix.
    const int32_t lo = std::max(0, a->low_first_row - h);
    const int32_t hi = std::min(a->low_last_row + h, a->working_height - 1);
    downscale(a->src, a->reduced, a->xinterp, a->width, a->height, a->working_width,
              a->working_height, lo, hi);
    const int32_t own_lo = std::max(lo, a->owned_low_first);
    const int32_t own_hi = std::min(hi, a->owned_low_last);
    if (own_lo <= own_hi) {
      const size_t offset = static_cast<size_t>(own_lo) * a->working_width;
      std::memcpy(a->scaled + offset, a->reduced + offset,
                  static_cast<size_t>(own_hi - own_lo + 1) * a->working_width);
    }
    smooth(a->reduced, a->padded, a->smoothed, a->working_width, a->working_height, a->kernel,
           h, h, a->intermediate, a->low_first_row, a->low_last_row);
    compose(a->src, a->width, a->height, a->working_width, a->working_height, a->weight_map,
            a->smoothed, a->dst, a->first_row, a->last_row, a->alpha);
  } else if (fused) {
    // Full resolution: each smoothed row is mixed into the destination as
    // soon as it is made.
    fused(a->src, a->padded, a->smoothed, a->width, a->height, a->kernel, h, h,
          a->intermediate, a->first_row, a->last_row, a->weight_map, a->alpha, a->dst);
  } else {
    // Full resolution: the composite reads only the strip's own rows of the
    // smoothed plane, so the strip smooths exactly those.
    smooth(a->src, a->padded, a->smoothed, a->width, a->height, a->kernel, h, h,
           a->intermediate, a->first_row, a->last_row);
    compose(a->src, a->width, a->height, a->working_width, a->working_height, a->weight_map,
            a->smoothed, a->dst, a->first_row, a->last_row, a->alpha);
  }
}

}  // namespace

void *LumaStripTask(void *arg) {
  auto *a = static_cast<StripTaskArgs *>(arg);
  const RatioKernels &k = KernelsForRatio(a->ratio);
  RunStrip(a, k.downscale_luma, SmoothLumaKernel(), k.compose_luma, SmoothComposeLumaKernel());
  return nullptr;
}

void *ChromaStripTask(void *arg) {
  auto *a = static_cast<StripTaskArgs *>(arg);
  const RatioKernels &k = KernelsForRatio(a->ratio);
  RunStrip(a, k.downscale_chroma, SmoothChromaKernel(), k.compose_chroma,
           SmoothComposeChromaKernel());
  return nullptr;
}

}  // namespace pb
