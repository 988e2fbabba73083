// Independent handles and weight engines used from their own caller threads at
// the same time give exactly the bytes of the same calls made one after
// another: nothing is shared between handles (or engines) beyond what is
// meant to be. The serial reference run also checks the heap use of
// steady-state frames. Run under ThreadSanitizer this also checks the pool, the strip
// tasks and the kernels of four handles (eight workers) for data races.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "previewbokeh/weight.h"
#include "simd/kernel_table.h"
#include "support/assist.h"
#include "support/bokeh.h"
#include "support/frames.h"
#include "support/logs.h"

namespace {

constexpr int kFrames = 100;
constexpr int kWorkers = 4;

struct Config {
  int width, height;
  int ratio;  // asked through the property before the handle is created
  uint32_t seed;
};

struct ConfigSet {
  const char *name;
  Config configs[kWorkers];
};

uint64_t Fnv1a(const void *data, size_t n, uint64_t h = 1469598103934665603ull) {
  const auto *p = static_cast<const uint8_t *>(data);
  for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
  return h;
}

// A bokeh handle and a weight engine for one configuration, created on the
// test's main thread (the ratio property is process-wide and read at init).
struct Worker {
  Config config;
  std::unique_ptr<pbtest::Bokeh> bokeh;
  WeightContext weights{};
  int chosen_ratio = -1;
  std::vector<uint64_t> digests;  // one per frame: weight map and destination frame
};

void Create(Worker *w) {
  const Config &c = w->config;
  w->bokeh = std::make_unique<pbtest::Bokeh>(c.width, c.height, std::to_string(c.ratio));
  pb::hooks::StartLogCapture();  // back to the test's quiet capture
  ASSERT_EQ(w->bokeh->status, 0);
  w->chosen_ratio = pbtest::RatioFromInitLog(w->bokeh->log);
  const WeightInitParams wi{c.width, c.height, c.width / 4, c.height / 4, 0, 0, 0, 11};
  ASSERT_EQ(weight_init(&wi, &w->weights), 0);
}

void Destroy(Worker *w) {
  EXPECT_EQ(weight_deinit(&w->weights), 0);
  w->bokeh.reset();
}

// The frames of one worker: fresh disparity and source each frame, weight map
// from the engine, then the blur; every third frame in place. Run `alone`, a
// frame makes no library allocation (nothing lazily, nothing for the weight
// map, nothing for the pool's jobs) and holds none afterwards.
void RunFrames(Worker *w, bool alone) {
  const Config &c = w->config;
  const size_t frame_bytes = static_cast<size_t>(c.width) * c.height * 3 / 2;
  const size_t disparity_samples = static_cast<size_t>(c.width / 4) * (c.height / 4);
  pbtest::GraphicFrame src(c.width, c.height), dst(c.width, c.height);
  std::vector<uint16_t> map(static_cast<size_t>(c.width) * c.height);
  std::vector<uint8_t> disparity(DISPARITY_FRAME_HEADER_BYTES + disparity_samples);
  std::minstd_rand rng(c.seed);
  auto fill = [&rng](uint8_t *p, size_t n) {
    for (size_t i = 0; i < n; ++i) p[i] = static_cast<uint8_t>(rng() >> 8);
  };
  w->digests.clear();
  const long live0 = pb::hooks::LiveAllocationCount();
  for (int f = 0; f < kFrames; ++f) {
    const long count0 = pb::hooks::AllocationCount();
    fill(disparity.data() + DISPARITY_FRAME_HEADER_BYTES, disparity_samples);
    pbtest::SetDisparityHeader(disparity.data(), static_cast<int32_t>(100 + rng() % 600) << 19,
                               1 << 19, static_cast<uint16_t>(c.width / 4));
    WeightProcessParams wp{};
    wp.F_number = 1 + f % 20;
    wp.sel_x = static_cast<int32_t>(rng() % static_cast<uint32_t>(c.width));
    wp.sel_y = static_cast<int32_t>(rng() % static_cast<uint32_t>(c.height));
    wp.frame = reinterpret_cast<const DisparityFrame *>(disparity.data());
    ASSERT_EQ(weight_async_process(&wp, &w->weights, map.data()), 0);

    fill(src.data(), frame_bytes);
    fill(dst.data(), frame_bytes);
    const bool in_place = f % 3 == 2;
    // F_number 0 (level 20) and 20 (off) among them.
    ASSERT_EQ(w->bokeh->Blur(f % 22, map.data(), src, in_place ? src : dst), 0);
    if (alone) {
      EXPECT_EQ(pb::hooks::AllocationCount() - count0, 0) << "frame " << f;
      EXPECT_EQ(pb::hooks::LiveAllocationCount() - live0, 0) << "frame " << f;
    }
    const uint8_t *out = in_place ? src.data() : dst.data();
    w->digests.push_back(Fnv1a(out, frame_bytes, Fnv1a(map.data(), map.size() * 2)));
  }
}

class ConcurrentHandles : public ::testing::TestWithParam<ConfigSet> {};

TEST_P(ConcurrentHandles, SameBytesAsOneAfterAnother) {
  pbtest::Assist();
  pbtest::LogCapture quiet;  // thousands of per-frame lines; not the subject here

  // Reference: each configuration alone, one after another.
  std::vector<Worker> serial(kWorkers), parallel(kWorkers);
  for (int i = 0; i < kWorkers; ++i) {
    serial[i].config = parallel[i].config = GetParam().configs[i];
    const long live = pb::hooks::LiveAllocationCount();
    Create(&serial[i]);
    RunFrames(&serial[i], true);
    Destroy(&serial[i]);
    EXPECT_EQ(pb::hooks::LiveAllocationCount(), live) << "handle or engine left memory";
  }
  // The same, all four at once, each from its own thread.
  for (auto &w : parallel) Create(&w);
  std::vector<std::thread> threads;
  for (auto &w : parallel) threads.emplace_back(RunFrames, &w, false);
  for (auto &t : threads) t.join();
  for (auto &w : parallel) Destroy(&w);
  quiet.Take();

  for (int i = 0; i < kWorkers; ++i) {
    const Config &c = parallel[i].config;
    SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " ratio " << c.ratio);
    const bool reduced = pb::ReducedKernelsFor(pb::Kernels(), c.ratio) != nullptr;
    EXPECT_EQ(parallel[i].chosen_ratio, reduced ? c.ratio : 1);
    EXPECT_EQ(serial[i].digests.size(), static_cast<size_t>(kFrames));
    EXPECT_EQ(parallel[i].digests, serial[i].digests);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sets, ConcurrentHandles,
    ::testing::Values(
        ConfigSet{"A", {{66, 34, 1, 11}, {64, 48, 2, 22}, {96, 64, 4, 33}, {128, 128, 8, 44}}},
        ConfigSet{"B", {{96, 96, 6, 55}, {50, 21, 1, 66}, {64, 32, 2, 77}, {64, 64, 4, 88}}}),
    [](const ::testing::TestParamInfo<ConfigSet> &info) { return std::string(info.param.name); });

}  // namespace
