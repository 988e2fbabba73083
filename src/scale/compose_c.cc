// Scalar reference of the full-resolution composite. Columns that the vector
// kernels handle in groups (x < width & ~7 for luma, bytes < width & ~15 for
// chroma) get the unsigned lane arithmetic, the rest the signed per-sample
// arithmetic (compose_internal.h).
#include "scale/compose.h"
#include "scale/compose_internal.h"

namespace pb {

PB_COMPOSE_KERNEL(ComposeLuma_C) {
  (void)height;
  (void)lowWidth;
  (void)lowHeight;
  if (!compose::Screen("ComposeLuma", src, width, weight, blurred, dst, rowFirst, rowLast)) return;
  const size_t stride = static_cast<size_t>(width);
  const int32_t body = width & ~7;
  for (int32_t y = rowFirst; y <= rowLast; ++y) {
    const size_t row = static_cast<size_t>(y) * stride;
    const uint8_t *s = src + row;
    const uint8_t *b = blurred + row;
    const uint16_t *m = weight + row;
    uint8_t *d = dst + row;
    for (int32_t x = 0; x < body; ++x) d[x] = compose::MixLane(m[x], alpha, s[x], b[x]);
    for (int32_t x = body; x < width; ++x) d[x] = compose::MixTail(m[x], alpha, s[x], b[x]);
  }
}

PB_COMPOSE_KERNEL(ComposeChroma_C) {
  (void)height;
  (void)lowWidth;
  (void)lowHeight;
  if (!compose::Screen("ComposeChroma", src, width, weight, blurred, dst, rowFirst, rowLast)) {
    return;
  }
  const size_t stride = static_cast<size_t>(width);
  const int32_t body = width & ~15;
  for (int32_t y = rowFirst; y <= rowLast; ++y) {
    const size_t row = static_cast<size_t>(y) * stride;
    const uint8_t *s = src + row;
    const uint8_t *b = blurred + row;
    // Pair k takes the weight of the top-left luma pixel of its 2x2 block.
    const uint16_t *m = weight + 2 * row;
    uint8_t *d = dst + row;
    for (int32_t x = 0; x < body; ++x) d[x] = compose::MixLane(m[x & ~1], alpha, s[x], b[x]);
    for (int32_t x = body; x < width; x += 2) {
      compose::MixTailPair(s, b, d, m[x], alpha, x, width);
    }
  }
}

}  // namespace pb
