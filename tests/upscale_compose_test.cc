// Composite kernels: the full-resolution ones (ratio 1 here) and the
// upscale-and-composite ones of ratios 2, 4, 6 and 8. Vector == scalar byte
// for byte over widths 1..70 and 1920, row ranges and weights far above 1024;
// both against interpolation and mixing worked out here inside the weight
// range (rows outside the range untouched), and known answers beyond it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "platform/test_hooks.h"
#include "scale/compose.h"

namespace pb {
namespace {

struct Member {
  const char *name;
  int n;
  bool chroma;
  ComposeKernel scalar;
  ComposeKernel vector;
};

const Member kMembers[] = {
    {"Luma1", 1, false, ComposeLuma_C, ComposeLuma_NEON},
    {"Chroma1", 1, true, ComposeChroma_C, ComposeChroma_NEON},
    {"Luma2", 2, false, UpscaleComposeLuma2_C, UpscaleComposeLuma2_NEON},
    {"Luma4", 4, false, UpscaleComposeLuma4_C, UpscaleComposeLuma4_NEON},
    {"Luma6", 6, false, UpscaleComposeLuma6_C, UpscaleComposeLuma6_NEON},
    {"Luma8", 8, false, UpscaleComposeLuma8_C, UpscaleComposeLuma8_NEON},
    {"Chroma2", 2, true, UpscaleComposeChroma2_C, UpscaleComposeChroma2_NEON},
    {"Chroma4", 4, true, UpscaleComposeChroma4_C, UpscaleComposeChroma4_NEON},
    {"Chroma6", 6, true, UpscaleComposeChroma6_C, UpscaleComposeChroma6_NEON},
    {"Chroma8", 8, true, UpscaleComposeChroma8_C, UpscaleComposeChroma8_NEON},
};

void PrintTo(const Member &m, std::ostream *os) { *os << m.name; }

// One plane (luma, or UV with `height` UV rows) at exact ratio N; the weight
// map has luma resolution.
struct Frame {
  int width, height, lowWidth, lowHeight;
  std::vector<uint8_t> src, blurred, dst;
  std::vector<uint16_t> weight;
  Frame(const Member &m, int lowW, int lowH, int rows = 0)
      : width(m.n * lowW), height(rows ? rows : m.n * lowH), lowWidth(lowW), lowHeight(lowH),
        src(static_cast<size_t>(width) * height), blurred(static_cast<size_t>(lowW) * lowH),
        dst(src.size()), weight(src.size() * (m.chroma ? 2 : 1)) {}
  // Random samples; weights up to maxWeight with both extremes frequent.
  void Randomize(std::mt19937 &rng, uint32_t maxWeight) {
    for (auto *v : {&src, &blurred, &dst}) {
      for (auto &b : *v) b = static_cast<uint8_t>(rng());
    }
    for (auto &w : weight) {
      const uint32_t pick = rng() % 8;
      w = static_cast<uint16_t>(pick == 0 ? 0 : pick == 1 ? maxWeight : rng() % (maxWeight + 1));
    }
  }
  void Run(ComposeKernel k, int first, int last, uint8_t alpha) {
    k(src.data(), width, height, lowWidth, lowHeight, weight.data(), blurred.data(), dst.data(),
      first, last, alpha);
  }
  uint8_t B(int r, int byte) const { return blurred[static_cast<size_t>(r) * lowWidth + byte]; }
  size_t At(int y, int x) const { return static_cast<size_t>(y) * width + x; }
};

// The blurred sample at byte x of row y from the interpolation rules, in a
// strip that does or does not end the plane. Ratio 1: the blurred plane.
// Ratio 2: the rounded mean of four low samples (last two elements: c1 = c;
// lower row clamped). Ratios 4 and 8: weights 256 - 256 j / N, 256 j / N by
// sub-position, none across the last N elements or rows (where a strip that
// does not end the plane clamps the lower row: the same value). Ratio 6
// (stepX = stepY = 10922): element 0 vertical only; elements 1..body fixed
// weights (214,42) .. (1,255); then the running position (which has drifted
// from the pattern far along a 1920 row); last five elements vertical only;
// row 0 and, in a strip ending the plane, the last five rows horizontal only
// with the running position; vertical weights ((256 - fy) & 255, fy).
int Interpolated(const Member &m, const Frame &f, int y, int x, bool endsPlane) {
  if (m.n == 1) return f.B(y, x);
  const int e = m.chroma ? 2 : 1, n = m.n;
  const int el = x / e, elems = f.width / e, lowElems = f.lowWidth / e;
  auto at = [&](int row, int col) { return f.B(row, e * col + x % e); };
  if (n == 6) {
    static const int kLeft[6] = {214, 171, 129, 86, 43, 1};
    static const int kRight[6] = {42, 85, 127, 170, 213, 255};
    const int body = (f.width - 6 * e) / 24 * 24 / e;
    const int px = 10922 * el, py = 10922 * y, r = py >> 16, fy = (py >> 8) & 255;
    const bool vertical = y != 0 && (y < f.height - 5 || !endsPlane);
    int wl = 256, wr = 0, c = px >> 16;
    if (vertical && el >= 1 && el <= body) {
      c = (el - 1) / 6, wl = kLeft[(el - 1) % 6], wr = kRight[(el - 1) % 6];
    } else if (el >= 1 && el < elems - 5) {
      wr = (px >> 8) & 255, wl = 256 - wr;
    }
    auto h = [&](int row) { return (wl * at(row, c) + wr * (wr ? at(row, c + 1) : 0) + 128) >> 8; };
    if (!vertical) return h(r);
    return (((256 - fy) & 255) * h(r) + fy * h(std::min(r + 1, f.lowHeight - 1)) + 128) >> 8;
  }
  const int r = y / n, c = el / n;
  if (n == 2) {
    const int r1 = std::min(r + 1, f.lowHeight - 1);
    const int c1 = el >= elems - 2 ? c : std::min(c + 1, lowElems - 1);
    return (at(r, c) + at(r, c1) + at(r1, c) + at(r1, c1) + 2) >> 2;
  }
  const int fx = el >= elems - n ? 0 : 256 * (el % n) / n;
  const int fy = y >= f.height - n ? 0 : 256 * (y % n) / n;
  auto h = [&](int row) {
    return fx == 0 ? at(row, c) : ((256 - fx) * at(row, c) + fx * at(row, c + 1) + 128) >> 8;
  };
  return fy == 0 ? h(r) : ((256 - fy) * h(r) + fy * h(r + 1) + 128) >> 8;
}

class ComposeMember : public ::testing::TestWithParam<Member> {};

// Identical random inputs and destination, six per width: 1..70 reduced
// elements (ratio 1: bytes, odd chroma rows included), 1920 bytes and about
// 4800; strips
// at the top, the bottom, inside, of one row, empty; weights up to 1024, 4096,
// 16384 and 65535. Inside the weight range every byte is also checked against the
// rules: the chroma weight is that of the pair's top-left luma pixel, rows
// outside the strip keep their bytes (ratio 2 rewrites the row above a
// one-row strip).
TEST_P(ComposeMember, VectorMatchesScalarAndModel) {
  const Member m = GetParam();
  std::mt19937 rng(17);
  const uint8_t kAlphas[] = {0, 1, 8, 60, 128, 255};
  // 16384 with alpha 8: weights both sides of the vector kernels' all-16-bit
  // bound (m below 2^14 and w <= 1024).
  const uint32_t kMaxWeights[] = {1024, 4096, 65535, 16384};
  const int e = m.chroma && m.n > 1 ? 2 : 1;
  // Then rows wider than the vector kernels' column chunks (2304 bytes).
  for (int i = 0; i < 73 * 6; ++i) {
    const int lowW = i < 70 * 6   ? e * (i / 6 + 1)
                     : i < 71 * 6 ? 1920 / m.n
                                  : 4800 / m.n + e * (i % 3);
    Frame f(m, lowW, 1 + static_cast<int>(rng() % 5));
    f.Randomize(rng, kMaxWeights[i % 4]);
    const int h = f.height, r0 = static_cast<int>(rng() % h);
    const int r1 = r0 + static_cast<int>(rng() % (h - r0));
    const int strips[5][2] = {{0, h / 2 - 1}, {h / 2, h - 1}, {r0, r1}, {r0, r0}, {r0 + 1, r0}};
    const int *strip = strips[rng() % 5];
    const int first = strip[0], last = strip[1];
    const uint8_t alpha = kAlphas[rng() % 6];
    SCOPED_TRACE(::testing::Message() << f.width << "x" << h << " rows " << first << ".." << last
                                      << " alpha " << int{alpha});
    const std::vector<uint8_t> before = f.dst;
    Frame g = f;
    f.Run(m.scalar, first, last, alpha);
    g.Run(m.vector, first, last, alpha);
    ASSERT_EQ(f.dst, g.dst);
    const int from = m.n == 2 && first == last ? std::max(first - 1, 0) : first;
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < f.width; ++x) {
        const size_t at = f.At(y, x);
        if (y < from || y > last) {
          ASSERT_EQ(f.dst[at], before[at]) << "row " << y << " written";
          continue;
        }
        const int64_t ma = int64_t{f.weight[m.chroma ? f.At(2 * y, x & ~1) : at]} * alpha;
        if (ma > 131135) continue;  // outside the weight range
        const int64_t w = (ma + 64) >> 7, b = Interpolated(m, f, y, x, last == h - 1);
        ASSERT_EQ(f.dst[at], (w * b + (1024 - w) * f.src[at] + 512) >> 10) << x << ", " << y;
      }
    }
  }
}

// Uniform planes (which interpolate to the blurred value) in the vector steps
// and one at a time. The steps cover bytes from element 1 in steps of 24 up to
// (width - 6 elements) / 24 * 24 at ratio 6, elsewhere from 0 up to width - N
// elements rounded down to the step (8 bytes at ratio 4 and for luma at ratios
// 1 and 8, else 16). One at a time, ratios 2 and 6 do not limit the quotient.
TEST_P(ComposeMember, KnownAnswersInBothRegimes) {
  const Member m = GetParam();
  struct Known {
    uint16_t m;
    uint8_t alpha, s, b, lane, tail, unlimited;
  };
  const Known cases[] = {
      {26227, 5, 3, 200, 200, 200, 200},  // m * alpha = 131135: w = 1024 in both
      // w = 1025: in a lane 1024 - w wraps to 65535: (65535 + 512) >> 10 = 64;
      // one at a time: (-1 + 512) / 1024 = 0.
      {2049, 64, 1, 0, 64, 0, 0},
      // w = 2048: lanes saturate; one at a time (-261120 + 512) / 1024 = -254,
      // low byte 2, or 522752 / 1024 = 510: 255 when limited, else 254.
      {2048, 128, 255, 0, 255, 2, 2},
      {2048, 128, 0, 255, 255, 255, 254},
      // w = 130558: a lane keeps 65022, 1024 - w = 1538: (153800 + 512) >> 10
      // = 150; one at a time: -12649, low byte 151.
      {65535, 255, 100, 0, 150, 151, 151},
  };
  const int e = m.chroma ? 2 : 1, width = 18 * m.n * e, y = m.n + 1;
  const int step = m.n == 4 || (!m.chroma && m.n != 2) ? 8 : 16;
  const int begin = m.n == 6 ? e : 0;
  const int end = m.n == 6 ? e + (width - 6 * e) / 24 * 24 : (width - m.n * e) & ~(step - 1);
  ASSERT_TRUE(begin < end && end < width);
  for (const Known &c : cases) {
    for (ComposeKernel k : {m.scalar, m.vector}) {
      Frame f(m, width / m.n, 4);
      std::fill(f.src.begin(), f.src.end(), c.s);
      std::fill(f.blurred.begin(), f.blurred.end(), c.b);
      std::fill(f.weight.begin(), f.weight.end(), c.m);
      f.Run(k, y, y, c.alpha);
      const uint8_t tail = m.n == 2 || m.n == 6 ? c.unlimited : c.tail;
      for (int x = 0; x < width; ++x) {
        ASSERT_EQ(f.dst[f.At(y, x)], x >= begin && x < end ? c.lane : tail)
            << "x " << x << " m " << c.m;
      }
    }
  }
}

// Null planes and, upscaling, reduced images with nothing to interpolate from
// are refused with a log line and write nothing.
TEST_P(ComposeMember, RefusesUnusableArguments) {
  const Member m = GetParam();
  Frame f(m, 16, 4);
  const std::vector<uint8_t> before = f.dst;
  hooks::StartLogCapture();
  m.vector(f.src.data(), f.width, f.height, f.lowWidth, f.lowHeight, f.weight.data(), nullptr,
           f.dst.data(), 0, 3, 128);
  m.scalar(f.src.data(), f.width, f.height, f.lowWidth, f.lowHeight, nullptr, f.blurred.data(),
           f.dst.data(), 0, 3, 128);
  if (m.n > 1) {
    m.vector(f.src.data(), f.width, f.height, 0, 0, f.weight.data(), f.blurred.data(),
             f.dst.data(), 0, 3, 128);
  }
  EXPECT_EQ(hooks::StopLogCapture().size(), m.n > 1 ? 3u : 2u);
  EXPECT_EQ(f.dst, before);
}

INSTANTIATE_TEST_SUITE_P(All, ComposeMember, ::testing::ValuesIn(kMembers),
                         [](const ::testing::TestParamInfo<Member> &i) { return i.param.name; });

// Ratios 1 and 2: rows whose weights all lie in the range but one, which does
// not, at every position of a row in turn (even positions for chroma, whose
// pairs read the even entries; at 1920 bytes every position of the last 64
// and every 13th before), in either row of a ratio-2 row pair, at an alpha
// below 128 and at 128 and above: the vector rows must see it wherever it is
// and give the scalar bytes.
TEST(Compose, OneWeightOutOfRangeAnywhereInTheRow) {
  struct Weights {
    uint8_t alpha;
    uint16_t in, out;  // in * alpha <= 131135 < out * alpha
  };
  // Just out (lane and one-at-a-time results differ only where 1024 - w
  // wraps) and far out (all three forms differ).
  const Weights kWeights[] = {
      {128, 1024, 1025}, {128, 1024, 4000}, {122, 1074, 1075}, {122, 1074, 4000}, {255, 514, 4000}};
  std::mt19937 rng(5);
  for (const Member &m : kMembers) {
    if (m.n > 2) continue;
    for (const Weights &w : kWeights) {
      for (const int width : {70, 1920}) {
        Frame f(m, width / m.n, 1);
        f.Randomize(rng, 1024);
        std::fill(f.weight.begin(), f.weight.end(), w.in);
        for (int at = 0; at < width; at += m.chroma ? 2 : 1) {
          if (width > 70 && at < width - 64 && at % 13 != 0) continue;
          for (int y = 0; y < f.height; ++y) {
            const size_t i = static_cast<size_t>(m.chroma ? 2 * y : y) * width + at;
            f.weight[i] = w.out;
            Frame g = f;
            f.Run(m.scalar, 0, f.height - 1, w.alpha);
            g.Run(m.vector, 0, f.height - 1, w.alpha);
            ASSERT_EQ(f.dst, g.dst) << m.name << " width " << width << " at " << at << " row "
                                    << y << " alpha " << int{w.alpha};
            f.weight[i] = w.in;
          }
        }
      }
    }
  }
}

// Ratio 2 with reduced planes smaller than half the plane (the one-at-a-time
// region then reaches far into the row) and odd plane sizes: vector == scalar
// for strips of every kind, weights in and beyond the range, alphas below, at
// and above 128.
TEST(UpscaleCompose, Ratio2AnyReducedSize) {
  std::mt19937 rng(29);
  const uint8_t kAlphas[] = {0, 60, 122, 128, 255};
  for (const Member &m : kMembers) {
    if (m.n != 2) continue;
    const int e = m.chroma ? 2 : 1;
    for (const int width : {e, 17, 40, 71, 200, 1920}) {
      for (const int lowWidth : {width / 2 - 1, width / 4, e, width / 2 + 1}) {
        if (lowWidth < e || lowWidth > width) continue;
        for (int i = 0; i < 6; ++i) {
          Frame f(m, 1, 1);
          f.width = width;
          f.lowWidth = lowWidth;
          f.lowHeight = 1 + static_cast<int>(rng() % 4);
          f.height = 2 * f.lowHeight + static_cast<int>(rng() % 3);
          f.src.resize(static_cast<size_t>(width) * f.height);
          f.dst.resize(f.src.size());
          f.blurred.resize(static_cast<size_t>(lowWidth) * f.lowHeight);
          f.weight.resize(f.src.size() * e);
          f.Randomize(rng, i % 2 ? 1100 : 65535);
          const int h = f.height, r0 = static_cast<int>(rng() % h);
          const int r1 = r0 + static_cast<int>(rng() % (h - r0));
          const int strips[4][2] = {{0, h - 1}, {r0, r1}, {r0, r0}, {h - 1, h - 1}};
          const int *strip = strips[i % 4];
          const uint8_t alpha = kAlphas[rng() % 5];
          Frame g = f;
          f.Run(m.scalar, strip[0], strip[1], alpha);
          g.Run(m.vector, strip[0], strip[1], alpha);
          ASSERT_EQ(f.dst, g.dst) << m.name << " " << width << "x" << h << " from " << lowWidth
                                  << "x" << f.lowHeight << " rows " << strip[0] << ".."
                                  << strip[1] << " alpha " << int{alpha};
        }
      }
    }
  }
}

// Ratio 6 weighs the upper row by (256 - fy) & 255: a row whose fraction is
// 0 (here every row, with as many reduced rows as rows) interpolates to 0.
TEST(UpscaleKnownAnswers, Ratio6ZeroFractionRow) {
  std::mt19937 rng(41);
  for (const Member &m : kMembers) {
    if (m.n != 6) continue;
    for (ComposeKernel k : {m.scalar, m.vector}) {
      Frame f(m, m.chroma ? 20 : 10, 12, 12);
      f.Randomize(rng, 0);
      std::fill(f.weight.begin(), f.weight.end(), 1024);
      f.Run(k, 1, 6, 128);
      for (int x = 0; x < f.width; ++x) ASSERT_EQ(f.dst[f.At(3, x)], 0) << m.name << " x " << x;
    }
  }
}

}  // namespace
}  // namespace pb
