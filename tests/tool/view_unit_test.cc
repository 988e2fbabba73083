// The viewer's logic without HTTP: query checking, latest-wins, in-memory
// image encoding, and a session rendering the demo scene through the library.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "image_io.h"
#include "view_session.h"
#include "view_source.h"

using namespace pbtool;

namespace {

SourceFacts Facts(bool focus_applies = true) {
  SourceFacts f;
  f.size = {640, 480};
  f.frames = 3;
  f.focus_applies = focus_applies;
  f.ratio_problems[3] = "ratio 6 is not for this size";  // ratio 6 ruled out
  return f;
}

Params Query(std::initializer_list<std::pair<const std::string, std::string>> items) { return Params(items); }

TEST(ViewParams, AcceptedQueriesGiveTheirValues) {
  const struct {
    Params query;
    Endpoint endpoint;
    bool focus_applies;
    int x, y, f, ratio, frame;
    bool live;
    ImageFormat format;
  } cases[] = {
      {Query({{"x", "0"}, {"y", "0"}, {"f", "1"}}), Endpoint::kRender, true, 0, 0, 1, 1, 0, false, ImageFormat::kPng},
      {Query({{"x", "639"}, {"y", "479"}, {"f", "20"}, {"ratio", "8"}, {"frame", "2"}, {"live", "1"}}),
       Endpoint::kRender, true, 639, 479, 20, 8, 2, true, ImageFormat::kPng},
      {Query({{"x", "5"}, {"y", "6"}, {"f", "4"}, {"format", "jpeg"}}), Endpoint::kRender, true, 5, 6, 4, 1, 0, false,
       ImageFormat::kJpeg},
      {Query({{"x", "5"}, {"y", "6"}, {"f", "4"}, {"format", "png"}, {"live", "0"}}), Endpoint::kRender, true, 5, 6, 4,
       1, 0, false, ImageFormat::kPng},
      {Query({{"x", "5"}, {"y", "6"}, {"f", "3"}, {"ratio", "2"}}), Endpoint::kWeights, true, 5, 6, 3, 2, 0, false,
       ImageFormat::kPng},
      // Recorded weights: no focus needed.
      {Query({{"f", "7"}, {"frame", "1"}}), Endpoint::kRender, false, 0, 0, 7, 1, 1, false, ImageFormat::kPng},
      {Query({{"frame", "2"}}), Endpoint::kFrameOnly, true, 0, 0, 0, 1, 2, false, ImageFormat::kPng},
      {Query({}), Endpoint::kFrameOnly, true, 0, 0, 0, 1, 0, false, ImageFormat::kPng},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto &c = cases[i];
    const RenderParams p = ParseParams(c.query, Facts(c.focus_applies), c.endpoint);
    EXPECT_EQ(p.focus.x, c.x) << i;
    EXPECT_EQ(p.focus.y, c.y) << i;
    EXPECT_EQ(p.f_number, c.f) << i;
    EXPECT_EQ(p.ratio, c.ratio) << i;
    EXPECT_EQ(p.frame, c.frame) << i;
    EXPECT_EQ(p.live, c.live) << i;
    EXPECT_EQ(p.format, c.format) << i;
  }
}

TEST(ViewParams, RefusedQueriesNameTheParameter) {
  const struct {
    Params query;
    Endpoint endpoint;
    const char *parameter, *message;
  } cases[] = {
      {Query({{"y", "1"}, {"f", "4"}}), Endpoint::kRender, "x", "x: required"},
      {Query({{"x", "1"}, {"y", "1"}}), Endpoint::kWeights, "f", "f: required"},
      {Query({{"x", " 1"}, {"y", "1"}, {"f", "4"}}), Endpoint::kRender, "x", "not an integer"},
      {Query({{"x", "1"}, {"y", "0x10"}, {"f", "4"}}), Endpoint::kRender, "y", "not an integer"},
      {Query({{"x", "1"}, {"y", "1"}, {"f", "+4"}}), Endpoint::kRender, "f", "not an integer"},
      {Query({{"x", "640"}, {"y", "1"}, {"f", "4"}}), Endpoint::kRender, "x", "outside 0..639"},
      {Query({{"x", "1"}, {"y", "480"}, {"f", "4"}}), Endpoint::kRender, "y", "outside 0..479"},
      {Query({{"x", "1"}, {"y", "1"}, {"f", "2147483648"}}), Endpoint::kRender, "f", "outside 1..20"},
      {Query({{"x", "1"}, {"y", "1"}, {"f", "4"}, {"ratio", "0"}}), Endpoint::kRender, "ratio", "outside 1..8"},
      {Query({{"x", "1"}, {"y", "1"}, {"f", "4"}, {"ratio", "5"}}), Endpoint::kRender, "ratio", "not one of"},
      {Query({{"x", "1"}, {"y", "1"}, {"f", "4"}, {"ratio", "6"}}), Endpoint::kRender, "ratio", "not for this size"},
      {Query({{"x", "1"}, {"y", "1"}, {"f", "4"}, {"frame", "3"}}), Endpoint::kRender, "frame", "outside 0..2"},
      {Query({{"x", "1"}, {"y", "1"}, {"f", "4"}, {"f", "5"}}), Endpoint::kRender, "f", "more than once"},
      {Query({{"x", "1"}, {"y", "1"}, {"f", "4"}, {"X", "1"}}), Endpoint::kRender, "X", "unknown parameter"},
      {Query({{"x", "1"}, {"y", "1"}, {"f", "4"}, {"format", "jpeg"}}), Endpoint::kWeights, "format", "unknown"},
      {Query({{"x", "1"}, {"y", "1"}, {"f", "4"}, {"format", "PNG"}}), Endpoint::kRender, "format", "not png or jpeg"},
      {Query({{"f", "4"}}), Endpoint::kFrameOnly, "f", "unknown parameter"},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto &c = cases[i];
    try {
      ParseParams(c.query, Facts(), c.endpoint);
      ADD_FAILURE() << i << ": accepted";
    } catch (const RequestError &e) {
      EXPECT_EQ(e.status(), 400) << i;
      EXPECT_EQ(e.parameter(), c.parameter) << i;
      EXPECT_EQ(std::string(e.what()).rfind(std::string(c.parameter) + ": ", 0), 0u) << i << ": " << e.what();
      EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << i << ": " << e.what();
    }
  }
}

// Starts a call on its own thread and waits until it has entered.
void StartCall(LatestWins *gate, std::mutex *lock, bool live, std::atomic<int> *ran, int id,
               std::vector<std::thread> *threads) {
  const uint64_t before = gate->entered();
  threads->emplace_back([=] {
    gate->Run(live, *lock, [&] { ran[id] = 1; });
  });
  if (live) {
    while (gate->entered() == before) std::this_thread::yield();
  } else {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

TEST(ViewLatestWins, OfTheWaitingLiveCallsOnlyTheNewestRuns) {
  LatestWins gate;
  std::mutex lock;
  std::atomic<int> ran[6] = {};
  std::vector<std::thread> threads;
  {
    std::lock_guard<std::mutex> busy(lock);  // a render in progress
    StartCall(&gate, &lock, true, ran, 0, &threads);
    StartCall(&gate, &lock, false, ran, 1, &threads);  // scripted: always rendered
    StartCall(&gate, &lock, true, ran, 2, &threads);
    StartCall(&gate, &lock, true, ran, 3, &threads);
    StartCall(&gate, &lock, true, ran, 4, &threads);
  }
  for (auto &t : threads) t.join();
  const int expected[5] = {0, 1, 0, 0, 1};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(ran[i].load(), expected[i]) << i;
  // With nothing in its way, a live call runs.
  EXPECT_TRUE(gate.Run(true, lock, [&] { ran[5] = 1; }));
  EXPECT_EQ(ran[5].load(), 1);
}

TEST(ViewEncoding, PngRoundTripsAtEveryLevelAndJpegStaysClose) {
  for (int channels : {1, 3}) {
    Image image(37, 21, channels);
    for (size_t i = 0; i < image.pixels.size(); ++i) image.pixels[i] = static_cast<uint8_t>((i * 7919) >> 3);
    for (int level : {0, 1, 6, 9}) {
      const std::vector<uint8_t> png = EncodePng(image, level);
      const Image back = DecodeImage(png, channels, "png");
      EXPECT_EQ(back.width, 37);
      EXPECT_EQ(back.height, 21);
      EXPECT_EQ(back.pixels, image.pixels) << channels << " channels, level " << level;
    }
  }
  // A smooth picture survives JPEG within a few levels.
  Image smooth(64, 48, 3);
  for (int y = 0; y < 48; ++y) {
    for (int x = 0; x < 64; ++x) {
      uint8_t *p = smooth.Row(y) + 3 * x;
      p[0] = static_cast<uint8_t>(x * 4), p[1] = static_cast<uint8_t>(y * 5), p[2] = 100;
    }
  }
  const Image back = DecodeImage(EncodeJpeg(smooth, 90), 3, "jpeg");
  ASSERT_EQ(back.pixels.size(), smooth.pixels.size());
  double error = 0;
  for (size_t i = 0; i < back.pixels.size(); ++i) error += std::abs(back.pixels[i] - smooth.pixels[i]);
  EXPECT_LT(error / static_cast<double>(back.pixels.size()), 3.0);
}

TEST(ViewSession, RendersTheDemoAndKeepsTheTimings) {
  unsetenv("PERSIST_VENDOR_CAM_PREBOKEH_SAVE");
  ViewSession session(MakeDemoSource({160, 120}), {80, 60}, 4);
  EXPECT_EQ(session.Info().value("renders", -1), 0);
  EXPECT_FALSE(session.Info().contains("last"));
  const Reply input = session.Input(Params());
  const Reply same = session.Render(Query({{"x", "3"}, {"y", "3"}, {"f", "20"}}));
  const Reply blurred = session.Render(Query({{"x", "3"}, {"y", "3"}, {"f", "1"}, {"format", "jpeg"}}));
  EXPECT_EQ(same.content_type, "image/png");
  EXPECT_EQ(blurred.content_type, "image/jpeg");
  const auto decode = [](const Reply &r) {
    return DecodeImage(std::vector<uint8_t>(r.body.begin(), r.body.end()), 3, r.content_type).pixels;
  };
  EXPECT_EQ(decode(same), decode(input));
  EXPECT_NE(decode(blurred), decode(input));
  std::vector<std::string> headers;
  for (const auto &h : same.headers) headers.push_back(h.first);
  EXPECT_EQ(headers, (std::vector<std::string>{"X-Weights-Ms", "X-Set-Weights-Ms", "X-Blur-Ms", "X-Encode-Ms",
                                               "X-Render-Ms"}));
  const nlohmann::json info = session.Info();
  EXPECT_EQ(info.value("renders", 0), 2);
  ASSERT_TRUE(info.contains("last"));
  EXPECT_GT(info["last"].value("total_ms", 0.0), 0.0);
  EXPECT_GE(info["last"].value("total_ms", 0.0), info["last"].value("blur_ms", 1e9));
}

}  // namespace
