// Downscale kernels: reduce a plane by N (2, 4, 6, 8) in two separately
// rounded passes (horizontal into xinterp, then vertical into dst).
#ifndef PREVIEWBOKEH_SCALE_DOWNSCALE_H_
#define PREVIEWBOKEH_SCALE_DOWNSCALE_H_

#include <cstdint>

namespace pb {

//   src        full-resolution plane, stride width bytes
//   dst        reduced plane, stride lowWidth, rows lowRowFirst..lowRowLast written
//   xinterp    horizontal-pass scratch, full-resolution row y at y * lowWidth
using DownscaleKernel = void (*)(const uint8_t *src, uint8_t *dst, uint8_t *xinterp,
                                 int32_t width, int32_t height, int32_t lowWidth,
                                 int32_t lowHeight, int32_t lowRowFirst, int32_t lowRowLast);

#define PB_DOWNSCALE_KERNEL(name)                                                     \
  void name(const uint8_t *src, uint8_t *dst, uint8_t *xinterp, int32_t width,        \
            int32_t height, int32_t lowWidth, int32_t lowHeight, int32_t lowRowFirst, \
            int32_t lowRowLast)

PB_DOWNSCALE_KERNEL(DownscaleLuma2_C);
PB_DOWNSCALE_KERNEL(DownscaleLuma4_C);
PB_DOWNSCALE_KERNEL(DownscaleLuma6_C);
PB_DOWNSCALE_KERNEL(DownscaleLuma8_C);
PB_DOWNSCALE_KERNEL(DownscaleChroma2_C);
PB_DOWNSCALE_KERNEL(DownscaleChroma4_C);
PB_DOWNSCALE_KERNEL(DownscaleChroma6_C);
PB_DOWNSCALE_KERNEL(DownscaleChroma8_C);
PB_DOWNSCALE_KERNEL(DownscaleLuma2_NEON);
PB_DOWNSCALE_KERNEL(DownscaleLuma4_NEON);
PB_DOWNSCALE_KERNEL(DownscaleLuma6_NEON);
PB_DOWNSCALE_KERNEL(DownscaleLuma8_NEON);
PB_DOWNSCALE_KERNEL(DownscaleChroma2_NEON);
PB_DOWNSCALE_KERNEL(DownscaleChroma4_NEON);
PB_DOWNSCALE_KERNEL(DownscaleChroma6_NEON);
PB_DOWNSCALE_KERNEL(DownscaleChroma8_NEON);

}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_DOWNSCALE_H_
