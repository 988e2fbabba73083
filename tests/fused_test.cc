// Smoothing fused with the full-resolution composite: destination bytes
// against the scalar smoothing followed by the scalar composite, over widths,
// heights, row ranges, kernels (the fused layout and the ones it hands back to
// the separate kernels), weights above 1024 and alphas; rows outside the range
// stay untouched, strips of one plane agree with the whole, and a destination
// that is the input itself gives the in-place answer.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "blur/smooth.h"
#include "blur/smooth_internal.h"
#include "scale/compose.h"

namespace pb {
namespace {

constexpr uint8_t kSentinel = 0xA5;

struct Form {
  const char *name;
  bool chroma;
  SmoothFn smoothC;
  ComposeKernel composeC;
  decltype(&SmoothComposeLuma_NEON) fused;
};

void PrintTo(const Form &f, std::ostream *os) { *os << f.name; }

const Form kForms[] = {
    {"luma", false, SmoothLuma_C, ComposeLuma_C, SmoothComposeLuma_NEON},
    {"chroma", true, SmoothChroma_C, ComposeChroma_C, SmoothComposeChroma_NEON},
};

struct Kernel {
  const char *name;
  std::vector<uint16_t> taps;
};

// The blur's Gaussian, a uniform box, a random symmetric and a random
// asymmetric kernel within 16-bit sums, heavy taps that need 32-bit sums,
// and the single tap.
std::vector<Kernel> Kernels(std::mt19937 &rng) {
  std::vector<Kernel> k = {
      {"gaussian", {50, 70, 91, 110, 123, 128, 123, 110, 91, 70, 50}},
      {"box7", std::vector<uint16_t>(7, 146)},
      {"symmetric", {}},
      {"asymmetric", {}},
      {"heavy", {}},
      {"one tap", {1024}},
  };
  for (int32_t j = 0; j < 9; ++j) k[3].taps.push_back(static_cast<uint16_t>(rng() % 200));
  for (int32_t j = 0; j < 3; ++j) k[2].taps.push_back(static_cast<uint16_t>(rng() % 300));
  for (int32_t j = 1; j >= 0; --j) k[2].taps.push_back(k[2].taps[static_cast<size_t>(j)]);
  for (int32_t j = 0; j < 5; ++j) k[4].taps.push_back(static_cast<uint16_t>(2000 + rng() % 3000));
  return k;
}

struct Plane {
  int32_t width, height;
  std::vector<uint8_t> px;
  std::vector<uint16_t> weight;  // luma resolution: twice the rows for chroma
};

Plane RandomPlane(std::mt19937 &rng, int32_t width, int32_t height, bool chroma,
                  uint32_t maxWeight) {
  const size_t n = static_cast<size_t>(width) * height;
  Plane p{width, height, std::vector<uint8_t>(n), std::vector<uint16_t>(n * (chroma ? 2 : 1))};
  for (auto &v : p.px) v = static_cast<uint8_t>(rng());
  for (auto &m : p.weight) {
    const uint32_t pick = rng() % 8;
    m = static_cast<uint16_t>(pick == 0 ? 0 : pick == 1 ? maxWeight : rng() % (maxWeight + 1));
  }
  return p;
}

size_t PaddedBytes(bool chroma, int32_t width, int32_t height, int32_t h) {
  return chroma ? SmoothChromaPaddedBytes(width, height, h)
                : SmoothLumaPaddedBytes(width, height, h);
}

// Scalar smoothing into a private plane, then the scalar composite.
std::vector<uint8_t> Expected(const Form &f, const Plane &p, const std::vector<uint16_t> &k,
                              int32_t first, int32_t last, uint8_t alpha) {
  const int32_t h = static_cast<int32_t>(k.size() / 2);
  std::vector<uint8_t> padded(PaddedBytes(f.chroma, p.width, p.height, h));
  std::vector<uint8_t> inter(SmoothIntermediateBytes(p.width, p.height, h));
  std::vector<uint8_t> smoothed(p.px.size(), 0);
  std::vector<uint8_t> dst(p.px.size(), kSentinel);
  f.smoothC(p.px.data(), padded.data(), smoothed.data(), p.width, p.height, k.data(), h, h,
            inter.data(), first, last);
  f.composeC(p.px.data(), p.width, p.height, p.width, p.height, p.weight.data(), smoothed.data(),
             dst.data(), first, last, alpha);
  return dst;
}

std::vector<uint8_t> Fused(const Form &f, const Plane &p, const std::vector<uint16_t> &k,
                           int32_t first, int32_t last, uint8_t alpha) {
  const int32_t h = static_cast<int32_t>(k.size() / 2);
  std::vector<uint8_t> padded(PaddedBytes(f.chroma, p.width, p.height, h));
  std::vector<uint8_t> inter(SmoothIntermediateBytes(p.width, p.height, h), 0x77);
  std::vector<uint8_t> smoothed(p.px.size(), 0);
  std::vector<uint8_t> dst(p.px.size(), kSentinel);
  f.fused(p.px.data(), padded.data(), smoothed.data(), p.width, p.height, k.data(), h, h,
          inter.data(), first, last, p.weight.data(), alpha, dst.data());
  return dst;
}

void RandomRange(std::mt19937 &rng, int32_t height, int32_t *first, int32_t *last) {
  int32_t a = static_cast<int32_t>(rng() % height), b = static_cast<int32_t>(rng() % height);
  if (a > b) std::swap(a, b);
  switch (rng() % 3) {
    case 0: *first = 0, *last = height - 1; break;
    case 1: *first = a, *last = b; break;
    default: *first = a, *last = height - 1; break;
  }
}

class FusedTest : public ::testing::TestWithParam<Form> {};

TEST_P(FusedTest, MatchesScalarSmoothThenCompose) {
  const Form f = GetParam();
  std::mt19937 rng(f.chroma ? 31 : 32);
  const std::vector<Kernel> kernels = Kernels(rng);
  const int32_t step = f.chroma ? 2 : 1;
  std::vector<int32_t> widths;  // 1..70 (even ones for chroma) and 1920, three times over
  for (int32_t rep = 0; rep < 3; ++rep) {
    for (int32_t w = step; w <= 70; w += step) widths.push_back(w);
    widths.push_back(1920);
  }
  for (const int32_t width : widths) {
    const int32_t heights[] = {1, 3, 12, 40};
    const int32_t height = width == 1920 ? 14 : heights[rng() % 4];
    const Kernel &k = kernels[rng() % kernels.size()];
    const uint32_t maxWeight = rng() % 3 == 0 ? 65535u : 1024u;
    const uint8_t alphas[] = {0, 37, 128, 255};
    const uint8_t alpha = alphas[rng() % 4];
    int32_t first, last;
    RandomRange(rng, height, &first, &last);
    SCOPED_TRACE(::testing::Message() << f.name << " " << width << "x" << height << " "
                                      << k.name << " rows " << first << ".." << last
                                      << " maxWeight " << maxWeight << " alpha " << +alpha);
    const Plane p = RandomPlane(rng, width, height, f.chroma, maxWeight);
    ASSERT_EQ(Fused(f, p, k.taps, first, last, alpha), Expected(f, p, k.taps, first, last, alpha));
  }
}

// Uniform input and full weight: every written byte is the smoothed value of
// the uniform plane (the Gaussian's taps sum to 1016: 200 -> 198 -> 196; taps
// summing to 1024 keep it); other rows keep the sentinel.
TEST_P(FusedTest, UniformPlaneTakesBlurredValueOnlyInRange) {
  const Form f = GetParam();
  const std::vector<uint16_t> gaussian = {50, 70, 91, 110, 123, 128, 123, 110, 91, 70, 50};
  const std::vector<uint16_t> box = {256, 256, 256, 256, 0};  // asymmetric, sum 1024
  const struct {
    const std::vector<uint16_t> *taps;
    uint8_t value, expected;
  } cases[] = {{&gaussian, 200, 196}, {&gaussian, 0, 0}, {&box, 90, 90}};
  for (const auto &c : cases) {
    Plane p{64, 20, std::vector<uint8_t>(64 * 20, c.value),
            std::vector<uint16_t>(64 * 20 * (f.chroma ? 2 : 1), 1024)};
    const std::vector<uint8_t> out = Fused(f, p, *c.taps, 5, 13, 128);
    for (int32_t y = 0; y < p.height; ++y) {
      for (int32_t x = 0; x < p.width; ++x) {
        const uint8_t want = (y >= 5 && y <= 13) ? c.expected : kSentinel;
        ASSERT_EQ(out[static_cast<size_t>(y) * p.width + x], want) << f.name << " " << x << "," << y;
      }
    }
  }
}

// Two strips with private scratch give the plane of one call.
TEST_P(FusedTest, StripsAgreeWithWholePlane) {
  const Form f = GetParam();
  std::mt19937 rng(f.chroma ? 41 : 42);
  const std::vector<uint16_t> k = {50, 70, 91, 110, 123, 128, 123, 110, 91, 70, 50};
  for (const int32_t width : {96, 198, 1920}) {
    const Plane p = RandomPlane(rng, width, 30, f.chroma, 1024);
    std::vector<uint8_t> dst(p.px.size(), kSentinel);
    for (const auto &range : {std::pair<int32_t, int32_t>{0, 14}, {15, 29}}) {
      std::vector<uint8_t> padded(PaddedBytes(f.chroma, width, p.height, 5));
      std::vector<uint8_t> inter(SmoothIntermediateBytes(width, p.height, 5));
      std::vector<uint8_t> smoothed(p.px.size());
      f.fused(p.px.data(), padded.data(), smoothed.data(), width, p.height, k.data(), 5, 5,
              inter.data(), range.first, range.second, p.weight.data(), 110, dst.data());
    }
    EXPECT_EQ(dst, Expected(f, p, k, 0, p.height - 1, 110)) << f.name << " width " << width;
  }
}

// dst == input: the smoothing must still read the original rows.
TEST_P(FusedTest, InPlaceMatchesSmoothingBeforeCompositing) {
  const Form f = GetParam();
  std::mt19937 rng(f.chroma ? 51 : 52);
  const std::vector<uint16_t> k = {50, 70, 91, 110, 123, 128, 123, 110, 91, 70, 50};
  Plane p = RandomPlane(rng, 128, 24, f.chroma, 1024);
  const std::vector<uint8_t> expected = Expected(f, p, k, 0, p.height - 1, 128);
  std::vector<uint8_t> padded(PaddedBytes(f.chroma, p.width, p.height, 5));
  std::vector<uint8_t> inter(SmoothIntermediateBytes(p.width, p.height, 5));
  std::vector<uint8_t> smoothed(p.px.size());
  f.fused(p.px.data(), padded.data(), smoothed.data(), p.width, p.height, k.data(), 5, 5,
          inter.data(), 0, p.height - 1, p.weight.data(), 128, p.px.data());
  EXPECT_EQ(p.px, expected);
}

INSTANTIATE_TEST_SUITE_P(Planes, FusedTest, ::testing::ValuesIn(kForms),
                         [](const ::testing::TestParamInfo<Form> &i) {
                           return std::string(i.param.name);
                         });

}  // namespace
}  // namespace pb
