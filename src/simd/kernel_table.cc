#include "simd/kernel_table.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace pb {
namespace {

// Which kernel runs at which working ratio. Ratio 1 (and any ratio without a
// row here) blurs at full resolution with smooth_compose; the reduced path
// downscales, smooths with `smooth` and mixes with the upscale-composite.
// clang-format off
#define PB_REDUCED_ROWS(suffix)                                                                    \
  /* ratio  luma downscale           luma composite                chroma downscale             chroma composite */ \
  /*  2 */ {DownscaleLuma2##suffix, UpscaleComposeLuma2##suffix, DownscaleChroma2##suffix, UpscaleComposeChroma2##suffix}, \
  /*  4 */ {DownscaleLuma4##suffix, UpscaleComposeLuma4##suffix, DownscaleChroma4##suffix, UpscaleComposeChroma4##suffix}, \
  /*  6 */ {DownscaleLuma6##suffix, UpscaleComposeLuma6##suffix, DownscaleChroma6##suffix, UpscaleComposeChroma6##suffix}, \
  /*  8 */ {DownscaleLuma8##suffix, UpscaleComposeLuma8##suffix, DownscaleChroma8##suffix, UpscaleComposeChroma8##suffix}
#define PB_KERNEL_TABLE(suffix)                                                   \
  KernelTable {                                                                   \
    /* smooth         */ {SmoothLuma##suffix, SmoothChroma##suffix},               \
    /* smooth_compose */ {SmoothComposeLuma##suffix, SmoothComposeChroma##suffix}, \
    /* compose        */ {ComposeLuma##suffix, ComposeChroma##suffix},             \
    /* reduced        */ {PB_REDUCED_ROWS(suffix)},                                \
    /* weight         */ {ComputeWeights##suffix},                                 \
    /* disparity      */ {DisparityMinMax##suffix, ApplyRangeTable##suffix},       \
  }
// clang-format on

// Stops the process when a filling left an entry empty: a frame would
// otherwise call through a null pointer.
const KernelTable &Checked(const KernelTable &table, const char *which) {
  if (!KernelTableComplete(table)) {
    std::fprintf(stderr, "previewbokeh: %s kernel table has an empty entry\n", which);
    std::abort();
  }
  return table;
}

const KernelTable &BuildScalar() {
  static const KernelTable table = PB_KERNEL_TABLE(_C);
  return Checked(table, "scalar");
}

#if defined(PREVIEWBOKEH_SCALAR_ONLY)
constexpr bool kVectorBuilt = false;
const KernelTable &BuildVector() { return BuildScalar(); }
#else
constexpr bool kVectorBuilt = true;
const KernelTable &BuildVector() {
  static const KernelTable table = PB_KERNEL_TABLE(_NEON);
  return Checked(table, "vector");
}
#endif

std::atomic<bool> g_scalar{!kVectorBuilt};

template <class Fn>
bool Set(Fn fn) {
  return fn != nullptr;
}

}  // namespace

bool KernelTableComplete(const KernelTable &t) {
  bool ok = Set(t.smooth.luma) && Set(t.smooth.chroma) && Set(t.smooth_compose.luma) &&
            Set(t.smooth_compose.chroma) && Set(t.compose.luma) && Set(t.compose.chroma) &&
            Set(t.weight.compute) && Set(t.disparity.min_max) &&
            Set(t.disparity.apply_range);
  for (const ReducedKernels &r : t.reduced) {
    ok = ok && Set(r.downscale_luma) && Set(r.compose_luma) && Set(r.downscale_chroma) &&
         Set(r.compose_chroma);
  }
  return ok;
}

const KernelTable &ScalarKernelTable() {
  static const KernelTable &table = BuildScalar();
  return table;
}

const KernelTable &VectorKernelTable() {
  static const KernelTable &table = BuildVector();
  return table;
}

bool VectorKernelsBuilt() { return kVectorBuilt; }

void UseScalarKernels(bool scalar) {
  g_scalar.store(scalar || !kVectorBuilt, std::memory_order_relaxed);
}

bool ScalarKernelsInUse() { return g_scalar.load(std::memory_order_relaxed); }

const KernelTable &Kernels() {
  return ScalarKernelsInUse() ? ScalarKernelTable() : VectorKernelTable();
}

const ReducedKernels *ReducedKernelsFor(const KernelTable &table, int ratio) {
  for (int i = 0; i < kReducedRatioCount; ++i) {
    if (kReducedRatios[i] == ratio) return &table.reduced[i];
  }
  return nullptr;
}

}  // namespace pb
