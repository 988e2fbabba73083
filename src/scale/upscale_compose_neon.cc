// Vector upscale-and-composite kernels; byte-identical to the scalar kernels
// of upscale_compose_c.cc. Positions count elements: one byte for luma
// (E = 1), one U,V pair for chroma (E = 2). Which elements the vector steps
// cover and the arithmetic they mirror is said beside the scalar rows
// (upscale_rows.h); the elements outside them are done by those rows.
//
// Ratios 4, 6 and 8: the horizontal interpolation of a low row inside the
// lane region depends only on the row and the column, so each low row a strip
// reads is interpolated once per strip into a row buffer on the stack, and
// every output row between two low rows is one vertical blend of two buffers
// and a mix. Rows wider than a buffer are done in column chunks. Ratio 2
// works out its samples in registers, once per pair of output rows.
#include <cstring>

#include "scale/compose.h"
#include "scale/mix_neon.h"
#include "scale/upscale_plan.h"
#include "scale/upscale_rows.h"
#include "simd/neon.h"

namespace pb {
namespace {

using scale::ComposeCall;
using scale::ComposeRow;
using scale::LowRows;
using scale::Min;
using scale::UpscalePlan;

// Bytes of a column chunk: a multiple of 48, the period of the ratio-6 steps.
constexpr int32_t kChunkBytes = 2304;

// ---------------------------------------------------------------------------
// Mixing.

// A row's lane region mixes in range (scale/mix_neon.h) when all its
// weights allow it.
bool InRange(const uint16_t *m, int32_t from, int32_t to, uint8_t alpha) {
  return mix::InRange(mix::MaxWeight(m, from, to), alpha);
}

using mix::MixInRange;
using mix::WeightInRange;

// Map weights of the 16 bytes from byte x of a row: luma entries x..x+15,
// chroma the even entries x, x+2, .. x+14 each for a pair's U and V byte.
template <int E>
inline uint16x8x2_t Weights16(const uint16_t *m, int32_t x) {
  if constexpr (E == 1) {
    return uint16x8x2_t{{vld1q_u16(m + x), vld1q_u16(m + x + 8)}};
  } else {
    return mix::PairWeights16(m + x);
  }
}

template <int E>
inline uint16x8_t Weights8(const uint16_t *m, int32_t x) {
  if constexpr (E == 1) {
    return vld1q_u16(m + x);
  } else {
    return mix::PairWeights(m + x);
  }
}

// Mixes bytes [x, end) of a row (end - x a multiple of 8) with the
// interpolated samples interp16(x) (16 bytes) and interp8(x) (8 bytes).
template <int E, bool kInRange, class Interp16, class Interp8>
void MixSpan(const uint8_t *s, const uint16_t *m, uint8_t *d, int32_t x, int32_t end,
             uint8_t alpha, Interp16 interp16, Interp8 interp8) {
  const int16_t alpha128 = static_cast<int16_t>(alpha * 128);
  const uint16x8_t a = vdupq_n_u16(alpha);
  for (; x + 16 <= end; x += 16) {
    const uint8x16_t sv = vld1q_u8(s + x);
    const uint8x16_t bv = interp16(x);
    const uint16x8x2_t mv = Weights16<E>(m, x);
    if constexpr (kInRange) {
      vst1q_u8(d + x, mix::MixInRange16(WeightInRange(mv.val[0], alpha128),
                                        WeightInRange(mv.val[1], alpha128), sv, bv));
    } else {
      const uint8x8_t lo = mix::BlendAnyWeight(mix::EffectiveWeight(mv.val[0], a),
                                               vget_low_u8(sv), vget_low_u8(bv));
      const uint8x8_t hi = mix::BlendAnyWeight(mix::EffectiveWeight(mv.val[1], a),
                                               vget_high_u8(sv), vget_high_u8(bv));
      vst1q_u8(d + x, vcombine_u8(lo, hi));
    }
  }
  if (x < end) {
    const uint8x8_t sv = vld1_u8(s + x);
    const uint16x8_t mv = Weights8<E>(m, x);
    if constexpr (kInRange) {
      vst1_u8(d + x, vmovn_u16(MixInRange(WeightInRange(mv, alpha128), sv, interp8(x))));
    } else {
      vst1_u8(d + x, mix::BlendAnyWeight(mix::EffectiveWeight(mv, a), sv, interp8(x)));
    }
  }
}

template <int E, class Interp16, class Interp8>
void Mix(const ComposeRow<E> &row, int32_t x, int32_t end, uint8_t alpha, Interp16 interp16,
         Interp8 interp8) {
  if (InRange(row.m, x, end, alpha)) {
    MixSpan<E, true>(row.s, row.m, row.d, x, end, alpha, interp16, interp8);
  } else {
    MixSpan<E, false>(row.s, row.m, row.d, x, end, alpha, interp16, interp8);
  }
}

// ---------------------------------------------------------------------------
// Row buffers.

// Up to 8 bytes of a low row from byte `at`, zeros past `len`.
inline uint8x8_t LoadLow8(const uint8_t *row, int32_t at, int32_t len) {
  if (at + 8 <= len) return vld1_u8(row + at);
  uint8_t tmp[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  if (at < len) std::memcpy(tmp, row + at, static_cast<size_t>(len - at));
  return vld1_u8(tmp);
}

// l + ((r - l) * f + 128) >> 8 for f in 0..255 per lane (f128 = 128 f): the
// blend (256 - f) * l + f * r rounded, by a rounding doubling multiply high.
inline uint8x16_t Lerp16(uint8x16_t l, uint8x16_t r, int16x8_t f128lo, int16x8_t f128hi) {
  const int16x8_t dl = vreinterpretq_s16_u16(vsubl_u8(vget_low_u8(r), vget_low_u8(l)));
  const int16x8_t dh = vreinterpretq_s16_u16(vsubl_u8(vget_high_u8(r), vget_high_u8(l)));
  const uint16x8_t lo = vaddw_u8(vreinterpretq_u16_s16(vqrdmulhq_s16(dl, f128lo)), vget_low_u8(l));
  const uint16x8_t hi =
      vaddw_u8(vreinterpretq_u16_s16(vqrdmulhq_s16(dh, f128hi)), vget_high_u8(l));
  return vuzp1q_u8(vreinterpretq_u8_u16(lo), vreinterpretq_u8_u16(hi));
}

// Lane tables of a 16-byte step of a horizontal interpolation: byte indices of
// the left and right samples from the step's first low byte, and 128 times
// the right weight.
struct StepTable {
  uint8x16_t left, right;
  int16x8_t f128lo, f128hi;
};

inline StepTable MakeStepTable(const uint8_t (&l)[16], const uint8_t (&r)[16],
                               const int16_t (&f)[16]) {
  return StepTable{vld1q_u8(l), vld1q_u8(r), vld1q_s16(f), vld1q_s16(f + 8)};
}

inline uint8x16_t Interpolate16(uint8x8_t low, const StepTable &t) {
  const uint8x16_t v = vcombine_u8(low, low);
  return Lerp16(vqtbl1q_u8(v, t.left), vqtbl1q_u8(v, t.right), t.f128lo, t.f128hi);
}

// Two row buffers keyed by the low row they hold (-1: none), for one column
// chunk; buffer byte i holds row byte chunk + i.
struct RowCache {
  int32_t key[2] = {-1, -1};
  alignas(16) uint8_t buf[2][kChunkBytes + 16];
  // The buffer of low row `r`, filled by fill(r, buffer) if not held; the
  // buffer holding `keep` is not replaced.
  template <class FillFn>
  const uint8_t *Get(int32_t r, int32_t keep, FillFn fill) {
    for (int i = 0; i < 2; ++i) {
      if (key[i] == r) return buf[i];
    }
    const int i = key[0] == keep ? 1 : 0;
    fill(r, buf[i]);
    key[i] = r;
    return buf[i];
  }
};

// Vertical blend of two buffers at byte i: ((256 - fy) * h0 + fy * h1 + 128)
// >> 8 for fy in 1..255.
inline uint8x16_t Vertical16(const uint8_t *h0, const uint8_t *h1, int32_t i, uint8x8_t top,
                             uint8x8_t bottom) {
  const uint8x16_t a = vld1q_u8(h0 + i);
  const uint8x16_t b = vld1q_u8(h1 + i);
  const uint16x8_t lo = vmlal_u8(vmull_u8(vget_low_u8(a), top), vget_low_u8(b), bottom);
  const uint16x8_t hi = vmlal_high_u8(vmull_high_u8(a, vcombine_u8(top, top)), b,
                                      vcombine_u8(bottom, bottom));
  return vcombine_u8(vrshrn_n_u16(lo, 8), vrshrn_n_u16(hi, 8));
}

inline uint8x8_t Vertical8(const uint8_t *h0, const uint8_t *h1, int32_t i, uint8x8_t top,
                           uint8x8_t bottom) {
  return vrshrn_n_u16(vmlal_u8(vmull_u8(vld1_u8(h0 + i), top), vld1_u8(h1 + i), bottom), 8);
}

// How an output row takes its samples from the buffers of its low rows, or
// kNone: the row has no lane region.
enum class Vertical { kUpper, kBlend, kZero, kNone };

// Mixes bytes [x, end) of a row from row buffers h0, h1 (byte x at
// h[x - chunk]).
template <int E>
void MixFromBuffers(const ComposeRow<E> &row, int32_t x, int32_t end, int32_t chunk,
                    const uint8_t *h0, const uint8_t *h1, Vertical mode, uint32_t fy,
                    uint8_t alpha) {
  if (mode == Vertical::kUpper) {
    Mix<E>(
        row, x, end, alpha, [&](int32_t i) { return vld1q_u8(h0 + i - chunk); },
        [&](int32_t i) { return vld1_u8(h0 + i - chunk); });
  } else if (mode == Vertical::kZero) {
    Mix<E>(
        row, x, end, alpha, [](int32_t) { return vdupq_n_u8(0); },
        [](int32_t) { return vdup_n_u8(0); });
  } else {
    const uint8x8_t top = vdup_n_u8(static_cast<uint8_t>(256 - fy));
    const uint8x8_t bottom = vdup_n_u8(static_cast<uint8_t>(fy));
    Mix<E>(
        row, x, end, alpha,
        [&](int32_t i) { return Vertical16(h0, h1, i - chunk, top, bottom); },
        [&](int32_t i) { return Vertical8(h0, h1, i - chunk, top, bottom); });
  }
}

// Runs the lane region [from(vertical), to) of every output row in column
// chunks: fill(r, chunk, end, buffer) interpolates low row r over bytes
// [chunk, end) (16 a step, past end allowed); mode(lr, vertical) says how a
// row blends its two buffers.
template <int N, int E, class FillFn, class ModeFn>
void LaneRegion(const ComposeCall &c, const UpscalePlan &u, int32_t from, int32_t to, FillFn fill,
                ModeFn mode) {
  for (int32_t chunk = from; chunk < to; chunk += kChunkBytes) {
    const int32_t end = Min(chunk + kChunkBytes, to);
    RowCache cache;
    scale::ForEachOutputRow<N, E>(c, u, [&](ComposeRow<E> row, LowRows lr, bool vertical) {
      const Vertical v = mode(lr, vertical);
      if (v == Vertical::kNone) return;
      if (v == Vertical::kZero) {
        MixFromBuffers<E>(row, chunk, end, chunk, nullptr, nullptr, v, 0, c.alpha);
        return;
      }
      const auto filler = [&](int32_t r, uint8_t *buf) { fill(r, chunk, end, buf); };
      const uint8_t *h0 = cache.Get(lr.r, lr.r1, filler);
      const uint8_t *h1 = v == Vertical::kBlend ? cache.Get(lr.r1, lr.r, filler) : h0;
      MixFromBuffers<E>(row, chunk, end, chunk, h0, h1, v, lr.fy, c.alpha);
    });
  }
}

// ---------------------------------------------------------------------------
// Ratio 2: output rows 2r and 2r + 1 read the same low rows r and r1, so the
// same samples. Inside the lane region [0, E * body) the sample of element e
// is the rounded mean of the 2x2 low block at c = e >> 1 and c + 1: the means
// of 16 low columns are worked out once per row pair in registers, widened to
// the two elements each serves and mixed into both rows. The elements from
// body on (at most kMidpointTailBytes bytes; wider tails are left to the
// scalar rows) take the scalar rule's samples, worked out once per row pair,
// and are mixed in lanes too when the row mixes in range (where the lane and
// the one-at-a-time arithmetic agree).

constexpr int32_t kMidpointTailBytes = 64;

// Rounded means of the 2x2 blocks of low rows b0, b1 at low bytes i and i + E
// for i = 0..15, each widened to the two output elements it serves: output
// bytes 0..15 and 16..31.
template <int E>
inline uint8x16x2_t Means32(const uint8_t *b0, const uint8_t *b1) {
  const uint8x16_t a = vld1q_u8(b0), a1 = vld1q_u8(b0 + E);
  const uint8x16_t c = vld1q_u8(b1), c1 = vld1q_u8(b1 + E);
  const uint16x8_t lo = vaddq_u16(vaddl_u8(vget_low_u8(a), vget_low_u8(a1)),
                                  vaddl_u8(vget_low_u8(c), vget_low_u8(c1)));
  const uint16x8_t hi = vaddq_u16(vaddl_high_u8(a, a1), vaddl_high_u8(c, c1));
  const uint8x16_t mean = vcombine_u8(vrshrn_n_u16(lo, 2), vrshrn_n_u16(hi, 2));
  if constexpr (E == 1) {
    return uint8x16x2_t{{vzip1q_u8(mean, mean), vzip2q_u8(mean, mean)}};
  } else {
    const uint16x8_t p = vreinterpretq_u16_u8(mean);
    return uint8x16x2_t{{vreinterpretq_u8_u16(vzip1q_u16(p, p)),
                         vreinterpretq_u8_u16(vzip2q_u16(p, p))}};
  }
}

// The same for low bytes i = 0..7: output bytes 0..15.
template <int E>
inline uint8x16_t Means16(const uint8_t *b0, const uint8_t *b1) {
  const uint16x8_t sum = vaddq_u16(vaddl_u8(vld1_u8(b0), vld1_u8(b0 + E)),
                                   vaddl_u8(vld1_u8(b1), vld1_u8(b1 + E)));
  const uint8x8_t mean = vrshrn_n_u16(sum, 2);
  if constexpr (E == 1) {
    return vcombine_u8(vzip1_u8(mean, mean), vzip2_u8(mean, mean));
  } else {
    const uint16x4_t p = vreinterpret_u16_u8(mean);
    return vreinterpretq_u8_u16(vcombine_u16(vzip1_u16(p, p), vzip2_u16(p, p)));
  }
}

// One output row of a pair, as plain pointers (kept in registers across the
// stores).
struct MixRow {
  const uint8_t *s;
  const uint16_t *m;
  uint8_t *d;
};

// How a row mixes: for any weight, or in range with alpha below 128 or not.
enum class MixMode { kAnyWeight, kInRangeLowAlpha, kInRangeHighAlpha };

// In-range weights of 8 lanes: as mix::WeightInRange, or, for alpha below 128
// (256 alpha fits a signed lane), m * 256 alpha doubled in one rounding
// multiply-high, which gives the same (m * alpha + 64) >> 7.
template <MixMode kMode>
inline int16x8_t LaneWeights(uint16x8_t m, int16_t alphaScaled) {
  if constexpr (kMode == MixMode::kInRangeLowAlpha) {
    return vqrdmulhq_n_s16(vreinterpretq_s16_u16(m), alphaScaled);
  } else {
    return WeightInRange(m, alphaScaled);
  }
}

// Mixes 16 bytes from byte x of a row with samples b. In range: the mix of
// mix::MixInRange16, with 32 (b - s) as 32 b - 32 s in one multiply-subtract
// from 32 b (which the rows of a pair share); alphaScaled is 256 alpha
// (kInRangeLowAlpha) or 128 alpha. Any weight: alpha in every lane of a.
template <int E, MixMode kMode>
inline void Mix16(MixRow r, int32_t x, uint8x16_t b, int16_t alphaScaled, uint16x8_t a) {
  const uint8x16_t s = vld1q_u8(r.s + x);
  const uint16x8x2_t mv = Weights16<E>(r.m, x);
  if constexpr (kMode != MixMode::kAnyWeight) {
    const uint8x16_t k32 = vdupq_n_u8(32);
    const uint16x8_t b32lo = vshll_n_u8(vget_low_u8(b), 5);
    const uint16x8_t b32hi = vshll_n_u8(vget_high_u8(b), 5);
    const int16x8_t dlo = vreinterpretq_s16_u16(vmlsl_u8(b32lo, vget_low_u8(s), vget_low_u8(k32)));
    const int16x8_t dhi = vreinterpretq_s16_u16(vmlsl_high_u8(b32hi, s, k32));
    const int16x8_t wlo = LaneWeights<kMode>(mv.val[0], alphaScaled);
    const int16x8_t whi = LaneWeights<kMode>(mv.val[1], alphaScaled);
    const uint16x8_t lo = vaddw_u8(vreinterpretq_u16_s16(vqrdmulhq_s16(dlo, wlo)), vget_low_u8(s));
    const uint16x8_t hi = vaddw_high_u8(vreinterpretq_u16_s16(vqrdmulhq_s16(dhi, whi)), s);
    vst1q_u8(r.d + x, vuzp1q_u8(vreinterpretq_u8_u16(lo), vreinterpretq_u8_u16(hi)));
  } else {
    const uint8x8_t lo =
        mix::BlendAnyWeight(mix::EffectiveWeight(mv.val[0], a), vget_low_u8(s), vget_low_u8(b));
    const uint8x8_t hi = mix::BlendAnyWeight(mix::EffectiveWeight(mv.val[1], a), vget_high_u8(s),
                                             vget_high_u8(b));
    vst1q_u8(r.d + x, vcombine_u8(lo, hi));
  }
}

template <MixMode kMode>
inline int16_t AlphaScaled(uint8_t alpha) {
  return static_cast<int16_t>(alpha * (kMode == MixMode::kInRangeLowAlpha ? 256 : 128));
}

// The lane region [0, bytes) (a multiple of 16) of kRows rows reading low rows
// b0 and b1.
template <int E, int kRows, MixMode kMode>
void MidpointLanes(const MixRow (&rows)[2], const uint8_t *b0, const uint8_t *b1, int32_t bytes,
                   uint8_t alpha) {
  const int16_t alphaScaled = AlphaScaled<kMode>(alpha);
  const uint16x8_t a = vdupq_n_u16(alpha);
  MixRow r0 = rows[0], r1 = rows[kRows - 1];
  const uint8_t *end = b0 + bytes / 2;
  // Pointers step on (a running byte index costs address arithmetic for the
  // low rows, read at half the rate).
  for (; b0 + 16 <= end; b0 += 16, b1 += 16) {
    const uint8x16x2_t b = Means32<E>(b0, b1);
    Mix16<E, kMode>(r0, 0, b.val[0], alphaScaled, a);
    Mix16<E, kMode>(r0, 16, b.val[1], alphaScaled, a);
    r0 = MixRow{r0.s + 32, r0.m + 32, r0.d + 32};
    if constexpr (kRows == 2) {
      Mix16<E, kMode>(r1, 0, b.val[0], alphaScaled, a);
      Mix16<E, kMode>(r1, 16, b.val[1], alphaScaled, a);
      r1 = MixRow{r1.s + 32, r1.m + 32, r1.d + 32};
    }
  }
  if (b0 < end) {
    const uint8x16_t b = Means16<E>(b0, b1);
    Mix16<E, kMode>(r0, 0, b, alphaScaled, a);
    if constexpr (kRows == 2) Mix16<E, kMode>(r1, 0, b, alphaScaled, a);
  }
}

template <int E, int kRows>
void MidpointLanes(MixMode mode, const MixRow (&rows)[2], const uint8_t *b0, const uint8_t *b1,
                   int32_t bytes, uint8_t alpha) {
  switch (mode) {
    case MixMode::kAnyWeight:
      MidpointLanes<E, kRows, MixMode::kAnyWeight>(rows, b0, b1, bytes, alpha);
      break;
    case MixMode::kInRangeLowAlpha:
      MidpointLanes<E, kRows, MixMode::kInRangeLowAlpha>(rows, b0, b1, bytes, alpha);
      break;
    case MixMode::kInRangeHighAlpha:
      MidpointLanes<E, kRows, MixMode::kInRangeHighAlpha>(rows, b0, b1, bytes, alpha);
      break;
  }
}

// True when the weights of bytes [0, bytes) of a row allow the in-range mix.
bool RowInRange(const uint16_t *m, int32_t bytes, uint8_t alpha) {
  const int32_t lanes = bytes & ~7;
  uint32_t top = mix::MaxWeight(m, 0, lanes);
  for (int32_t i = lanes; i < bytes; ++i) top = top > m[i] ? top : m[i];
  return mix::InRange(top, alpha);
}

// In-range mix of bytes [from, to) of a row (to - from at most
// kMidpointTailBytes) with samples b[0..to - from): 16 bytes a step, the last
// part through padded copies.
template <int E>
void MixTailInRange(MixRow r, int32_t from, int32_t to, const uint8_t *b, uint8_t alpha) {
  constexpr MixMode kMode = MixMode::kInRangeHighAlpha;
  const int16_t alpha128 = AlphaScaled<kMode>(alpha);
  const uint16x8_t a = vdupq_n_u16(alpha);
  int32_t x = from;
  for (; x + 16 <= to; x += 16) Mix16<E, kMode>(r, x, vld1q_u8(b + (x - from)), alpha128, a);
  if (x == to) return;
  const size_t n = static_cast<size_t>(to - x);
  uint8_t s[16] = {}, d[16], bt[16] = {};
  uint16_t m[16] = {};
  std::memcpy(s, r.s + x, n);
  std::memcpy(bt, b + (x - from), n);
  std::memcpy(m, r.m + x, n * sizeof(uint16_t));
  Mix16<E, kMode>(MixRow{s, m, d}, 0, vld1q_u8(bt), alpha128, a);
  std::memcpy(r.d + x, d, n);
}

template <int E>
void Midpoint(const ComposeCall &c) {
  const UpscalePlan u = scale::PlanUpscale<2, E>(c);
  if (!u.rows.ok) return;
  const int32_t lanes = E * u.body, bytes = E * u.elems;
  const bool tailInLanes = bytes - lanes <= kMidpointTailBytes;
  // The rows a call writes (ForEachOutputRow), two at a time where they share
  // their low rows.
  int32_t y = u.rows.first == u.rows.last ? scale::Max(u.rows.last - 1, 0) : u.rows.first;
  while (y <= u.rows.last) {
    const int32_t r = Min(y >> 1, c.lowHeight - 1);
    const int32_t count = y < u.rows.last && Min((y + 1) >> 1, c.lowHeight - 1) == r ? 2 : 1;
    const int32_t r1 = Min(r + 1, c.lowHeight - 1);
    ComposeRow<E> rows[2];
    MixRow mixRows[2];
    bool inRange[2];
    for (int32_t i = 0; i < count; ++i) {
      rows[i] = scale::MakeComposeRow<E>(c, y + i, r, r1);
      mixRows[i] = MixRow{rows[i].s, rows[i].m, rows[i].d};
      inRange[i] = RowInRange(rows[i].m, tailInLanes ? bytes : lanes, c.alpha);
    }
    const uint8_t *b0 = rows[0].b0, *b1 = rows[0].b1;
    const MixMode inRangeMode =
        c.alpha < 128 ? MixMode::kInRangeLowAlpha : MixMode::kInRangeHighAlpha;
    const MixMode mode0 = inRange[0] ? inRangeMode : MixMode::kAnyWeight;
    if (count == 2 && inRange[0] == inRange[1]) {
      MidpointLanes<E, 2>(mode0, mixRows, b0, b1, lanes, c.alpha);
    } else {
      for (int32_t i = 0; i < count; ++i) {
        const MixRow one[2] = {mixRows[i], mixRows[i]};
        MidpointLanes<E, 1>(inRange[i] ? inRangeMode : MixMode::kAnyWeight, one, b0, b1, lanes,
                            c.alpha);
      }
    }
    alignas(16) uint8_t tail[kMidpointTailBytes];
    bool tailReady = false;
    for (int32_t i = 0; i < count; ++i) {
      if (!tailInLanes || !inRange[i]) {
        scale::MidpointElems<E>(rows[i], u, u.body, u.elems, c.alpha);
        continue;
      }
      if (!tailReady) {
        for (int32_t x = lanes; x < bytes; ++x) {
          tail[x - lanes] = static_cast<uint8_t>(scale::MidpointSample<E>(rows[0], u, x / E, x % E));
        }
        tailReady = true;
      }
      MixTailInRange<E>(mixRows[i], lanes, bytes, tail, c.alpha);
    }
    y += count;
  }
}

// ---------------------------------------------------------------------------
// Ratios 4 and 8: the buffer of low row r holds the horizontal interpolation
// of elements below body with the fixed weights of sub-position e mod N (a
// 16-byte step spans whole periods: every step has the same lane tables);
// rows from flatFrom on take the upper buffer, rows with fy == 0 too (the
// blend gives the upper sample).

template <int N, int E>
StepTable BilinearTable() {
  uint8_t l[16], r[16];
  int16_t f[16];
  for (int i = 0; i < 16; ++i) {
    const int j = i / E;  // element within the step
    l[i] = static_cast<uint8_t>(E * (j / N) + i % E);
    r[i] = static_cast<uint8_t>(l[i] + E);
    f[i] = static_cast<int16_t>(128 * (256 * (j % N) / N));
  }
  return MakeStepTable(l, r, f);
}

template <int N, int E>
void Bilinear(const ComposeCall &c) {
  const UpscalePlan u = scale::PlanUpscale<N, E>(c);
  if (!u.rows.ok) return;
  const StepTable t = BilinearTable<N, E>();
  LaneRegion<N, E>(
      c, u, 0, E * u.body,
      [&](int32_t r, int32_t chunk, int32_t end, uint8_t *buf) {
        const uint8_t *row = c.blurred + scale::Offset(r, c.lowWidth);
        for (int32_t x = chunk; x < end; x += 16) {
          const int32_t at = E * (x / E / N);
          vst1q_u8(buf + (x - chunk), Interpolate16(LoadLow8(row, at, c.lowWidth), t));
        }
      },
      [](LowRows lr, bool vertical) {
        return vertical && lr.fy != 0 ? Vertical::kBlend : Vertical::kUpper;
      });
  scale::ForEachOutputRow<N, E>(c, u, [&](ComposeRow<E> row, LowRows lr, bool vertical) {
    scale::BilinearElems<N, E>(row, u, lr, vertical, u.body, u.elems, c.alpha);
  });
}

// ---------------------------------------------------------------------------
// Ratio 6, vertically interpolated rows: the buffer of low row r holds
// elements 1..body with the fixed 8-bit weights of sub-positions 1..6 on low
// elements (e - 1) / 6 and the next; the 16-byte steps from byte E cycle
// through three lane tables. The upper row weighs (256 - fy) & 255: a row
// with fy == 0 interpolates to 0. Rows not interpolated vertically are done
// by the scalar rows whole.

template <int E>
struct Ratio6Tables {
  StepTable step[3];
  Ratio6Tables() {
    for (int p = 0; p < 3; ++p) {
      uint8_t l[16], r[16];
      int16_t f[16];
      const int first = 16 * p / E;  // element (from 1) the step starts at
      for (int i = 0; i < 16; ++i) {
        const int j = first + i / E;
        l[i] = static_cast<uint8_t>(E * (j / 6 - first / 6) + i % E);
        r[i] = static_cast<uint8_t>(l[i] + E);
        f[i] = static_cast<int16_t>(128 * scale::kRatio6Right[j % 6]);
      }
      step[p] = MakeStepTable(l, r, f);
    }
  }
};

template <int E>
void Ratio6(const ComposeCall &c) {
  const UpscalePlan u = scale::PlanUpscale<6, E>(c);
  if (!u.rows.ok) return;
  static const Ratio6Tables<E> tables;
  LaneRegion<6, E>(
      c, u, E, E * (u.body + 1),
      [&](int32_t r, int32_t chunk, int32_t end, uint8_t *buf) {
        const uint8_t *row = c.blurred + scale::Offset(r, c.lowWidth);
        for (int32_t x = chunk; x < end; x += 16) {
          const int32_t k = (x - E) / 16;  // step from byte E
          const int32_t at = E * ((x / E - 1) / 6);
          vst1q_u8(buf + (x - chunk),
                   Interpolate16(LoadLow8(row, at, c.lowWidth), tables.step[k % 3]));
        }
      },
      [](LowRows lr, bool vertical) {
        return !vertical ? Vertical::kNone : lr.fy == 0 ? Vertical::kZero : Vertical::kBlend;
      });
  scale::ForEachOutputRow<6, E>(c, u, [&](ComposeRow<E> row, LowRows lr, bool vertical) {
    if (vertical) {
      scale::Ratio6Elems<E>(row, u, lr, vertical, 0, 1, c.alpha);
      scale::Ratio6Elems<E>(row, u, lr, vertical, u.body + 1, u.elems, c.alpha);
    } else {
      scale::Ratio6Elems<E>(row, u, lr, vertical, 0, u.elems, c.alpha);
    }
  });
}

}  // namespace

PB_COMPOSE_KERNEL(UpscaleComposeLuma2_NEON) {
  Midpoint<1>({"UpscaleComposeLuma2", src, width, height, lowWidth, lowHeight, weight, blurred, dst,
               rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeLuma4_NEON) {
  Bilinear<4, 1>({"UpscaleComposeLuma4", src, width, height, lowWidth, lowHeight, weight, blurred,
                  dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeLuma6_NEON) {
  Ratio6<1>({"UpscaleComposeLuma6", src, width, height, lowWidth, lowHeight, weight, blurred, dst,
             rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeLuma8_NEON) {
  Bilinear<8, 1>({"UpscaleComposeLuma8", src, width, height, lowWidth, lowHeight, weight, blurred,
                  dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeChroma2_NEON) {
  Midpoint<2>({"UpscaleComposeChroma2", src, width, height, lowWidth, lowHeight, weight, blurred,
               dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeChroma4_NEON) {
  Bilinear<4, 2>({"UpscaleComposeChroma4", src, width, height, lowWidth, lowHeight, weight,
                  blurred, dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeChroma6_NEON) {
  Ratio6<2>({"UpscaleComposeChroma6", src, width, height, lowWidth, lowHeight, weight, blurred,
             dst, rowFirst, rowLast, alpha});
}

PB_COMPOSE_KERNEL(UpscaleComposeChroma8_NEON) {
  Bilinear<8, 2>({"UpscaleComposeChroma8", src, width, height, lowWidth, lowHeight, weight,
                  blurred, dst, rowFirst, rowLast, alpha});
}

}  // namespace pb
