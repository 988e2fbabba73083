// Full-resolution composite: vector kernels against the scalar reference byte
// for byte over all weights (also far above 1024), an independent model inside
// the weight range, known answers for both arithmetic regimes, and the chroma
// weight sampling.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "scale/compose.h"

namespace pb {
namespace {

constexpr uint8_t kSentinel = 0x5A;

struct Frame {
  int32_t width, rows;
  std::vector<uint8_t> src, blurred;
  std::vector<uint16_t> weight;  // luma resolution: twice the rows for chroma
};

// Random samples; weights up to maxWeight with both extremes frequent.
Frame RandomFrame(std::mt19937 &rng, int32_t width, int32_t rows, bool chroma, uint32_t maxWeight) {
  const size_t n = static_cast<size_t>(width) * rows;
  Frame f{width, rows, std::vector<uint8_t>(n), std::vector<uint8_t>(n),
          std::vector<uint16_t>(n * (chroma ? 2 : 1))};
  for (size_t i = 0; i < n; ++i) f.src[i] = static_cast<uint8_t>(rng()), f.blurred[i] = static_cast<uint8_t>(rng());
  for (auto &m : f.weight) {
    const uint32_t pick = rng() % 16;
    m = static_cast<uint16_t>(pick == 0 ? 0 : pick == 1 ? maxWeight : rng() % (maxWeight + 1));
  }
  return f;
}

std::vector<uint8_t> RunCompose(ComposeKernel fn, const Frame &f, int32_t first, int32_t last,
                                uint8_t alpha) {
  std::vector<uint8_t> dst(f.src.size(), kSentinel);
  fn(f.src.data(), f.width, f.rows, f.width, f.rows, f.weight.data(), f.blurred.data(),
     dst.data(), first, last, alpha);
  return dst;
}

struct Form {
  const char *name;
  bool chroma;
  ComposeKernel c, neon;
};

class ComposeTest : public ::testing::TestWithParam<Form> {};

TEST_P(ComposeTest, VectorMatchesReferenceForAllWeights) {
  const Form form = GetParam();
  std::mt19937 rng(form.chroma ? 11 : 22);
  for (int32_t width = form.chroma ? 2 : 1; width <= 1920; width += form.chroma ? 2 : 1) {
    if (width > 70) width = 1920;
    for (uint32_t maxWeight : {1024u, 4096u, 65535u}) {
      const int32_t rows = static_cast<int32_t>(rng() % 5 + 1);
      const Frame f = RandomFrame(rng, width, rows, form.chroma, maxWeight);
      const int32_t a = static_cast<int32_t>(rng() % rows), b = static_cast<int32_t>(rng() % rows);
      const int32_t first = std::min(a, b), last = std::max(a, b);
      for (uint8_t alpha : {0, 1, 60, 128, 255}) {
        SCOPED_TRACE(::testing::Message() << form.name << " width " << width << " max weight "
                                          << maxWeight << " alpha " << int{alpha});
        const std::vector<uint8_t> ref = RunCompose(form.c, f, first, last, alpha);
        ASSERT_EQ(RunCompose(form.neon, f, first, last, alpha), ref);
        for (size_t i = 0; i < ref.size(); ++i) {
          const int32_t x = static_cast<int32_t>(i % width), y = static_cast<int32_t>(i / width);
          if (y < first || y > last) {
            ASSERT_EQ(ref[i], kSentinel) << "row " << y << " written";
            continue;
          }
          // Chroma pairs take the weight at luma (2x, 2y) of their block.
          const int64_t m = form.chroma ? f.weight[(2 * y) * width + (x & ~1)] : f.weight[i];
          if (m * alpha > 131135) continue;  // outside the weight range
          const int64_t w = (m * alpha + 64) >> 7;
          ASSERT_EQ(ref[i], std::min<int64_t>(255, (w * f.blurred[i] + (1024 - w) * f.src[i] + 512) >> 10)) << i;
        }
      }
    }
  }
}

// With 8 samples (pairs) + 1 per row, sample 0 lies in a vector step and the
// last one in the one-at-a-time tail.
TEST_P(ComposeTest, KnownAnswersInBothRegimes) {
  const Form form = GetParam();
  struct Known {
    const char *what;
    uint16_t m;
    uint8_t alpha, s, b, grouped, leftover;
  };
  const Known cases[] = {
      {"m=0 keeps the source", 0, 255, 77, 200, 77, 77},
      {"m=1024 at unity gives the blurred", 1024, 128, 77, 200, 200, 200},
      {"half rounds up", 512, 128, 0, 1, 1, 1},
      {"alpha 0 ignores the map", 65535, 0, 13, 250, 13, 13},
      {"alpha 1: w = 8", 1000, 1, 100, 228, 101, 101},
      {"m * alpha = 131135: w = 1024", 26227, 5, 3, 200, 200, 200},
      // m * alpha = 131136: w = 1025; in a lane 1024 - w wraps to 65535:
      // (65535 + 512) >> 10 = 64; the tail: (-1 + 512) / 1024 = 0.
      {"w 1025", 2049, 64, 1, 0, 64, 0},
      // w = 2048: lanes give 64512 * 100 -> saturated; the tail
      // (-102400 + 512) / 1024 = -99, low 8 bits 157.
      {"w 2048", 2048, 128, 100, 0, 255, 157},
      // w = 130558: a lane keeps 65022, 1024 - w = 1538: (153800 + 512) >> 10
      // = 150; the tail: -12649, low 8 bits 151.
      {"largest product", 65535, 255, 100, 0, 150, 151},
  };
  const int32_t width = form.chroma ? 18 : 9;
  for (const Known &k : cases) {
    SCOPED_TRACE(k.what);
    const Frame f{width, 1, std::vector<uint8_t>(width, k.s), std::vector<uint8_t>(width, k.b),
                  std::vector<uint16_t>(2 * width, k.m)};
    for (ComposeKernel fn : {form.c, form.neon}) {
      const std::vector<uint8_t> out = RunCompose(fn, f, 0, 0, k.alpha);
      EXPECT_EQ(out[0], k.grouped);
      EXPECT_EQ(out[width - 1], k.leftover);
    }
  }
}

TEST_P(ComposeTest, EmptyRangeWritesNothing) {
  const Form form = GetParam();
  std::mt19937 rng(3);
  const Frame f = RandomFrame(rng, 40, 6, form.chroma, 1024);
  for (ComposeKernel fn : {form.c, form.neon}) {
    EXPECT_EQ(RunCompose(fn, f, 4, 3, 128), std::vector<uint8_t>(f.src.size(), kSentinel));
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, ComposeTest,
                         ::testing::Values(Form{"luma", false, ComposeLuma_C, ComposeLuma_NEON},
                                           Form{"chroma", true, ComposeChroma_C, ComposeChroma_NEON}),
                         [](const ::testing::TestParamInfo<Form> &i) { return std::string(i.param.name); });

// Odd luma columns and rows of the map are never read, and U and V never mix.
TEST(ComposeChromaTest, UsesOnlyTopLeftWeightsAndKeepsChannelsApart) {
  std::mt19937 rng(8);
  for (int32_t width : {2, 16, 18, 34, 1920}) {
    const Frame f = RandomFrame(rng, width, 3, true, 1024);
    for (ComposeKernel fn : {ComposeChroma_C, ComposeChroma_NEON}) {
      const std::vector<uint8_t> base = RunCompose(fn, f, 0, 2, 100);
      Frame g = f;
      for (size_t i = 0; i < g.weight.size(); ++i) {
        if ((i % width) % 2 == 1 || (i / width) % 2 == 1) g.weight[i] = static_cast<uint16_t>(rng() % 1025);
      }
      for (size_t i = 1; i < g.src.size(); i += 2) {  // new V samples
        g.src[i] = static_cast<uint8_t>(rng());
        g.blurred[i] = static_cast<uint8_t>(rng());
      }
      const std::vector<uint8_t> changed = RunCompose(fn, g, 0, 2, 100);
      for (size_t i = 0; i < changed.size(); i += 2) ASSERT_EQ(changed[i], base[i]) << "U byte " << i;
    }
  }
}

// An odd row length leaves a lone last byte: it is mixed, and nothing past the
// row is touched (buffers are sized exactly).
TEST(ComposeChromaTest, OddWidthStaysInsideTheRow) {
  const Frame f{19, 1, std::vector<uint8_t>(19, 10), std::vector<uint8_t>(19, 30),
                std::vector<uint16_t>(38, 1024)};
  for (ComposeKernel fn : {ComposeChroma_C, ComposeChroma_NEON}) {
    EXPECT_EQ(RunCompose(fn, f, 0, 0, 128), std::vector<uint8_t>(19, 30));
  }
}

}  // namespace
}  // namespace pb
