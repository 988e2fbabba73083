#include "scale/kernel_table.h"

#include "simd/dispatch.h"

namespace pb {
namespace {

// Index = scaling ratio. A null downscale marks the full-resolution path.
// clang-format off
const RatioKernels kScalar[9] = {
  /* 0 */ {nullptr, nullptr, ComposeLuma_C, ComposeChroma_C},
  /* 1 */ {nullptr, nullptr, ComposeLuma_C, ComposeChroma_C},
  /* 2 */ {DownscaleLuma2_C, DownscaleChroma2_C, UpscaleComposeLuma2_C, UpscaleComposeChroma2_C},
  /* 3 */ {nullptr, nullptr, ComposeLuma_C, ComposeChroma_C},
  /* 4 */ {DownscaleLuma4_C, DownscaleChroma4_C, UpscaleComposeLuma4_C, UpscaleComposeChroma4_C},
  /* 5 */ {nullptr, nullptr, ComposeLuma_C, ComposeChroma_C},
  /* 6 */ {DownscaleLuma6_C, DownscaleChroma6_C, UpscaleComposeLuma6_C, UpscaleComposeChroma6_C},
  /* 7 */ {nullptr, nullptr, ComposeLuma_C, ComposeChroma_C},
  /* 8 */ {DownscaleLuma8_C, DownscaleChroma8_C, UpscaleComposeLuma8_C, UpscaleComposeChroma8_C},
};
const RatioKernels kVector[9] = {
  /* 0 */ {nullptr, nullptr, ComposeLuma_NEON, ComposeChroma_NEON},
  /* 1 */ {nullptr, nullptr, ComposeLuma_NEON, ComposeChroma_NEON},
  /* 2 */ {DownscaleLuma2_NEON, DownscaleChroma2_NEON, UpscaleComposeLuma2_NEON, UpscaleComposeChroma2_NEON},
  /* 3 */ {nullptr, nullptr, ComposeLuma_NEON, ComposeChroma_NEON},
  /* 4 */ {DownscaleLuma4_NEON, DownscaleChroma4_NEON, UpscaleComposeLuma4_NEON, UpscaleComposeChroma4_NEON},
  /* 5 */ {nullptr, nullptr, ComposeLuma_NEON, ComposeChroma_NEON},
  /* 6 */ {DownscaleLuma6_NEON, DownscaleChroma6_NEON, UpscaleComposeLuma6_NEON, UpscaleComposeChroma6_NEON},
  /* 7 */ {nullptr, nullptr, ComposeLuma_NEON, ComposeChroma_NEON},
  /* 8 */ {DownscaleLuma8_NEON, DownscaleChroma8_NEON, UpscaleComposeLuma8_NEON, UpscaleComposeChroma8_NEON},
};
// clang-format on

}  // namespace

const RatioKernels &KernelsForRatio(int ratio, bool scalar) {
  const RatioKernels *table = scalar ? kScalar : kVector;
  return (ratio >= 0 && ratio <= 8) ? table[ratio] : table[1];
}

const RatioKernels &KernelsForRatio(int ratio) {
  return KernelsForRatio(ratio, ScalarKernelsInUse());
}

}  // namespace pb
