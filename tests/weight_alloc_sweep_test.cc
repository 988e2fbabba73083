// Every allocation of weight_init fails in turn, for several engine shapes:
// each failure returns 1 with its own message, leaves MemorySize as it was,
// and weight_deinit releases whatever was attached (the live-allocation count
// returns to where it started; the sanitizer build's LeakSanitizer checks the
// same from outside). The first run without an injected failure succeeds and
// the engine it makes processes a frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/test_hooks.h"
#include "previewbokeh/weight.h"
#include "support/frames.h"
#include "support/logs.h"

namespace {

struct Shape {
  const char *name;
  int32_t weight_width, weight_height;
  int32_t disparity_width, disparity_height;
  int32_t window;
};

// Messages of the buffers whose failures are reported by name, in allocation
// order. The engine record and the kernel come first and are reported too,
// with a message ending in " malloc error\n".
const std::vector<std::string> kBufferMessages = {
    "WeightMap malloc error\n",       "RangedDisparity malloc error\n",
    "ExpandDisparity malloc error\n", "TempimDisparity malloc error\n",
    "SmoothDisparity malloc error\n",
};
constexpr size_t kLeadingAllocations = 2;  // engine record, kernel

uint32_t CountedBytes(const Shape &s) {
  const int64_t h = s.window / 2;
  const int64_t w2 = s.disparity_width + 2 * h, h2 = s.disparity_height + 2 * h;
  return static_cast<uint32_t>(int64_t{s.weight_width} * s.weight_height * 2 +
                               int64_t{s.disparity_width} * s.disparity_height * 2 + w2 * h2 +
                               w2 * (h2 + 1) * 4);
}

std::vector<uint8_t> DisparityFrameBytes(const Shape &s, uint32_t seed) {
  std::vector<uint8_t> bytes = pbtest::RandomBytes(
      DISPARITY_FRAME_HEADER_BYTES + static_cast<size_t>(s.disparity_width) * s.disparity_height,
      seed);
  pbtest::SetDisparityHeader(bytes.data(), 640 << 19, 1 << 19, static_cast<uint16_t>(s.disparity_width));
  return bytes;
}

bool EndsWith(const std::string &s, const std::string &suffix) {
  return s.size() >= suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

class WeightInitSweep : public ::testing::TestWithParam<Shape> {};

TEST_P(WeightInitSweep, EachAllocationFailsCleanly) {
  const Shape &s = GetParam();
  WeightInitParams p{};
  p.WeightWidth = s.weight_width;
  p.WeightHeight = s.weight_height;
  p.DisparityWidth = s.disparity_width;
  p.DisparityHeight = s.disparity_height;
  p.DisparityWinSize = s.window;
  const size_t expected_allocations = kLeadingAllocations + kBufferMessages.size();

  for (size_t nth = 1;; ++nth) {
    ASSERT_LE(nth, expected_allocations + 1) << "weight_init keeps failing";
    const long live_before = pb::hooks::LiveAllocationCount();
    WeightContext ctx{};
    ctx.MemorySize = 1000;  // the engine adds to what the caller had
    std::memset(ctx.reserved, 0x5a, sizeof ctx.reserved);
    pbtest::LogCapture capture;
    pb::hooks::FailAllocation(static_cast<long>(nth));
    const int status = weight_init(&p, &ctx);
    pb::hooks::FailAllocation(0);
    const auto lines = capture.Texts();
    // The caller's bytes of the context are never touched.
    EXPECT_TRUE(std::all_of(ctx.reserved, ctx.reserved + sizeof ctx.reserved,
                            [](uint8_t b) { return b == 0x5a; }));

    if (status == 0) {
      EXPECT_EQ(nth, expected_allocations + 1) << "weight_init allocates more than expected";
      EXPECT_EQ(ctx.MemorySize, 1000u + CountedBytes(s));
      // The engine made on this last run works.
      const auto frame = DisparityFrameBytes(s, static_cast<uint32_t>(nth));
      WeightProcessParams wp{};
      wp.F_number = 4;
      wp.sel_x = s.weight_width / 2;
      wp.sel_y = s.weight_height / 2;
      wp.frame = reinterpret_cast<const DisparityFrame *>(frame.data());
      std::vector<uint16_t> map(static_cast<size_t>(s.weight_width) * s.weight_height, 0xffff);
      const long before = pb::hooks::AllocationCount();
      EXPECT_EQ(weight_async_process(&wp, &ctx, map.data()), 0);
      EXPECT_EQ(pb::hooks::AllocationCount(), before) << "processing allocates";
      EXPECT_TRUE(std::all_of(map.begin(), map.end(), [](uint16_t v) { return v <= 1024; }));
      EXPECT_EQ(weight_deinit(&ctx), 0);
      EXPECT_EQ(pb::hooks::LiveAllocationCount(), live_before) << "leak after success";
      break;
    }

    SCOPED_TRACE("allocation " + std::to_string(nth));
    EXPECT_EQ(status, 1);
    EXPECT_EQ(ctx.MemorySize, 1000u) << "a failed init counts nothing";
    if (nth <= kLeadingAllocations) {
      EXPECT_TRUE(std::any_of(lines.begin(), lines.end(),
                              [](const std::string &l) { return EndsWith(l, " malloc error\n"); }));
    } else {
      EXPECT_TRUE(pbtest::HasLine(lines, kBufferMessages[nth - kLeadingAllocations - 1]))
          << "missing " << kBufferMessages[nth - kLeadingAllocations - 1];
    }
    // Exactly one failure message per failed init.
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string &l) { return EndsWith(l, "malloc error\n"); }),
              1);
    if (nth == 1) {
      EXPECT_EQ(ctx.engine, nullptr) << "no engine record to attach";
    } else {
      EXPECT_NE(ctx.engine, nullptr) << "the engine is attached before later allocations";
    }
    // What is held until the caller releases it: everything allocated before.
    EXPECT_EQ(pb::hooks::LiveAllocationCount() - live_before, static_cast<long>(nth) - 1);
    EXPECT_EQ(weight_deinit(&ctx), 0);
    EXPECT_EQ(pb::hooks::LiveAllocationCount(), live_before) << "weight_deinit left memory";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, WeightInitSweep,
    ::testing::Values(Shape{"Window11", 320, 240, 80, 60, 11}, Shape{"Window1", 64, 48, 16, 12, 1},
                      Shape{"EvenWindow", 96, 72, 24, 18, 10},
                      Shape{"DisparityLargerThanMap", 40, 30, 64, 48, 5},
                      Shape{"SingleSample", 7, 5, 1, 1, 3}),
    [](const ::testing::TestParamInfo<Shape> &info) { return std::string(info.param.name); });

}  // namespace
