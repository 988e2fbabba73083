// The four bokeh entry points: log lines, argument and failure handling
// (every allocation of init failing in turn; leaks are left to the sanitizer
// build), the ratio property, blur levels, buffer locking and the frame
// counter.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "api/handle.h"
#include "platform/property.h"
#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "support/assist.h"
#include "support/bokeh.h"
#include "support/logs.h"

namespace {

using pbtest::Bokeh;
using pbtest::LogCapture;

const char kVersionLine[] =
    "PreBokeh version: CAM_ALGO_CV_PREBOKEH_LIBVER[1.1.5.0.1355857][Jul 19 2021][11:25:39]\n";

std::string DualMode() {
  char value[pb::kPropValueMax];
  pb::GetProperty("vendor.cam.dualmode", value);
  return value;
}

TEST(BokehInit, LogsItsLinesAndFillsTheRecord) {
  pb::hooks::ResetProperties();
  Bokeh bokeh(1920, 1080);
  ASSERT_EQ(bokeh.status, 0);
  const auto &lines = bokeh.lines;
  ASSERT_GE(lines.size(), 6u);
  EXPECT_EQ(std::vector<std::string>(bokeh.log.begin(), bokeh.log.begin() + 5),
            (std::vector<std::string>{"iBokehInit start\n", kVersionLine, "Open execute finish !\n",
                                      "iBokehInit: width : 1920   height:1080 \n",
                                      "sigma:3.666667,SmoothWinSize:11,Scalingratio:1\n"}));
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].priority, i == 1 ? 4 : 3) << lines[i].text;
  }
  EXPECT_TRUE(std::regex_match(
      lines.back().text, std::regex("iBokehInit end: buffer sum: 40047 KB, \\d+\\.\\d{3} ms\n")))
      << lines.back().text;
  EXPECT_EQ(static_cast<pb::BokehHandle *>(bokeh.handle)->buffer_sum, 41008860);
  EXPECT_EQ(bokeh.params.SmoothWinSize, 11);
  EXPECT_EQ(bokeh.params.WindowRadius, 5);
  EXPECT_EQ(DualMode(), "high_mode");
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
  EXPECT_EQ(capture.Texts(), (std::vector<std::string>{"iBokehInit start\n", kVersionLine,
                                                       "iBokehInit start\n", kVersionLine}));
  EXPECT_EQ(h, reinterpret_cast<void *>(0x1));
  EXPECT_EQ(p.SmoothWinSize, 0);
  EXPECT_EQ(DualMode(), "");
}

TEST(BokehInit, UnsupportedSizesFailCleanly) {
  for (const auto &[width, height] : std::vector<std::pair<int, int>>{
           {0, 32}, {-64, 32}, {63, 32}, {64, 1}, {64, 0}, {64, -4}, {65536, 32768}}) {
    Bokeh bokeh(width, height);
    EXPECT_EQ(bokeh.status, 1) << width << "x" << height;
    EXPECT_TRUE(pbtest::HasPrefix(bokeh.log, "iBokehInit: unsupported frame size"));
    EXPECT_TRUE(pbtest::HasLine(bokeh.log, "iBokehDeinit end\n"));
    EXPECT_EQ(bokeh.params.SmoothWinSize, 11);
    EXPECT_EQ(bokeh.params.WindowRadius, 5);
  }
}

// Ratio values that cannot be honoured keep full resolution and say so.
TEST(RatioProperty, UnusableValuesKeepFullResolution) {
  const struct {
    const char *value;
    int width, height;
    const char *log;
  } cases[] = {
      {"3", 64, 64, "prebokeh_ratio 3 not supported, using 1\n"},
      {"four", 64, 64, "prebokeh_ratio four not supported, using 1\n"},
      {"4x", 64, 64, "prebokeh_ratio 4x not supported, using 1\n"},
      {"4", 68, 64, "prebokeh_ratio 4 not possible for 68x64, using 1\n"},
      {"4", 64, 62, "prebokeh_ratio 4 not possible for 64x62, using 1\n"},
      {"6", 72, 90, "prebokeh_ratio 6 not possible for 72x90, using 1\n"},
      {"8", 128, 120, "prebokeh_ratio 8 not possible for 128x120, using 1\n"},
  };
  for (const auto &c : cases) {
    Bokeh bokeh(c.width, c.height, c.value);
    ASSERT_EQ(bokeh.status, 0);
    EXPECT_TRUE(pbtest::HasLine(bokeh.log, c.log)) << c.value << " " << c.width << "x" << c.height;
    EXPECT_TRUE(pbtest::HasLine(bokeh.log, "sigma:3.666667,SmoothWinSize:11,Scalingratio:1\n"));
  }
}

// Allocations of a successful init, in order, with the messages their failure logs.
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

TEST(BokehInit, EveryAllocationFailingInTurn) {
  for (size_t nth = 1;; ++nth) {
    Bokeh bokeh(64, 48, "", static_cast<long>(nth));
    // The record's outputs are written as soon as the handle exists.
    EXPECT_EQ(bokeh.params.SmoothWinSize, nth == 1 ? 0 : 11);
    EXPECT_EQ(bokeh.params.WindowRadius, nth == 1 ? 0 : 5);
    if (bokeh.status == 0) {
      EXPECT_EQ(nth, kInitFailures.size() + 1) << "init allocates more than expected";
      break;
    }
    ASSERT_LE(nth, kInitFailures.size()) << "init keeps failing";
    EXPECT_EQ(bokeh.status, 1);
    // The failure's messages in order, then the tear-down (unless the handle
    // itself could not be made).
    auto it = bokeh.log.begin();
    for (const std::string &message : kInitFailures[nth - 1]) {
      it = std::find(it, bokeh.log.end(), message);
      ASSERT_NE(it, bokeh.log.end()) << "missing " << message;
    }
    EXPECT_EQ(pbtest::HasLine(bokeh.log, "iBokehDeinit end\n"), nth != 1) << "allocation " << nth;
    if (nth == 1) {
      EXPECT_EQ(bokeh.handle, nullptr);
    }
  }
}

TEST(BokehCalls, NullHandlesAndMissingWeightMap) {
  Bokeh h(64, 32);
  ASSERT_EQ(h.status, 0);
  pbtest::GraphicFrame frame(64, 32);
  BokehFrameParams fp{};
  {
    LogCapture capture;
    EXPECT_EQ(iBokehCreateWeightMap(nullptr, &fp), 1);
    EXPECT_EQ(iBokehDeinit(nullptr), 1);
    const auto lines = capture.Texts();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(std::regex_match(
        lines[0], std::regex(R"(iBokehCreateWeightMap start\[handle:.*,params:.*\]\n)")));
    EXPECT_EQ(lines[1], "iBokehDeinit start[handle:(nil)]\n");
  }
  pbtest::Assist().clear_events();
  LogCapture capture;
  EXPECT_EQ(iBokehBlurImage(nullptr, frame.buffer(), frame.buffer()), 1);
  EXPECT_EQ(iBokehBlurImage(h.handle, nullptr, frame.buffer()), 1);
  EXPECT_EQ(iBokehBlurImage(h.handle, frame.buffer(), nullptr), 1);
  EXPECT_EQ(iBokehCreateWeightMap(h.handle, nullptr), 1);
  // No weight map has been set yet: refused before anything is locked.
  EXPECT_EQ(iBokehBlurImage(h.handle, frame.buffer(), frame.buffer()), 1);
  const auto lines = capture.Texts();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "invalid handle\n"), 3);
  EXPECT_TRUE(pbtest::HasLine(lines, "iBokehBlurImage: no weight map set\n"));
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
  Bokeh h(64, 32);
  ASSERT_EQ(h.status, 0);
  pbtest::GraphicFrame src(64, 32), dst(64, 32);
  std::vector<uint16_t> weights(64 * 32, 1024);
  for (const auto &c : cases) {
    LogCapture capture;
    ASSERT_EQ(h.Blur(c.f_number, weights.data(), src, dst), 0);
    const auto lines = capture.Texts();
    char expect[128];
    std::snprintf(expect, sizeof expect, "F_number: %d, sel_x: 7, sel_y: 9, alpha: %d\n", c.printed,
                  c.alpha);
    EXPECT_TRUE(pbtest::HasLine(lines, expect)) << "F_number " << c.f_number;
    std::snprintf(expect, sizeof expect, "F_number: %d, sel_x: 7, sel_y: 9\n", c.f_number);
    EXPECT_TRUE(pbtest::HasLine(lines, expect)) << "F_number " << c.f_number;
  }
}

// Each frame locks source then destination and unlocks them in that order,
// and takes the next number of a counter shared by all handles.
TEST(BokehCalls, LocksInOrderAndNumbersFramesAcrossHandles) {
  pbtest::GraphicFrame src(64, 32), dst(64, 32);
  std::vector<uint16_t> weights(64 * 32, 512);
  const auto &assist = pbtest::Assist();
  const std::pair<char, void *> expected[] = {
      {'L', src.buffer()}, {'L', dst.buffer()}, {'U', src.buffer()}, {'U', dst.buffer()}};
  std::vector<int> numbers;
  auto blur = [&](Bokeh &bokeh) {
    assist.clear_events();
    LogCapture capture;
    ASSERT_EQ(bokeh.Blur(4, weights.data(), src, dst), 0);
    ASSERT_EQ(assist.event_count(), 4);
    for (int i = 0; i < 4; ++i) {
      void *buffer = nullptr;
      EXPECT_EQ(assist.event(i, &buffer), expected[i].first) << i;
      EXPECT_EQ(buffer, expected[i].second) << i;
    }
    EXPECT_EQ(assist.lock_count(src.buffer()), 0);
    EXPECT_EQ(assist.lock_count(dst.buffer()), 0);
    for (const auto &l : capture.Texts()) {
      std::smatch m;
      if (std::regex_match(l, m, std::regex(R"(iBokehBlurImage (-?\d+): \d+\.\d{3} ms\n)"))) {
        numbers.push_back(std::stoi(m[1]));
      }
    }
  };
  {
    Bokeh a(64, 32), b(64, 32);
    blur(a);
    blur(b);
    blur(a);
  }
  Bokeh c(64, 32);
  blur(c);
  ASSERT_EQ(numbers.size(), 4u);
  for (size_t i = 1; i < numbers.size(); ++i) EXPECT_EQ(numbers[i], numbers[i - 1] + 1);
}

}  // namespace
