// Run-time choice between the vector smoothing and its scalar reference.
#include "blur/smooth.h"
#include "simd/dispatch.h"

namespace pb {

SmoothFn SmoothLumaKernel() { return ScalarKernelsInUse() ? SmoothLuma_C : SmoothLuma_NEON; }

SmoothFn SmoothChromaKernel() {
  return ScalarKernelsInUse() ? SmoothChroma_C : SmoothChroma_NEON;
}

}  // namespace pb
