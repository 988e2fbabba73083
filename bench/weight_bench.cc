// Depth-weight engine: one weight_async_process call per iteration (range
// table, box smoothing, statistics, 1920x1080 weight map), with the vector
// kernels and with the scalar references.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "platform/test_hooks.h"
#include "previewbokeh/weight.h"
#include "simd/kernel_table.h"
#include "weight/weight_map.h"

namespace {

std::vector<uint8_t> BenchFrame(int width, int height) {
  std::vector<uint8_t> f(DISPARITY_FRAME_HEADER_BYTES + size_t(width) * height);
  const int32_t num = 640 << 19, den = 1 << 19;
  const uint16_t ref = 640, w = static_cast<uint16_t>(width), h = static_cast<uint16_t>(height);
  std::memcpy(&f[16], &num, 4);
  std::memcpy(&f[20], &den, 4);
  std::memcpy(&f[60], &ref, 2);
  std::memcpy(&f[64], &w, 2);
  std::memcpy(&f[66], &h, 2);
  // Smooth depth ramp with noise: a plausible scene spread over the band.
  std::mt19937 rng(5);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      f[DISPARITY_FRAME_HEADER_BYTES + size_t(y) * width + x] =
          static_cast<uint8_t>(16 + (x * 40) / width + (y * 20) / height + rng() % 4);
  return f;
}

void BM_WeightProcess(benchmark::State &state) {
  const int dw = static_cast<int>(state.range(0)), dh = static_cast<int>(state.range(1));
  pb::UseScalarKernels(state.range(2) != 0);
  WeightInitParams init{1920, 1080, dw, dh, 0, 0, 0, 11};
  WeightContext ctx{};
  if (weight_init(&init, &ctx) != 0) {
    state.SkipWithError("weight_init failed");
    weight_deinit(&ctx);
    return;
  }
  const std::vector<uint8_t> frame = BenchFrame(dw, dh);
  std::vector<uint16_t> out(1920 * 1080);
  WeightProcessParams p{};
  p.F_number = 4;
  p.sel_x = 960;
  p.sel_y = 540;
  p.frame = reinterpret_cast<const DisparityFrame *>(frame.data());
  pb::hooks::StartLogCapture();  // keep the per-call log lines off stderr
  for (auto _ : state) {
    weight_async_process(&p, &ctx, out.data());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
    pb::hooks::StopLogCapture();
    pb::hooks::StartLogCapture();
  }
  pb::hooks::StopLogCapture();
  weight_deinit(&ctx);
  pb::UseScalarKernels(false);
}
BENCHMARK(BM_WeightProcess)
    ->ArgNames({"dw", "dh", "scalar"})
    ->Args({480, 270, 0})
    ->Args({480, 270, 1})
    ->Args({960, 540, 0})
    ->Args({960, 540, 1})
    ->Unit(benchmark::kMillisecond);

// The weight computation alone, 1920x1080 from 480x270.
void BM_ComputeWeights(benchmark::State &state) {
  const pb::ComputeWeightsFn fn = state.range(0) ? pb::ComputeWeights_C : pb::ComputeWeights_NEON;
  std::vector<uint8_t> src(480 * 270);
  std::mt19937 rng(3);
  for (auto &v : src) v = static_cast<uint8_t>(60 + rng() % 80);
  std::vector<uint16_t> out(1920 * 1080);
  for (auto _ : state) {
    fn(1920, 1080, 960, 540, 0, 1079, out.data(), 480, 270, 50, 128, src.data());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ComputeWeights)->ArgName("scalar")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
