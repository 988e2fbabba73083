#include "platform/alloc.h"

#include <atomic>
#include <cstdlib>

#include "platform/test_hooks.h"

namespace pb {
namespace {

std::atomic<long> g_allocations{0};
std::atomic<long> g_fail_at{0};  // allocation number that fails; 0 = none
std::atomic<long> g_live{0};     // successful allocations not yet freed

bool ShouldFail() {
  const long n = g_allocations.fetch_add(1, std::memory_order_relaxed) + 1;
  long target = g_fail_at.load(std::memory_order_relaxed);
  return target != 0 && n == target &&
         g_fail_at.compare_exchange_strong(target, 0, std::memory_order_relaxed);
}

void *Counted(void *p) {
  if (p) g_live.fetch_add(1, std::memory_order_relaxed);
  return p;
}

}  // namespace

void *Malloc(size_t size) { return ShouldFail() ? nullptr : Counted(std::malloc(size)); }

void *Calloc(size_t count, size_t size) {
  return ShouldFail() ? nullptr : Counted(std::calloc(count, size));
}

void Free(void *ptr) {
  if (ptr) g_live.fetch_sub(1, std::memory_order_relaxed);
  std::free(ptr);
}

namespace hooks {

void FailAllocation(long nth) {
  g_fail_at.store(nth > 0 ? g_allocations.load() + nth : 0);
}

long AllocationCount() { return g_allocations.load(); }

long LiveAllocationCount() { return g_live.load(); }

}  // namespace hooks
}  // namespace pb
