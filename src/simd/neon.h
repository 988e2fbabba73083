// NEON intrinsics: native on Arm; on other hosts the same source compiles
// through SIMDe's portable translation (host builds only).
#ifndef PREVIEWBOKEH_SIMD_NEON_H_
#define PREVIEWBOKEH_SIMD_NEON_H_

#if defined(__ARM_NEON) || defined(__aarch64__)
#include <arm_neon.h>
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#endif

#endif  // PREVIEWBOKEH_SIMD_NEON_H_
