// The kernel table: complete in both fillings, vector entries really vector
// ones, the reduced path only at ratios 2, 4, 6 and 8, and the scalar switch.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simd/kernel_table.h"

namespace {

using pb::KernelTable;

// One entry of the table: how to read it (as an untyped address) and clear it.
struct Entry {
  std::string name;
  const void *(*get)(const KernelTable &, int);
  void (*clear)(KernelTable &, int);
  int index;  // reduced-path row, else unused
};

template <class Fn>
const void *Address(Fn fn) {
  return reinterpret_cast<const void *>(fn);
}

std::vector<Entry> Entries() {
  std::vector<Entry> e = {
      {"smooth.luma", [](const KernelTable &t, int) { return Address(t.smooth.luma); },
       [](KernelTable &t, int) { t.smooth.luma = nullptr; }, 0},
      {"smooth.chroma", [](const KernelTable &t, int) { return Address(t.smooth.chroma); },
       [](KernelTable &t, int) { t.smooth.chroma = nullptr; }, 0},
      {"smooth_compose.luma",
       [](const KernelTable &t, int) { return Address(t.smooth_compose.luma); },
       [](KernelTable &t, int) { t.smooth_compose.luma = nullptr; }, 0},
      {"smooth_compose.chroma",
       [](const KernelTable &t, int) { return Address(t.smooth_compose.chroma); },
       [](KernelTable &t, int) { t.smooth_compose.chroma = nullptr; }, 0},
      {"compose.luma", [](const KernelTable &t, int) { return Address(t.compose.luma); },
       [](KernelTable &t, int) { t.compose.luma = nullptr; }, 0},
      {"compose.chroma", [](const KernelTable &t, int) { return Address(t.compose.chroma); },
       [](KernelTable &t, int) { t.compose.chroma = nullptr; }, 0},
      {"weight.compute", [](const KernelTable &t, int) { return Address(t.weight.compute); },
       [](KernelTable &t, int) { t.weight.compute = nullptr; }, 0},
      {"disparity.min_max",
       [](const KernelTable &t, int) { return Address(t.disparity.min_max); },
       [](KernelTable &t, int) { t.disparity.min_max = nullptr; }, 0},
      {"disparity.apply_range",
       [](const KernelTable &t, int) { return Address(t.disparity.apply_range); },
       [](KernelTable &t, int) { t.disparity.apply_range = nullptr; }, 0},
  };
  for (int i = 0; i < pb::kReducedRatioCount; ++i) {
    const std::string ratio = std::to_string(pb::kReducedRatios[i]);
    e.push_back({"reduced[" + ratio + "].downscale_luma",
                 [](const KernelTable &t, int r) { return Address(t.reduced[r].downscale_luma); },
                 [](KernelTable &t, int r) { t.reduced[r].downscale_luma = nullptr; }, i});
    e.push_back({"reduced[" + ratio + "].compose_luma",
                 [](const KernelTable &t, int r) { return Address(t.reduced[r].compose_luma); },
                 [](KernelTable &t, int r) { t.reduced[r].compose_luma = nullptr; }, i});
    e.push_back(
        {"reduced[" + ratio + "].downscale_chroma",
         [](const KernelTable &t, int r) { return Address(t.reduced[r].downscale_chroma); },
         [](KernelTable &t, int r) { t.reduced[r].downscale_chroma = nullptr; }, i});
    e.push_back({"reduced[" + ratio + "].compose_chroma",
                 [](const KernelTable &t, int r) { return Address(t.reduced[r].compose_chroma); },
                 [](KernelTable &t, int r) { t.reduced[r].compose_chroma = nullptr; }, i});
  }
  return e;
}

TEST(KernelTable, EveryEntryCounts) {
  // The list above covers the whole record: a table of that many set entries
  // and nothing else.
  static_assert(sizeof(KernelTable) == (9 + 4 * pb::kReducedRatioCount) * sizeof(void (*)()),
                "a family was added: list its entries here");
  for (const KernelTable *table : {&pb::ScalarKernelTable(), &pb::VectorKernelTable()}) {
    EXPECT_TRUE(pb::KernelTableComplete(*table));
    for (const Entry &e : Entries()) {
      SCOPED_TRACE(e.name);
      ASSERT_NE(e.get(*table, e.index), nullptr);
      KernelTable copy = *table;
      e.clear(copy, e.index);
      EXPECT_FALSE(pb::KernelTableComplete(copy));
    }
  }
}

TEST(KernelTable, VectorFillingReplacesEveryScalarEntry) {
  if (!pb::VectorKernelsBuilt()) {
    EXPECT_EQ(&pb::VectorKernelTable(), &pb::ScalarKernelTable());
    GTEST_SKIP() << "scalar-only build";
  }
  for (const Entry &e : Entries()) {
    SCOPED_TRACE(e.name);
    EXPECT_NE(e.get(pb::VectorKernelTable(), e.index), e.get(pb::ScalarKernelTable(), e.index));
  }
}

TEST(KernelTable, ReducedPathOnlyAtItsRatios) {
  const KernelTable &t = pb::ScalarKernelTable();
  for (int ratio = -1; ratio <= 10; ++ratio) {
    SCOPED_TRACE(ratio);
    const pb::ReducedKernels *r = pb::ReducedKernelsFor(t, ratio);
    switch (ratio) {
      case 2:
        EXPECT_EQ(r, &t.reduced[0]);
        EXPECT_EQ(r->compose_luma, pb::UpscaleComposeLuma2_C);
        break;
      case 4:
        EXPECT_EQ(r, &t.reduced[1]);
        EXPECT_EQ(r->downscale_chroma, pb::DownscaleChroma4_C);
        break;
      case 6:
        EXPECT_EQ(r, &t.reduced[2]);
        EXPECT_EQ(r->downscale_luma, pb::DownscaleLuma6_C);
        break;
      case 8:
        EXPECT_EQ(r, &t.reduced[3]);
        EXPECT_EQ(r->compose_chroma, pb::UpscaleComposeChroma8_C);
        break;
      default:
        EXPECT_EQ(r, nullptr);
    }
  }
}

TEST(KernelTable, ScalarSwitch) {
  pb::UseScalarKernels(true);
  EXPECT_TRUE(pb::ScalarKernelsInUse());
  EXPECT_EQ(&pb::Kernels(), &pb::ScalarKernelTable());
  pb::UseScalarKernels(false);
  EXPECT_EQ(pb::ScalarKernelsInUse(), !pb::VectorKernelsBuilt());
  EXPECT_EQ(&pb::Kernels(), &pb::VectorKernelTable());
}

}  // namespace
