// Composite kernels: mix the sharp source with a blurred image under the
// 16-bit weight map and the frame's alpha (128 = unity):
//   w = (m * alpha + 64) >> 7;  out = (w * b + (1024 - w) * s + 512) >> 10
// All ten composites share one signature so that the strip tasks can pick
// them from one table by scaling ratio (kernel_table.h).
#ifndef PREVIEWBOKEH_SCALE_COMPOSE_H_
#define PREVIEWBOKEH_SCALE_COMPOSE_H_

#include <cstdint>

namespace pb {

//   src      sharp plane (Y, or interleaved UV), stride width bytes
//   width    luma width; also the stride of every plane and the UV row length in bytes
//   height   rows of the plane (luma: frame height, chroma: half of it)
//   lowWidth, lowHeight  size of the reduced blurred image (unused at full resolution)
//   weight   weight map at luma resolution, stride width elements
//   blurred  blurred plane (full resolution, or reduced: stride lowWidth)
//   dst      destination plane, stride width; only rows rowFirst..rowLast are written
using ComposeKernel = void (*)(const uint8_t *src, int32_t width, int32_t height,
                               int32_t lowWidth, int32_t lowHeight, const uint16_t *weight,
                               const uint8_t *blurred, uint8_t *dst, int32_t rowFirst,
                               int32_t rowLast, uint8_t alpha);

#define PB_COMPOSE_KERNEL(name)                                                       \
  void name(const uint8_t *src, int32_t width, int32_t height, int32_t lowWidth,      \
            int32_t lowHeight, const uint16_t *weight, const uint8_t *blurred,        \
            uint8_t *dst, int32_t rowFirst, int32_t rowLast, uint8_t alpha)

// Full resolution. Vector steps (8 luma pixels, 16 chroma bytes) use unsigned
// 16-bit lane arithmetic; the per-sample tail uses signed 32-bit arithmetic.
// The two agree for weight * alpha <= 131135 and differ beyond, as required.
// The chroma weight of pair k of UV row yc is weight[2*yc*width + 2*k].
PB_COMPOSE_KERNEL(ComposeLuma_C);
PB_COMPOSE_KERNEL(ComposeLuma_NEON);
PB_COMPOSE_KERNEL(ComposeChroma_C);
PB_COMPOSE_KERNEL(ComposeChroma_NEON);

// Reduced resolution: interpolate the reduced blurred image back up and mix.
PB_COMPOSE_KERNEL(UpscaleComposeLuma2_C);
PB_COMPOSE_KERNEL(UpscaleComposeLuma4_C);
PB_COMPOSE_KERNEL(UpscaleComposeLuma6_C);
PB_COMPOSE_KERNEL(UpscaleComposeLuma8_C);
PB_COMPOSE_KERNEL(UpscaleComposeChroma2_C);
PB_COMPOSE_KERNEL(UpscaleComposeChroma4_C);
PB_COMPOSE_KERNEL(UpscaleComposeChroma6_C);
PB_COMPOSE_KERNEL(UpscaleComposeChroma8_C);
PB_COMPOSE_KERNEL(UpscaleComposeLuma2_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeLuma4_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeLuma6_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeLuma8_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeChroma2_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeChroma4_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeChroma6_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeChroma8_NEON);

}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_COMPOSE_H_
