// Heap use of steady-state frames. A blurred frame allocates exactly the
// pool's four job records (one per strip task); setting the frame parameters
// and computing a weight map allocate nothing at all. A worker frees its job
// record right after the task has signalled completion, so when
// iBokehBlurImage returns at most one record per worker may still be on its
// way out; none survives longer, and nothing accumulates across frames.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/property.h"
#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "previewbokeh/weight.h"
#include "scale/kernel_table.h"
#include "support/assist.h"
#include "support/frames.h"
#include "support/logs.h"

namespace {

constexpr long kJobsPerFrame = 4;  // 2 luma + 2 chroma strips
constexpr int kFrames = 6;
constexpr long kWorkers = 2;

// Waits (briefly) until the live allocation count falls to `target`.
bool SettlesTo(long target) {
  for (int i = 0; i < 20000; ++i) {
    if (pb::hooks::LiveAllocationCount() == target) return true;
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  return pb::hooks::LiveAllocationCount() == target;
}

struct Case {
  const char *name;
  int width, height;
  int ratio;  // asked through the property; honoured when the reduced kernels exist
  bool in_place;
  int32_t f_number;
};

// The working ratio a handle chose, from its init log.
int RatioFromInitLog(const std::vector<std::string> &lines) {
  for (const auto &l : lines) {
    int ratio = 0;
    if (std::sscanf(l.c_str(), "sigma:%*f,SmoothWinSize:%*d,Scalingratio:%d", &ratio) == 1) {
      return ratio;
    }
  }
  return -1;
}

class FrameAllocations : public ::testing::TestWithParam<Case> {
 protected:
  void TearDown() override { pb::hooks::ResetProperties(); }
};

TEST_P(FrameAllocations, OnlyJobRecordsAndAllFreedWithinTheFrame) {
  const Case &c = GetParam();
  pbtest::Assist();
  pb::SetProperty("persist.vendor.cam.prebokeh_ratio", std::to_string(c.ratio).c_str());
  BokehInitParams ip{};
  ip.width = c.width;
  ip.height = c.height;
  void *handle = nullptr;
  pbtest::LogCapture init_log;
  ASSERT_EQ(iBokehInit(&handle, &ip), 0);
  const int ratio = RatioFromInitLog(init_log.Texts());
  if (c.ratio != 1 && pb::KernelsForRatio(c.ratio).downscale_luma != nullptr) {
    EXPECT_EQ(ratio, c.ratio) << "the reduced path exists but was not selected";
  } else {
    EXPECT_EQ(ratio, 1);
  }

  // Weight engine at a quarter of the frame size.
  WeightInitParams wi{};
  wi.WeightWidth = c.width;
  wi.WeightHeight = c.height;
  wi.DisparityWidth = c.width / 4;
  wi.DisparityHeight = c.height / 4;
  wi.DisparityWinSize = 11;
  WeightContext wctx{};
  ASSERT_EQ(weight_init(&wi, &wctx), 0);
  std::vector<uint8_t> disparity = pbtest::RandomBytes(
      DISPARITY_FRAME_HEADER_BYTES + static_cast<size_t>(wi.DisparityWidth) * wi.DisparityHeight,
      7);
  const int32_t num = 300 << 19, den = 1 << 19;
  const uint16_t dw = static_cast<uint16_t>(wi.DisparityWidth);
  std::memcpy(&disparity[offsetof(DisparityFrame, ScaleNumeratorQ19)], &num, 4);
  std::memcpy(&disparity[offsetof(DisparityFrame, ScaleDenominatorQ19)], &den, 4);
  std::memcpy(&disparity[offsetof(DisparityFrame, RefWidth)], &dw, 2);
  std::memcpy(&disparity[offsetof(DisparityFrame, DisparityWidth)], &dw, 2);

  pbtest::GraphicFrame src(c.width, c.height), separate(c.width, c.height);
  const pbtest::GraphicFrame &dst = c.in_place ? src : separate;
  std::vector<uint16_t> weights(static_cast<size_t>(c.width) * c.height);

  pbtest::LogCapture quiet;  // the per-frame log lines are not the subject here
  for (int frame = 0; frame < kFrames; ++frame) {
    SCOPED_TRACE("frame " + std::to_string(frame));
    const auto pixels = pbtest::RandomBytes(src.size(), 100 + static_cast<uint32_t>(frame));
    std::memcpy(src.data(), pixels.data(), src.size());

    WeightProcessParams wp{};
    wp.F_number = 1 + frame % 20;
    wp.sel_x = (frame * 37) % c.width;
    wp.sel_y = (frame * 23) % c.height;
    wp.frame = reinterpret_cast<const DisparityFrame *>(disparity.data());
    BokehFrameParams fp{};
    fp.F_number = c.f_number;
    fp.sel_x = wp.sel_x;
    fp.sel_y = wp.sel_y;
    fp.WeightMap = weights.data();

    const long count0 = pb::hooks::AllocationCount();
    const long live0 = pb::hooks::LiveAllocationCount();
    ASSERT_EQ(weight_async_process(&wp, &wctx, weights.data()), 0);
    ASSERT_EQ(iBokehCreateWeightMap(handle, &fp), 0);
    const long count1 = pb::hooks::AllocationCount();
    EXPECT_EQ(count1, count0) << "weight map or frame parameters allocated";
    EXPECT_EQ(pb::hooks::LiveAllocationCount(), live0);

    ASSERT_EQ(iBokehBlurImage(handle, src.buffer(), dst.buffer()), 0);
    // From the first frame on: nothing is allocated lazily.
    EXPECT_EQ(pb::hooks::AllocationCount() - count1, kJobsPerFrame);
    const long in_flight = pb::hooks::LiveAllocationCount() - live0;
    EXPECT_GE(in_flight, 0);
    EXPECT_LE(in_flight, kWorkers) << "job records of finished tasks still held";
    EXPECT_TRUE(SettlesTo(live0)) << "a job record was never freed";
  }
  quiet.Take();
  EXPECT_EQ(weight_deinit(&wctx), 0);
  EXPECT_EQ(iBokehDeinit(handle), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FrameAllocations,
    ::testing::Values(Case{"FullResolution", 160, 120, 1, false, 2},
                      Case{"InPlace", 160, 120, 1, true, 8},
                      Case{"OddHeightLevel20", 98, 67, 1, false, 0},
                      Case{"Ratio2", 128, 96, 2, false, 2},
                      Case{"Ratio4InPlace", 128, 96, 4, true, 5},
                      Case{"Ratio6", 144, 96, 6, false, 1},
                      Case{"Ratio8", 192, 128, 8, false, 3}),
    [](const ::testing::TestParamInfo<Case> &info) { return std::string(info.param.name); });

}  // namespace
