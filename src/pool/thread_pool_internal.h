// Test seams of the worker pool, reachable through the internal static library
// only (the shared library exports none of them).
#ifndef PREVIEWBOKEH_POOL_THREAD_POOL_INTERNAL_H_
#define PREVIEWBOKEH_POOL_THREAD_POOL_INTERNAL_H_

#include <cstdint>

namespace pb {
namespace hooks {

// From now on, creating pool thread i fails with `error` (no thread is
// started) for every bit i set in index_mask. A mask of 0 disarms.
void FailThreadCreate(uint32_t index_mask, int error);

// From now on, joining pool thread i reports `error` for every bit i set in
// index_mask. The thread is still joined for real first, so nothing is left
// running. A mask of 0 disarms.
void FailThreadJoin(uint32_t index_mask, int error);

// From now on, PoolDestroy calls fn(arg) once it has told the workers to stop
// and before it joins them. A null fn disarms.
void OnPoolShutdown(void (*fn)(void *), void *arg);

}  // namespace hooks
}  // namespace pb

#endif  // PREVIEWBOKEH_POOL_THREAD_POOL_INTERNAL_H_
