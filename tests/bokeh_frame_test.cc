// Whole frames through the public API and the host assist library, compared
// with a plain single-threaded model of the frame.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "previewbokeh/bokeh.h"
#include "simd/dispatch.h"
#include "support/assist.h"
#include "support/frames.h"

namespace {

struct Size {
  int width, height;
};

class Bokeh {
 public:
  Bokeh(int width, int height) : width_(width), height_(height) {
    pbtest::Assist();
    BokehInitParams p{};
    p.width = width;
    p.height = height;
    status_ = iBokehInit(&handle_, &p);
  }
  ~Bokeh() {
    if (status_ == 0) iBokehDeinit(handle_);
  }
  int status() const { return status_; }

  // Blurs `src` in place, or into a fresh graphic buffer holding `initial`
  // (0x5A bytes when null), and returns the destination bytes.
  std::vector<uint8_t> Blur(const std::vector<uint8_t> &src, const std::vector<uint16_t> &weights,
                            int f_number, bool in_place,
                            const std::vector<uint8_t> *initial = nullptr) {
    pbtest::GraphicFrame a(width_, height_), b(width_, height_);
    std::memcpy(a.data(), src.data(), a.size());
    if (initial) {
      std::memcpy(b.data(), initial->data(), b.size());
    } else {
      std::memset(b.data(), 0x5A, b.size());
    }
    BokehFrameParams fp{};
    fp.F_number = f_number;
    fp.WeightMap = weights.data();
    EXPECT_EQ(iBokehCreateWeightMap(handle_, &fp), 0);
    const pbtest::GraphicFrame &dst = in_place ? a : b;
    EXPECT_EQ(iBokehBlurImage(handle_, a.buffer(), dst.buffer()), 0);
    return std::vector<uint8_t>(dst.data(), dst.data() + dst.size());
  }

 private:
  int width_, height_;
  void *handle_ = nullptr;
  int status_ = -1;
};

class FrameModel : public ::testing::TestWithParam<Size> {};

TEST_P(FrameModel, MatchesThePlainModel) {
  const auto [width, height] = GetParam();
  const size_t bytes = static_cast<size_t>(width) * height * 3 / 2;
  const auto src = pbtest::RandomBytes(bytes, width * 31 + height);
  const auto weights =
      pbtest::RandomWeights(static_cast<size_t>(width) * height, width + height, 1024);
  Bokeh bokeh(width, height);
  ASSERT_EQ(bokeh.status(), 0);
  for (bool scalar : {false, true}) {
    pb::UseScalarKernels(scalar);
    for (const auto &[f_number, alpha] : {std::pair{1, 128}, std::pair{8, 122}, std::pair{19, 110}}) {
      std::vector<uint8_t> model(bytes, 0x5A);
      pbtest::ModelFrame(src.data(), weights.data(), width, height, static_cast<uint8_t>(alpha),
                         model.data());
      EXPECT_EQ(bokeh.Blur(src, weights, f_number, false), model)
          << width << "x" << height << " F" << f_number << (scalar ? " scalar" : " vector");
    }
  }
  pb::UseScalarKernels(false);
}

INSTANTIATE_TEST_SUITE_P(Sizes, FrameModel,
                         ::testing::Values(Size{1920, 1080}, Size{1002, 101}, Size{16, 12},
                                           Size{2, 2}, Size{6, 7}, Size{130, 23}));

// Remainder rows (odd heights) keep the destination's bytes, which in place
// are the source's: compare against a destination that starts as the source.
TEST(Frames, InPlaceEqualsOutOfPlace) {
  for (const Size s : {Size{1920, 1080}, Size{1002, 101}, Size{16, 12}, Size{64, 38}}) {
    const size_t bytes = static_cast<size_t>(s.width) * s.height * 3 / 2;
    const auto src = pbtest::RandomBytes(bytes, 7 + s.width);
    const auto weights = pbtest::RandomWeights(static_cast<size_t>(s.width) * s.height, 3, 1024);
    Bokeh bokeh(s.width, s.height);
    ASSERT_EQ(bokeh.status(), 0);
    for (int f_number : {1, 12, 0}) {
      EXPECT_EQ(bokeh.Blur(src, weights, f_number, true),
                bokeh.Blur(src, weights, f_number, false, &src))
          << s.width << "x" << s.height << " F" << f_number;
    }
  }
}

// Apertures whose blur level maps to alpha 0 give back the source in every
// row a strip covers, in place or not, whatever the weights say.
TEST(Frames, AlphaZeroReturnsTheSource) {
  const int width = 130, height = 44;
  const size_t bytes = static_cast<size_t>(width) * height * 3 / 2;
  const auto src = pbtest::RandomBytes(bytes, 99);
  const auto weights = pbtest::RandomWeights(static_cast<size_t>(width) * height, 5, 65535);
  Bokeh bokeh(width, height);
  ASSERT_EQ(bokeh.status(), 0);
  for (int f_number : {0, 20, 40, -7, 1000}) {
    for (bool in_place : {false, true}) {
      EXPECT_EQ(bokeh.Blur(src, weights, f_number, in_place), src)
          << "F" << f_number << (in_place ? " in place" : "");
    }
  }
}

TEST(Frames, RepeatedFramesAreIdentical) {
  const int width = 320, height = 240;
  const size_t bytes = static_cast<size_t>(width) * height * 3 / 2;
  const auto src = pbtest::RandomBytes(bytes, 1);
  const auto weights = pbtest::RandomWeights(static_cast<size_t>(width) * height, 2, 1024);
  Bokeh bokeh(width, height);
  ASSERT_EQ(bokeh.status(), 0);
  const auto first = bokeh.Blur(src, weights, 2, false);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(bokeh.Blur(src, weights, 2, i % 2 == 0), first);
}

}  // namespace
