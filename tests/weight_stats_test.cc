// Disparity statistics: minimum/maximum with its else-if tail, and the
// histogram-trimmed range with its log lines.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/logs.h"
#include "weight/disparity_stats.h"

namespace {

std::vector<uint8_t> Repeat(std::vector<uint8_t> head, int count, uint8_t value,
                            std::vector<uint8_t> tail = {}) {
  head.insert(head.end(), count, value);
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

// Whole blocks of 16 give the true extremes; the samples after the last
// block only lower the minimum or, failing that, raise the maximum.
TEST(MinMax, ElseIfTail) {
  struct Case { const char *name; std::vector<uint8_t> samples; uint8_t min, max; };
  const Case cases[] = {
      {"empty", {}, 255, 0},
      {"single", {7}, 7, 0},                  // lowering the minimum skips the maximum
      {"rising", {7, 9}, 7, 9},
      {"falling", {9, 7}, 7, 0},
      {"block", Repeat({}, 16, 5), 5, 5},
      {"block+rising tail", Repeat({}, 16, 5, {3, 8}), 3, 8},
      {"block+lower tail", Repeat({}, 16, 100, {50}), 50, 100},
      {"block+higher tail", Repeat({}, 32, 100, {50, 60, 200}), 50, 200},
      {"extremes in block", Repeat({0, 255}, 14, 9), 0, 255},
  };
  for (pb::MinMaxFn kernel : {pb::DisparityMinMax_C, pb::DisparityMinMax_NEON}) {
    for (const Case &c : cases) {
      uint8_t mn = 1, mx = 1;
      kernel(c.samples.data(), int32_t(c.samples.size()), &mn, &mx);
      EXPECT_EQ(std::make_pair(mn, mx), std::make_pair(c.min, c.max))
          << c.name << (kernel == pb::DisparityMinMax_C ? " (C)" : " (NEON)");
    }
  }
}

TEST(MinMax, VectorMatchesReference) {
  std::mt19937 rng(7);
  for (int n = 0; n <= 300; ++n) {
    std::vector<uint8_t> v(n);
    const int spread = 1 + rng() % 256;
    for (auto &x : v) x = uint8_t(100 + rng() % spread);
    uint8_t a0, a1, b0, b1;
    pb::DisparityMinMax_C(v.data(), n, &a0, &a1);
    pb::DisparityMinMax_NEON(v.data(), n, &b0, &b1);
    ASSERT_EQ(std::make_pair(a0, a1), std::make_pair(b0, b1)) << n;
  }
}

// Logs the inputs and the threshold ratio * n / 256, then narrows [min, max]
// to the outermost bins holding at least that many samples (bins at or below
// the incoming max, bin 0 never as the top) when they span minRange (4) or more.
TEST(HistogramRange, TrimsToPopulatedBins) {
  struct Case {
    const char *name; std::vector<uint8_t> samples;
    uint8_t inMin, inMax; int threshold; uint8_t outMin, outMax;
  };
  // 160 x 120 = 19200 samples, threshold 225: sparse end bins are trimmed.
  std::vector<uint8_t> trimmed = Repeat(Repeat(Repeat({}, 224, 10), 225, 20), 19200 - 224 - 225 - 225 - 224, 100);
  trimmed = Repeat(Repeat(trimmed, 225, 200), 224, 240);
  // Bin 7 holds 65546 samples, counted as 10: below the threshold.
  const std::vector<uint8_t> wrapped = Repeat(Repeat(Repeat({}, 65546, 7), 1000, 100), 1000, 200);
  const Case cases[] = {
      {"trim160x120", trimmed, 10, 240, 225, 20, 200},
      {"narrowSpanKept", Repeat(Repeat(Repeat({}, 6400, 100), 6400, 101), 6400, 102), 100, 102, 225, 100, 102},
      {"singleValueKept", Repeat({}, 86, 9), 9, 9, 1, 9, 9},
      {"smallSingleValue", Repeat({}, 16, 9), 9, 9, 0, 0, 9},
      {"smallMap", Repeat({30}, 49, 40), 30, 40, 0, 0, 40},
      {"smallMapMax3", Repeat({1}, 40, 3), 1, 3, 0, 1, 3},
      {"notAboveIncomingMax", Repeat(Repeat({}, 300, 20), 300, 200), 20, 50, 7, 20, 50},
      {"counterWraps", wrapped, 7, 200, 791, 100, 200},
  };
  for (const Case &c : cases) {
    uint16_t hist[256];
    uint8_t mn = c.inMin, mx = c.inMax;
    pbtest::LogCapture capture;
    pb::DisparityHistogramRange(c.samples.data(), hist, int32_t(c.samples.size()), 3, 4, &mn, &mx);
    const std::vector<std::string> expected = {
        "pixel_num : " + std::to_string(c.samples.size()) + "\n", "HistMinNumberRatio : 3\n",
        "min : " + std::to_string(c.inMin) + "\n", "max : " + std::to_string(c.inMax) + "\n",
        "Hist_th : " + std::to_string(c.threshold) + "\n"};
    EXPECT_EQ(capture.Texts(), expected) << c.name;
    EXPECT_EQ(std::make_pair(mn, mx), std::make_pair(c.outMin, c.outMax)) << c.name;
  }
}

// Every sample counted once in its bin (16-bit counts that wrap), whatever
// the count's remainder after the 16-sample body and the buffer's alignment.
TEST(HistogramRange, CountsEverySample) {
  std::mt19937 rng(5);
  std::vector<int> sizes = {480 * 270, 65536 + 37};
  for (int n = 0; n <= 70; ++n) sizes.push_back(n);
  for (const int n : sizes) {
    std::vector<uint8_t> buf(n + 1);
    const int spread = n > 65536 ? 2 : 1 + rng() % 256;  // few bins: counters wrap
    for (auto &v : buf) v = uint8_t(rng() % spread * 7);
    const uint8_t *samples = buf.data() + n % 2;
    std::vector<uint32_t> expected(256, 0);
    for (int i = 0; i < n; ++i) ++expected[samples[i]];
    uint16_t hist[256];
    uint8_t mn = 0, mx = 255;
    pbtest::LogCapture capture;
    pb::DisparityHistogramRange(samples, hist, n, 3, 4, &mn, &mx);
    for (int j = 0; j < 256; ++j) ASSERT_EQ(hist[j], uint16_t(expected[j])) << n << " bin " << j;
  }
}

}  // namespace
