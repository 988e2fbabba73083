// Upscale-and-composite kernels: vector == scalar byte for byte, and both
// against interpolation and mixing values worked out here.
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
    {"Luma2", 2, false, UpscaleComposeLuma2_C, UpscaleComposeLuma2_NEON},
    {"Luma4", 4, false, UpscaleComposeLuma4_C, UpscaleComposeLuma4_NEON},
    {"Luma6", 6, false, UpscaleComposeLuma6_C, UpscaleComposeLuma6_NEON},
    {"Luma8", 8, false, UpscaleComposeLuma8_C, UpscaleComposeLuma8_NEON},
    {"Chroma2", 2, true, UpscaleComposeChroma2_C, UpscaleComposeChroma2_NEON},
    {"Chroma4", 4, true, UpscaleComposeChroma4_C, UpscaleComposeChroma4_NEON},
    {"Chroma6", 6, true, UpscaleComposeChroma6_C, UpscaleComposeChroma6_NEON},
    {"Chroma8", 8, true, UpscaleComposeChroma8_C, UpscaleComposeChroma8_NEON},
};

std::string MemberName(const ::testing::TestParamInfo<Member> &info) { return info.param.name; }
void PrintTo(const Member &m, std::ostream *os) { *os << m.name; }

// One plane (luma, or UV with `height` UV rows) at exact ratio N; the weight
// map has luma resolution.
struct Frame {
  int width, height, lowWidth, lowHeight;
  std::vector<uint8_t> src, blurred, dst;
  std::vector<uint16_t> weight;
  Frame(const Member &m, int lowW, int lowH, int rows = 0)
      : width(m.n * lowW),
        height(rows ? rows : m.n * lowH),
        lowWidth(lowW),
        lowHeight(lowH),
        src(static_cast<size_t>(width) * height),
        blurred(static_cast<size_t>(lowW) * lowH),
        dst(src.size()),
        weight(src.size() * (m.chroma ? 2 : 1)) {}
  void Randomize(std::mt19937 &rng, uint32_t maxWeight) {
    for (auto *v : {&src, &blurred, &dst}) {
      for (auto &b : *v) b = static_cast<uint8_t>(rng());
    }
    for (auto &w : weight) w = static_cast<uint16_t>(rng() % (maxWeight + 1));
  }
  void Run(ComposeKernel k, int first, int last, uint8_t alpha) {
    k(src.data(), width, height, lowWidth, lowHeight, weight.data(), blurred.data(), dst.data(),
      first, last, alpha);
  }
  // Both strips of the plane, as the strip tasks split it.
  void RunPlane(ComposeKernel k, uint8_t alpha) {
    Run(k, 0, height / 2 - 1, alpha);
    Run(k, height / 2, height - 1, alpha);
  }
  uint8_t B(int r, int byte) const { return blurred[static_cast<size_t>(r) * lowWidth + byte]; }
  size_t At(int y, int x) const { return static_cast<size_t>(y) * width + x; }
};

class UpscaleMember : public ::testing::TestWithParam<Member> {};

// Identical random inputs and destination; widths 1..70 reduced elements and
// 1920; strips at the top, the bottom, inside, of one row; weights within
// 0..1024 and up to 65535 (where body and one-at-a-time arithmetic differ).
TEST_P(UpscaleMember, VectorMatchesScalar) {
  const Member m = GetParam();
  std::mt19937 rng(17);
  const uint8_t kAlphas[] = {0, 1, 60, 128, 255};
  const int e = m.chroma ? 2 : 1;
  std::vector<std::pair<int, int>> sizes;  // reduced width (bytes), reduced height
  for (int lw = 1; lw <= 70; ++lw) sizes.push_back({e * lw, 2 + lw % 4});
  sizes.push_back({1920 / m.n, 4});
  for (size_t i = 0; i < sizes.size(); ++i) {
    Frame a(m, sizes[i].first, sizes[i].second);
    a.Randomize(rng, i % 2 ? 65535 : 1024);
    const int h = a.height, r0 = static_cast<int>(rng() % h);
    const int r1 = r0 + static_cast<int>(rng() % (h - r0));
    const int strips[4][2] = {{0, h / 2 - 1}, {h / 2, h - 1}, {r0, r1}, {r0, r0}};
    const int first = strips[i % 4][0], last = strips[i % 4][1];
    const uint8_t alpha = kAlphas[i % 5];
    Frame b = a;
    a.Run(m.scalar, first, last, alpha);
    b.Run(m.vector, first, last, alpha);
    ASSERT_EQ(a.dst, b.dst) << a.width << "x" << h << " rows " << first << ".." << last << " alpha "
                            << int(alpha);
  }
}

// Weight 0, or alpha 0, copies the source whatever the rest holds.
TEST_P(UpscaleMember, Identity) {
  const Member m = GetParam();
  std::mt19937 rng(23);
  for (ComposeKernel k : {m.scalar, m.vector}) {
    Frame f(m, m.chroma ? 60 : 30, 6);
    f.Randomize(rng, 65535);
    f.RunPlane(k, 0);
    EXPECT_EQ(f.dst, f.src);
    f.Randomize(rng, 0);  // all weights 0
    f.RunPlane(k, 255);
    EXPECT_EQ(f.dst, f.src);
  }
}

// Weight 2048 at alpha 128 (w = 2048): the vector steps wrap 1024 - w as a
// 16-bit lane and saturate, the one-at-a-time code goes negative (src 255,
// blurred 0: 255 vs 2) or over 255 (src 0, blurred 255: 255 vs 510, stored
// as 255 by ratios 4 and 8 and as its low byte 254 by ratios 2 and 6).
// Marks exactly which bytes of a row the vector steps cover.
TEST_P(UpscaleMember, VectorStepsCoverDocumentedColumns) {
  const Member m = GetParam();
  const int e = m.chroma ? 2 : 1, width = 18 * m.n * e;
  // Bytes [begin, end): ratio 6 from element 1 in steps of 24 bytes up to
  // (width - 6 elements) / 24 * 24; the others from 0 up to width - N elements
  // rounded down to their step (8 bytes at ratio 4 and luma ratio 8, else 16).
  const int step = (m.n == 4 || (m.n == 8 && !m.chroma)) ? 8 : 16;
  const int begin = m.n == 6 ? e : 0;
  const int end = m.n == 6 ? e + (width - 6 * e) / 24 * 24 : (width - m.n * e) & ~(step - 1);
  ASSERT_LT(end, width);
  ASSERT_GT(end, begin);
  for (ComposeKernel k : {m.scalar, m.vector}) {
    for (int s : {0, 255}) {
      Frame f(m, width / m.n, 4);
      std::fill(f.src.begin(), f.src.end(), s);
      std::fill(f.blurred.begin(), f.blurred.end(), 255 - s);
      std::fill(f.weight.begin(), f.weight.end(), 2048);
      const int y = m.n + 1;
      f.Run(k, y, y, 128);
      const int tail = s == 255 ? 2 : (m.n == 4 || m.n == 8) ? 255 : 254;
      for (int x = 0; x < width; ++x) {
        ASSERT_EQ(f.dst[f.At(y, x)], x >= begin && x < end ? 255 : tail)
            << "x " << x << " src " << s;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, UpscaleMember, ::testing::ValuesIn(kMembers), MemberName);

// Interpolated value at full weight for ratios 2, 4, 8 over a whole plane
// (two strips), from the rules: ratio 2 takes the mean of four low samples
// (last two elements: c1 = c; lower row clamped); ratios 4 and 8 take
// weights 256 - 256 j / N, 256 j / N by sub-position, with no horizontal
// interpolation in the last N elements and no vertical one in the last N rows.
int ExpectedMidpointOrBilinear(const Member &m, const Frame &f, int y, int x) {
  const int e = m.chroma ? 2 : 1, n = m.n;
  const int el = x / e, comp = x % e, elems = f.width / e, lowElems = f.lowWidth / e;
  const int r = y / n, c = el / n;
  auto at = [&](int row, int col) { return f.B(row, e * col + comp); };
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

// Ratio 6 from its rules: stepX = stepY = 10922 for an exact ratio; element 0
// vertical only; elements 1..body fixed weights (214,42) .. (1,255); then the
// running position (which has drifted from the pattern far along a 1920 row);
// last five elements vertical only; row 0 and the bottom five rows horizontal
// only with the running position; vertical weights ((256 - fy) & 255, fy).
int ExpectedRatio6(const Member &m, const Frame &f, int y, int x) {
  static const int kLeft[6] = {214, 171, 129, 86, 43, 1};
  static const int kRight[6] = {42, 85, 127, 170, 213, 255};
  const int e = m.chroma ? 2 : 1;
  const int el = x / e, comp = x % e, elems = f.width / e;
  const int body = (f.width - 6 * e) / 24 * 24 / e;
  auto at = [&](int row, int col) { return f.B(row, e * col + comp); };
  const int px = 10922 * el, c = px >> 16, py = 10922 * y, r = py >> 16, fy = (py >> 8) & 255;
  int wl = 256, wr = 0, cl = c;
  if (el >= 1 && el <= body && y >= 1 && y < f.height - 5) {
    cl = (el - 1) / 6, wl = kLeft[(el - 1) % 6], wr = kRight[(el - 1) % 6];
  } else if (el >= 1 && el < elems - 5) {
    wr = (px >> 8) & 255, wl = 256 - wr;
  }
  auto h = [&](int row) { return (wl * at(row, cl) + wr * (wr ? at(row, cl + 1) : 0) + 128) >> 8; };
  if (y == 0 || y >= f.height - 5) return h(r);
  return (((256 - fy) & 255) * h(r) + fy * h(r + 1) + 128) >> 8;
}

TEST(UpscaleKnownAnswers, InterpolationAtFullWeight) {
  std::mt19937 rng(29);
  for (const Member &m : kMembers) {
    const int e = m.chroma ? 2 : 1;
    for (int lowW : {5 * e, 1920 / m.n}) {
      for (ComposeKernel k : {m.scalar, m.vector}) {
        Frame f(m, lowW, 6);
        f.Randomize(rng, 0);
        std::fill(f.weight.begin(), f.weight.end(), 1024);
        f.RunPlane(k, 128);
        for (int y = 0; y < f.height; ++y) {
          for (int x = 0; x < f.width; ++x) {
            const int want =
                m.n == 6 ? ExpectedRatio6(m, f, y, x) : ExpectedMidpointOrBilinear(m, f, y, x);
            ASSERT_EQ(f.dst[f.At(y, x)], want)
                << m.name << " width " << f.width << " (" << x << ", " << y << ")";
          }
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

// Ratio 2 redoes the strip's last two rows with the lower row clamped: a
// one-row strip writes the row above it too, nothing else; an empty range
// writes nothing.
TEST(UpscaleKnownAnswers, Ratio2OneRowStrip) {
  std::mt19937 rng(31);
  for (const Member &m : kMembers) {
    if (m.n != 2) continue;
    for (ComposeKernel k : {m.scalar, m.vector}) {
      Frame f(m, m.chroma ? 16 : 8, 4);
      f.Randomize(rng, 0);
      std::fill(f.weight.begin(), f.weight.end(), 1024);
      const std::vector<uint8_t> before = f.dst;
      f.Run(k, 6, 5, 128);
      EXPECT_EQ(f.dst, before);
      std::vector<bool> written(f.height, false);
      for (int y : {5, 7}) {
        f.Run(k, y, y, 128);
        written[y] = written[y - 1] = true;
        for (int row = 0; row < f.height; ++row) {
          for (int x = 0; x < f.width; ++x) {
            const int want =
                written[row] ? ExpectedMidpointOrBilinear(m, f, row, x) : before[f.At(row, x)];
            ASSERT_EQ(f.dst[f.At(row, x)], want) << m.name << " strip " << y << " row " << row;
          }
        }
      }
    }
  }
}

// Chroma: the weight of a pair is that of its top-left luma pixel only, and
// U and V are interpolated each from their own bytes.
TEST(UpscaleKnownAnswers, ChromaWeightsAndComponents) {
  std::mt19937 rng(37);
  for (const Member &m : kMembers) {
    if (!m.chroma) continue;
    for (ComposeKernel k : {m.scalar, m.vector}) {
      Frame f(m, 24, 4);
      f.Randomize(rng, 1024);
      Frame g = f;
      const int lumaWidth = f.width;
      for (size_t i = 0; i < g.weight.size(); ++i) {
        const size_t row = i / lumaWidth, col = i % lumaWidth;
        if (row % 2 || col % 2) g.weight[i] = static_cast<uint16_t>(rng() % 1025);
      }
      f.RunPlane(k, 200);
      g.RunPlane(k, 200);
      EXPECT_EQ(f.dst, g.dst) << m.name;

      for (size_t i = 0; i < f.src.size(); ++i) f.src[i] = i % 2 ? 200 : 100;
      for (size_t i = 0; i < f.blurred.size(); ++i) f.blurred[i] = i % 2 ? 200 : 100;
      f.RunPlane(k, 128);
      for (size_t i = 0; i < f.dst.size(); ++i) ASSERT_EQ(f.dst[i], i % 2 ? 200 : 100) << m.name;
    }
  }
}

// Null planes and reduced images with nothing to interpolate from are refused
// with a log line and write nothing.
TEST(UpscaleKnownAnswers, RefusesUnusableArguments) {
  for (const Member &m : kMembers) {
    Frame f(m, 16, 4);
    const std::vector<uint8_t> before = f.dst;
    hooks::StartLogCapture();
    m.vector(f.src.data(), f.width, f.height, 0, 0, f.weight.data(), f.blurred.data(), f.dst.data(),
             0, 3, 128);
    m.scalar(f.src.data(), f.width, f.height, f.lowWidth, f.lowHeight, nullptr, f.blurred.data(),
             f.dst.data(), 0, 3, 128);
    EXPECT_EQ(hooks::StopLogCapture().size(), 2u) << m.name;
    EXPECT_EQ(f.dst, before) << m.name;
  }
}

}  // namespace
}  // namespace pb
