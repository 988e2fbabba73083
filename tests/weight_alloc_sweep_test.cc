// Every allocation of weight_init fails in turn, for several engine shapes:
// each failure returns 1 with its own message and nothing else logged, leaves
// MemorySize and the caller's bytes as they were, the half-built engine
// refuses frames, and weight_deinit releases
// whatever was attached (the live-allocation count returns to where it
// started; the sanitizer build's LeakSanitizer checks the same from outside).
// The first run without an injected failure succeeds and the engine it makes
// processes a frame without allocating.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "platform/test_hooks.h"
#include "previewbokeh/weight.h"
#include "support/frames.h"
#include "support/logs.h"

namespace {

struct Shape { const char *name; WeightInitParams init; };

// The message of each allocation's failure, in allocation order.
const char *const kMessages[] = {
    "WeightEngine malloc error\n",    "SmoothKernel malloc error\n",
    "WeightMap malloc error\n",       "RangedDisparity malloc error\n",
    "ExpandDisparity malloc error\n", "TempimDisparity malloc error\n",
    "SmoothDisparity malloc error\n",
};
constexpr long kAllocations = std::size(kMessages);

// Counted bytes: 16-bit weight map, ranged and smoothed disparity, the padded
// smoothing scratch (W2 x H2) and its 32-bit intermediate (W2 x (H2 + 1)).
uint32_t CountedBytes(const WeightInitParams &p) {
  const int64_t h = p.DisparityWinSize / 2;
  const int64_t w2 = p.DisparityWidth + 2 * h, h2 = p.DisparityHeight + 2 * h;
  return static_cast<uint32_t>(int64_t{p.WeightWidth} * p.WeightHeight * 2 +
                               int64_t{p.DisparityWidth} * p.DisparityHeight * 2 + w2 * h2 +
                               w2 * (h2 + 1) * 4);
}

class WeightInitSweep : public ::testing::TestWithParam<Shape> {};

TEST_P(WeightInitSweep, EachAllocationFailsCleanly) {
  const WeightInitParams &p = GetParam().init;
  std::vector<uint8_t> frame = pbtest::RandomBytes(
      DISPARITY_FRAME_HEADER_BYTES + size_t(p.DisparityWidth) * p.DisparityHeight, 8);
  pbtest::SetDisparityHeader(frame.data(), 640 << 19, 1 << 19, uint16_t(p.DisparityWidth));
  const WeightProcessParams wp{4, p.WeightWidth / 2, p.WeightHeight / 2, {},
                               reinterpret_cast<const DisparityFrame *>(frame.data())};
  for (long nth = 1; nth <= kAllocations + 1; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth));
    const long live_before = pb::hooks::LiveAllocationCount();
    std::vector<uint16_t> map(size_t(p.WeightWidth) * p.WeightHeight, 0xffff);
    WeightContext ctx{};
    ctx.MemorySize = 1000;  // the engine adds to what the caller had
    std::memset(ctx.reserved, 0x5a, sizeof ctx.reserved);
    pbtest::LogCapture capture;
    pb::hooks::FailAllocation(nth);
    const int status = weight_init(&p, &ctx);
    pb::hooks::FailAllocation(0);
    const auto lines = capture.Texts();
    EXPECT_TRUE(std::all_of(ctx.reserved, std::end(ctx.reserved), [](uint8_t b) { return b == 0x5a; }));
    if (nth <= kAllocations) {
      EXPECT_EQ(status, 1);
      EXPECT_EQ(lines, std::vector<std::string>{kMessages[nth - 1]});
      EXPECT_EQ(ctx.MemorySize, 1000u) << "a failed init counts nothing";
      EXPECT_EQ(ctx.engine != nullptr, nth > 1) << "the engine is attached before later allocations";
      // Held until the caller releases it: everything allocated before.
      EXPECT_EQ(pb::hooks::LiveAllocationCount() - live_before, nth - 1);
      // A half-built engine refuses frames and writes nothing.
      EXPECT_EQ(weight_async_process(&wp, &ctx, map.data()), 1);
      EXPECT_TRUE(std::all_of(map.begin(), map.end(), [](uint16_t v) { return v == 0xffff; }));
    } else {
      ASSERT_EQ(status, 0) << "weight_init allocates more than expected";
      EXPECT_EQ(ctx.MemorySize, 1000u + CountedBytes(p));
      const long before = pb::hooks::AllocationCount();
      EXPECT_EQ(weight_async_process(&wp, &ctx, map.data()), 0);
      EXPECT_EQ(pb::hooks::AllocationCount(), before) << "processing allocates";
      EXPECT_TRUE(std::all_of(map.begin(), map.end(), [](uint16_t v) { return v <= 1024; }));
    }
    EXPECT_EQ(weight_deinit(&ctx), 0);
    EXPECT_EQ(pb::hooks::LiveAllocationCount(), live_before) << "weight_deinit left memory";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, WeightInitSweep,
    ::testing::Values(Shape{"Window11", {320, 240, 80, 60, 0, 0, 0, 11}},
                      Shape{"Window1", {64, 48, 16, 12, 0, 0, 0, 1}},
                      Shape{"EvenWindow", {96, 72, 24, 18, 0, 0, 0, 10}},
                      Shape{"DisparityLargerThanMap", {40, 30, 64, 48, 0, 0, 0, 5}},
                      Shape{"SingleSample", {7, 5, 1, 1, 0, 0, 0, 3}}),
    [](const auto &info) { return std::string(info.param.name); });

}  // namespace
