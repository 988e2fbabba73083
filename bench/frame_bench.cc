// Whole frames through the public interface: iBokehBlurImage on host graphic
// buffers at 1920x1080 and 1280x720, at ratio 1 and at every reduced ratio
// the library honours, with the vector kernels and (1920x1080, ratio 1) with
// the scalar references. Beside them, the memory floor of a frame: one pass on
// the same two-thread pool that reads the source frame and the weight map and
// writes the destination frame (a weight maximum and a copy).
//
// All frame benchmarks of one size share the same buffers. Times are wall
// clock (the caller waits for the workers). Counter "ms" is the time per
// frame; the last benchmark, FrameSummary, prints frame/floor and
// vector/scalar ratios of the runs made before it in the same process.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "host_assist_client.h"
#include "init_log.h"
#include "platform/property.h"
#include "platform/test_hooks.h"
#include "pool/thread_pool.h"
#include "previewbokeh/bokeh.h"
#include "simd/kernel_table.h"

namespace {

using pbassist::Assist;

// Source and destination graphic buffers and a weight map of one frame size,
// made once per process and shared by every benchmark of that size.
struct FrameBuffers {
  int width, height;
  void *src, *dst;
  std::vector<uint16_t> weights;

  FrameBuffers(int w, int h) : width(w), height(h) {
    const size_t bytes = static_cast<size_t>(w) * h * 3 / 2;
    src = Assist().create(static_cast<uint32_t>(w), static_cast<uint32_t>(h),
                          static_cast<uint32_t>(bytes));
    dst = Assist().create(static_cast<uint32_t>(w), static_cast<uint32_t>(h),
                          static_cast<uint32_t>(bytes));
    if (!src || !dst) std::abort();
    // A camera-like frame: gradients plus noise; weights growing away from a
    // sharp centre, as a depth map gives them.
    std::mt19937 rng(7);
    uint8_t *p = static_cast<uint8_t *>(Assist().pointer(src));
    for (size_t i = 0; i < bytes; ++i) {
      p[i] = static_cast<uint8_t>((i / 5 + (i / static_cast<size_t>(w)) / 3 + rng() % 32) & 255);
    }
    weights.resize(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        const int d = std::abs(x - w / 2) + std::abs(y - h / 2);
        weights[static_cast<size_t>(y) * w + x] = static_cast<uint16_t>(std::min(1024, d * 2));
      }
    }
  }
  uint8_t *src_data() const { return static_cast<uint8_t *>(Assist().pointer(src)); }
  uint8_t *dst_data() const { return static_cast<uint8_t *>(Assist().pointer(dst)); }
};

FrameBuffers &Buffers(int width, int height) {
  static std::map<std::pair<int, int>, std::unique_ptr<FrameBuffers>> all;
  auto &slot = all[{width, height}];
  if (!slot) slot = std::make_unique<FrameBuffers>(width, height);
  return *slot;
}

// Milliseconds per frame of the runs so far, by benchmark label.
std::map<std::string, double> &Results() {
  static std::map<std::string, double> results;
  return results;
}

std::string Label(int width, int height, const char *what) {
  return std::to_string(width) + "x" + std::to_string(height) + " " + what;
}

// CPU seconds of the whole process (every thread) so far.
double ProcessCpuSeconds() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
         static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) * 1e-6;
}

// Runs the benchmark loop around `one` and records wall ms per frame under
// `label` (counter "ms"), and the CPU ms of all threads per frame (counter
// "cpu_ms": less sensitive to other load on the machine than wall time).
template <typename Fn>
void TimeFrames(benchmark::State &state, const std::string &label, Fn one) {
  const double cpu0 = ProcessCpuSeconds();
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    one();
    benchmark::ClobberMemory();
  }
  const double n = static_cast<double>(state.iterations());
  const double ms =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count() / n;
  const double cpu_ms = (ProcessCpuSeconds() - cpu0) * 1000.0 / n;
  state.counters["ms"] = ms;
  state.counters["cpu_ms"] = cpu_ms;
  Results()[label] = ms;
  Results()[label + " cpu"] = cpu_ms;
}

void BM_Frame(benchmark::State &state, int width, int height, int ratio, bool scalar) {
  FrameBuffers &b = Buffers(width, height);
  pb::SetProperty("persist.vendor.cam.prebokeh_ratio", std::to_string(ratio).c_str());
  BokehInitParams ip{};
  ip.width = width;
  ip.height = height;
  void *handle = nullptr;
  pb::hooks::StartLogCapture();
  const int status = iBokehInit(&handle, &ip);
  const int chosen = pbbench::RatioFromInitLog(pb::hooks::StopLogCapture());
  pb::hooks::ResetProperties();
  if (status != 0) {
    state.SkipWithError("iBokehInit failed");
    return;
  }
  if (chosen != ratio) {
    pb::hooks::StartLogCapture();
    iBokehDeinit(handle);
    pb::hooks::StopLogCapture();
    state.SkipWithError("ratio not available");
    return;
  }
  BokehFrameParams fp{};
  fp.F_number = 2;  // strongest blur (alpha 128)
  fp.sel_x = width / 2;
  fp.sel_y = height / 2;
  fp.WeightMap = b.weights.data();
  pb::hooks::StartLogCapture();  // per-frame log lines stay off the output
  iBokehCreateWeightMap(handle, &fp);
  pb::UseScalarKernels(scalar);
  std::string what = "ratio " + std::to_string(ratio);
  if (scalar) what += " scalar";
  TimeFrames(state, Label(width, height, what.c_str()), [&] {
    iBokehBlurImage(handle, b.src, b.dst);
    pb::hooks::StopLogCapture();
    pb::hooks::StartLogCapture();
  });
  pb::UseScalarKernels(false);
  iBokehDeinit(handle);
  pb::hooks::StopLogCapture();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * width * height * 3 / 2);
}

// The memory floor: the frame's four strips (2 luma, 2 chroma) on a pool of
// 2 threads, as a frame runs them, each reading its source rows (luma: and
// the weight map rows) and writing its destination rows once.
struct FloorStrip {
  const uint8_t *src;
  const uint16_t *weights;  // luma strips only
  uint8_t *dst;
  size_t bytes;
  uint16_t peak;  // largest weight read, so the reads cannot be dropped
};

// The least any frame must do with memory: read the strip's weights (a
// maximum, which the compiler vectorises), read its source bytes and write
// its destination bytes (a copy at the speed of the C library's memcpy).
void *FloorTask(void *arg) {
  auto *s = static_cast<FloorStrip *>(arg);
  if (s->weights) {
    const uint16_t *__restrict w = s->weights;
    uint16_t peak = 0;
    for (size_t i = 0; i < s->bytes; ++i) peak = std::max(peak, w[i]);
    s->peak = peak;
  }
  std::memcpy(s->dst, s->src, s->bytes);
  return nullptr;
}

void BM_MemoryFloor(benchmark::State &state, int width, int height) {
  FrameBuffers &b = Buffers(width, height);
  pb::ThreadPool *pool = nullptr;
  if (pb::PoolCreate(&pool, 2, 4) != 0) {
    state.SkipWithError("PoolCreate failed");
    return;
  }
  const size_t luma = static_cast<size_t>(width) * height;
  const size_t luma_half = static_cast<size_t>(width) * (height / 2);
  const size_t chroma_half = static_cast<size_t>(width) * (height / 4);
  const uint8_t *src = b.src_data();
  uint8_t *dst = b.dst_data();
  FloorStrip strips[4] = {
      {src, b.weights.data(), dst, luma_half, 0},
      {src + luma_half, b.weights.data() + luma_half, dst + luma_half, luma - luma_half, 0},
      {src + luma, nullptr, dst + luma, chroma_half, 0},
      {src + luma + chroma_half, nullptr, dst + luma + chroma_half, luma / 2 - chroma_half, 0},
  };
  TimeFrames(state, Label(width, height, "floor"), [&] {
    pb::PoolResetCompletion(pool);
    for (auto &s : strips) pb::PoolAddJob(pool, FloorTask, &s);
    pb::PoolWaitCompletion(pool, 4);
  });
  pb::PoolDestroy(pool);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * width * height * 3 / 2);
}

// Ratios of the runs above (absent when they were filtered out or skipped).
void BM_FrameSummary(benchmark::State &state) {
  for (auto _ : state) {
  }
  const auto &r = Results();
  auto get = [&](const std::string &k) {
    auto it = r.find(k);
    return it == r.end() ? 0.0 : it->second;
  };
  std::printf("\nFrame summary (ms per frame; frame/floor; vector speed-up over scalar)\n");
  const std::pair<int, int> sizes[] = {{1920, 1080}, {1280, 720}};
  for (const auto &wh : sizes) {
    const double floor = get(Label(wh.first, wh.second, "floor"));
    const double floor_cpu = get(Label(wh.first, wh.second, "floor cpu"));
    std::printf("  %dx%d floor %.3f ms (cpu %.3f ms)\n", wh.first, wh.second, floor, floor_cpu);
    for (int ratio : {1, 2, 4, 6, 8}) {
      const std::string key = Label(wh.first, wh.second, ("ratio " + std::to_string(ratio)).c_str());
      const double ms = get(key);
      if (ms <= 0) continue;
      const double cpu = get(key + " cpu");
      std::printf("  %dx%d ratio %d: %.3f ms, %.2f x floor (cpu %.3f ms, %.2f x floor cpu)\n",
                  wh.first, wh.second, ratio, ms, floor > 0 ? ms / floor : 0.0, cpu,
                  floor_cpu > 0 ? cpu / floor_cpu : 0.0);
      if (wh.first == 1920 && ratio == 1 && floor > 0) {
        state.counters["frame_over_floor_1080p"] = ms / floor;
      }
    }
  }
  const double vec = get(Label(1920, 1080, "ratio 1"));
  const double sca = get(Label(1920, 1080, "ratio 1 scalar"));
  const double vec_cpu = get(Label(1920, 1080, "ratio 1 cpu"));
  const double sca_cpu = get(Label(1920, 1080, "ratio 1 scalar cpu"));
  if (vec > 0 && sca > 0) {
    std::printf("  1920x1080 ratio 1 scalar: %.3f ms, vector %.2f x faster (cpu %.3f ms, %.2f x)\n",
                sca, sca / vec, sca_cpu, vec_cpu > 0 ? sca_cpu / vec_cpu : 0.0);
    state.counters["vector_speedup_1080p"] = sca / vec;
  }
  std::fflush(stdout);
}

}  // namespace

BENCHMARK_CAPTURE(BM_MemoryFloor, 1920x1080, 1920, 1080)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_MemoryFloor, 1280x720, 1280, 720)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Frame, 1920x1080_ratio1, 1920, 1080, 1, false)
    ->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Frame, 1920x1080_ratio2, 1920, 1080, 2, false)
    ->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Frame, 1920x1080_ratio4, 1920, 1080, 4, false)
    ->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Frame, 1920x1080_ratio6, 1920, 1080, 6, false)
    ->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Frame, 1920x1080_ratio8, 1920, 1080, 8, false)
    ->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Frame, 1280x720_ratio1, 1280, 720, 1, false)
    ->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Frame, 1280x720_ratio2, 1280, 720, 2, false)
    ->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Frame, 1280x720_ratio4, 1280, 720, 4, false)
    ->UseRealTime()->Unit(benchmark::kMillisecond);
// (1280 is not a multiple of 12: ratio 6 does not apply to 1280x720.)
BENCHMARK_CAPTURE(BM_Frame, 1280x720_ratio8, 1280, 720, 8, false)
    ->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Frame, 1920x1080_ratio1_scalar, 1920, 1080, 1, true)
    ->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FrameSummary)->Iterations(1);
