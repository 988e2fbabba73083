// Entry points of the bokeh interface: logs, argument handling, blur levels,
// graphic-buffer locking and the frame counter.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include "api/handle.h"
#include "blur/work_state.h"
#include "platform/property.h"
#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "support/assist.h"
#include "support/frames.h"
#include "support/logs.h"

namespace {

using pbtest::LogCapture;

const char kVersionLine[] =
    "PreBokeh version: CAM_ALGO_CV_PREBOKEH_LIBVER[1.1.5.0.1355857][Jul 19 2021][11:25:39]\n";

struct Handle {
  Handle(int width, int height) {
    pbtest::Assist();
    BokehInitParams p{};
    p.width = width;
    p.height = height;
    status = iBokehInit(&ptr, &p);
  }
  ~Handle() {
    if (status == 0) iBokehDeinit(ptr);
  }
  void *ptr = nullptr;
  int status = -1;
};

int Blur(void *handle, int f_number, const uint16_t *weights, const pbtest::GraphicFrame &src,
         const pbtest::GraphicFrame &dst) {
  BokehFrameParams fp{};
  fp.F_number = f_number;
  fp.sel_x = 7;
  fp.sel_y = 9;
  fp.WeightMap = weights;
  EXPECT_EQ(iBokehCreateWeightMap(handle, &fp), 0);
  return iBokehBlurImage(handle, src.buffer(), dst.buffer());
}

TEST(BokehInit, LogsItsLinesAndFillsTheRecord) {
  pbtest::Assist();
  pb::hooks::ResetProperties();
  BokehInitParams p{};
  p.width = 1920;
  p.height = 1080;
  void *h = nullptr;
  LogCapture capture;
  ASSERT_EQ(iBokehInit(&h, &p), 0);
  const auto lines = capture.Take();
  ASSERT_GE(lines.size(), 6u);
  EXPECT_EQ(lines[0].text, "iBokehInit start\n");
  EXPECT_EQ(lines[1].priority, 4);
  EXPECT_EQ(lines[1].text, kVersionLine);
  EXPECT_EQ(lines[2].text, "Open execute finish !\n");
  EXPECT_EQ(lines[3].text, "iBokehInit: width : 1920   height:1080 \n");
  EXPECT_EQ(lines[4].text, "sigma:3.666667,SmoothWinSize:11,Scalingratio:1\n");
  EXPECT_TRUE(std::regex_match(lines.back().text,
                               std::regex("iBokehInit end: buffer sum: 40047 KB, \\d+\\.\\d{3} ms\n")))
      << lines.back().text;
  for (const auto &l : lines) {
    if (&l != &lines[1]) {
      EXPECT_EQ(l.priority, 3) << l.text;
    }
  }
  EXPECT_EQ(static_cast<pb::BokehHandle *>(h)->buffer_sum, 41008860);
  EXPECT_EQ(p.SmoothWinSize, 11);
  EXPECT_EQ(p.WindowRadius, 5);
  char value[pb::kPropValueMax];
  pb::GetProperty("vendor.cam.dualmode", value);
  EXPECT_STREQ(value, "high_mode");
  EXPECT_EQ(iBokehDeinit(h), 0);
}

// The 11-tap kernel, and for other lengths the properties truncation keeps.
TEST(BokehInit, GaussianKernel) {
  for (int n : {11, 1, 5, 7, 9, 13, 21}) {
    std::vector<uint16_t> taps(n);
    pb::BlurWorkState s{};
    s.SmoothWinSize = n;
    s.kernel = taps.data();
    pbtest::LogCapture quiet;
    pb::BuildGaussianKernel(&s);
    if (n == 11) {
      EXPECT_EQ(taps, std::vector<uint16_t>(pbtest::kGaussian11, pbtest::kGaussian11 + 11));
    }
    int sum = 0;
    for (int i = 0; i < n; ++i) {
      EXPECT_EQ(taps[i], taps[n - 1 - i]) << n;
      EXPECT_LE(taps[i], taps[n / 2]) << n;
      sum += taps[i];
    }
    EXPECT_LE(sum, 1024) << n;
    EXPECT_GT(sum, 1024 - n) << n;
  }
}

TEST(BokehInit, NullArgumentsAreRefused) {
  pb::hooks::ResetProperties();
  BokehInitParams p{};
  p.width = 64;
  p.height = 32;
  void *h = reinterpret_cast<void *>(0x1);
  LogCapture capture;
  EXPECT_EQ(iBokehInit(&h, nullptr), 1);
  EXPECT_EQ(iBokehInit(nullptr, &p), 1);
  EXPECT_EQ(capture.Texts(),
            (std::vector<std::string>{"iBokehInit start\n", kVersionLine, "iBokehInit start\n",
                                      kVersionLine}));
  EXPECT_EQ(h, reinterpret_cast<void *>(0x1));
  EXPECT_EQ(p.SmoothWinSize, 0);
  char value[pb::kPropValueMax];
  pb::GetProperty("vendor.cam.dualmode", value);
  EXPECT_STREQ(value, "");
}

TEST(BokehInit, UnsupportedSizesFailCleanly) {
  pbtest::Assist();
  const struct {
    int width, height;
  } cases[] = {{0, 32}, {-64, 32}, {63, 32}, {64, 1}, {64, 0}, {64, -4}, {65536, 32768}};
  for (const auto &c : cases) {
    BokehInitParams p{};
    p.width = c.width;
    p.height = c.height;
    void *h = nullptr;
    LogCapture capture;
    EXPECT_EQ(iBokehInit(&h, &p), 1) << c.width << "x" << c.height;
    const auto lines = capture.Texts();
    EXPECT_TRUE(pbtest::HasPrefix(lines, "iBokehInit: unsupported frame size"));
    EXPECT_TRUE(pbtest::HasLine(lines, "iBokehDeinit end\n"));
    EXPECT_EQ(p.SmoothWinSize, 11);
    EXPECT_EQ(p.WindowRadius, 5);
  }
}

TEST(BokehCalls, NullHandlesAndMissingWeightMap) {
  Handle h(64, 32);
  ASSERT_EQ(h.status, 0);
  pbtest::GraphicFrame frame(64, 32);
  BokehFrameParams fp{};
  {
    LogCapture capture;
    EXPECT_EQ(iBokehCreateWeightMap(nullptr, &fp), 1);
    EXPECT_EQ(iBokehDeinit(nullptr), 1);
    const auto lines = capture.Texts();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(iBokehCreateWeightMap start\[handle:.*,params:.*\]\n)")));
    EXPECT_EQ(lines[1], "iBokehDeinit start[handle:(nil)]\n");
  }
  pbtest::Assist().clear_events();
  {
    LogCapture capture;
    EXPECT_EQ(iBokehBlurImage(nullptr, frame.buffer(), frame.buffer()), 1);
    EXPECT_EQ(iBokehBlurImage(h.ptr, nullptr, frame.buffer()), 1);
    EXPECT_EQ(iBokehBlurImage(h.ptr, frame.buffer(), nullptr), 1);
    EXPECT_EQ(iBokehCreateWeightMap(h.ptr, nullptr), 1);
    // No weight map has been set yet: refused before anything is locked.
    EXPECT_EQ(iBokehBlurImage(h.ptr, frame.buffer(), frame.buffer()), 1);
    const auto lines = capture.Texts();
    int invalid = 0;
    for (const auto &l : lines) invalid += l == "invalid handle\n";
    EXPECT_EQ(invalid, 3);
    EXPECT_TRUE(pbtest::HasLine(lines, "iBokehBlurImage: no weight map set\n"));
  }
  EXPECT_EQ(pbtest::Assist().event_count(), 0);
}

// Blur level from the aperture, seen through the frame driver's line, which
// prints 20 - level, and the alpha it picked.
TEST(BokehCalls, BlurLevelAndAlphaFromFNumber) {
  const struct {
    int f_number, printed, alpha;
  } cases[] = {{1, 1, 128},   {2, 1, 128},  {3, 2, 126},  {8, 4, 122},  {19, 10, 110},
               {20, 20, 0},   {21, 11, 107}, {39, 20, 0},  {40, 20, 0},  {41, 21, 0},
               {0, 0, 0},     {-1, 0, 0},   {-2, 0, 0},   {-3, -1, 0},  {17, 9, 112},
               {-2147483647 - 1, -1073741823, 0}, {2147483647, 1073741824, 0}};
  Handle h(64, 32);
  ASSERT_EQ(h.status, 0);
  pbtest::GraphicFrame src(64, 32), dst(64, 32);
  std::vector<uint16_t> weights(64 * 32, 1024);
  for (const auto &c : cases) {
    LogCapture capture;
    ASSERT_EQ(Blur(h.ptr, c.f_number, weights.data(), src, dst), 0);
    const auto lines = capture.Texts();
    char expect[128];
    std::snprintf(expect, sizeof expect, "F_number: %d, sel_x: 7, sel_y: 9, alpha: %d\n",
                  c.printed, c.alpha);
    EXPECT_TRUE(pbtest::HasLine(lines, expect)) << "F_number " << c.f_number;
    std::snprintf(expect, sizeof expect, "F_number: %d, sel_x: 7, sel_y: 9\n", c.f_number);
    EXPECT_TRUE(pbtest::HasLine(lines, expect)) << "F_number " << c.f_number;
  }
}

TEST(BokehCalls, LocksAndUnlocksInOrder) {
  Handle h(64, 32);
  ASSERT_EQ(h.status, 0);
  pbtest::GraphicFrame src(64, 32), dst(64, 32);
  std::vector<uint16_t> weights(64 * 32, 512);
  pbtest::Assist().clear_events();
  ASSERT_EQ(Blur(h.ptr, 4, weights.data(), src, dst), 0);
  const auto &a = pbtest::Assist();
  ASSERT_EQ(a.event_count(), 4);
  const struct {
    char kind;
    void *buffer;
  } expected[] = {{'L', src.buffer()}, {'L', dst.buffer()}, {'U', src.buffer()}, {'U', dst.buffer()}};
  for (int i = 0; i < 4; ++i) {
    void *buffer = nullptr;
    EXPECT_EQ(a.event(i, &buffer), expected[i].kind) << i;
    EXPECT_EQ(buffer, expected[i].buffer) << i;
  }
  EXPECT_EQ(a.lock_count(src.buffer()), 0);
  EXPECT_EQ(a.lock_count(dst.buffer()), 0);
}

TEST(BokehCalls, FrameCounterRunsAcrossHandles) {
  pbtest::GraphicFrame src(64, 32), dst(64, 32);
  std::vector<uint16_t> weights(64 * 32, 100);
  std::vector<int> numbers;
  auto blur_and_read = [&](void *handle) {
    LogCapture capture;
    ASSERT_EQ(Blur(handle, 4, weights.data(), src, dst), 0);
    for (const auto &l : capture.Texts()) {
      std::smatch m;
      if (std::regex_match(l, m, std::regex(R"(iBokehBlurImage (-?\d+): \d+\.\d{3} ms\n)"))) {
        numbers.push_back(std::stoi(m[1]));
      }
    }
  };
  {
    Handle a(64, 32), b(64, 32);
    blur_and_read(a.ptr);
    blur_and_read(b.ptr);
    blur_and_read(a.ptr);
  }
  Handle c(64, 32);
  blur_and_read(c.ptr);
  ASSERT_EQ(numbers.size(), 4u);
  for (size_t i = 1; i < numbers.size(); ++i) EXPECT_EQ(numbers[i], numbers[i - 1] + 1);
}

}  // namespace
