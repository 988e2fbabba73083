// Which kernels a strip task runs at each working scaling ratio.
#ifndef PREVIEWBOKEH_SCALE_KERNEL_TABLE_H_
#define PREVIEWBOKEH_SCALE_KERNEL_TABLE_H_

#include "scale/compose.h"
#include "scale/downscale.h"

namespace pb {

struct RatioKernels {
  DownscaleKernel downscale_luma;    // null on the full-resolution path
  DownscaleKernel downscale_chroma;  // null on the full-resolution path
  ComposeKernel compose_luma;
  ComposeKernel compose_chroma;
};

// Kernels for `ratio` in the implementation in use (vector unless scalar
// kernels are forced). Every ratio other than 2, 4, 6 and 8 takes the
// full-resolution entry.
const RatioKernels &KernelsForRatio(int ratio);

// The same table for an explicit implementation (tests, benchmarks).
const RatioKernels &KernelsForRatio(int ratio, bool scalar);

}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_KERNEL_TABLE_H_
