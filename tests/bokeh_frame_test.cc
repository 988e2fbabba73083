// Whole frames through the public interface: the full-resolution path against
// a plain single-threaded model, the reduced path against the whole-plane
// kernels.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "api/handle.h"
#include "blur/smooth.h"
#include "platform/test_hooks.h"
#include "simd/kernel_table.h"
#include "support/bokeh.h"
#include "support/frames.h"
#include "support/logs.h"

namespace {

using pbtest::Bokeh;

struct Size {
  int width, height;
};

class FrameModel : public ::testing::TestWithParam<Size> {};

// Successive frames of one handle, out of place with vector and scalar kernels
// and in place (remainder rows of odd heights keep what the destination held).
// Apertures with alpha 0 give back the source whatever the weights say.
TEST_P(FrameModel, MatchesThePlainModel) {
  const auto [width, height] = GetParam();
  const size_t pixels = static_cast<size_t>(width) * height, bytes = pixels * 3 / 2;
  const auto src = pbtest::RandomBytes(bytes, width * 31 + height);
  Bokeh bokeh(width, height);
  ASSERT_EQ(bokeh.status, 0);
  const struct {
    int f_number, alpha, max_weight;
  } cases[] = {{1, 128, 1024}, {8, 122, 1024}, {19, 110, 1024},
               {0, 0, 65535},  {20, 0, 65535}, {1000, 0, 65535}};  // level 20, 0, out of range
  for (const auto &c : cases) {
    const auto weights = pbtest::RandomWeights(pixels, width + c.f_number, c.max_weight);
    std::vector<uint8_t> model(bytes, 0x5A), in_place_model = src;
    pbtest::ModelFrame(src.data(), weights.data(), width, height, c.alpha, model.data());
    pbtest::ModelFrame(src.data(), weights.data(), width, height, c.alpha, in_place_model.data());
    SCOPED_TRACE(testing::Message() << width << "x" << height << " F" << c.f_number);
    for (bool scalar : {false, true}) {
      pb::UseScalarKernels(scalar);
      EXPECT_EQ(bokeh.Blur(src, weights, c.f_number, false), model) << "scalar " << scalar;
    }
    pb::UseScalarKernels(false);
    // In place the driver blurs from a copy of the source; the kernels are the same.
    EXPECT_EQ(bokeh.Blur(src, weights, c.f_number, true), in_place_model) << "in place";
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, FrameModel,
                         ::testing::Values(Size{1920, 1080}, Size{1002, 101}, Size{16, 12},
                                           Size{2, 2}, Size{6, 7}, Size{130, 23}, Size{64, 38}));

struct RatioCase {
  int ratio, width, height;
};

class ReducedFrames : public ::testing::TestWithParam<RatioCase> {};

// The strips' result, in place or not, equals the scalar kernels run over
// whole planes on one thread, and the shared reduced image ends the frame
// holding every row.
TEST_P(ReducedFrames, MatchesWholePlaneKernels) {
  const int n = GetParam().ratio, w = GetParam().width, h = GetParam().height;
  Bokeh bokeh(w, h, std::to_string(n));
  ASSERT_EQ(bokeh.status, 0);
  EXPECT_TRUE(pbtest::HasLine(
      bokeh.log, "sigma:3.666667,SmoothWinSize:11,Scalingratio:" + std::to_string(n) + "\n"));
  const int lw = w / n, lh = h / n;
  const size_t luma = static_cast<size_t>(w) * h, low = static_cast<size_t>(lw) * lh;
  const auto src = pbtest::RandomBytes(luma * 3 / 2, n * 100 + w);
  const auto weights = pbtest::RandomWeights(luma, n, 1024);

  const pb::BlurWorkState *work = static_cast<pb::BokehHandle *>(bokeh.handle)->work;
  const pb::ReducedKernels &k = *pb::ReducedKernelsFor(pb::ScalarKernelTable(), n);
  std::vector<uint8_t> reduced(low * 3 / 2 + lw, 0), smoothed(reduced.size(), 0);
  std::vector<uint8_t> xinterp(luma * 3 / 2, 0), inter(pb::SmoothIntermediateBytes(w, h, 5));
  std::vector<uint8_t> padded(pb::SmoothChromaPaddedBytes(w, h, 5) + 64);
  uint8_t *ry = reduced.data(), *ruv = ry + low, *sy = smoothed.data(), *suv = sy + low;
  k.downscale_luma(src.data(), ry, xinterp.data(), w, h, lw, lh, 0, lh - 1);
  k.downscale_chroma(src.data() + luma, ruv, xinterp.data() + static_cast<size_t>(lw) * h, w, h / 2,
                     lw, lh / 2, 0, lh / 2 - 1);
  pb::SmoothLuma_C(ry, padded.data(), sy, lw, lh, pbtest::kGaussian11, 5, 5, inter.data(), 0,
                   lh - 1);
  pb::SmoothChroma_C(ruv, padded.data(), suv, lw, lh / 2, pbtest::kGaussian11, 5, 5, inter.data(),
                     0, lh / 2 - 1);
  for (const auto &[f_number, alpha] : {std::pair{1, 128}, std::pair{10, 120}}) {
    std::vector<uint8_t> model = src;
    const int crows = (h / 2) / 2;
    for (int s = 0; s < 2; ++s) {
      k.compose_luma(src.data(), w, h, lw, lh, weights.data(), sy, model.data(), s * (h / 2),
                     s * (h / 2) + h / 2 - 1, static_cast<uint8_t>(alpha));
      k.compose_chroma(src.data() + luma, w, h / 2, lw, lh / 2, weights.data(), suv,
                       model.data() + luma, s * crows, s * crows + crows - 1,
                       static_cast<uint8_t>(alpha));
    }
    SCOPED_TRACE(testing::Message() << "ratio " << n << " F" << f_number);
    for (bool scalar : {false, true}) {
      pb::UseScalarKernels(scalar);
      EXPECT_EQ(bokeh.Blur(src, weights, f_number, false), model) << "scalar " << scalar;
      EXPECT_EQ(std::memcmp(work->scale_img, ry, low + lw * (lh / 2)), 0) << "reduced image";
    }
    pb::UseScalarKernels(false);
    EXPECT_EQ(bokeh.Blur(src, weights, f_number, true), model) << "in place";
  }
}

INSTANTIATE_TEST_SUITE_P(Ratios, ReducedFrames,
                         ::testing::Values(RatioCase{2, 64, 32}, RatioCase{2, 1920, 1080},
                                           RatioCase{4, 128, 64}, RatioCase{4, 1920, 1080},
                                           RatioCase{6, 144, 96}, RatioCase{6, 1920, 1080},
                                           RatioCase{8, 256, 128}, RatioCase{8, 1920, 1080},
                                           RatioCase{4, 1000, 100}));

}  // namespace
