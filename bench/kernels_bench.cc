// Smoothing and full-resolution composite kernels, scalar reference against
// vector code, on one 1920x1080 frame's luma plane (1920x1080) or chroma plane
// (1920 bytes x 540 rows). Bytes per second count the plane's bytes.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "blur/smooth.h"
#include "blur/smooth_internal.h"
#include "scale/compose.h"

namespace {

constexpr int32_t kWidth = 1920;
constexpr int32_t kHeight = 1080;
constexpr int32_t kRadius = 5;
const uint16_t kGaussian[] = {50, 70, 91, 110, 123, 128, 123, 110, 91, 70, 50};

std::vector<uint8_t> Noise(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> v(n);
  // Smooth gradients plus noise, like a camera frame.
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>((i / 7 + (i / kWidth) / 3 + rng() % 24) & 255);
  return v;
}

void Smooth(benchmark::State &state, pb::SmoothFn fn, bool chroma) {
  const int32_t rows = chroma ? kHeight / 2 : kHeight;
  const size_t n = static_cast<size_t>(kWidth) * rows;
  const std::vector<uint8_t> in = Noise(n, 1);
  std::vector<uint8_t> out(n);
  std::vector<uint8_t> padded(chroma ? pb::SmoothChromaPaddedBytes(kWidth, rows, kRadius)
                                     : pb::SmoothLumaPaddedBytes(kWidth, rows, kRadius));
  std::vector<uint8_t> inter(pb::SmoothIntermediateBytes(kWidth, rows, kRadius));
  for (auto _ : state) {
    fn(in.data(), padded.data(), out.data(), kWidth, rows, kGaussian, kRadius, kRadius,
       inter.data(), 0, rows - 1);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(n));
}

void Compose(benchmark::State &state, pb::ComposeKernel fn, bool chroma) {
  const int32_t rows = chroma ? kHeight / 2 : kHeight;
  const size_t n = static_cast<size_t>(kWidth) * rows;
  const std::vector<uint8_t> src = Noise(n, 2);
  const std::vector<uint8_t> blurred = Noise(n, 3);
  std::vector<uint16_t> weight(static_cast<size_t>(kWidth) * kHeight);
  std::mt19937 rng(4);
  for (auto &w : weight) w = static_cast<uint16_t>(rng() % 1025);
  std::vector<uint8_t> dst(n);
  for (auto _ : state) {
    fn(src.data(), kWidth, rows, kWidth, rows, weight.data(), blurred.data(), dst.data(), 0,
       rows - 1, 110);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(n));
}

// Smoothing fused with the composite, against the two kernels run in turn.
using FusedFn = decltype(&pb::SmoothComposeLuma_NEON);
void SmoothCompose(benchmark::State &state, FusedFn fused, pb::SmoothFn smooth,
                   pb::ComposeKernel compose, bool chroma) {
  const int32_t rows = chroma ? kHeight / 2 : kHeight;
  const size_t n = static_cast<size_t>(kWidth) * rows;
  const std::vector<uint8_t> in = Noise(n, 1);
  std::vector<uint8_t> smoothed(n), dst(n);
  std::vector<uint8_t> padded(chroma ? pb::SmoothChromaPaddedBytes(kWidth, rows, kRadius)
                                     : pb::SmoothLumaPaddedBytes(kWidth, rows, kRadius));
  std::vector<uint8_t> inter(pb::SmoothIntermediateBytes(kWidth, rows, kRadius));
  std::vector<uint16_t> weight(static_cast<size_t>(kWidth) * kHeight);
  std::mt19937 rng(4);
  for (auto &w : weight) w = static_cast<uint16_t>(rng() % 1025);
  for (auto _ : state) {
    if (fused) {
      fused(in.data(), padded.data(), smoothed.data(), kWidth, rows, kGaussian, kRadius, kRadius,
            inter.data(), 0, rows - 1, weight.data(), 110, dst.data());
    } else {
      smooth(in.data(), padded.data(), smoothed.data(), kWidth, rows, kGaussian, kRadius, kRadius,
             inter.data(), 0, rows - 1);
      compose(in.data(), kWidth, rows, kWidth, rows, weight.data(), smoothed.data(), dst.data(),
              0, rows - 1, 110);
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(n));
}

BENCHMARK_CAPTURE(SmoothCompose, Luma_Separate, nullptr, pb::SmoothLuma_NEON, pb::ComposeLuma_NEON,
                  false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SmoothCompose, Luma_Fused, pb::SmoothComposeLuma_NEON, nullptr, nullptr, false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SmoothCompose, Chroma_Separate, nullptr, pb::SmoothChroma_NEON,
                  pb::ComposeChroma_NEON, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SmoothCompose, Chroma_Fused, pb::SmoothComposeChroma_NEON, nullptr, nullptr,
                  true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Smooth, Luma_C, pb::SmoothLuma_C, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Smooth, Luma_NEON, pb::SmoothLuma_NEON, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Smooth, Chroma_C, pb::SmoothChroma_C, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Smooth, Chroma_NEON, pb::SmoothChroma_NEON, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Compose, Luma_C, pb::ComposeLuma_C, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Compose, Luma_NEON, pb::ComposeLuma_NEON, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Compose, Chroma_C, pb::ComposeChroma_C, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Compose, Chroma_NEON, pb::ComposeChroma_NEON, true)->Unit(benchmark::kMillisecond);

}  // namespace
