// Downscale kernels: reduce a plane by N (2, 4, 6, 8) in two separately
// rounded passes (horizontal into xinterp, then vertical into dst):
// Downscale{Luma,Chroma}{2,4,6,8}_{C,NEON}, signature DownscaleKernel
// (simd/kernel_table.h).
#ifndef PREVIEWBOKEH_SCALE_DOWNSCALE_H_
#define PREVIEWBOKEH_SCALE_DOWNSCALE_H_

#include <cstdint>

#include "simd/kernel_table.h"

namespace pb {

//   src        full-resolution plane, stride width bytes
//   dst        reduced plane, stride lowWidth, rows lowRowFirst..lowRowLast written
//   xinterp    horizontal-pass scratch, full-resolution row y at y * lowWidth

}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_DOWNSCALE_H_
