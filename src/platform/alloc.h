// Heap allocation of the library. Every allocation goes through here so that
// tests can make a chosen one fail (see test_hooks.h).
#ifndef PREVIEWBOKEH_PLATFORM_ALLOC_H_
#define PREVIEWBOKEH_PLATFORM_ALLOC_H_

#include <cstddef>

namespace pb {

void *Malloc(size_t size);
void *Calloc(size_t count, size_t size);  // zero-filled
void Free(void *ptr);

}  // namespace pb

#endif  // PREVIEWBOKEH_PLATFORM_ALLOC_H_
