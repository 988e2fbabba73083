// Run-time choice between the vector smoothing and its scalar reference.
#include "blur/smooth.h"
#include "blur/smooth_internal.h"
#include "simd/dispatch.h"

namespace pb {

SmoothFn SmoothLumaKernel() { return ScalarKernelsInUse() ? SmoothLuma_C : SmoothLuma_NEON; }

SmoothFn SmoothChromaKernel() {
  return ScalarKernelsInUse() ? SmoothChroma_C : SmoothChroma_NEON;
}

SmoothComposeFn SmoothComposeLumaKernel() {
  return ScalarKernelsInUse() ? nullptr : SmoothComposeLuma_NEON;
}

SmoothComposeFn SmoothComposeChromaKernel() {
  return ScalarKernelsInUse() ? nullptr : SmoothComposeChroma_NEON;
}

}  // namespace pb
