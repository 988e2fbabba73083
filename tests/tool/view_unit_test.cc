// The viewer's logic without HTTP: latest-wins, in-memory PNG encoding, and
// a session rendering the demo scene through the library.
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

TEST(ViewEncoding, PngRoundTripsAtEveryLevel) {
  for (int channels : {1, 3}) {
    Image image(37, 21, channels);
    for (size_t i = 0; i < image.pixels.size(); ++i) image.pixels[i] = static_cast<uint8_t>((i * 7919) >> 3);
    for (int level : {0, 1, 9}) {
      const Image back = DecodeImage(EncodePng(image, level), channels, "png");
      EXPECT_EQ(back.width, 37);
      EXPECT_EQ(back.height, 21);
      EXPECT_EQ(back.pixels, image.pixels) << channels << " channels, level " << level;
    }
  }
}

TEST(ViewSession, RendersTheDemoAndKeepsTheTimings) {
  unsetenv("PERSIST_VENDOR_CAM_PREBOKEH_SAVE");
  ViewSession session(MakeDemoSource({160, 120}), {80, 60}, 4);
  EXPECT_EQ(session.Info().value("renders", -1), 0);
  const auto decode = [](const Reply &r) {
    return DecodeImage(std::vector<uint8_t>(r.body.begin(), r.body.end()), 3, r.content_type).pixels;
  };
  const auto input = decode(session.Input(Params()));
  const Reply same = session.Render(Params({{"x", "3"}, {"y", "3"}, {"f", "20"}}));
  const Reply blurred = session.Render(Params({{"x", "3"}, {"y", "3"}, {"f", "1"}, {"format", "jpeg"}}));
  EXPECT_EQ(same.content_type, "image/png");
  EXPECT_EQ(blurred.content_type, "image/jpeg");
  EXPECT_EQ(decode(same), input);
  EXPECT_NE(decode(blurred), input);
  const nlohmann::json info = session.Info();
  EXPECT_EQ(info.value("renders", 0), 2);
  EXPECT_GT(info["last"].value("total_ms", 0.0), 0.0);
  EXPECT_GE(info["last"].value("total_ms", 0.0), info["last"].value("blur_ms", 1e9));
}

}  // namespace
