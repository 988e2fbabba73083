// Strip tasks: the pool jobs that blur one horizontal strip of the luma or
// the interleaved chroma plane and mix it into the destination.
#ifndef PREVIEWBOKEH_BLUR_STRIP_TASK_H_
#define PREVIEWBOKEH_BLUR_STRIP_TASK_H_

#include <cstdint>

namespace pb {

struct StripTaskArgs {
  uint32_t strip_index;
  int32_t first_row;  // full-resolution rows of the plane, inclusive
  int32_t last_row;
  int32_t width;   // bytes per row
  int32_t height;  // rows of the plane
  int32_t ratio;   // working scaling ratio
  int32_t working_width;
  int32_t working_height;  // rows of the working plane
  int32_t low_first_row;   // working rows this strip smooths
  int32_t low_last_row;
  int32_t window_size;
  const uint16_t *kernel;
  uint8_t alpha;
  const uint16_t *weight_map;
  const uint8_t *src;
  uint8_t *dst;
  uint8_t *scaled;        // reduced plane (scale_img); this strip writes rows owned_low_first..owned_low_last
  uint8_t *xinterp;       // private downscale scratch
  uint8_t *padded;        // private padded input of the smoothing
  uint8_t *intermediate;  // private intermediate of the smoothing
  uint8_t *smoothed;      // smoothed plane (full resolution: own rows only; reduced: private)
  uint8_t *reduced;       // private downscaled rows (reduced path)
  int32_t owned_low_first;
  int32_t owned_low_last;
};

// Pool routines; arg is a StripTaskArgs.
void *LumaStripTask(void *arg);
void *ChromaStripTask(void *arg);

}  // namespace pb

#endif  // PREVIEWBOKEH_BLUR_STRIP_TASK_H_
