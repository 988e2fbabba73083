// Scalar downscale kernels: the reference formulas, one sample at a time.
// Pass 1 reduces source rows horizontally into xinterp (row y at y * lowWidth),
// pass 2 reduces N xinterp rows vertically into dst; each pass rounds to 8 bits.
#include "scale/downscale.h"
#include "scale/scale_internal.h"

namespace pb {
namespace {

using scale::DownscaleRows;
using scale::Offset;
using scale::PlanDownscale;
using scale::ReduceColumn;
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
  for (int32_t y = p.fv * p.first; y <= p.fv * p.last + N - 1; ++y) {
    const uint8_t *s = src + Offset(y, width);
    uint8_t *o = xinterp + Offset(y, lowWidth);
    for (int32_t x = 0; x < lowWidth; ++x) o[x] = ReduceSpaced<N>(s + p.fh * x, 1);
  }
  VerticalPass<N>(p, xinterp, dst, lowWidth, lowWidth);
}

// Chroma: reduced pair k averages N source pairs from byte c = 2 * fh * k, U
// and V apart. Rows of odd length keep their last byte untouched.
template <int N>
void DownscaleChromaStrided(const char *name, const uint8_t *src, uint8_t *dst, uint8_t *xinterp,
                            int32_t width, int32_t height, int32_t lowWidth, int32_t lowHeight,
                            int32_t lowRowFirst, int32_t lowRowLast) {
  if (lowWidth < 2) return;
  const DownscaleRows p = PlanDownscale(name, N, src, dst, xinterp, width, height, lowWidth,
                                        lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  const int32_t pairs = lowWidth / 2;
  for (int32_t y = p.fv * p.first; y <= p.fv * p.last + N - 1; ++y) {
    const uint8_t *s = src + Offset(y, width);
    uint8_t *o = xinterp + Offset(y, lowWidth);
    for (int32_t k = 0; k < pairs; ++k) {
      const uint8_t *c = s + 2 * p.fh * k;
      o[2 * k] = ReduceSpaced<N>(c, 2);
      o[2 * k + 1] = ReduceSpaced<N>(c + 1, 2);
    }
  }
  VerticalPass<N>(p, xinterp, dst, lowWidth, 2 * pairs);
}

}  // namespace

// Body columns x < (lowWidth & ~7) read source 2x, 2x + 1; the remaining
// columns continue from there with the column factor fh.
PB_DOWNSCALE_KERNEL(DownscaleLuma2_C) {
  const char *const name = "DownscaleLuma2";
  const DownscaleRows p = PlanDownscale(name, 2, src, dst, xinterp, width, height, lowWidth,
                                        lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  const int32_t body = lowWidth & ~7;
  for (int32_t y = p.fv * p.first; y <= p.fv * p.last + 1; ++y) {
    const uint8_t *s = src + Offset(y, width);
    uint8_t *o = xinterp + Offset(y, lowWidth);
    for (int32_t x = 0; x < body; ++x) o[x] = ReduceSpaced<2>(s + 2 * x, 1);
    for (int32_t x = body; x < lowWidth; ++x) {
      o[x] = ReduceSpaced<2>(s + 2 * body + p.fh * (x - body), 1);
    }
  }
  VerticalPass<2>(p, xinterp, dst, lowWidth, lowWidth);
}

// Body: blocks of 8 outputs starting at source column 8 * fh * b, reading 32
// consecutive bytes in groups of 4; remaining columns read from fh * x.
PB_DOWNSCALE_KERNEL(DownscaleLuma4_C) {
  const char *const name = "DownscaleLuma4";
  const DownscaleRows p = PlanDownscale(name, 4, src, dst, xinterp, width, height, lowWidth,
                                        lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  const int32_t body = lowWidth & ~7;
  for (int32_t y = p.fv * p.first; y <= p.fv * p.last + 3; ++y) {
    const uint8_t *s = src + Offset(y, width);
    uint8_t *o = xinterp + Offset(y, lowWidth);
    for (int32_t x = 0; x < body; ++x) {
      o[x] = ReduceSpaced<4>(s + 8 * p.fh * (x / 8) + 4 * (x % 8), 1);
    }
    for (int32_t x = body; x < lowWidth; ++x) o[x] = ReduceSpaced<4>(s + p.fh * x, 1);
  }
  VerticalPass<4>(p, xinterp, dst, lowWidth, lowWidth);
}

PB_DOWNSCALE_KERNEL(DownscaleLuma6_C) {
  DownscaleLumaStrided<6>("DownscaleLuma6", src, dst, xinterp, width, height, lowWidth, lowHeight,
                          lowRowFirst, lowRowLast);
}

PB_DOWNSCALE_KERNEL(DownscaleLuma8_C) {
  DownscaleLumaStrided<8>("DownscaleLuma8", src, dst, xinterp, width, height, lowWidth, lowHeight,
                          lowRowFirst, lowRowLast);
}

// Pair k always reads source bytes 4k..4k+3, whatever the sizes. Pass 2 runs
// over all lowWidth bytes: with an odd lowWidth the last byte of each row comes
// from scratch bytes this call did not write.
PB_DOWNSCALE_KERNEL(DownscaleChroma2_C) {
  const char *const name = "DownscaleChroma2";
  const DownscaleRows p = PlanDownscale(name, 2, src, dst, xinterp, width, height, lowWidth,
                                        lowHeight, lowRowFirst, lowRowLast);
  if (!p.ok) return;
  const int32_t pairs = lowWidth / 2;
  for (int32_t y = p.fv * p.first; y <= p.fv * p.last + 1; ++y) {
    const uint8_t *s = src + Offset(y, width);
    uint8_t *o = xinterp + Offset(y, lowWidth);
    for (int32_t k = 0; k < pairs; ++k) {
      o[2 * k] = ReduceSpaced<2>(s + 4 * k, 2);
      o[2 * k + 1] = ReduceSpaced<2>(s + 4 * k + 1, 2);
    }
  }
  VerticalPass<2>(p, xinterp, dst, lowWidth, lowWidth);
}

PB_DOWNSCALE_KERNEL(DownscaleChroma4_C) {
  DownscaleChromaStrided<4>("DownscaleChroma4", src, dst, xinterp, width, height, lowWidth,
                            lowHeight, lowRowFirst, lowRowLast);
}

PB_DOWNSCALE_KERNEL(DownscaleChroma6_C) {
  DownscaleChromaStrided<6>("DownscaleChroma6", src, dst, xinterp, width, height, lowWidth,
                            lowHeight, lowRowFirst, lowRowLast);
}

PB_DOWNSCALE_KERNEL(DownscaleChroma8_C) {
  DownscaleChromaStrided<8>("DownscaleChroma8", src, dst, xinterp, width, height, lowWidth,
                            lowHeight, lowRowFirst, lowRowLast);
}

}  // namespace pb
