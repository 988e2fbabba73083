// Frames on the reduced-resolution path, selected by the ratio property.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "api/handle.h"
#include "blur/smooth.h"
#include "platform/property.h"
#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "scale/kernel_table.h"
#include "simd/dispatch.h"
#include "support/assist.h"
#include "support/frames.h"
#include "support/logs.h"

namespace {

constexpr char kRatioProperty[] = "persist.vendor.cam.prebokeh_ratio";

struct Case {
  int ratio, width, height;
};

class ReducedFrames : public ::testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    pbtest::Assist();
    const Case c = GetParam();
    if (!pb::KernelsForRatio(c.ratio).downscale_luma) GTEST_SKIP() << "no reduced path";
    pb::SetProperty(kRatioProperty, std::to_string(c.ratio).c_str());
    BokehInitParams p{};
    p.width = c.width;
    p.height = c.height;
    pbtest::LogCapture capture;
    ASSERT_EQ(iBokehInit(&handle_, &p), 0);
    pb::hooks::ResetProperties();
    EXPECT_TRUE(pbtest::HasLine(capture.Texts(), "sigma:3.666667,SmoothWinSize:11,Scalingratio:" +
                                                     std::to_string(c.ratio) + "\n"));
  }
  void TearDown() override {
    if (handle_) iBokehDeinit(handle_);
  }

  std::vector<uint8_t> Blur(const std::vector<uint8_t> &src, const std::vector<uint16_t> &weights,
                            int f_number, bool in_place) {
    const Case c = GetParam();
    pbtest::GraphicFrame a(c.width, c.height), b(c.width, c.height);
    std::memcpy(a.data(), src.data(), a.size());
    std::memcpy(b.data(), src.data(), b.size());
    BokehFrameParams fp{};
    fp.F_number = f_number;
    fp.WeightMap = weights.data();
    EXPECT_EQ(iBokehCreateWeightMap(handle_, &fp), 0);
    const pbtest::GraphicFrame &dst = in_place ? a : b;
    EXPECT_EQ(iBokehBlurImage(handle_, a.buffer(), dst.buffer()), 0);
    return std::vector<uint8_t>(dst.data(), dst.data() + dst.size());
  }

  void *handle_ = nullptr;
};

// The strips' result equals the scalar kernels run over whole planes on one
// thread, and the shared reduced image ends the frame holding every row.
TEST_P(ReducedFrames, MatchesWholePlaneKernels) {
  const Case c = GetParam();
  const int n = c.ratio, w = c.width, h = c.height, lw = w / n, lh = h / n;
  const size_t luma = static_cast<size_t>(w) * h;
  const auto src = pbtest::RandomBytes(luma * 3 / 2, n * 100 + w);
  const auto weights = pbtest::RandomWeights(luma, n, 1024);

  const pb::RatioKernels &k = pb::KernelsForRatio(n, true);
  std::vector<uint8_t> reduced(static_cast<size_t>(lw) * lh * 3 / 2 + lw, 0);
  std::vector<uint8_t> xinterp(luma * 3 / 2, 0), smoothed(reduced.size(), 0);
  std::vector<uint8_t> padded(pb::SmoothChromaPaddedBytes(w, h, 5) + 64);
  std::vector<uint8_t> inter(pb::SmoothIntermediateBytes(w, h, 5));
  uint8_t *ry = reduced.data(), *ruv = reduced.data() + static_cast<size_t>(lw) * lh;
  uint8_t *sy = smoothed.data(), *suv = smoothed.data() + static_cast<size_t>(lw) * lh;
  k.downscale_luma(src.data(), ry, xinterp.data(), w, h, lw, lh, 0, lh - 1);
  k.downscale_chroma(src.data() + luma, ruv, xinterp.data() + static_cast<size_t>(lw) * h, w,
                     h / 2, lw, lh / 2, 0, lh / 2 - 1);
  pb::SmoothLuma_C(ry, padded.data(), sy, lw, lh, pbtest::kGaussian11, 5, 5, inter.data(), 0,
                   lh - 1);
  pb::SmoothChroma_C(ruv, padded.data(), suv, lw, lh / 2, pbtest::kGaussian11, 5, 5, inter.data(),
                     0, lh / 2 - 1);
  for (const auto &[f_number, alpha] : {std::pair{1, 128}, std::pair{10, 120}}) {
    std::vector<uint8_t> model = src;
    for (int s = 0; s < 2; ++s) {
      k.compose_luma(src.data(), w, h, lw, lh, weights.data(), sy, model.data(), s * (h / 2),
                     s * (h / 2) + h / 2 - 1, static_cast<uint8_t>(alpha));
      const int crows = (h / 2) / 2;
      k.compose_chroma(src.data() + luma, w, h / 2, lw, lh / 2, weights.data(), suv,
                       model.data() + luma, s * crows, s * crows + crows - 1,
                       static_cast<uint8_t>(alpha));
    }
    for (bool scalar : {false, true}) {
      pb::UseScalarKernels(scalar);
      EXPECT_EQ(Blur(src, weights, f_number, false), model)
          << "ratio " << n << " F" << f_number << (scalar ? " scalar" : "");
      const auto *work = static_cast<pb::BokehHandle *>(handle_)->work;
      const size_t reduced_bytes = static_cast<size_t>(lw) * lh + static_cast<size_t>(lw) * (lh / 2);
      EXPECT_EQ(std::memcmp(work->scale_img, reduced.data(), reduced_bytes), 0)
          << "reduced image, ratio " << n;
    }
    pb::UseScalarKernels(false);
  }
}

TEST_P(ReducedFrames, InPlaceAndRepeatedFramesAgree) {
  const Case c = GetParam();
  const size_t luma = static_cast<size_t>(c.width) * c.height;
  const auto src = pbtest::RandomBytes(luma * 3 / 2, c.ratio);
  const auto weights = pbtest::RandomWeights(luma, c.width, 1024);
  const auto first = Blur(src, weights, 3, false);
  EXPECT_NE(first, src);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Blur(src, weights, 3, true), first);
    EXPECT_EQ(Blur(src, weights, 3, false), first);
  }
}

INSTANTIATE_TEST_SUITE_P(Ratios, ReducedFrames,
                         ::testing::Values(Case{2, 64, 32}, Case{2, 1920, 1080}, Case{4, 128, 64},
                                           Case{4, 1920, 1080}, Case{6, 144, 96},
                                           Case{6, 1920, 1080}, Case{8, 256, 128},
                                           Case{8, 1920, 1080}, Case{4, 1000, 100}));

// Values that cannot be honoured keep ratio 1 and say so.
TEST(RatioProperty, UnusableValuesKeepFullResolution) {
  pbtest::Assist();
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
    pb::SetProperty(kRatioProperty, c.value);
    BokehInitParams p{};
    p.width = c.width;
    p.height = c.height;
    void *h = nullptr;
    pbtest::LogCapture capture;
    ASSERT_EQ(iBokehInit(&h, &p), 0);
    const auto lines = capture.Texts();
    EXPECT_TRUE(pbtest::HasLine(lines, c.log)) << c.value << " " << c.width << "x" << c.height;
    EXPECT_TRUE(pbtest::HasLine(lines, "sigma:3.666667,SmoothWinSize:11,Scalingratio:1\n"));
    EXPECT_EQ(static_cast<pb::BokehHandle *>(h)->work->Scalingratio, 1);
    iBokehDeinit(h);
  }
  pb::hooks::ResetProperties();
}

}  // namespace
