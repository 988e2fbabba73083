// Downscale kernels: vector == scalar byte for byte, and both against values
// worked out here from the reduction filters (scratch rows included).
#include "scale/downscale.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "platform/test_hooks.h"

namespace pb {
namespace {

struct Member {
  const char *name;
  int n;
  bool chroma;
  DownscaleKernel scalar;
  DownscaleKernel vector;
};

const Member kMembers[] = {
    {"Luma2", 2, false, DownscaleLuma2_C, DownscaleLuma2_NEON},
    {"Luma4", 4, false, DownscaleLuma4_C, DownscaleLuma4_NEON},
    {"Luma6", 6, false, DownscaleLuma6_C, DownscaleLuma6_NEON},
    {"Luma8", 8, false, DownscaleLuma8_C, DownscaleLuma8_NEON},
    {"Chroma2", 2, true, DownscaleChroma2_C, DownscaleChroma2_NEON},
    {"Chroma4", 4, true, DownscaleChroma4_C, DownscaleChroma4_NEON},
    {"Chroma6", 6, true, DownscaleChroma6_C, DownscaleChroma6_NEON},
    {"Chroma8", 8, true, DownscaleChroma8_C, DownscaleChroma8_NEON},
};

void PrintTo(const Member &m, std::ostream *os) { *os << m.name; }

// Reduction of N taps written out from the filter table: box for 2, 4, 8;
// weights 1,1,2,2,1,1 over 8 for 6.
int Reduce(const std::vector<int> &t) {
  const int n = static_cast<int>(t.size());
  if (n == 6) return (t[0] + t[1] + 2 * t[2] + 2 * t[3] + t[4] + t[5] + 4) >> 3;
  int sum = 0;
  for (int v : t) sum += v;
  const int shift = n == 2 ? 1 : n == 4 ? 2 : 3;
  return (sum + (1 << (shift - 1))) >> shift;
}

// First source byte of reduced byte x. With fh = N every member reads N * x
// (pairs: 2 * N * pair); with another factor the members differ: ratio 2 luma
// keeps 2x over the first lowWidth & ~7 columns and steps by fh after them,
// ratio 4 luma reads blocks of 8 outputs at 8 * fh * block, ratio 2 chroma
// always reads pairs 2k and 2k + 1, the others step by fh.
int FirstTap(const Member &m, int fh, int lowWidth, int x) {
  const int body = lowWidth & ~7;
  if (m.chroma) return (m.n == 2 ? 4 * (x / 2) : 2 * fh * (x / 2)) + x % 2;
  if (m.n == 2) return x < body ? 2 * x : 2 * body + fh * (x - body);
  if (m.n == 4 && x < body) return 8 * fh * (x / 8) + 4 * (x % 8);
  return fh * x;
}

struct Buffers {
  int width, height, lowWidth, lowHeight;
  std::vector<uint8_t> src, dst, xinterp;  // random, scratch and destination included
  Buffers(int w, int h, int lw, int lh, std::mt19937 &rng)
      : width(w), height(h), lowWidth(lw), lowHeight(lh), src(size_t(w) * h), dst(size_t(lw) * lh),
        xinterp(size_t(lw) * h) {
    for (auto *v : {&src, &dst, &xinterp}) {
      for (auto &b : *v) b = static_cast<uint8_t>(rng());
    }
  }
  void Run(DownscaleKernel k, int first, int last) {
    k(src.data(), dst.data(), xinterp.data(), width, height, lowWidth, lowHeight, first, last);
  }
};

class DownscaleMember : public ::testing::TestWithParam<Member> {};

// Exact multiples plus up to N - 1 trailing columns and rows that must not
// contribute, and factors of N + 1 (where the members' column addressing
// differs). Reduced rows 1 and 2 are written: each source row fv * j + k of
// their blocks reduced horizontally into its scratch row, then the column of
// N results; other rows untouched. The odd last byte of a reduced chroma row
// is kept by ratios 4, 6, 8 and recomputed from the stale scratch by ratio 2.
TEST_P(DownscaleMember, MatchesFilterOnBlocks) {
  const Member m = GetParam();
  std::mt19937 rng(7);
  const int step = m.chroma ? 2 : 1, lowHeight = 8;
  for (int lowWidth : {1, 2, 3, 7, 8, 9, 16, 17, 30, 33, 64, 135}) {
    for (int extra : {0, m.n - 1, -1}) {
      // Trailing columns and rows fewer than lowWidth and lowHeight keep the factors at N.
      const int width =
          extra < 0 ? (m.n + 1) * lowWidth : m.n * lowWidth + std::min(extra, lowWidth - 1);
      const int height = extra < 0 ? (m.n + 1) * lowHeight : m.n * lowHeight + extra;
      const int fh = width / lowWidth, fv = height / lowHeight;
      for (bool vector : {false, true}) {
        Buffers b(width, height, lowWidth, lowHeight, rng);
        const Buffers before = b;
        b.Run(vector ? m.vector : m.scalar, 1, 2);
        SCOPED_TRACE(::testing::Message() << "lowWidth " << lowWidth << " extra " << extra
                                          << " vector " << vector);
        for (int j = 0; j < lowHeight; ++j) {
          for (int x = 0; x < lowWidth; ++x) {
            const size_t at = static_cast<size_t>(j) * lowWidth + x;
            if (j != 1 && j != 2) {
              ASSERT_EQ(b.dst[at], before.dst[at]) << "row " << j;
            } else if (m.chroma && x == (lowWidth & ~1)) {
              const uint8_t *t = &before.xinterp[static_cast<size_t>(fv * j) * lowWidth + x];
              ASSERT_EQ(b.dst[at], m.n == 2 ? (t[0] + t[lowWidth] + 1) >> 1 : before.dst[at]);
            } else {
              std::vector<int> column;
              for (int k = 0; k < m.n; ++k) {
                const size_t row = static_cast<size_t>(fv * j + k);
                std::vector<int> taps;
                for (int i = 0; i < m.n; ++i) {
                  taps.push_back(b.src[row * width + FirstTap(m, fh, lowWidth, x) + step * i]);
                }
                column.push_back(Reduce(taps));
                ASSERT_EQ(b.xinterp[row * lowWidth + x], column.back()) << "scratch row " << row;
              }
              ASSERT_EQ(b.dst[at], Reduce(column)) << "row " << j << " byte " << x;
            }
          }
        }
      }
    }
  }
}

// Vector and scalar on identical random buffers (scratch included, so stale
// bytes agree too) over many widths, row ranges and awkward factors
// (fh = N + 1 separates body and tail addressing).
TEST_P(DownscaleMember, VectorMatchesScalar) {
  const Member m = GetParam();
  std::mt19937 rng(11);
  struct Size {
    int lowWidth, width, lowHeight, height;
  };
  std::vector<Size> sizes;
  for (int lw = 1; lw <= 70; ++lw) {
    const int lh = 1 + lw % 5;
    sizes.push_back({lw, m.n * lw, lh, m.n * lh});
    sizes.push_back({lw, m.n * lw + 1 + lw % (m.n + 1), lh, m.n * lh + lw % 2});
    sizes.push_back({lw, (m.n + 1) * lw, lh, (m.n + 1) * lh});
  }
  sizes.push_back({1920 / m.n, 1920, 6, 6 * m.n});
  sizes.push_back({1080 / 8, 1080, 3, 3 * m.n});  // odd reduced width for chroma
  for (const Size &s : sizes) {
    const int first = static_cast<int>(rng() % s.lowHeight);
    const int last = first + static_cast<int>(rng() % (s.lowHeight - first));
    Buffers a(s.width, s.height, s.lowWidth, s.lowHeight, rng);
    Buffers b = a;
    a.Run(m.scalar, first, last);
    b.Run(m.vector, first, last);
    ASSERT_EQ(a.dst, b.dst) << s.width << "x" << s.height << " -> " << s.lowWidth << "x"
                            << s.lowHeight << " rows " << first << ".." << last;
    ASSERT_EQ(a.xinterp, b.xinterp) << s.width << " rows " << first << ".." << last;
  }
}

// Sizes that would read past the source, and a null source, are refused with
// a log line.
TEST_P(DownscaleMember, RefusesOversizedReduction) {
  const Member m = GetParam();
  std::vector<uint8_t> src(64, 1), dst(16, 7), xinterp(64, 7);
  hooks::StartLogCapture();
  m.vector(src.data(), dst.data(), xinterp.data(), 8, 8, 8, 2, 0, 1);
  m.scalar(nullptr, dst.data(), xinterp.data(), 16, 16, 16 / m.n, 16 / m.n, 0, 0);
  EXPECT_EQ(hooks::StopLogCapture().size(), 2u);
  EXPECT_EQ(dst, std::vector<uint8_t>(16, 7));
}

INSTANTIATE_TEST_SUITE_P(All, DownscaleMember, ::testing::ValuesIn(kMembers),
                         [](const ::testing::TestParamInfo<Member> &i) { return i.param.name; });

}  // namespace
}  // namespace pb
