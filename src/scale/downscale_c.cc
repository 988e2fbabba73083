// Scalar downscale kernels: the reference formulas, one sample at a time.
// Pass 1 reduces source rows horizontally into xinterp (row y at y * lowWidth),
// pass 2 reduces N xinterp rows vertically into dst; each pass rounds to 8 bits.
#include "scale/downscale.h"
#include "scale/scale_internal.h"

namespace pb {
namespace {

using scale::DownscaleRows;
using scale::ForEachSourceRow;
using scale::Offset;
using scale::PlanDownscale;
using scale::ReduceChromaRun;
using scale::ReduceColumn;
using scale::ReduceLumaRun;
using scale::ReduceSpaced;

// Pass 2 over bytes [0, bytes) of every reduced row of the plan.
template <int N>
void VerticalPass(const DownscaleRows &p, const uint8_t *xinterp, uint8_t *dst, int32_t lowWidth,
                  int32_t bytes) {
  for (int32_t j = p.first; j <= p.last; ++j) {
    const uint8_t *t = xinterp + Offset(p.fv * j, lowWidth);
    uint8_t *out = dst + Offset(j, lowWidth);
    for (int32_t x = 0; x < bytes; ++x) out[x] = ReduceColumn<N>(t + x, lowWidth);
  }
}

// Luma: output x reads N consecutive source bytes starting at fh * x.
template <int N>
void DownscaleLumaStrided(const char *name, const uint8_t *src, uint8_t *dst, uint8_t *xinterp,
                          int32_t width, int32_t height, int32_t lowWidth, int32_t lowHeight,
                          int32_t lowRowFirst, int32_t lowRowLast) {
  const DownscaleRows p = PlanDownscale(name, N, src, dst, xinterp, width, height, lowWidth,
                                        lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  ForEachSourceRow<N>(p, src, width, xinterp, lowWidth, [&](const uint8_t *s, uint8_t *o) {
    ReduceLumaRun<N>(s, p.fh, o, lowWidth);
  });
  VerticalPass<N>(p, xinterp, dst, lowWidth, lowWidth);
}

}  // namespace

// Body columns x < (lowWidth & ~7) read source 2x, 2x + 1; the remaining
// columns continue from there with the column factor fh.
PB_DOWNSCALE_KERNEL(DownscaleLuma2_C) {
  const DownscaleRows p = PlanDownscale("DownscaleLuma2", 2, src, dst, xinterp, width, height,
                                        lowWidth, lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  const int32_t body = lowWidth & ~7;
  ForEachSourceRow<2>(p, src, width, xinterp, lowWidth, [&](const uint8_t *s, uint8_t *o) {
    ReduceLumaRun<2>(s, 2, o, body);
    ReduceLumaRun<2>(s + 2 * body, p.fh, o + body, lowWidth - body);
  });
  VerticalPass<2>(p, xinterp, dst, lowWidth, lowWidth);
}

// Body: blocks of 8 outputs starting at source column 8 * fh * b, reading 32
// consecutive bytes in groups of 4; remaining columns read from fh * x.
PB_DOWNSCALE_KERNEL(DownscaleLuma4_C) {
  const DownscaleRows p = PlanDownscale("DownscaleLuma4", 4, src, dst, xinterp, width, height,
                                        lowWidth, lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  const int32_t body = lowWidth & ~7;
  ForEachSourceRow<4>(p, src, width, xinterp, lowWidth, [&](const uint8_t *s, uint8_t *o) {
    for (int32_t x = 0; x < body; ++x) {
      o[x] = ReduceSpaced<4>(s + 8 * p.fh * (x / 8) + 4 * (x % 8), 1);
    }
    ReduceLumaRun<4>(s + p.fh * body, p.fh, o + body, lowWidth - body);
  });
  VerticalPass<4>(p, xinterp, dst, lowWidth, lowWidth);
}

PB_DOWNSCALE_LUMA_STRIDED_KERNEL(6, _C)
PB_DOWNSCALE_LUMA_STRIDED_KERNEL(8, _C)

// Pair k always reads source bytes 4k..4k+3, whatever the sizes. Pass 2 runs
// over all lowWidth bytes: with an odd lowWidth the last byte of each row comes
// from scratch bytes this call did not write.
PB_DOWNSCALE_KERNEL(DownscaleChroma2_C) {
  const DownscaleRows p = PlanDownscale("DownscaleChroma2", 2, src, dst, xinterp, width, height,
                                        lowWidth, lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  ForEachSourceRow<2>(p, src, width, xinterp, lowWidth, [&](const uint8_t *s, uint8_t *o) {
    ReduceChromaRun<2>(s, 4, o, lowWidth / 2);
  });
  VerticalPass<2>(p, xinterp, dst, lowWidth, lowWidth);
}

// Ratios 4, 6, 8: reduced pair k averages N source pairs from byte 2 * fh * k,
// U and V apart. Rows of odd length keep their last byte untouched.
PB_DOWNSCALE_CHROMA_STRIDED_KERNEL(4, _C)
PB_DOWNSCALE_CHROMA_STRIDED_KERNEL(6, _C)
PB_DOWNSCALE_CHROMA_STRIDED_KERNEL(8, _C)

}  // namespace pb
