// Working state of a bokeh handle, made once at init: smoothing window and
// Gaussian kernel, working scaling ratio and size, and the working buffers.
// Frames allocate nothing.
#ifndef PREVIEWBOKEH_BLUR_WORK_STATE_H_
#define PREVIEWBOKEH_BLUR_WORK_STATE_H_

#include <cstddef>
#include <cstdint>

namespace pb {

constexpr int kStripsPerPlane = 2;  // one strip per worker thread

// Private scratch of one strip, carved from the working buffers so that no two
// strips ever write the same bytes.
struct StripScratch {
  uint8_t *padded;        // padded input of the smoothing
  uint8_t *intermediate;  // horizontal-pass rows of the smoothing
  uint8_t *xinterp;       // downscale scratch (reduced path)
  uint8_t *reduced;       // downscaled rows incl. the smoothing halo (reduced path)
  uint8_t *smoothed;      // smoothed reduced plane (reduced path)
};

struct BlurWorkState {
  int32_t SmoothWinSize;
  uint16_t *kernel;
  int32_t Scalingratio;
  int32_t working_width;
  int32_t working_height;
  uint8_t *Src_copy;
  uint8_t *XInterp_image;
  uint8_t *scale_img;
  uint8_t *input_tmp_y;
  uint8_t *input_tmp_uv;
  int32_t *tempim_y;
  int32_t *tempim_uv;
  uint8_t *smooth_img;
  // Per-strip scratch: [0..1] luma strips, [2..3] chroma strips.
  StripScratch strip[2 * kStripsPerPlane];
};

// Builds the working state for a width x height frame (SmoothWinSize taken
// from the init record) into *work; adds the working buffers' bytes to
// *buffer_sum. 0 on success, 1 on failure (*work then holds the buffers made
// so far, or null, for ReleaseWorkState).
int CreateWorkState(BlurWorkState **work, int32_t *buffer_sum, int32_t width, int32_t height,
                    int32_t smooth_win_size);

// Fills state->kernel (SmoothWinSize taps) with the integer Gaussian and logs
// the "sigma:" line.
void BuildGaussianKernel(BlurWorkState *state);

// Frees every buffer that exists, then the state, and clears *work. Always 0.
int ReleaseWorkState(BlurWorkState **work);

// Scaling ratio asked for by "persist.vendor.cam.prebokeh_ratio" that a
// width x height frame can use; 1 when unset, invalid or not applicable.
int32_t SelectScalingRatio(int32_t width, int32_t height);

}  // namespace pb

#endif  // PREVIEWBOKEH_BLUR_WORK_STATE_H_
