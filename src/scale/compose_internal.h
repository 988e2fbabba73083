// Helpers of the full-resolution composite shared by the scalar reference,
// the vector kernels and the fused smoothing: the lane and one-at-a-time
// arithmetic of scale/mix.h (the latter limited to 255), screening, the
// one-at-a-time tails and the row walk.
#ifndef PREVIEWBOKEH_SCALE_COMPOSE_INTERNAL_H_
#define PREVIEWBOKEH_SCALE_COMPOSE_INTERNAL_H_

#include <cstddef>
#include <cstdint>

#include "platform/log.h"
#include "scale/mix.h"

namespace pb {
namespace compose {

// The one-at-a-time arithmetic of the full-resolution tails: limited to 255.
inline uint8_t MixTail(uint16_t m, uint8_t alpha, uint8_t s, uint8_t b) {
  return mix::MixOne<true>(m, alpha, s, b);
}

// False when there is nothing to do; refused arguments are logged.
inline bool Screen(const char *name, const uint8_t *src, int32_t width, const uint16_t *weight,
                   const uint8_t *blurred, const uint8_t *dst, int32_t rowFirst,
                   int32_t rowLast) {
  if (rowFirst > rowLast) return false;
  if (src == nullptr || weight == nullptr || blurred == nullptr || dst == nullptr ||
      width < 1 || rowFirst < 0) {
    PB_LOGD("%s: invalid arguments (src %p, weight %p, blurred %p, dst %p, width %d, rows %d..%d)\n",
            name, static_cast<const void *>(src), static_cast<const void *>(weight),
            static_cast<const void *>(blurred), static_cast<const void *>(dst), width, rowFirst,
            rowLast);
    return false;
  }
  return true;
}

// One chroma pair at byte x of a row, for the tail. An odd width leaves a
// last lone byte, mixed alone (nothing past the row is touched).
inline void MixTailPair(const uint8_t *s, const uint8_t *b, uint8_t *d, uint16_t m,
                        uint8_t alpha, int32_t x, int32_t width) {
  d[x] = MixTail(m, alpha, s[x], b[x]);
  if (x + 1 < width) d[x + 1] = MixTail(m, alpha, s[x + 1], b[x + 1]);
}

// Luma bytes from..width-1 of a row, one at a time.
inline void MixTailLuma(const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d,
                        int32_t from, int32_t width, uint8_t alpha) {
  for (int32_t x = from; x < width; ++x) d[x] = MixTail(m[x], alpha, s[x], b[x]);
}

// Chroma pairs from byte `from` (even) to the end of a row, one at a time; m
// is the weight row whose entry x weighs the pair at byte x.
inline void MixTailChroma(const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d,
                          int32_t from, int32_t width, uint8_t alpha) {
  for (int32_t x = from; x < width; x += 2) MixTailPair(s, b, d, m[x], alpha, x, width);
}

// Screens a full-resolution composite and calls row(s, b, m, d) for rows
// rowFirst..rowLast: the row's sharp, blurred and destination samples and its
// weight row. Chroma pair k takes the weight of the top-left luma pixel of
// its 2x2 block, so UV row y reads luma weight row 2y.
template <bool kChroma, class RowFn>
inline void ForEachRow(const char *name, const uint8_t *src, int32_t width, const uint16_t *weight,
                       const uint8_t *blurred, uint8_t *dst, int32_t rowFirst, int32_t rowLast,
                       RowFn row) {
  if (!Screen(name, src, width, weight, blurred, dst, rowFirst, rowLast)) return;
  const size_t stride = static_cast<size_t>(width);
  for (int32_t y = rowFirst; y <= rowLast; ++y) {
    const size_t at = static_cast<size_t>(y) * stride;
    row(src + at, blurred + at, weight + (kChroma ? 2 : 1) * at, dst + at);
  }
}

// One row of ComposeLuma_NEON / ComposeChroma_NEON (the same bytes): s, b
// and d are the row's sharp, blurred and destination samples, m the weight
// map row (luma row y for luma, 2y for UV row y).
void ComposeLumaRow_NEON(const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d,
                         int32_t width, uint8_t alpha);
void ComposeChromaRow_NEON(const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d,
                           int32_t width, uint8_t alpha);

}  // namespace compose
}  // namespace pb

#endif  // PREVIEWBOKEH_SCALE_COMPOSE_INTERNAL_H_
