// Disparity range table: known answers worked out by hand and with an
// independent single-precision model, plus its general properties.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "previewbokeh/weight.h"
#include "simd/kernel_table.h"
#include "weight/range_table.h"

namespace {

// Builds the table from header fields written at the documented offsets, the
// header at an odd address, as a producer's buffer may be.
std::vector<uint8_t> Build(int32_t num, int32_t den, uint16_t ref, uint16_t width) {
  std::vector<uint8_t> bytes(1 + DISPARITY_FRAME_HEADER_BYTES, 0xA5), table(256);
  std::memcpy(&bytes[1 + 16], &num, 4);
  std::memcpy(&bytes[1 + 20], &den, 4);
  std::memcpy(&bytes[1 + 60], &ref, 2);
  std::memcpy(&bytes[1 + 64], &width, 2);
  pb::BuildRangeTable(reinterpret_cast<const DisparityFrame *>(bytes.data() + 1), table.data());
  return table;
}

struct HeaderCase {
  const char *name;
  int32_t num, den;
  uint16_t ref, width;
  std::vector<std::pair<int, int>> entries;  // index -> expected entry
};

TEST(RangeTable, KnownEntries) {
  const HeaderCase cases[] = {
      // q = 640, s = 256, d0 = 16, k = 1, c = 1.
      {"Reference640", 640 << 19, 1 << 19, 640, 640,
       {{0, 128}, {1, 128}, {17, 128}, {18, 85}, {19, 64}, {100, 3}, {255, 1}}},
      // s = 0.4: every entry rounds to 0.
      {"UnitScale", 1 << 19, 1 << 19, 640, 640, {{0, 0}, {18, 0}, {128, 0}, {255, 0}}},
      // s = 1024, d0 = 64, k = 4, c = 4: floor at 4, flat up to d0 + 1.
      {"Floor", 640 << 19, 1 << 19, 160, 640,
       {{0, 205}, {4, 205}, {65, 205}, {66, 171}, {67, 146}, {100, 26}, {200, 7}, {255, 5}}},
      // Negative denominator: |a / b| is used. s = 80, d0 = 32.
      {"NegativeDenominator", 100 << 19, -(1 << 19), 320, 640,
       {{0, 80}, {33, 80}, {34, 40}, {65, 2}, {100, 1}, {200, 0}}},
      {"NegativeNumerator", -(7 << 17), 3 << 19, 90, 1000, {{0, 3}, {100, 3}, {200, 0}}},
      // Infinite s: the integer conversions saturate, r = -inf -> 0.
      {"ZeroDenominator", 1 << 19, 0, 640, 640, {{0, 0}, {100, 0}, {255, 0}}},
      {"ZeroRefWidth", 640 << 19, 1 << 19, 0, 640, {{0, 0}, {100, 0}, {255, 0}}},
      {"NotANumber", 0, 0, 640, 640, {{0, 0}, {100, 0}, {255, 0}}},  // NaN converts to 0
      // s ~ 1.7e12 (RefWidth 1): t + c wraps negative, r ~ -803, whose low
      // byte (-802 mod 256) is stored rather than a saturated value.
      {"HugeScaleWraps", 1 << 30, 1, 1, 4000, {{0, 222}, {17, 222}, {255, 222}}},
  };
  for (const HeaderCase &c : cases) {
    const std::vector<uint8_t> table = Build(c.num, c.den, c.ref, c.width);
    for (const auto &e : c.entries) EXPECT_EQ(table[e.first], e.second) << c.name << " entry " << e.first;
  }
}

// Plausible producers (no wrap: entries stay below 256): never increasing.
TEST(RangeTable, NonIncreasing) {
  for (int qx = 1; qx <= 2000; qx += 37) {
    for (uint16_t ref : {160, 320, 640, 1280}) {
      const std::vector<uint8_t> t = Build(qx << 16, 1 << 19, ref, 640);
      for (int i = 1; i < 256; ++i) ASSERT_LE(t[i], t[i - 1]) << "q*8 " << qx << " ref " << ref << " entry " << i;
    }
  }
}

// Vector application against the scalar one: random tables and samples,
// counts around the 16-sample body (0..70), a preview row and whole maps, at
// every byte offset of input and output, nothing written past count.
TEST(RangeTable, VectorApplicationMatchesScalar) {
  std::mt19937 rng(11);
  std::vector<int> counts = {1920, 480 * 270, 960 * 540, -5};
  for (int n = 0; n <= 70; ++n) counts.push_back(n);
  for (const int count : counts) {
    const int n = std::max(count, 0);
    uint8_t table[256];
    for (auto &t : table) t = uint8_t(rng());
    if (count % 3 == 0) table[rng() % 256] = 0;  // zero entries are ordinary values
    const int offset = count % 16;
    std::vector<uint8_t> in(n + 16);
    for (auto &v : in) v = uint8_t(rng());
    std::vector<uint8_t> ref(n + 32, 0x5A), vec(ref);
    pb::ApplyRangeTable_C(in.data() + offset, ref.data() + 15 - offset, count, table);
    pb::ApplyRangeTable_NEON(in.data() + offset, vec.data() + 15 - offset, count, table);
    ASSERT_EQ(ref, vec) << "count " << count;
    for (int i = 0; i < n + 32; ++i) {
      const int j = i - (15 - offset);  // sample index
      ASSERT_EQ(ref[i], j >= 0 && j < n ? table[in[offset + j]] : 0x5A) << count << " at " << j;
    }
  }
}

}  // namespace
