#include "blur/strip_task.h"

#include <algorithm>
#include <cstring>

#include "blur/smooth.h"
#include "simd/kernel_table.h"

namespace pb {
namespace {

// One plane's kernels: the fused smoothing and composite of the
// full-resolution path, and the smoothing and reduced-path kernels (null
// downscale when the ratio has no reduced path).
struct PlaneKernels {
  SmoothComposeFn fused;
  SmoothFn smooth;
  DownscaleKernel downscale;
  ComposeKernel compose;
};

void RunStrip(StripTaskArgs *a, const PlaneKernels &k) {
  const int32_t h = a->window_size / 2;
  if (a->first_row > a->last_row) return;
  if (k.downscale) {
    // Reduce the rows the smoothing will read (strip plus halo) into this
    // strip's private plane, publish the rows this strip owns in the shared
    // reduced image, smooth the strip's working rows, then upscale and mix.
    const int32_t lo = std::max(0, a->low_first_row - h);
    const int32_t hi = std::min(a->low_last_row + h, a->working_height - 1);
    k.downscale(a->src, a->reduced, a->xinterp, a->width, a->height, a->working_width,
                a->working_height, lo, hi);
    const int32_t own_lo = std::max(lo, a->owned_low_first);
    const int32_t own_hi = std::min(hi, a->owned_low_last);
    if (own_lo <= own_hi) {
      const size_t offset = static_cast<size_t>(own_lo) * a->working_width;
      std::memcpy(a->scaled + offset, a->reduced + offset,
                  static_cast<size_t>(own_hi - own_lo + 1) * a->working_width);
    }
    k.smooth(a->reduced, a->padded, a->smoothed, a->working_width, a->working_height, a->kernel,
             h, h, a->intermediate, a->low_first_row, a->low_last_row);
    k.compose(a->src, a->width, a->height, a->working_width, a->working_height, a->weight_map,
              a->smoothed, a->dst, a->first_row, a->last_row, a->alpha);
  } else {
    // Full resolution: the strip's own rows are smoothed and mixed into the
    // destination.
    k.fused(a->src, a->padded, a->smoothed, a->width, a->height, a->kernel, h, h,
            a->intermediate, a->first_row, a->last_row, a->weight_map, a->alpha, a->dst);
  }
}

}  // namespace

void *LumaStripTask(void *arg) {
  auto *a = static_cast<StripTaskArgs *>(arg);
  const KernelTable &t = Kernels();
  const ReducedKernels *r = ReducedKernelsFor(t, a->ratio);
  RunStrip(a, PlaneKernels{t.smooth_compose.luma, t.smooth.luma, r ? r->downscale_luma : nullptr,
                           r ? r->compose_luma : nullptr});
  return nullptr;
}

void *ChromaStripTask(void *arg) {
  auto *a = static_cast<StripTaskArgs *>(arg);
  const KernelTable &t = Kernels();
  const ReducedKernels *r = ReducedKernelsFor(t, a->ratio);
  RunStrip(a, PlaneKernels{t.smooth_compose.chroma, t.smooth.chroma,
                           r ? r->downscale_chroma : nullptr, r ? r->compose_chroma : nullptr});
  return nullptr;
}

}  // namespace pb
