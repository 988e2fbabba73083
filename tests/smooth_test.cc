// Separable smoothing: vector kernels against the scalar reference byte for
// byte, both against an independent whole-plane model, known answers and
// refused arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "blur/smooth.h"
#include "platform/test_hooks.h"

namespace pb {
namespace {

using Kernel = std::vector<uint16_t>;
const Kernel kGaussian = {50, 70, 91, 110, 123, 128, 123, 110, 91, 70, 50};
constexpr uint8_t kSentinel = 0xA5;

struct Plane {
  int32_t width, height;
  std::vector<uint8_t> px;
};

// Noise, or mostly saturated samples with noise (sums near their maximum).
Plane RandomPlane(std::mt19937 &rng, int32_t width, int32_t height) {
  Plane p{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height)};
  const bool bright = rng() % 3 != 0;
  for (auto &v : p.px) v = static_cast<uint8_t>(bright && rng() % 5 != 0 ? 255 : rng());
  return p;
}

// One call with exactly sized scratch and a sentinel-filled output.
std::vector<uint8_t> RunSmooth(SmoothFn fn, bool chroma, const Plane &in, const Kernel &k,
                               int32_t h, int32_t first, int32_t last, int32_t vh = -999) {
  const int32_t hs = std::max(0, h);
  std::vector<uint8_t> padded(chroma ? SmoothChromaPaddedBytes(in.width, in.height, hs)
                                     : SmoothLumaPaddedBytes(in.width, in.height, hs));
  std::vector<uint8_t> inter(SmoothIntermediateBytes(in.width, in.height, hs));
  std::vector<uint8_t> out(in.px.size(), kSentinel);
  fn(in.px.data(), padded.data(), out.data(), in.width, in.height, k.data(), h,
     vh == -999 ? h : vh, inter.data(), first, last);
  return out;
}

// Independent model: the whole plane padded by edge replication (per channel
// for chroma), then both passes with saturating rounding.
std::vector<uint8_t> Model(bool chroma, const Plane &in, const Kernel &k, int32_t h) {
  const int32_t s = chroma ? 2 : 1, w = in.width, pw = w + 2 * h * s, ph = in.height + 2 * h;
  std::vector<int64_t> pad(static_cast<size_t>(pw) * ph), mid(static_cast<size_t>(w) * ph);
  for (int32_t y = 0; y < ph; ++y) {
    for (int32_t x = 0; x < pw; ++x) {
      int32_t sx = x - h * s;
      while (sx < 0) sx += s;
      while (sx >= w) sx -= s;
      pad[static_cast<size_t>(y) * pw + x] = in.px[std::clamp(y - h, 0, in.height - 1) * w + sx];
    }
  }
  std::vector<uint8_t> out(in.px.size());
  for (int pass = 0; pass < 2; ++pass) {
    for (int32_t y = 0; y < (pass == 0 ? ph : in.height); ++y) {
      for (int32_t x = 0; x < w; ++x) {
        int64_t acc = 0;
        for (int32_t j = 0; j <= 2 * h; ++j) {
          acc += k[j] * (pass == 0 ? pad[static_cast<size_t>(y) * pw + x + j * s]
                                   : mid[static_cast<size_t>(y + j) * w + x]);
        }
        const int64_t v = std::min<int64_t>(255, (acc + 512) >> 10);
        if (pass == 0) mid[static_cast<size_t>(y) * w + x] = v;
        else out[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(v);
      }
    }
  }
  return out;
}

// Random taps summing to at most 1024, symmetric on request.
Kernel RandomKernel(std::mt19937 &rng, int32_t h, bool symmetric) {
  std::vector<double> raw(2 * h + 1);
  for (int32_t j = 0; j <= 2 * h; ++j) raw[j] = symmetric && j > h ? raw[2 * h - j] : rng() % 1000;
  double sum = 1e-9;
  for (double v : raw) sum += v;
  const double target = 1 + rng() % 1024;
  Kernel k(raw.size());
  for (size_t j = 0; j < raw.size(); ++j) k[j] = static_cast<uint16_t>(raw[j] * target / sum);
  return k;
}

void RandomRange(std::mt19937 &rng, int32_t height, int32_t *first, int32_t *last) {
  const int32_t a = static_cast<int32_t>(rng() % height), b = static_cast<int32_t>(rng() % height);
  switch (rng() % 4) {
    case 0: *first = 0, *last = height - 1; break;
    case 1: *first = *last = a; break;
    case 2: *first = a, *last = height - 1; break;
    default: *first = std::min(a, b), *last = std::max(a, b);
  }
}

struct Form {
  const char *name;
  bool chroma;
  SmoothFn c, neon;
};

class SmoothTest : public ::testing::TestWithParam<Form> {};

TEST_P(SmoothTest, VectorMatchesReferenceAndModelOnRandomPlanes) {
  const Form f = GetParam();
  std::mt19937 rng(f.chroma ? 1234 : 4321);
  const int32_t heights[] = {1, 2, 3, 11, 12, 17};
  for (int32_t width = f.chroma ? 2 : 1; width <= 1920; width += f.chroma ? 2 : 1) {
    if (width > 70) width = 1920;
    for (int rep = 0; rep < 4; ++rep) {
      const int32_t height = heights[rng() % 6];
      const int32_t h = rep == 0 ? 5 : static_cast<int32_t>(rng() % 8);
      const Kernel k = rep == 0 ? kGaussian : RandomKernel(rng, h, rep % 2 == 1);
      int32_t first, last;
      RandomRange(rng, height, &first, &last);
      SCOPED_TRACE(::testing::Message() << f.name << " " << width << "x" << height << " h=" << h
                                        << " rows " << first << ".." << last);
      const Plane in = RandomPlane(rng, width, height);
      const std::vector<uint8_t> ref = RunSmooth(f.c, f.chroma, in, k, h, first, last);
      ASSERT_EQ(RunSmooth(f.neon, f.chroma, in, k, h, first, last), ref);
      const std::vector<uint8_t> model = Model(f.chroma, in, k, h);
      for (size_t i = 0; i < ref.size(); ++i) {
        const int32_t y = static_cast<int32_t>(i / width);
        ASSERT_EQ(ref[i], y < first || y > last ? kSentinel : model[i]) << "sample " << i;
      }
    }
  }
}

// Taps over 1024 in total (grouped columns saturate, left-over ones keep the
// low 8 bits), around the limits of 16-bit split sums on saturated planes
// (taps 16 * hi + lo: 255 * sum hi, 255 * sum lo and their combination near
// 65535), and up to 65535 (32-bit sums). Only the implementations compare.
TEST_P(SmoothTest, VectorMatchesReferenceForLargeTaps) {
  const Form f = GetParam();
  std::mt19937 rng(99);
  std::vector<Kernel> kernels = {{4112}, {4127}, {4128}, Kernel(25, 15), Kernel(17, 15),
                                 {1000, 1056, 1000}, {1370, 1372, 1370}};
  for (int i = 0; i < 40; ++i) {  // random: max tap 300 / 1200 / 2000 / 65535
    const uint32_t maxTap = (i % 4 == 0) ? 300 : (i % 4 == 1) ? 1200 : (i % 4 == 2) ? 2000 : 65535;
    Kernel k(2 * (rng() % 13) + 1);
    for (auto &t : k) t = static_cast<uint16_t>(rng() % (maxTap + 1));
    if (i % 2 == 0) std::copy(k.begin(), k.begin() + k.size() / 2, k.rbegin());
    kernels.push_back(k);
  }
  for (size_t i = 0; i < kernels.size(); ++i) {
    const int32_t h = static_cast<int32_t>(kernels[i].size() / 2);
    const int32_t pairs = f.chroma ? 2 : 1;
    const int32_t width = i < 7 ? 34 * pairs : i % 10 == 0 ? 1920 : static_cast<int32_t>(rng() % 40 + 1) * pairs;
    const int32_t height = static_cast<int32_t>(rng() % 14 + 1);
    int32_t first, last;
    RandomRange(rng, height, &first, &last);
    Plane in = RandomPlane(rng, width, height);
    if (i < 7) std::fill(in.px.begin(), in.px.end(), 255);
    SCOPED_TRACE(::testing::Message() << "kernel " << i << " width " << width);
    ASSERT_EQ(RunSmooth(f.neon, f.chroma, in, kernels[i], h, first, last),
              RunSmooth(f.c, f.chroma, in, kernels[i], h, first, last));
  }
}

TEST_P(SmoothTest, FlatPlaneLosesTheGaussianDeficitTwice) {
  const Form f = GetParam();
  for (int v = 0; v < 256; ++v) {
    const Plane in{22, 7, std::vector<uint8_t>(22 * 7, static_cast<uint8_t>(v))};
    const int expected = (((v * 1016 + 512) >> 10) * 1016 + 512) >> 10;  // 255 -> 251
    for (SmoothFn fn : {f.c, f.neon}) {
      ASSERT_EQ(RunSmooth(fn, f.chroma, in, kGaussian, 5, 0, 6),
                std::vector<uint8_t>(in.px.size(), static_cast<uint8_t>(expected)))
          << "v=" << v;
    }
  }
}

// One tap of 1536 on a flat 200: the horizontal pass gives 300, stored as 255
// in grouped columns and as 300 & 255 = 44 in left-over ones; the vertical
// pass then gives 255 and (44 * 1536 + 512) >> 10 = 66.
TEST_P(SmoothTest, OversizedKernelSaturatesGroupsAndWrapsLeftovers) {
  const Form f = GetParam();
  const int32_t width = f.chroma ? 18 : 9, grouped = f.chroma ? 16 : 8;
  const Plane in{width, 3, std::vector<uint8_t>(static_cast<size_t>(width) * 3, 200)};
  for (SmoothFn fn : {f.c, f.neon}) {
    const std::vector<uint8_t> out = RunSmooth(fn, f.chroma, in, {1536}, 0, 0, 2);
    for (int32_t x = 0; x < width; ++x) EXPECT_EQ(out[width + x], x < grouped ? 255 : 66) << x;
  }
}

TEST_P(SmoothTest, RefusedArgumentsWriteNothingAndLog) {
  const Form f = GetParam();
  struct Bad {
    const char *what;
    int32_t width, hradius, vradius, first, last;
    bool zeros, logs;
  };
  const Bad calls[] = {
      {"negative radius: zeros", 8, -1, -1, 1, 3, true, false},
      {"radii differ", 8, 2, 3, 1, 3, false, true},
      {"row past plane", 8, 1, 1, 2, 6, false, true},
      {"negative row", 8, 1, 1, -1, 2, false, true},
      {"empty range", 8, 1, 1, 4, 3, false, false},
      {"odd chroma width", f.chroma ? 7 : 8, 1, 1, f.chroma ? 0 : 4, f.chroma ? 5 : 3, false, f.chroma},
  };
  for (const Bad &c : calls) {
    SCOPED_TRACE(c.what);
    const Plane in{c.width, 6, std::vector<uint8_t>(static_cast<size_t>(c.width) * 6, 99)};
    for (SmoothFn fn : {f.c, f.neon}) {
      hooks::StartLogCapture();
      const std::vector<uint8_t> out =
          RunSmooth(fn, f.chroma, in, Kernel(9, 100), c.hradius, c.first, c.last, c.vradius);
      EXPECT_EQ(!hooks::StopLogCapture().empty(), c.logs);
      for (size_t i = 0; i < out.size(); ++i) {
        const int32_t y = static_cast<int32_t>(i / c.width);
        ASSERT_EQ(out[i], c.zeros && y >= c.first && y <= c.last ? 0 : kSentinel) << i;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, SmoothTest,
                         ::testing::Values(Form{"luma", false, SmoothLuma_C, SmoothLuma_NEON},
                                           Form{"chroma", true, SmoothChroma_C, SmoothChroma_NEON}),
                         [](const ::testing::TestParamInfo<Form> &i) { return std::string(i.param.name); });

}  // namespace
}  // namespace pb
