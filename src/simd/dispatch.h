// Choice between the vector kernels and their scalar references. Builds with
// PREVIEWBOKEH_SCALAR_ONLY always use the scalar ones; otherwise tests and
// benchmarks may switch at run time (between frames, not during one).
#ifndef PREVIEWBOKEH_SIMD_DISPATCH_H_
#define PREVIEWBOKEH_SIMD_DISPATCH_H_

namespace pb {

void UseScalarKernels(bool scalar);
bool ScalarKernelsInUse();

}  // namespace pb

#endif  // PREVIEWBOKEH_SIMD_DISPATCH_H_
