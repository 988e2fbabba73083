// Reduced-resolution kernels on one 1920x1080 frame: each downscale and
// upscale-composite kernel over a whole plane (luma 1920x1080, chroma
// 1920x540 bytes), scalar reference against vector kernel. Time per plane.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "scale/compose.h"
#include "scale/downscale.h"

namespace {

constexpr int kWidth = 1920;
constexpr int kLumaHeight = 1080;

struct Plane {
  int width, height, lowWidth, lowHeight;
  std::vector<uint8_t> src, low, scratch, dst;
  std::vector<uint16_t> weight;
  Plane(int ratio, bool chroma)
      : width(kWidth),
        height(chroma ? kLumaHeight / 2 : kLumaHeight),
        lowWidth(kWidth / ratio),
        lowHeight(height / ratio),
        src(size_t(width) * height),
        low(size_t(lowWidth) * lowHeight),
        scratch(size_t(lowWidth) * height),
        dst(src.size()),
        weight(size_t(kWidth) * kLumaHeight) {
    std::mt19937 rng(1);
    for (auto &v : src) v = static_cast<uint8_t>(rng());
    for (auto &v : low) v = static_cast<uint8_t>(rng());
    for (auto &v : weight) v = static_cast<uint16_t>(rng() % 1025);
  }
};

void BM_Downscale(benchmark::State &state, pb::DownscaleKernel kernel, int ratio, bool chroma) {
  Plane p(ratio, chroma);
  for (auto _ : state) {
    kernel(p.src.data(), p.low.data(), p.scratch.data(), p.width, p.height, p.lowWidth, p.lowHeight,
           0, p.lowHeight - 1);
    benchmark::DoNotOptimize(p.low.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(p.src.size()));
}

void BM_UpscaleCompose(benchmark::State &state, pb::ComposeKernel kernel, int ratio, bool chroma) {
  Plane p(ratio, chroma);
  for (auto _ : state) {
    kernel(p.src.data(), p.width, p.height, p.lowWidth, p.lowHeight, p.weight.data(), p.low.data(),
           p.dst.data(), 0, p.height - 1, 128);
    benchmark::DoNotOptimize(p.dst.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(p.src.size()));
}

#define PB_SCALE_BENCH(kind, plane, n, chroma)                                        \
  BENCHMARK_CAPTURE(BM_##kind, plane##n##_C, pb::kind##plane##n##_C, n, chroma)       \
      ->Unit(benchmark::kMillisecond);                                                \
  BENCHMARK_CAPTURE(BM_##kind, plane##n##_NEON, pb::kind##plane##n##_NEON, n, chroma) \
      ->Unit(benchmark::kMillisecond)

PB_SCALE_BENCH(Downscale, Luma, 2, false);
PB_SCALE_BENCH(Downscale, Luma, 4, false);
PB_SCALE_BENCH(Downscale, Luma, 6, false);
PB_SCALE_BENCH(Downscale, Luma, 8, false);
PB_SCALE_BENCH(Downscale, Chroma, 2, true);
PB_SCALE_BENCH(Downscale, Chroma, 4, true);
PB_SCALE_BENCH(Downscale, Chroma, 6, true);
PB_SCALE_BENCH(Downscale, Chroma, 8, true);
PB_SCALE_BENCH(UpscaleCompose, Luma, 2, false);
PB_SCALE_BENCH(UpscaleCompose, Luma, 4, false);
PB_SCALE_BENCH(UpscaleCompose, Luma, 6, false);
PB_SCALE_BENCH(UpscaleCompose, Luma, 8, false);
PB_SCALE_BENCH(UpscaleCompose, Chroma, 2, true);
PB_SCALE_BENCH(UpscaleCompose, Chroma, 4, true);
PB_SCALE_BENCH(UpscaleCompose, Chroma, 6, true);
PB_SCALE_BENCH(UpscaleCompose, Chroma, 8, true);

}  // namespace
