// Scalar downscale kernels: the reference formulas, one sample at a time.
// Pass 1 reduces source rows horizontally into xinterp (row y at y * lowWidth),
// pass 2 reduces N xinterp rows vertically into dst; each pass rounds to 8 bits.
// Each member's comment also says which columns its vector twin covers in
// vector steps; the twin does the rest with the runs of downscale_internal.h.
#include "scale/downscale.h"
#include "scale/downscale_internal.h"

namespace pb {
namespace {

using scale::DownscaleCall;
using scale::DownscaleRows;
using scale::Offset;
using scale::ReduceChromaRun;
using scale::ReduceColumn;
using scale::ReduceLumaRun;
using scale::ReduceSpaced;
using scale::RunDownscale;

// Pass 2 over bytes [0, bytes) of every reduced row of the plan. Vector twins:
// 16 bytes a step, the rest one at a time.
template <int N>
void VerticalPass(const DownscaleRows &p, const uint8_t *xinterp, uint8_t *dst, int32_t lowWidth,
                  int32_t bytes) {
  for (int32_t j = p.first; j <= p.last; ++j) {
    const uint8_t *t = xinterp + Offset(p.fv * j, lowWidth);
    uint8_t *out = dst + Offset(j, lowWidth);
    for (int32_t x = 0; x < bytes; ++x) out[x] = ReduceColumn<N>(t + x, lowWidth);
  }
}

// Luma: output x reads N consecutive source bytes from fh * x.
template <int N>
void LumaStrided(const char *name, const DownscaleCall &c) {
  RunDownscale<N>(
      name, c, c.lowWidth,
      [&](const uint8_t *s, uint8_t *o, int32_t fh) { ReduceLumaRun<N>(s, fh, o, c.lowWidth); },
      VerticalPass<N>);
}

// Chroma: reduced pair k averages N source pairs from byte 2 * fh * k, U and V
// apart. Rows of odd length keep their last byte untouched.
template <int N>
void ChromaStrided(const char *name, const DownscaleCall &c) {
  if (c.lowWidth < 2) return;
  RunDownscale<N>(
      name, c, c.lowWidth & ~1,
      [&](const uint8_t *s, uint8_t *o, int32_t fh) {
        ReduceChromaRun<N>(s, 2 * fh, o, c.lowWidth / 2);
      },
      VerticalPass<N>);
}

}  // namespace

// Body columns x < (lowWidth & ~7) read source 2x, 2x + 1; the remaining
// columns continue from there with the column factor fh. Vector twin: 16
// outputs a step over the body, then one at a time; where every reduced row
// reads source rows 2j, 2j + 1, both passes of a reduced row at once.
PB_DOWNSCALE_KERNEL(DownscaleLuma2_C) {
  const int32_t body = lowWidth & ~7;
  RunDownscale<2>(
      "DownscaleLuma2", {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast},
      lowWidth,
      [&](const uint8_t *s, uint8_t *o, int32_t fh) {
        ReduceLumaRun<2>(s, 2, o, body);
        ReduceLumaRun<2>(s + 2 * body, fh, o + body, lowWidth - body);
      },
      VerticalPass<2>);
}

// Body: blocks of 8 outputs starting at source column 8 * fh * b, reading 32
// consecutive bytes in groups of 4; remaining columns read from fh * x.
// Vector twin: one block a step.
PB_DOWNSCALE_KERNEL(DownscaleLuma4_C) {
  const int32_t body = lowWidth & ~7;
  RunDownscale<4>(
      "DownscaleLuma4", {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast},
      lowWidth,
      [&](const uint8_t *s, uint8_t *o, int32_t fh) {
        for (int32_t x = 0; x < body; ++x) o[x] = ReduceSpaced<4>(s + 8 * fh * (x / 8) + 4 * (x % 8), 1);
        ReduceLumaRun<4>(s + fh * body, fh, o + body, lowWidth - body);
      },
      VerticalPass<4>);
}

// Vector twin: with fh == 6, 16 outputs a step over lowWidth & ~15.
PB_DOWNSCALE_KERNEL(DownscaleLuma6_C) {
  LumaStrided<6>("DownscaleLuma6",
                 {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast});
}

// Vector twin: with fh == 8, 16 outputs a step over lowWidth & ~15.
PB_DOWNSCALE_KERNEL(DownscaleLuma8_C) {
  LumaStrided<8>("DownscaleLuma8",
                 {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast});
}

// Pair k always reads source bytes 4k..4k+3, whatever the sizes. Pass 2 runs
// over all lowWidth bytes: with an odd lowWidth the last byte of each row comes
// from scratch bytes this call did not write. Vector twin: 8 pairs a step;
// where every reduced row reads source rows 2j, 2j + 1, 16 pairs a step of
// both passes at once.
PB_DOWNSCALE_KERNEL(DownscaleChroma2_C) {
  RunDownscale<2>(
      "DownscaleChroma2", {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast},
      lowWidth,
      [&](const uint8_t *s, uint8_t *o, int32_t) { ReduceChromaRun<2>(s, 4, o, lowWidth / 2); },
      VerticalPass<2>);
}

// Vector twins of ratios 4, 6, 8: with fh == N, 4 pairs a step over
// (lowWidth / 2) & ~3 pairs.
PB_DOWNSCALE_KERNEL(DownscaleChroma4_C) {
  ChromaStrided<4>("DownscaleChroma4",
                   {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast});
}

PB_DOWNSCALE_KERNEL(DownscaleChroma6_C) {
  ChromaStrided<6>("DownscaleChroma6",
                   {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast});
}

PB_DOWNSCALE_KERNEL(DownscaleChroma8_C) {
  ChromaStrided<8>("DownscaleChroma8",
                   {src, dst, xinterp, width, height, lowWidth, lowHeight, lowRowFirst, lowRowLast});
}

}  // namespace pb
