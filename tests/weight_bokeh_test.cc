// From disparity to blurred frame through both public interfaces: the subject
// at the focus point stays sharp, the far background is blurred.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/property.h"
#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "previewbokeh/weight.h"
#include "support/assist.h"
#include "support/frames.h"

namespace {

constexpr int kWidth = 320, kHeight = 240;  // frame
constexpr int kDw = 80, kDh = 60;           // disparity map, a quarter of the frame
// The subject: disparity rows/columns [20, 40) x [30, 50), frame 4x that.
constexpr int kSubX0 = 30, kSubX1 = 50, kSubY0 = 20, kSubY1 = 40;

std::vector<uint8_t> DisparityFrameBytes() {
  std::vector<uint8_t> frame(DISPARITY_FRAME_HEADER_BYTES + kDw * kDh, 40);  // far wall
  DisparityFrame header{};
  header.ScaleNumeratorQ19 = 2000 << 19;
  header.ScaleDenominatorQ19 = 1 << 18;  // 0.5: scale 1600 over the reference width
  header.RefWidth = kDw;
  header.DisparityWidth = kDw;
  header.DisparityHeight = kDh;
  std::memcpy(frame.data(), &header, sizeof header);
  for (int y = kSubY0; y < kSubY1; ++y) {
    std::memset(&frame[DISPARITY_FRAME_HEADER_BYTES + y * kDw + kSubX0], 200, kSubX1 - kSubX0);
  }
  return frame;
}

class DisparityToBokeh : public ::testing::TestWithParam<int> {};

TEST_P(DisparityToBokeh, SubjectSharpBackgroundBlurred) {
  const int ratio = GetParam();
  pbtest::Assist();
  WeightInitParams wip{};
  wip.WeightWidth = kWidth;
  wip.WeightHeight = kHeight;
  wip.DisparityWidth = kDw;
  wip.DisparityHeight = kDh;
  wip.DisparityWinSize = 5;
  WeightContext wctx{};
  ASSERT_EQ(weight_init(&wip, &wctx), 0);
  const auto disparity = DisparityFrameBytes();
  WeightProcessParams wpp{};
  wpp.F_number = 2;
  wpp.sel_x = 4 * (kSubX0 + kSubX1) / 2;
  wpp.sel_y = 4 * (kSubY0 + kSubY1) / 2;
  wpp.frame = reinterpret_cast<const DisparityFrame *>(disparity.data());
  std::vector<uint16_t> weights(kWidth * kHeight, 0xFFFF);
  ASSERT_EQ(weight_async_process(&wpp, &wctx, weights.data()), 0);

  pb::SetProperty("persist.vendor.cam.prebokeh_ratio", std::to_string(ratio).c_str());
  BokehInitParams bip{};
  bip.width = kWidth;
  bip.height = kHeight;
  void *bokeh = nullptr;
  ASSERT_EQ(iBokehInit(&bokeh, &bip), 0);
  pb::hooks::ResetProperties();
  pbtest::GraphicFrame src(kWidth, kHeight), dst(kWidth, kHeight);
  const auto pixels = pbtest::RandomBytes(src.size(), 77);
  std::memcpy(src.data(), pixels.data(), src.size());
  BokehFrameParams bfp{};
  bfp.F_number = 2;
  bfp.sel_x = wpp.sel_x;
  bfp.sel_y = wpp.sel_y;
  bfp.WeightMap = weights.data();
  ASSERT_EQ(iBokehCreateWeightMap(bokeh, &bfp), 0);
  ASSERT_EQ(iBokehBlurImage(bokeh, src.buffer(), dst.buffer()), 0);

  // Inside the subject (clear of the smoothed edge) nothing changes: weight 0.
  const uint8_t *in = src.data(), *out = dst.data();
  const size_t luma = static_cast<size_t>(kWidth) * kHeight;
  for (int y = 4 * kSubY0 + 16; y < 4 * kSubY1 - 16; ++y) {
    for (int x = 4 * kSubX0 + 16; x < 4 * kSubX1 - 16; ++x) {
      ASSERT_EQ(weights[y * kWidth + x], 0) << x << "," << y;
      ASSERT_EQ(out[y * kWidth + x], in[y * kWidth + x]) << x << "," << y;
      const size_t c = luma + (y / 2) * kWidth + (x & ~1);
      ASSERT_EQ(out[c], in[c]);
      ASSERT_EQ(out[c + 1], in[c + 1]);
    }
  }
  // The far wall, away from the subject: strong weights, most pixels changed.
  int changed = 0, total = 0;
  for (int y = 0; y < 40; ++y) {
    for (int x = 0; x < 80; ++x, ++total) {
      EXPECT_GE(weights[y * kWidth + x], 800) << x << "," << y;
      changed += out[y * kWidth + x] != in[y * kWidth + x];
    }
  }
  EXPECT_GT(changed, total * 9 / 10);
  iBokehDeinit(bokeh);
  weight_deinit(&wctx);
}

INSTANTIATE_TEST_SUITE_P(Ratios, DisparityToBokeh, ::testing::Values(1, 4));

}  // namespace
