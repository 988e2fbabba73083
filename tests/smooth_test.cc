// Separable smoothing and the smoothing fused with the full-resolution
// composite. Vector smoothing against the scalar reference byte for byte; the
// fused kernel (into its own destination and in place) against the scalar
// smoothing followed by the scalar composite, weights above 1024 included;
// both against an independent whole-plane model, mixed by hand inside the
// weight range. Also taps over 1024 in total, and refused arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "blur/smooth.h"
#include "blur/smooth_internal.h"
#include "platform/test_hooks.h"
#include "scale/compose.h"

namespace pb {
namespace {

using Kernel = std::vector<uint16_t>;
const Kernel kGaussian = {50, 70, 91, 110, 123, 128, 123, 110, 91, 70, 50};
constexpr uint8_t kSentinel = 0xA5;

struct Form {
  const char *name;
  bool chroma;
  SmoothFn c, neon;
  ComposeKernel composeC;
  SmoothComposeFn fused;
};

void PrintTo(const Form &f, std::ostream *os) { *os << f.name; }

struct Plane {
  int32_t width, height;
  std::vector<uint8_t> px;
  std::vector<uint16_t> weight;  // luma resolution: twice the rows for chroma
};

// Noise, or mostly saturated samples with noise (sums near their maximum);
// weights up to maxWeight with both extremes frequent.
Plane RandomPlane(std::mt19937 &rng, int32_t width, int32_t height, uint32_t maxWeight = 1024) {
  const size_t n = static_cast<size_t>(width) * height;
  Plane p{width, height, std::vector<uint8_t>(n), std::vector<uint16_t>(2 * n)};
  const bool bright = rng() % 3 != 0;
  for (auto &v : p.px) v = static_cast<uint8_t>(bright && rng() % 5 != 0 ? 255 : rng());
  for (auto &m : p.weight) {
    const uint32_t pick = rng() % 8;
    m = static_cast<uint16_t>(pick == 0 ? 0 : pick == 1 ? maxWeight : rng() % (maxWeight + 1));
  }
  return p;
}

// Exactly sized scratch for one call.
struct Scratch {
  std::vector<uint8_t> padded, inter;
  Scratch(bool chroma, const Plane &p, int32_t h)
      : padded(chroma ? SmoothChromaPaddedBytes(p.width, p.height, h)
                      : SmoothLumaPaddedBytes(p.width, p.height, h)),
        inter(SmoothIntermediateBytes(p.width, p.height, h), 0x77) {}
};

// One smoothing call into a sentinel-filled output.
std::vector<uint8_t> RunSmooth(SmoothFn fn, bool chroma, const Plane &in, const Kernel &k,
                               int32_t h, int32_t first, int32_t last, int32_t vh = -999) {
  Scratch s(chroma, in, std::max(0, h));
  std::vector<uint8_t> out(in.px.size(), kSentinel);
  fn(in.px.data(), s.padded.data(), out.data(), in.width, in.height, k.data(), h,
     vh == -999 ? h : vh, s.inter.data(), first, last);
  return out;
}

// The composite of rows first..last into a sentinel-filled destination, or in
// place into a copy of the input: by the fused kernel, or by the scalar
// smoothing into a private plane and then the scalar composite.
std::vector<uint8_t> RunFused(const Form &f, bool fused, bool inPlace, const Plane &p,
                              const Kernel &k, int32_t first, int32_t last, uint8_t alpha) {
  const int32_t h = static_cast<int32_t>(k.size() / 2);
  Scratch s(f.chroma, p, h);
  std::vector<uint8_t> in = p.px, smoothed(p.px.size(), 0), dst(p.px.size(), kSentinel);
  uint8_t *const out = inPlace ? in.data() : dst.data();
  if (fused) {
    f.fused(in.data(), s.padded.data(), smoothed.data(), p.width, p.height, k.data(), h, h,
            s.inter.data(), first, last, p.weight.data(), alpha, out);
  } else {
    f.c(in.data(), s.padded.data(), smoothed.data(), p.width, p.height, k.data(), h, h,
        s.inter.data(), first, last);
    f.composeC(in.data(), p.width, p.height, p.width, p.height, p.weight.data(),
               smoothed.data(), out, first, last, alpha);
  }
  return inPlace ? in : dst;
}

// Independent model: the whole plane padded by edge replication (per channel
// for chroma), then both passes with saturating rounding.
std::vector<uint8_t> Model(bool chroma, const Plane &in, const Kernel &k) {
  const int32_t h = static_cast<int32_t>(k.size() / 2);
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

// The whole plane, one row, from a row to the end, or any range.
void RandomRange(std::mt19937 &rng, int32_t height, int32_t *first, int32_t *last) {
  const int32_t a = static_cast<int32_t>(rng() % height), b = static_cast<int32_t>(rng() % height);
  switch (rng() % 4) {
    case 0: *first = 0, *last = height - 1; break;
    case 1: *first = *last = a; break;
    case 2: *first = a, *last = height - 1; break;
    default: *first = std::min(a, b), *last = std::max(a, b);
  }
}

// Vector and fused kernels against the scalar ones on one plane and row range;
// rows outside the range keep the sentinel; with taps summing to at most 1024
// (no intermediate saturates), the smoothing against the model and, inside
// the weight range, the composite against the model mixed with the source.
void CheckPlane(const Form &f, std::mt19937 &rng, const Plane &p, const Kernel &k, uint8_t alpha) {
  int32_t first, last;
  RandomRange(rng, p.height, &first, &last);
  SCOPED_TRACE(::testing::Message() << f.name << " " << p.width << "x" << p.height << " taps "
                                    << k.size() << " rows " << first << ".." << last << " alpha "
                                    << +alpha);
  const int32_t h = static_cast<int32_t>(k.size() / 2);
  const std::vector<uint8_t> smoothed = RunSmooth(f.c, f.chroma, p, k, h, first, last);
  ASSERT_EQ(RunSmooth(f.neon, f.chroma, p, k, h, first, last), smoothed);
  const std::vector<uint8_t> mixed = RunFused(f, false, false, p, k, first, last, alpha);
  ASSERT_EQ(RunFused(f, true, false, p, k, first, last, alpha), mixed);
  ASSERT_EQ(RunFused(f, true, true, p, k, first, last, alpha),
            RunFused(f, false, true, p, k, first, last, alpha)) << "in place";
  const bool modelled = std::accumulate(k.begin(), k.end(), 0) <= 1024;
  const std::vector<uint8_t> model = modelled ? Model(f.chroma, p, k) : smoothed;
  for (size_t i = 0; i < p.px.size(); ++i) {
    const int32_t y = static_cast<int32_t>(i / p.width);
    if (y < first || y > last) {
      ASSERT_TRUE(smoothed[i] == kSentinel && mixed[i] == kSentinel) << "row " << y << " written";
      continue;
    }
    if (!modelled) continue;
    ASSERT_EQ(smoothed[i], model[i]) << "sample " << i;
    // Chroma pairs take the weight at luma (2x, 2y) of their block.
    const size_t x = i % p.width, wi = f.chroma ? 2 * y * p.width + (x & ~size_t{1}) : i;
    const int64_t ma = int64_t{p.weight[wi]} * alpha, w = (ma + 64) >> 7;
    if (ma <= 131135) {
      ASSERT_EQ(mixed[i], (w * model[i] + (1024 - w) * p.px[i] + 512) >> 10) << "sample " << i;
    }
  }
}

class SmoothTest : public ::testing::TestWithParam<Form> {};

// Widths 1..70 (even ones for chroma) and 1920; the blur's Gaussian, random
// kernels of radius 0..7 (symmetric or not) and heavy taps that need 32-bit
// sums (the fused kernel hands those to the separate kernels).
TEST_P(SmoothTest, VectorAndFusedMatchReferenceAndModel) {
  const Form f = GetParam();
  std::mt19937 rng(f.chroma ? 1234 : 4321);
  const int32_t heights[] = {1, 2, 3, 11, 12, 17, 40};
  const uint8_t alphas[] = {0, 37, 128, 255};
  for (int32_t width = f.chroma ? 2 : 1; width <= 1920; width += f.chroma ? 2 : 1) {
    if (width > 70) width = 1920;
    for (int rep = 0; rep < 5; ++rep) {
      const int32_t height = heights[rng() % 7];
      Kernel k = rep == 0 ? kGaussian : RandomKernel(rng, rng() % 8, rep % 2 == 1);
      if (rep == 4) {
        k.resize(5);
        for (auto &t : k) t = static_cast<uint16_t>(2000 + rng() % 3000);
      }
      const Plane p = RandomPlane(rng, width, height, rng() % 3 == 0 ? 65535u : 1024u);
      CheckPlane(f, rng, p, k, alphas[rng() % 4]);
      if (HasFatalFailure()) return;
    }
  }
}

// Radii 8..32 (a horizontal step reaches h bytes, or 2h for chroma, past its
// 16 columns): widths around the points where steps stop needing the padded
// copy at the row ends, where the in-place steps begin and end, and where
// only padded steps remain; symmetric and asymmetric taps, weights up to
// 1024 or 65535, alphas 0..255.
TEST_P(SmoothTest, WideRadiiMatchReferenceNearRowEnds) {
  const Form f = GetParam();
  std::mt19937 rng(f.chroma ? 77 : 78);
  const uint8_t alphas[] = {0, 122, 128, 255};
  for (const int32_t h : {8, 13, 21, 32}) {
    const int32_t reach = f.chroma ? 2 * h : h;
    for (const int32_t base : {16, reach + 15, reach + 32, 2 * reach + 31, 3 * reach + 47,
                               4 * reach + 40, 1920}) {
      for (const int32_t delta : {-1, 0, 1}) {
        int32_t width = std::max(2, base + delta);
        if (f.chroma) width &= ~1;
        const int32_t height = 1 + static_cast<int32_t>(rng() % 24);
        const Kernel k = RandomKernel(rng, h, delta != 0);
        const Plane p = RandomPlane(rng, width, height, rng() % 2 ? 65535u : 1024u);
        CheckPlane(f, rng, p, k, alphas[rng() % 4]);
        if (HasFatalFailure()) return;
      }
    }
  }
}

// Taps over 1024 in total (grouped columns saturate, left-over ones keep the
// low 8 bits), around the limits of 16-bit split sums on saturated planes
// (taps 16 * hi + lo: 255 * sum hi, 255 * sum lo and their combination near
// 65535), and up to 65535 (32-bit sums); the model where taps sum to <= 1024.
TEST_P(SmoothTest, VectorAndFusedMatchReferenceForLargeTaps) {
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
    const int32_t pairs = f.chroma ? 2 : 1;
    const int32_t width =
        i < 7 ? 34 * pairs : i % 10 == 0 ? 1920 : static_cast<int32_t>(rng() % 40 + 1) * pairs;
    const int32_t height = static_cast<int32_t>(rng() % 14 + 1);
    Plane in = RandomPlane(rng, width, height, 65535);
    if (i < 7) std::fill(in.px.begin(), in.px.end(), 255);
    SCOPED_TRACE(::testing::Message() << "kernel " << i);
    CheckPlane(f, rng, in, kernels[i], static_cast<uint8_t>(rng()));
    if (HasFatalFailure()) return;
  }
}

// One tap of 1536 on a flat 200: the horizontal pass gives 300, stored as 255
// in grouped columns and as 300 & 255 = 44 in left-over ones; the vertical
// pass then gives 255 and (44 * 1536 + 512) >> 10 = 66.
TEST_P(SmoothTest, OversizedKernelSaturatesGroupsAndWrapsLeftovers) {
  const Form f = GetParam();
  const int32_t width = f.chroma ? 18 : 9, grouped = f.chroma ? 16 : 8;
  const Plane in{width, 3, std::vector<uint8_t>(static_cast<size_t>(width) * 3, 200), {}};
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
      {"odd chroma width", f.chroma ? 7 : 8, 1, 1, f.chroma ? 0 : 4, f.chroma ? 5 : 3, false,
       f.chroma},
  };
  for (const Bad &c : calls) {
    SCOPED_TRACE(c.what);
    const Plane in{c.width, 6, std::vector<uint8_t>(static_cast<size_t>(c.width) * 6, 99), {}};
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

INSTANTIATE_TEST_SUITE_P(
    Forms, SmoothTest,
    ::testing::Values(Form{"luma", false, SmoothLuma_C, SmoothLuma_NEON, ComposeLuma_C,
                           SmoothComposeLuma_NEON},
                      Form{"chroma", true, SmoothChroma_C, SmoothChroma_NEON, ComposeChroma_C,
                           SmoothComposeChroma_NEON}),
    [](const ::testing::TestParamInfo<Form> &i) { return std::string(i.param.name); });

}  // namespace
}  // namespace pb
