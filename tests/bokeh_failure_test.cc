// Every allocation of iBokehInit and of a frame fails in turn: each failure
// gives its message and status, and nothing leaks (checked by the
// LeakSanitizer of the sanitizer build).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "support/assist.h"
#include "support/frames.h"
#include "support/logs.h"

namespace {

// Allocations of a successful init, in order, with the message their failure logs.
const std::vector<std::vector<std::string>> kInitFailures = {
    {"BokehHandle malloc error\n"},
    {"pThreadArg malloc error\n"},
    {"can't alloc thread pool\n", "pool_init error\n"},
    {"can't malloc threadid\n", "pool_init error\n"},
    {"can't malloc thread_creatflag\n", "pool_init error\n"},
    {"BlurWorkState malloc error\n"},
    {"kernel malloc error\n"},
    {"Src_copy malloc error\n"},
    {"XInterp_image malloc error\n"},
    {"scale_img malloc error\n"},
    {"input_tmp_y malloc error\n"},
    {"input_tmp_uv malloc error\n"},
    {"tempim_y malloc error\n"},
    {"tempim_uv malloc error\n"},
    {"smooth_img malloc error\n"},
    {"BokehFrameState malloc error\n"},
};

TEST(AllocationFailures, EveryInitAllocationInTurn) {
  pbtest::Assist();
  for (size_t nth = 1;; ++nth) {
    BokehInitParams p{};
    p.width = 64;
    p.height = 48;
    void *h = nullptr;
    pbtest::LogCapture capture;
    pb::hooks::FailAllocation(static_cast<long>(nth));
    const int status = iBokehInit(&h, &p);
    pb::hooks::FailAllocation(0);
    const auto lines = capture.Texts();
    // The record's outputs are written as soon as the handle exists.
    EXPECT_EQ(p.SmoothWinSize, nth == 1 ? 0 : 11);
    EXPECT_EQ(p.WindowRadius, nth == 1 ? 0 : 5);
    if (status == 0) {
      EXPECT_EQ(nth, kInitFailures.size() + 1) << "init allocates more than expected";
      EXPECT_EQ(iBokehDeinit(h), 0);
      break;
    }
    ASSERT_LE(nth, kInitFailures.size()) << "init keeps failing";
    EXPECT_EQ(status, 1);
    // The failure's messages appear in order, followed by the tear-down
    // (except when the handle itself could not be made).
    const auto &expected = kInitFailures[nth - 1];
    auto it = std::find(lines.begin(), lines.end(), expected[0]);
    ASSERT_NE(it, lines.end()) << "missing " << expected[0];
    for (size_t k = 1; k < expected.size(); ++k) {
      it = std::find(it, lines.end(), expected[k]);
      ASSERT_NE(it, lines.end()) << "missing " << expected[k];
    }
    EXPECT_EQ(pbtest::HasLine(lines, "iBokehDeinit end\n"), nth != 1) << "allocation " << nth;
    if (nth == 1) {
      EXPECT_EQ(h, nullptr);
    }
  }
}

// A frame allocates only the pool's job records. When one cannot be
// allocated its strip runs on the caller's thread and the frame is the same.
TEST(AllocationFailures, JobRecordFailureStillCompletesTheFrame) {
  const int width = 96, height = 64;
  pbtest::Assist();
  BokehInitParams p{};
  p.width = width;
  p.height = height;
  void *h = nullptr;
  ASSERT_EQ(iBokehInit(&h, &p), 0);
  pbtest::GraphicFrame src(width, height), dst(width, height);
  const auto pixels = pbtest::RandomBytes(src.size(), 11);
  std::memcpy(src.data(), pixels.data(), src.size());
  const auto weights = pbtest::RandomWeights(static_cast<size_t>(width) * height, 4, 1024);
  BokehFrameParams fp{};
  fp.F_number = 2;
  fp.WeightMap = weights.data();
  ASSERT_EQ(iBokehCreateWeightMap(h, &fp), 0);

  std::vector<uint8_t> model(src.size());
  pbtest::ModelFrame(src.data(), weights.data(), width, height, 128, model.data());
  const long before = pb::hooks::AllocationCount();
  ASSERT_EQ(iBokehBlurImage(h, src.buffer(), dst.buffer()), 0);
  const long per_frame = pb::hooks::AllocationCount() - before;
  EXPECT_EQ(per_frame, 4) << "a frame allocates one record per strip task";
  for (long nth = 1; nth <= per_frame; ++nth) {
    std::memset(dst.data(), 0, dst.size());
    pb::hooks::FailAllocation(nth);
    ASSERT_EQ(iBokehBlurImage(h, src.buffer(), dst.buffer()), 0);
    pb::hooks::FailAllocation(0);
    EXPECT_EQ(std::vector<uint8_t>(dst.data(), dst.data() + dst.size()), model) << nth;
  }
  EXPECT_EQ(iBokehDeinit(h), 0);
}

}  // namespace
