// The kernel table: every image kernel's signature, its scalar reference
// (<name>_C) and vector twin (<name>_NEON), and the one table through which
// the rest of the library calls them.
//
// The table is filled once: first with the scalar references, then, unless
// scalar kernels are chosen or the build has no vector kernels, with the
// vector twins; filling checks that no entry is left empty. Each kernel's
// contract is documented with its family: blur/smooth.h (smoothing and the
// fused smoothing + composite), scale/compose.h, scale/downscale.h,
// weight/weight_map.h, weight/disparity_stats.h.
#ifndef PREVIEWBOKEH_SIMD_KERNEL_TABLE_H_
#define PREVIEWBOKEH_SIMD_KERNEL_TABLE_H_

#include <cstdint>

namespace pb {

// ---------------------------------------------------------------------------
// Signatures.

// Separable smoothing of rows firstRow..lastRow of a luma or chroma plane.
using SmoothFn = void (*)(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                          int32_t height, const uint16_t *kernel, int32_t hradius,
                          int32_t vradius, uint8_t *intermediate, int32_t firstRow,
                          int32_t lastRow);

// Smoothing fused with the full-resolution composite: the arguments of
// SmoothFn, then the weight map, alpha and destination.
using SmoothComposeFn = void (*)(const uint8_t *input, uint8_t *padded, uint8_t *smoothed,
                                 int32_t width, int32_t height, const uint16_t *kernel,
                                 int32_t hradius, int32_t vradius, uint8_t *intermediate,
                                 int32_t firstRow, int32_t lastRow, const uint16_t *weight,
                                 uint8_t alpha, uint8_t *dst);

// Composite of a sharp plane with a blurred one (full or reduced resolution).
using ComposeKernel = void (*)(const uint8_t *src, int32_t width, int32_t height,
                               int32_t lowWidth, int32_t lowHeight, const uint16_t *weight,
                               const uint8_t *blurred, uint8_t *dst, int32_t rowFirst,
                               int32_t rowLast, uint8_t alpha);

// Reduction of a plane by the working ratio.
using DownscaleKernel = void (*)(const uint8_t *src, uint8_t *dst, uint8_t *xinterp,
                                 int32_t width, int32_t height, int32_t lowWidth,
                                 int32_t lowHeight, int32_t lowRowFirst, int32_t lowRowLast);

// Rows first..last of the weight map from the smoothed disparity.
using ComputeWeightsFn = void (*)(int32_t width, int32_t height, int32_t selX, int32_t selY,
                                  int32_t first, int32_t last, uint16_t *dst, int32_t srcWidth,
                                  int32_t srcHeight, uint8_t bandScale, uint8_t gain,
                                  const uint8_t *src);

// Minimum and maximum of a disparity map.
using MinMaxFn = void (*)(const uint8_t *src, int32_t n, uint8_t *min, uint8_t *max);

// out[i] = table[samples[i]] for i < count (the per-frame range table).
using ApplyRangeFn = void (*)(const uint8_t *samples, uint8_t *out, int32_t count,
                              const uint8_t table[256]);

// ---------------------------------------------------------------------------
// Records, one per kernel family.

struct SmoothKernels {
  SmoothFn luma;
  SmoothFn chroma;
};

struct SmoothComposeKernels {  // full-resolution path of the strip tasks
  SmoothComposeFn luma;
  SmoothComposeFn chroma;
};

struct ComposeKernels {  // full-resolution composites
  ComposeKernel luma;
  ComposeKernel chroma;
};

struct ReducedKernels {  // reduced path at one working ratio
  DownscaleKernel downscale_luma;
  ComposeKernel compose_luma;  // upscale and composite
  DownscaleKernel downscale_chroma;
  ComposeKernel compose_chroma;
};

struct WeightKernels {
  ComputeWeightsFn compute;
};

struct DisparityKernels {
  MinMaxFn min_max;
  ApplyRangeFn apply_range;
};

// Working ratios with a reduced path, in the order of KernelTable::reduced.
constexpr int kReducedRatios[] = {2, 4, 6, 8};
constexpr int kReducedRatioCount = 4;

struct KernelTable {
  SmoothKernels smooth;
  SmoothComposeKernels smooth_compose;
  ComposeKernels compose;
  ReducedKernels reduced[kReducedRatioCount];
  WeightKernels weight;
  DisparityKernels disparity;
};

// ---------------------------------------------------------------------------
// Choosing and reaching the table.

// The table in use: vector kernels unless scalar ones were chosen (or the
// build has none). The choice may change between frames, not during one.
const KernelTable &Kernels();
void UseScalarKernels(bool scalar);
bool ScalarKernelsInUse();

// The two fillings, for tests, benchmarks and fuzzers. Without vector kernels
// in the build, the vector table is the scalar one.
const KernelTable &ScalarKernelTable();
const KernelTable &VectorKernelTable();
bool VectorKernelsBuilt();

// Kernels of the reduced path at `ratio`, or null where the frame is blurred
// at full resolution (every ratio other than 2, 4, 6 and 8).
const ReducedKernels *ReducedKernelsFor(const KernelTable &table, int ratio);

// True when every entry of `table` is set.
bool KernelTableComplete(const KernelTable &table);

// ---------------------------------------------------------------------------
// The kernels. Scalar references are always built; vector twins unless the
// build is scalar-only.

void SmoothLuma_C(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                  int32_t height, const uint16_t *kernel, int32_t hradius, int32_t vradius,
                  uint8_t *intermediate, int32_t firstRow, int32_t lastRow);
void SmoothChroma_C(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                    int32_t height, const uint16_t *kernel, int32_t hradius, int32_t vradius,
                    uint8_t *intermediate, int32_t firstRow, int32_t lastRow);
void SmoothComposeLuma_C(const uint8_t *input, uint8_t *padded, uint8_t *smoothed, int32_t width,
                         int32_t height, const uint16_t *kernel, int32_t hradius,
                         int32_t vradius, uint8_t *intermediate, int32_t firstRow,
                         int32_t lastRow, const uint16_t *weight, uint8_t alpha, uint8_t *dst);
void SmoothComposeChroma_C(const uint8_t *input, uint8_t *padded, uint8_t *smoothed,
                           int32_t width, int32_t height, const uint16_t *kernel,
                           int32_t hradius, int32_t vradius, uint8_t *intermediate,
                           int32_t firstRow, int32_t lastRow, const uint16_t *weight,
                           uint8_t alpha, uint8_t *dst);

void SmoothLuma_NEON(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                     int32_t height, const uint16_t *kernel, int32_t hradius, int32_t vradius,
                     uint8_t *intermediate, int32_t firstRow, int32_t lastRow);
void SmoothChroma_NEON(const uint8_t *input, uint8_t *padded, uint8_t *output, int32_t width,
                       int32_t height, const uint16_t *kernel, int32_t hradius,
                       int32_t vradius, uint8_t *intermediate, int32_t firstRow,
                       int32_t lastRow);
void SmoothComposeLuma_NEON(const uint8_t *input, uint8_t *padded, uint8_t *smoothed,
                            int32_t width, int32_t height, const uint16_t *kernel,
                            int32_t hradius, int32_t vradius, uint8_t *intermediate,
                            int32_t firstRow, int32_t lastRow, const uint16_t *weight,
                            uint8_t alpha, uint8_t *dst);
void SmoothComposeChroma_NEON(const uint8_t *input, uint8_t *padded, uint8_t *smoothed,
                              int32_t width, int32_t height, const uint16_t *kernel,
                              int32_t hradius, int32_t vradius, uint8_t *intermediate,
                              int32_t firstRow, int32_t lastRow, const uint16_t *weight,
                              uint8_t alpha, uint8_t *dst);

#define PB_COMPOSE_KERNEL(name)                                                       \
  void name(const uint8_t *src, int32_t width, int32_t height, int32_t lowWidth,      \
            int32_t lowHeight, const uint16_t *weight, const uint8_t *blurred,        \
            uint8_t *dst, int32_t rowFirst, int32_t rowLast, uint8_t alpha)
#define PB_DOWNSCALE_KERNEL(name)                                                     \
  void name(const uint8_t *src, uint8_t *dst, uint8_t *xinterp, int32_t width,        \
            int32_t height, int32_t lowWidth, int32_t lowHeight, int32_t lowRowFirst, \
            int32_t lowRowLast)

PB_COMPOSE_KERNEL(ComposeLuma_C);
PB_COMPOSE_KERNEL(ComposeChroma_C);
PB_COMPOSE_KERNEL(ComposeLuma_NEON);
PB_COMPOSE_KERNEL(ComposeChroma_NEON);

PB_DOWNSCALE_KERNEL(DownscaleLuma2_C);
PB_DOWNSCALE_KERNEL(DownscaleLuma4_C);
PB_DOWNSCALE_KERNEL(DownscaleLuma6_C);
PB_DOWNSCALE_KERNEL(DownscaleLuma8_C);
PB_DOWNSCALE_KERNEL(DownscaleChroma2_C);
PB_DOWNSCALE_KERNEL(DownscaleChroma4_C);
PB_DOWNSCALE_KERNEL(DownscaleChroma6_C);
PB_DOWNSCALE_KERNEL(DownscaleChroma8_C);
PB_DOWNSCALE_KERNEL(DownscaleLuma2_NEON);
PB_DOWNSCALE_KERNEL(DownscaleLuma4_NEON);
PB_DOWNSCALE_KERNEL(DownscaleLuma6_NEON);
PB_DOWNSCALE_KERNEL(DownscaleLuma8_NEON);
PB_DOWNSCALE_KERNEL(DownscaleChroma2_NEON);
PB_DOWNSCALE_KERNEL(DownscaleChroma4_NEON);
PB_DOWNSCALE_KERNEL(DownscaleChroma6_NEON);
PB_DOWNSCALE_KERNEL(DownscaleChroma8_NEON);

PB_COMPOSE_KERNEL(UpscaleComposeLuma2_C);
PB_COMPOSE_KERNEL(UpscaleComposeLuma4_C);
PB_COMPOSE_KERNEL(UpscaleComposeLuma6_C);
PB_COMPOSE_KERNEL(UpscaleComposeLuma8_C);
PB_COMPOSE_KERNEL(UpscaleComposeChroma2_C);
PB_COMPOSE_KERNEL(UpscaleComposeChroma4_C);
PB_COMPOSE_KERNEL(UpscaleComposeChroma6_C);
PB_COMPOSE_KERNEL(UpscaleComposeChroma8_C);
PB_COMPOSE_KERNEL(UpscaleComposeLuma2_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeLuma4_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeLuma6_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeLuma8_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeChroma2_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeChroma4_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeChroma6_NEON);
PB_COMPOSE_KERNEL(UpscaleComposeChroma8_NEON);

void ComputeWeights_C(int32_t width, int32_t height, int32_t selX, int32_t selY, int32_t first,
                      int32_t last, uint16_t *dst, int32_t srcWidth, int32_t srcHeight,
                      uint8_t bandScale, uint8_t gain, const uint8_t *src);
void ComputeWeights_NEON(int32_t width, int32_t height, int32_t selX, int32_t selY,
                         int32_t first, int32_t last, uint16_t *dst, int32_t srcWidth,
                         int32_t srcHeight, uint8_t bandScale, uint8_t gain, const uint8_t *src);

void DisparityMinMax_C(const uint8_t *src, int32_t n, uint8_t *min, uint8_t *max);
void DisparityMinMax_NEON(const uint8_t *src, int32_t n, uint8_t *min, uint8_t *max);
void ApplyRangeTable_C(const uint8_t *samples, uint8_t *out, int32_t count,
                       const uint8_t table[256]);
void ApplyRangeTable_NEON(const uint8_t *samples, uint8_t *out, int32_t count,
                          const uint8_t table[256]);

}  // namespace pb

#endif  // PREVIEWBOKEH_SIMD_KERNEL_TABLE_H_
