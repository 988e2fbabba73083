// The exported depth-weight interface: logs, refused arguments, guarded
// aperture and focus, and whole frames against a model built from a plain box
// smoothing written here and the separately tested range table and weight
// reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "platform/diagnostics.h"
#include "previewbokeh/weight.h"
#include "simd/kernel_table.h"
#include "support/frames.h"
#include "support/logs.h"
#include "weight/range_table.h"
#include "weight/weight_engine.h"
#include "weight/weight_map.h"

namespace {

// Header with q = 640, W = RefWidth = 640: raw 0..17 -> 128, 18 -> 85, 19 -> 64, ...
std::vector<uint8_t> Frame(const std::vector<uint8_t> &samples) {
  std::vector<uint8_t> f(DISPARITY_FRAME_HEADER_BYTES, 0);
  pbtest::SetDisparityHeader(f.data(), 640 << 19, 1 << 19, 640);
  f.insert(f.end(), samples.begin(), samples.end());
  return f;
}

struct Engine {
  WeightContext ctx{};
  WeightInitParams init;
  int status;
  Engine(int a, int b, int c, int d, int win) : init{a, b, c, d, 0, 0, 0, win} {
    status = weight_init(&init, &ctx);
  }
  ~Engine() { weight_deinit(&ctx); }
  pb::WeightEngine &e() { return *static_cast<pb::WeightEngine *>(ctx.engine); }
  std::vector<uint16_t> Run(const std::vector<uint8_t> &frame, int f, int x, int y) {
    std::vector<uint16_t> out(size_t(init.WeightWidth) * init.WeightHeight, 0xBEEF);
    const WeightProcessParams p{f, x, y, {}, reinterpret_cast<const DisparityFrame *>(frame.data())};
    EXPECT_EQ(weight_async_process(&p, &ctx, out.data()), 0);
    return out;
  }
};

TEST(WeightEngine, KnownAnswerWithUnitWindow) {
  Engine eng(8, 4, 8, 4, 1);
  ASSERT_EQ(eng.status, 0);
  std::vector<uint8_t> raw(32);
  for (int i = 0; i < 32; ++i) raw[i] = (i % 8) < 4 ? 10 : 18;  // ranged: 128 | 85
  pbtest::LogCapture capture;
  const double before = pb::MonotonicSeconds() * 1000.0;
  const auto map = eng.Run(Frame(raw), 4, 0, 0);  // band 102..160 around 128: 85 is 17 below
  const double after = pb::MonotonicSeconds() * 1000.0;
  const std::vector<std::string> lines = capture.Texts();
  for (int i = 0; i < 32; ++i) EXPECT_EQ(map[i], (i % 8) < 4 ? 0 : 348) << i;  // trunc(17 * 20.48)
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(lines[0], "F_Index:16,DisparityWidth/Height: 8/4\n");
  std::smatch m;
  ASSERT_TRUE(std::regex_match(lines[1], m, std::regex("Weight Boxfilter: ([0-9]+\\.[0-9]{3}) ms\n")));
  EXPECT_GE(std::stod(m[1]), before - 0.001);  // absolute clock reading in ms
  EXPECT_LE(std::stod(m[1]), after + 0.001);
  EXPECT_EQ(std::vector<std::string>(lines.begin() + 2, lines.end()),
            (std::vector<std::string>{"pixel_num : 32\n", "HistMinNumberRatio : 3\n", "min : 85\n",
                                      "max : 128\n", "Hist_th : 0\n"}));
}

// Plain box smoothing with edge replication: positions -win/2 .. win - 1 - win/2
// weighted 1024 / win each (an even window drops the last of its 2h + 1
// positions), horizontal then vertical, each pass rounded.
std::vector<uint8_t> BoxModel(const std::vector<uint8_t> &in, int w, int h, int win) {
  auto pass = [&](const std::vector<uint8_t> &src, bool vertical) {
    std::vector<uint8_t> out(src.size());
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        unsigned acc = 0;
        for (int k = -(win / 2); k < win - win / 2; ++k)
          acc += 1024 / win * (vertical ? src[std::clamp(y + k, 0, h - 1) * w + x]
                                        : src[y * w + std::clamp(x + k, 0, w - 1)]);
        out[y * w + x] = uint8_t(std::min(255u, (acc + 512) >> 10));
      }
    return out;
  };
  return pass(pass(in, false), true);
}

// Whole frames under both kernel sets: the model's weights, the same again on
// a second call, and the engine's own WeightMap buffer never written.
TEST(WeightEngine, FramesMatchModelAndRepeat) {
  struct Case { int a, b, c, d; };
  std::mt19937 rng(11);
  for (bool scalar : {true, false}) {
    pb::UseScalarKernels(scalar);
    for (const Case s : {Case{240, 136, 60, 34}, Case{40, 30, 17, 9}, Case{3, 2, 1, 1}, Case{33, 70, 70, 33}}) {
      for (int win : {1, 5, 10, 11}) {
        SCOPED_TRACE(testing::Message() << s.a << "x" << s.b << " from " << s.c << "x" << s.d
                                        << " window " << win << (scalar ? " scalar" : " vector"));
        Engine eng(s.a, s.b, s.c, s.d, win);
        ASSERT_EQ(eng.status, 0);
        std::memset(eng.e().WeightMap, 0x5A, size_t(s.a) * s.b * 2);
        std::vector<uint8_t> raw(s.c * s.d);
        for (auto &v : raw) v = uint8_t(10 + rng() % 60);
        const auto frame = Frame(raw);
        uint8_t table[256];
        pb::BuildRangeTable(reinterpret_cast<const DisparityFrame *>(frame.data()), table);
        for (auto &v : raw) v = table[v];
        const auto smooth = BoxModel(raw, s.c, s.d, win);
        const int x = rng() % s.a, y = rng() % s.b;
        std::vector<uint16_t> expected(size_t(s.a) * s.b);
        pb::ComputeWeights_C(s.a, s.b, x, y, 0, s.b - 1, expected.data(), s.c, s.d, 50, 128, smooth.data());
        const auto first = eng.Run(frame, 2, x, y);
        ASSERT_EQ(first, expected);
        EXPECT_EQ(eng.Run(frame, 2, x, y), first);
        const auto *own = reinterpret_cast<const uint8_t *>(eng.e().WeightMap);
        EXPECT_TRUE(std::all_of(own, own + size_t(s.a) * s.b * 2, [](uint8_t v) { return v == 0x5A; }));
      }
    }
  }
  pb::UseScalarKernels(false);
}

TEST(WeightEngine, InvalidArgumentsAreRefused) {
  const WeightInitParams bad[] = {{0, 4, 4, 4, 0, 0, 0, 1},  {4, -1, 4, 4, 0, 0, 0, 1},
                                  {4, 4, 0, 4, 0, 0, 0, 1},  {4, 4, 4, 0, 0, 0, 0, 1},
                                  {4, 4, 4, 4, 0, 0, 0, 0},  {4, 4, 4, 4, 0, 0, 0, -3},
                                  {4, 4, 40000, 4, 0, 0, 0, 1}};
  for (const WeightInitParams &p : bad) {
    WeightContext ctx{};
    pbtest::LogCapture capture;
    EXPECT_EQ(weight_init(&p, &ctx), 1);
    EXPECT_EQ(capture.Texts().size(), 1u);
    EXPECT_EQ(weight_deinit(&ctx), 0);
  }
  WeightContext ctx{};
  ctx.engine = &ctx;  // stale pointer: cleared by the failed init
  EXPECT_EQ(weight_init(nullptr, &ctx), 1);
  EXPECT_EQ(ctx.engine, nullptr);
  EXPECT_EQ(weight_init(&bad[0], nullptr), 1);
  EXPECT_EQ(weight_deinit(nullptr), 0);
  EXPECT_EQ(weight_deinit(&ctx), 0);

  Engine eng(8, 4, 8, 4, 1);
  const auto frame = Frame(std::vector<uint8_t>(32, 20));
  uint16_t out[32];
  const WeightProcessParams p{4, 0, 0, {}, reinterpret_cast<const DisparityFrame *>(frame.data())};
  const WeightProcessParams noFrame{};
  EXPECT_EQ(weight_async_process(nullptr, &eng.ctx, out), 1);
  EXPECT_EQ(weight_async_process(&p, nullptr, out), 1);
  EXPECT_EQ(weight_async_process(&p, &eng.ctx, nullptr), 1);
  EXPECT_EQ(weight_async_process(&p, &ctx, out), 1);  // no engine
  EXPECT_EQ(weight_async_process(&noFrame, &eng.ctx, out), 1);
  EXPECT_EQ(weight_async_process(&p, &eng.ctx, out), 0);
}

TEST(WeightEngine, OutOfRangeApertureAndFocusAreGuarded) {
  Engine eng(24, 12, 6, 3, 1);
  std::vector<uint8_t> raw(18);
  for (int i = 0; i < 18; ++i) raw[i] = uint8_t(12 + i);
  const auto frame = Frame(raw);
  const auto reference = eng.Run(frame, 1, 0, 11);
  EXPECT_EQ(eng.Run(frame, 20, 0, 11), reference);  // every gain is unity
  struct Case { int f, x, y; const char *log; };
  const Case cases[] = {{0, 0, 11, "F_number 0 outside 1..20"}, {21, 0, 11, "F_number 21 outside 1..20"},
                        {-5, 0, 11, "F_number -5 outside 1..20"}, {4, -10, 11, "focus point (-10,11)"},
                        {4, 0, 500, "focus point (0,500)"}, {4, -1, 12, "focus point (-1,12)"}};
  for (const Case &c : cases) {
    pbtest::LogCapture capture;
    EXPECT_EQ(eng.Run(frame, c.f, c.x, c.y), reference) << c.log;
    EXPECT_TRUE(pbtest::HasPrefix(capture.Texts(), c.log)) << c.log;
  }
  const auto far = eng.Run(frame, 4, 23, 0);
  EXPECT_NE(far, reference);
  EXPECT_EQ(eng.Run(frame, 4, 1000, -7), far);
}

}  // namespace
