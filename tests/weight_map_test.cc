// Weight map computation: the focus band and distance-to-weight rule by known
// answers, the bilinear resampling against an independent 2x model, and the
// vector kernel byte for byte against the per-pixel reference.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "weight/weight_map.h"

namespace {

using Kernel = pb::ComputeWeightsFn;
constexpr uint16_t kSentinel = 0xBEEF;

class WeightKernelTest : public ::testing::TestWithParam<Kernel> {};

// Flat map of `other` with the focus pixel (0, 0) at `focus`, sampled 1:1:
// every other pixel's weight comes from the band around `focus`, which is
// [trunc(0.8 f), trunc(1.25 f)] up to 150 and [150, 255] above.
struct WeightCase { uint8_t focus, other, gain; uint16_t weight; };

TEST_P(WeightKernelTest, DistanceToWeight) {
  const WeightCase cases[] = {
      {100, 100, 128, 0},  {100, 80, 128, 0},    {100, 125, 128, 0},   {100, 79, 128, 20},
      {100, 126, 128, 20}, {100, 31, 128, 1003}, {100, 30, 128, 1024}, {100, 0, 128, 1024},
      {0, 0, 128, 0},      {0, 10, 128, 204},    {0, 25, 128, 512},    {0, 60, 128, 1024},
      {255, 150, 128, 0},  {255, 149, 128, 20},  {255, 255, 128, 0},   {151, 200, 128, 0},
      {150, 187, 128, 0},  {150, 188, 128, 20},  {150, 120, 128, 0},   {150, 119, 128, 20},
      {4, 3, 128, 0},      {4, 2, 128, 20},      {4, 5, 128, 0},       {4, 6, 128, 20},
      {1, 0, 128, 0},      {1, 2, 128, 20},      {100, 79, 64, 10},    {0, 50, 255, 2040},
      {0, 50, 0, 0},       {1, 1, 128, 0},
  };
  for (const WeightCase &c : cases) {
    std::vector<uint8_t> src(4 * 3, c.other);
    src[0] = c.focus;
    std::vector<uint16_t> dst(4 * 3, kSentinel);
    GetParam()(4, 3, 0, 0, 0, 2, dst.data(), 4, 3, 50, c.gain, src.data());
    EXPECT_EQ(dst[11], c.weight) << "focus " << int(c.focus) << " value " << int(c.other)
                                 << " gain " << int(c.gain);
  }
}

// A = 2C, B = 2D: even pixels are the samples, odd ones the rounded averages
// of their neighbours (twice for odd-odd), the last column and row repeat.
TEST_P(WeightKernelTest, ExactTwiceUpsampling) {
  for (int c = 1; c <= 19; c += 3) {
    const int d = 1 + c % 5;
    std::mt19937 rng(c);
    std::vector<uint8_t> src(c * d);
    for (auto &v : src) v = rng() % 50;  // below 50: weight = trunc(20.48 v), one-to-one
    src[0] = 0;                          // focus level 0: band [0, 0]
    auto at = [&](int x, int y) { return int(src[std::min(y, d - 1) * c + std::min(x, c - 1)]); };
    auto horiz = [&](int x, int y) { return x % 2 ? (at(x / 2, y) + at(x / 2 + 1, y) + 1) >> 1 : at(x / 2, y); };
    std::vector<uint16_t> dst(4 * c * d, kSentinel);
    GetParam()(2 * c, 2 * d, 0, 0, 0, 2 * d - 1, dst.data(), c, d, 50, 128, src.data());
    for (int y = 0; y < 2 * d; ++y)
      for (int x = 0; x < 2 * c; ++x) {
        const int v = y % 2 ? (horiz(x, y / 2) + horiz(x, y / 2 + 1) + 1) >> 1 : horiz(x, y / 2);
        ASSERT_EQ(dst[y * 2 * c + x], v * 512 / 25) << c << "x" << d << " at " << x << "," << y;
      }
  }
}

INSTANTIATE_TEST_SUITE_P(Kernels, WeightKernelTest,
                         ::testing::Values(pb::ComputeWeights_C, pb::ComputeWeights_NEON),
                         [](const auto &info) { return info.index == 0 ? "C" : "NEON"; });

// Vector kernel against the reference: random maps over many source sizes,
// up- and downscaling, odd ratios, several column chunks, random focus, row
// ranges (empty ones among them), band scales and gains. The reference writes
// exactly the requested rows.
TEST(WeightKernelDiff, VectorMatchesReference) {
  std::mt19937 rng(2024);
  struct Size { int a, b, c, d; };
  std::vector<Size> sizes = {{1920, 1080, 480, 270}, {2100, 9, 70, 3}, {1, 1, 1, 1}, {7, 5, 70, 40}};
  for (int c = 1; c <= 70; ++c) {
    const int d = 1 + rng() % 9;
    sizes.push_back({c * 4, d * 4, c, d});
    sizes.push_back({1 + int(rng() % 140), 1 + int(rng() % 30), c, d});
  }
  for (const Size &s : sizes) {
    std::vector<uint8_t> src(s.c * s.d);
    for (auto &v : src) v = rng();
    const int x = rng() % s.a, y = rng() % s.b;
    const int first = rng() % s.b, last = first - 1 + rng() % (s.b - first + 1);
    const uint8_t bandScale = (rng() % 4 == 0) ? uint8_t(1 + rng() % 255) : 50;
    const uint8_t gain = (rng() % 2) ? 128 : uint8_t(rng());
    std::vector<uint16_t> ref(size_t(s.a) * s.b, kSentinel), vec(ref);
    pb::ComputeWeights_C(s.a, s.b, x, y, first, last, ref.data(), s.c, s.d, bandScale, gain, src.data());
    pb::ComputeWeights_NEON(s.a, s.b, x, y, first, last, vec.data(), s.c, s.d, bandScale, gain, src.data());
    ASSERT_EQ(ref, vec) << s.a << "x" << s.b << " from " << s.c << "x" << s.d << " rows " << first
                        << ".." << last << " band " << int(bandScale) << " gain " << int(gain);
    for (size_t i = 0; i < ref.size(); ++i)
      ASSERT_EQ(ref[i] == kSentinel, int(i) / s.a < first || int(i) / s.a > last) << "row " << i / s.a;
  }
}

// The vector paths' edges against the reference, case by case: production
// sizes and ratios (4x, 2x), source widths around the 32-byte window and the
// 16-column blocks, downscales near and past 2:1 (windows that no longer hold
// a block's neighbours), non-integer ratios, chunks past 2048 columns, focus
// at the corners, band scales on both sides of the flat-from-63 condition and
// gains at their extremes. Every row, written or not, is compared.
struct EdgeCase { int a, b, c, d; uint8_t bandScale, gain; };

class WeightEdgeTest : public ::testing::TestWithParam<EdgeCase> {};

TEST_P(WeightEdgeTest, VectorMatchesReference) {
  const EdgeCase s = GetParam();
  std::mt19937 rng(s.a * 131 + s.c);
  // Smooth ramps with noise: values spread over the band and beyond it.
  std::vector<uint8_t> src(size_t(s.c) * s.d);
  for (int y = 0; y < s.d; ++y)
    for (int x = 0; x < s.c; ++x) src[size_t(y) * s.c + x] = uint8_t((x * 7 + y * 3) % 200 + rng() % 56);
  const int focus[][2] = {{0, 0}, {s.a - 1, s.b - 1}, {s.a - 1, 0}, {0, s.b - 1}, {s.a / 2, s.b / 2}};
  const int focusCount = s.a * s.b > 100000 ? 2 : 5;  // keeps the full-size cases quick
  for (int k = 0; k < focusCount; ++k) {
    const auto &f = focus[k];
    std::vector<uint16_t> ref(size_t(s.a) * s.b, kSentinel), vec(ref);
    pb::ComputeWeights_C(s.a, s.b, f[0], f[1], 0, s.b - 1, ref.data(), s.c, s.d, s.bandScale, s.gain, src.data());
    pb::ComputeWeights_NEON(s.a, s.b, f[0], f[1], 0, s.b - 1, vec.data(), s.c, s.d, s.bandScale, s.gain, src.data());
    for (size_t i = 0; i < ref.size(); ++i)
      ASSERT_EQ(ref[i], vec[i]) << "focus " << f[0] << "," << f[1] << " at " << i % s.a << "," << i / s.a;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, WeightEdgeTest,
    ::testing::Values(EdgeCase{1920, 1080, 480, 270, 50, 128}, EdgeCase{1920, 1080, 960, 540, 50, 128},
                      EdgeCase{1920, 1080, 480, 270, 50, 255}, EdgeCase{1920, 1080, 480, 270, 63, 1},
                      EdgeCase{1920, 1080, 960, 540, 64, 128}, EdgeCase{1920, 1080, 640, 360, 200, 0},
                      EdgeCase{1440, 1080, 480, 270, 1, 128},   // every distance beyond 0 saturates
                      EdgeCase{1280, 720, 480, 270, 62, 129},   // 8/3 columns per source column
                      EdgeCase{4100, 20, 1025, 5, 50, 128},     // three chunks, periodic
                      EdgeCase{4100, 20, 1000, 5, 50, 128},     // three chunks, not periodic
                      EdgeCase{128, 16, 31, 4, 50, 128}, EdgeCase{128, 16, 32, 4, 50, 128},
                      EdgeCase{128, 16, 33, 4, 50, 128}, EdgeCase{132, 9, 33, 3, 50, 128},
                      EdgeCase{36, 4, 70, 4, 50, 128},          // downscale: windows still fit
                      EdgeCase{35, 4, 70, 4, 50, 128},          // exactly 2:1
                      EdgeCase{33, 4, 70, 4, 50, 128}, EdgeCase{16, 4, 70, 4, 50, 128},
                      EdgeCase{17, 3, 1, 1, 50, 128}, EdgeCase{16, 1, 2, 1, 50, 128},
                      EdgeCase{31, 7, 3, 2, 50, 128}, EdgeCase{15, 15, 15, 15, 50, 128}));

}  // namespace
