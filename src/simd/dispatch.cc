#include "simd/dispatch.h"

#include <atomic>

namespace pb {
namespace {
#if defined(PREVIEWBOKEH_SCALAR_ONLY)
constexpr bool kScalarOnly = true;
#else
constexpr bool kScalarOnly = false;
#endif
std::atomic<bool> g_scalar{kScalarOnly};
}  // namespace

void UseScalarKernels(bool scalar) { g_scalar.store(kScalarOnly || scalar, std::memory_order_relaxed); }

bool ScalarKernelsInUse() { return g_scalar.load(std::memory_order_relaxed); }

}  // namespace pb
