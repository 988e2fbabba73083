// Scalar reference of the separable smoothing. It follows the formula sample by
// sample: rows above and below the plane and columns beyond its sides read the
// nearest edge sample. The horizontal result of plane row r is kept in
// intermediate row r + h; the padded scratch is not needed (edge samples are
// read in place), which also keeps concurrent strips of one plane from
// writing shared memory.
//
// Horizontal pass: columns below the last multiple of 8 samples (luma) or 8
// pairs (chroma) store min(255, v), the remaining columns the low 8 bits of v,
// v = (acc + 512) >> 10. Both agree whenever the taps sum to at most 1024.
// Vertical pass: min(255, v) everywhere.
#include <cstring>

#include "blur/smooth.h"
#include "blur/smooth_internal.h"
#include "platform/log.h"

namespace pb {
namespace smooth {

Plan Screen(const char *name, bool chroma, const uint8_t *input, const uint8_t *output,
            int32_t width, int32_t height, const uint16_t *kernel, int32_t hradius,
            int32_t vradius, const uint8_t *intermediate, int32_t firstRow, int32_t lastRow) {
  if (firstRow > lastRow) return Plan::kSkip;
  if (input == nullptr || output == nullptr || width < 1 || height < 1 || firstRow < 0 ||
      lastRow >= height) {
    PB_LOGD("%s: invalid plane (input %p, output %p, %dx%d, rows %d..%d)\n", name,
            static_cast<const void *>(input), static_cast<const void *>(output), width, height,
            firstRow, lastRow);
    return Plan::kSkip;
  }
  if (hradius != vradius) {
    PB_LOGD("%s: radii differ (%d, %d)\n", name, hradius, vradius);
    return Plan::kSkip;
  }
  if (hradius < 0) return Plan::kZero;
  if (hradius > kMaxRadius || kernel == nullptr || intermediate == nullptr) {
    PB_LOGD("%s: invalid kernel or scratch (radius %d, kernel %p, intermediate %p)\n", name,
            hradius, static_cast<const void *>(kernel), static_cast<const void *>(intermediate));
    return Plan::kSkip;
  }
  if (chroma && (width & 1) != 0) {
    PB_LOGD("%s: odd chroma width %d\n", name, width);
    return Plan::kSkip;
  }
  return Plan::kRun;
}

void ZeroRows(uint8_t *output, int32_t width, int32_t firstRow, int32_t lastRow) {
  for (int32_t y = firstRow; y <= lastRow; ++y) {
    std::memset(output + static_cast<size_t>(y) * static_cast<size_t>(width), 0,
                static_cast<size_t>(width));
  }
}

}  // namespace smooth

namespace {

inline int64_t Clamp(int64_t v, int64_t lo, int64_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

// step: byte distance between neighbouring samples of one channel (1 luma,
// 2 chroma); bodyEnd: first column stored with the low-8-bit rule.
void SmoothPlane(const uint8_t *input, uint8_t *output, int32_t width, int32_t height,
                 const uint16_t *kernel, int32_t h, uint8_t *intermediate, int32_t firstRow,
                 int32_t lastRow, int32_t step, int32_t bodyEnd) {
  const size_t stride = static_cast<size_t>(width);
  for (int32_t r = firstRow - h; r <= lastRow + h; ++r) {
    const uint8_t *src = input + static_cast<size_t>(Clamp(r, 0, height - 1)) * stride;
    uint8_t *dst = intermediate + static_cast<size_t>(r + h) * stride;
    for (int32_t x = 0; x < width; ++x) {
      const int64_t lo = x % step;  // first byte of this channel
      const int64_t hi = width - step + lo;
      uint32_t acc = 0;
      for (int32_t k = -h; k <= h; ++k) {
        const int64_t c = Clamp(static_cast<int64_t>(x) + static_cast<int64_t>(k) * step, lo, hi);
        acc += static_cast<uint32_t>(kernel[h + k]) * src[c];
      }
      const uint32_t v = smooth::RoundShift10(acc);
      dst[x] = x < bodyEnd ? smooth::Saturate8(v) : static_cast<uint8_t>(v);
    }
  }
  for (int32_t y = firstRow; y <= lastRow; ++y) {
    uint8_t *dst = output + static_cast<size_t>(y) * stride;
    for (int32_t x = 0; x < width; ++x) {
      uint32_t acc = 0;
      for (int32_t k = -h; k <= h; ++k) {
        acc += static_cast<uint32_t>(kernel[h + k]) *
               intermediate[static_cast<size_t>(y + k + h) * stride + static_cast<size_t>(x)];
      }
      dst[x] = smooth::Saturate8(smooth::RoundShift10(acc));
    }
  }
}

// Screens the call, then smooths with the column split of the vector kernels:
// 8 samples (luma) or 8 pairs, 16 bytes (chroma), per vector group.
void SmoothChecked(const char *name, bool chroma, const uint8_t *input, uint8_t *output,
                   int32_t width, int32_t height, const uint16_t *kernel, int32_t hradius,
                   int32_t vradius, uint8_t *intermediate, int32_t firstRow, int32_t lastRow) {
  if (!smooth::ScreenOrZero(name, chroma, input, output, width, height, kernel, hradius, vradius,
                            intermediate, firstRow, lastRow)) {
    return;
  }
  SmoothPlane(input, output, width, height, kernel, hradius, intermediate, firstRow, lastRow,
              chroma ? 2 : 1, chroma ? width & ~15 : width & ~7);
}

}  // namespace

void SmoothLuma_C(const uint8_t *input, uint8_t * /*padded*/, uint8_t *output, int32_t width,
                  int32_t height, const uint16_t *kernel, int32_t hradius, int32_t vradius,
                  uint8_t *intermediate, int32_t firstRow, int32_t lastRow) {
  SmoothChecked("SmoothLuma", false, input, output, width, height, kernel, hradius, vradius,
                intermediate, firstRow, lastRow);
}

void SmoothChroma_C(const uint8_t *input, uint8_t * /*padded*/, uint8_t *output, int32_t width,
                    int32_t height, const uint16_t *kernel, int32_t hradius, int32_t vradius,
                    uint8_t *intermediate, int32_t firstRow, int32_t lastRow) {
  SmoothChecked("SmoothChroma", true, input, output, width, height, kernel, hradius, vradius,
                intermediate, firstRow, lastRow);
}

// The fused kernels' reference: smoothing into `smoothed`, then the
// full-resolution composite of the plane as its own reduced size.
void SmoothComposeLuma_C(const uint8_t *input, uint8_t *padded, uint8_t *smoothed, int32_t width,
                         int32_t height, const uint16_t *kernel, int32_t hradius,
                         int32_t vradius, uint8_t *intermediate, int32_t firstRow,
                         int32_t lastRow, const uint16_t *weight, uint8_t alpha, uint8_t *dst) {
  SmoothLuma_C(input, padded, smoothed, width, height, kernel, hradius, vradius, intermediate,
               firstRow, lastRow);
  ComposeLuma_C(input, width, height, width, height, weight, smoothed, dst, firstRow, lastRow,
                alpha);
}

void SmoothComposeChroma_C(const uint8_t *input, uint8_t *padded, uint8_t *smoothed,
                           int32_t width, int32_t height, const uint16_t *kernel,
                           int32_t hradius, int32_t vradius, uint8_t *intermediate,
                           int32_t firstRow, int32_t lastRow, const uint16_t *weight,
                           uint8_t alpha, uint8_t *dst) {
  SmoothChroma_C(input, padded, smoothed, width, height, kernel, hradius, vradius, intermediate,
                 firstRow, lastRow);
  ComposeChroma_C(input, width, height, width, height, weight, smoothed, dst, firstRow, lastRow,
                  alpha);
}

}  // namespace pb
