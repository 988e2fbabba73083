// Frames allocate nothing anywhere in the process: from the first frame of a
// handle on, iBokehCreateWeightMap + iBokehBlurImage (dumps off) at
// 1920x1080, full-resolution and reduced, make no heap allocation on any
// thread (the caller's and the pool's workers), library allocator or not.
//
// This binary replaces the global operator new and delete, and, in plain
// builds, also interposes malloc and its relatives (forwarding to glibc's
// allocator): then every allocation is counted once, in malloc, including
// those made inside libc and libstdc++. Under AddressSanitizer or
// ThreadSanitizer the sanitizer owns malloc and cannot be interposed from
// here: there operator new and the library's own allocator
// (pb::hooks::AllocationCount) are counted, and allocations libc makes
// internally are not seen.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <malloc.h>

#include "platform/alloc.h"
#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "support/assist.h"
#include "support/bokeh.h"
#include "support/frames.h"
#include "support/logs.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PB_COUNT_MALLOC 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define PB_COUNT_MALLOC 0
#endif
#endif
#ifndef PB_COUNT_MALLOC
#define PB_COUNT_MALLOC 1
#endif

namespace {

std::atomic<bool> g_counting{false};
std::atomic<long> g_allocations{0};

void Count() {
  if (g_counting.load(std::memory_order_relaxed)) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
  }
}

// Counted here only when malloc is not: operator new allocates through it.
void CountNew() {
  if (!PB_COUNT_MALLOC) Count();
}

void *New(size_t size) {
  CountNew();
  void *p = std::malloc(size ? size : 1);
  if (!p) throw std::bad_alloc();
  return p;
}

void *NewAligned(size_t size, std::align_val_t align) {
  CountNew();
  void *p = nullptr;
  const size_t alignment = std::max(static_cast<size_t>(align), sizeof(void *));
  if (posix_memalign(&p, alignment, size ? size : 1) != 0) throw std::bad_alloc();
  return p;
}

template <typename Fn, typename... Args>
void *NoThrow(Fn fn, Args... args) noexcept {
  try {
    return fn(args...);
  } catch (...) {
    return nullptr;
  }
}

// Allocations in the process while fn runs, library allocator included (in
// plain builds its calls reach malloc and are counted there).
template <typename Fn>
long AllocationsDuring(Fn fn) {
  const long library0 = pb::hooks::AllocationCount();
  g_allocations.store(0);
  g_counting.store(true);
  fn();
  g_counting.store(false);
  const long library = PB_COUNT_MALLOC ? 0 : pb::hooks::AllocationCount() - library0;
  return g_allocations.load() + library;
}

}  // namespace

void *operator new(size_t size) { return New(size); }
void *operator new[](size_t size) { return New(size); }
void *operator new(size_t size, const std::nothrow_t &) noexcept { return NoThrow(New, size); }
void *operator new[](size_t size, const std::nothrow_t &) noexcept { return NoThrow(New, size); }
void *operator new(size_t size, std::align_val_t align) { return NewAligned(size, align); }
void *operator new[](size_t size, std::align_val_t align) { return NewAligned(size, align); }
void *operator new(size_t size, std::align_val_t align, const std::nothrow_t &) noexcept {
  return NoThrow(NewAligned, size, align);
}
void *operator new[](size_t size, std::align_val_t align, const std::nothrow_t &) noexcept {
  return NoThrow(NewAligned, size, align);
}
void operator delete(void *p) noexcept { std::free(p); }
void operator delete[](void *p) noexcept { std::free(p); }
void operator delete(void *p, size_t) noexcept { std::free(p); }
void operator delete[](void *p, size_t) noexcept { std::free(p); }
void operator delete(void *p, const std::nothrow_t &) noexcept { std::free(p); }
void operator delete[](void *p, const std::nothrow_t &) noexcept { std::free(p); }
void operator delete(void *p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void *p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void *p, size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void *p, size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete(void *p, std::align_val_t, const std::nothrow_t &) noexcept { std::free(p); }
void operator delete[](void *p, std::align_val_t, const std::nothrow_t &) noexcept {
  std::free(p);
}

#if PB_COUNT_MALLOC
// glibc lets a program replace malloc and its relatives; every caller in the
// process, libc itself included, then comes here. These forward to glibc's
// own allocator, so memory from either side can be freed by the other.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *p, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *p);

void *malloc(size_t size) {
  Count();
  return __libc_malloc(size);
}
void *calloc(size_t count, size_t size) {
  Count();
  return __libc_calloc(count, size);
}
void *realloc(void *p, size_t size) {
  Count();
  return __libc_realloc(p, size);
}
void free(void *p) { __libc_free(p); }
void *memalign(size_t alignment, size_t size) {
  Count();
  return __libc_memalign(alignment, size);
}
void *aligned_alloc(size_t alignment, size_t size) {
  Count();
  return __libc_memalign(alignment, size);
}
int posix_memalign(void **out, size_t alignment, size_t size) {
  Count();
  if (alignment % sizeof(void *) != 0 || (alignment & (alignment - 1)) != 0) return EINVAL;
  void *p = __libc_memalign(alignment, size);
  if (!p) return ENOMEM;
  *out = p;
  return 0;
}
}
#endif

namespace {

// The counter itself: each kind of allocation the frames could make is seen,
// once.
TEST(ProcessAllocations, CountsEveryKind) {
  struct Kind {
    const char *name;
    void (*make)();
  };
  const Kind kinds[] = {
      {"new", [] { delete new volatile int(1); }},
      {"new[]", [] { delete[] new volatile char[3]; }},
      {"aligned new", [] { delete new std::aligned_storage_t<64, 64>; }},
      {"std::string", [] { std::string s(100, 'x'); }},
      {"library allocator", [] { pb::Free(pb::Malloc(16)); }},
#if PB_COUNT_MALLOC
      {"malloc", [] { std::free(std::malloc(24)); }},
      {"strdup (inside libc)", [] { std::free(strdup("inside libc")); }},
#endif
  };
  for (const Kind &k : kinds) {
    EXPECT_EQ(AllocationsDuring(k.make), 1) << k.name;
  }
}

// At full resolution and on the reduced path.
class Frames : public testing::TestWithParam<int> {};

TEST_P(Frames, AllocateNothingInTheProcess) {
  constexpr int kWidth = 1920, kHeight = 1080;
  // Dumps off whatever the environment says.
  unsetenv("PERSIST_VENDOR_CAM_PREBOKEH_SAVE");
  pb::hooks::ResetProperties();
  pbtest::Bokeh bokeh(kWidth, kHeight, std::to_string(GetParam()));
  ASSERT_EQ(bokeh.status, 0);
  ASSERT_EQ(pbtest::RatioFromInitLog(bokeh.log), GetParam());

  pbtest::GraphicFrame src(kWidth, kHeight), dst(kWidth, kHeight);
  const auto pixels = pbtest::RandomBytes(src.size(), 5);
  std::memcpy(src.data(), pixels.data(), src.size());
  const auto weights = pbtest::RandomWeights(static_cast<size_t>(kWidth) * kHeight, 9, 1024);
  // From the handle's first frame on (ctest runs each case in a process of its
  // own, so this is also the process's first frame): out of place, level 20
  // (source copy), and in place.
  const struct { int f_number; bool in_place; } frames[] = {{2, false}, {0, false}, {8, true}, {2, false}};
  for (const auto &f : frames) {
    int status = -1;
    const pbtest::GraphicFrame &out = f.in_place ? src : dst;
    EXPECT_EQ(AllocationsDuring([&] { status = bokeh.Blur(f.f_number, weights.data(), src, out); }), 0)
        << "F" << f.f_number;
    EXPECT_EQ(status, 0) << "F" << f.f_number;
  }
}

INSTANTIATE_TEST_SUITE_P(Ratios, Frames, testing::Values(1, 4));

}  // namespace
