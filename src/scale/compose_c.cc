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
  const int32_t body = width & ~7;
  const auto row = [&](const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d) {
    for (int32_t x = 0; x < body; ++x) d[x] = mix::MixLane(m[x], alpha, s[x], b[x]);
    compose::MixTailLuma(s, b, m, d, body, width, alpha);
  };
  compose::ForEachRow<false>("ComposeLuma", src, width, weight, blurred, dst, rowFirst, rowLast,
                             row);
}

PB_COMPOSE_KERNEL(ComposeChroma_C) {
  (void)height;
  (void)lowWidth;
  (void)lowHeight;
  const int32_t body = width & ~15;
  const auto row = [&](const uint8_t *s, const uint8_t *b, const uint16_t *m, uint8_t *d) {
    for (int32_t x = 0; x < body; ++x) d[x] = mix::MixLane(m[x & ~1], alpha, s[x], b[x]);
    compose::MixTailChroma(s, b, m, d, body, width, alpha);
  };
  compose::ForEachRow<true>("ComposeChroma", src, width, weight, blurred, dst, rowFirst, rowLast,
                            row);
}

}  // namespace pb
