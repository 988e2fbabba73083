// The kernel table: complete in both fillings, vector entries really vector
// ones, the reduced path only at ratios 2, 4, 6 and 8, and the scalar switch.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

#include "simd/kernel_table.h"

namespace {

using pb::KernelTable;

// The table is a record of function pointers and nothing else; its entries,
// in order, as one array.
constexpr size_t kEntries = 9 + 4 * pb::kReducedRatioCount;
using Slots = std::array<void (*)(), kEntries>;
static_assert(sizeof(KernelTable) == sizeof(Slots), "a family was added: count its entries here");

Slots SlotsOf(const KernelTable &t) {
  Slots s;
  std::memcpy(s.data(), &t, sizeof s);
  return s;
}

TEST(KernelTable, EveryEntryCounts) {
  for (const KernelTable *table : {&pb::ScalarKernelTable(), &pb::VectorKernelTable()}) {
    EXPECT_TRUE(pb::KernelTableComplete(*table));
    const Slots slots = SlotsOf(*table);
    for (size_t i = 0; i < kEntries; ++i) {
      SCOPED_TRACE(testing::Message() << "entry " << i);
      ASSERT_NE(slots[i], nullptr);
      KernelTable copy = *table;
      std::memset(reinterpret_cast<char *>(&copy) + i * sizeof slots[i], 0, sizeof slots[i]);
      EXPECT_FALSE(pb::KernelTableComplete(copy));
    }
  }
}

TEST(KernelTable, VectorFillingReplacesEveryScalarEntry) {
  if (!pb::VectorKernelsBuilt()) {
    EXPECT_EQ(&pb::VectorKernelTable(), &pb::ScalarKernelTable());
    GTEST_SKIP() << "scalar-only build";
  }
  const Slots scalar = SlotsOf(pb::ScalarKernelTable()), vector = SlotsOf(pb::VectorKernelTable());
  for (size_t i = 0; i < kEntries; ++i) EXPECT_NE(vector[i], scalar[i]) << "entry " << i;
}

// Each ratio's row holds that ratio's kernels; other ratios have none.
TEST(KernelTable, ReducedPathOnlyAtItsRatios) {
  const KernelTable &t = pb::ScalarKernelTable();
  const struct {
    int ratio;
    pb::DownscaleKernel downscale_luma, downscale_chroma;
    pb::ComposeKernel compose_luma, compose_chroma;
  } rows[] = {
      {2, pb::DownscaleLuma2_C, pb::DownscaleChroma2_C, pb::UpscaleComposeLuma2_C, pb::UpscaleComposeChroma2_C},
      {4, pb::DownscaleLuma4_C, pb::DownscaleChroma4_C, pb::UpscaleComposeLuma4_C, pb::UpscaleComposeChroma4_C},
      {6, pb::DownscaleLuma6_C, pb::DownscaleChroma6_C, pb::UpscaleComposeLuma6_C, pb::UpscaleComposeChroma6_C},
      {8, pb::DownscaleLuma8_C, pb::DownscaleChroma8_C, pb::UpscaleComposeLuma8_C, pb::UpscaleComposeChroma8_C},
  };
  for (int ratio = -1; ratio <= 10; ++ratio) {
    const pb::ReducedKernels *r = pb::ReducedKernelsFor(t, ratio);
    const auto *row = std::find_if(std::begin(rows), std::end(rows), [&](const auto &x) { return x.ratio == ratio; });
    if (row == std::end(rows)) {
      EXPECT_EQ(r, nullptr) << ratio;
      continue;
    }
    ASSERT_NE(r, nullptr) << ratio;
    EXPECT_TRUE(r->downscale_luma == row->downscale_luma && r->downscale_chroma == row->downscale_chroma &&
                r->compose_luma == row->compose_luma && r->compose_chroma == row->compose_chroma)
        << ratio;
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
