// Composite kernels: mix the sharp source with a blurred image under the
// 16-bit weight map and the frame's alpha (128 = unity):
//   w = (m * alpha + 64) >> 7;  out = (w * b + (1024 - w) * s + 512) >> 10
// All ten composites share one signature, ComposeKernel (simd/kernel_table.h).
#ifndef PREVIEWBOKEH_SCALE_COMPOSE_H_
#define PREVIEWBOKEH_SCALE_COMPOSE_H_

#include <cstdint>

#include "simd/kernel_table.h"

namespace pb {

//   src      sharp plane (Y, or interleaved UV), stride width bytes
//   width    luma width; also the stride of every plane and the UV row length in bytes
//   height   rows of the plane (luma: frame height, chroma: half of it)
//   lowWidth, lowHeight  size of the reduced blurred image (unused at full resolution)
//   weight   weight map at luma resolution, stride width elements
//   blurred  blurred plane (full resolution, or reduced: stride lowWidth)
//   dst      destination plane, stride width; only rows rowFirst..rowLast are written
//
// Full resolution, ComposeLuma_C / _NEON and ComposeChroma_C / _NEON. Vector steps (8 luma pixels, 16 chroma bytes) use unsigned
// 16-bit lane arithmetic; the per-sample tail uses signed 32-bit arithmetic.
// The two agree for weight * alpha <= 131135 and differ beyond, as required.
// The chroma weight of pair k of UV row yc is weight[2*yc*width + 2*k].

//
// Reduced resolution, UpscaleCompose{Luma,Chroma}{2,4,6,8}_{C,NEON}:
// interpolate the reduced blurred image back up and mix.

}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_COMPOSE_H_
