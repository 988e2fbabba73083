#include "blur/work_state.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "blur/smooth.h"
#include "platform/alloc.h"
#include "platform/log.h"
#include "platform/property.h"

namespace pb {
namespace {

template <typename T>
bool AllocBuffer(T **out, int64_t bytes, bool zeroed, const char *name) {
  void *p = bytes > 0 ? (zeroed ? Calloc(static_cast<size_t>(bytes), 1)
                                : Malloc(static_cast<size_t>(bytes)))
                      : nullptr;
  *out = static_cast<T *>(p);
  if (!p) {
    PB_LOGD("%s malloc error\n", name);
    return false;
  }
  return true;
}

template <typename T>
void FreeBuffer(T **p) {
  if (*p) {
    Free(*p);
    *p = nullptr;
  }
}

// Gives each strip its own scratch inside the working buffers: smoothing
// scratch inside the strip's half of tempim_y / tempim_uv (the first strip of
// each plane pads into input_tmp_y / input_tmp_uv), and on the reduced path
// private downscale rows, smoothed rows and xinterp rows, so that strips never
// write the same bytes. Every region fits the sizes allocated for the frame.
void CarveStripScratch(BlurWorkState *s, int32_t width, int32_t height) {
  const int32_t h = s->SmoothWinSize / 2;
  const int32_t lw = s->working_width;
  const int32_t lh = s->working_height;
  const bool reduced = s->Scalingratio != 1;
  const size_t luma_slice = static_cast<size_t>(width + 2 * h) * (height + 2 * h + 1) * 4;
  const size_t chroma_slice =
      static_cast<size_t>(width + 4 * h) * (height / 2 + 2 * h + 1) * 4;
  const size_t lw_sz = static_cast<size_t>(lw);
  for (int j = 0; j < kStripsPerPlane; ++j) {
    StripScratch &y = s->strip[j];
    StripScratch &uv = s->strip[kStripsPerPlane + j];
    uint8_t *yslice = reinterpret_cast<uint8_t *>(s->tempim_y) + j * luma_slice;
    uint8_t *uvslice = reinterpret_cast<uint8_t *>(s->tempim_uv) + j * chroma_slice;
    y.intermediate = yslice;
    uv.intermediate = uvslice;
    y.padded = j == 0 ? s->input_tmp_y : yslice + SmoothIntermediateBytes(lw, lh, h);
    uv.padded = j == 0 ? s->input_tmp_uv : uvslice + SmoothIntermediateBytes(lw, lh / 2, h);
    if (reduced) {
      y.xinterp = s->XInterp_image + j * lw_sz * height;
      uv.xinterp = s->XInterp_image + 2 * lw_sz * height + j * lw_sz * (height / 2);
      const size_t yplane = lw_sz * lh;
      const size_t uvplane = lw_sz * (lh / 2);
      y.reduced = s->smooth_img + j * yplane;
      y.smoothed = s->smooth_img + (2 + j) * yplane;
      uv.reduced = s->smooth_img + 4 * yplane + j * uvplane;
      uv.smoothed = s->smooth_img + 4 * yplane + (2 + j) * uvplane;
    } else {
      y.xinterp = uv.xinterp = nullptr;
      y.reduced = uv.reduced = nullptr;
      y.smoothed = uv.smoothed = nullptr;  // full resolution: the shared plane, own rows only
    }
  }
}

}  // namespace

int32_t SelectScalingRatio(int32_t width, int32_t height) {
  char value[kPropValueMax] = {};
  if (GetProperty("persist.vendor.cam.prebokeh_ratio", value) <= 0) return 1;
  char *end = nullptr;
  const long asked = std::strtol(value, &end, 10);
  const bool known = end != value && *end == '\0' &&
                     (asked == 2 || asked == 4 || asked == 6 || asked == 8);
  if (!known) {
    PB_LOGD("prebokeh_ratio %s not supported, using 1\n", value);
    return 1;
  }
  const int32_t n = static_cast<int32_t>(asked);
  if (width % (2 * n) != 0 || height % 4 != 0 || height % n != 0 || height < 16 * n) {
    PB_LOGD("prebokeh_ratio %d not possible for %dx%d, using 1\n", n, width, height);
    return 1;
  }
  return n;
}

void BuildGaussianKernel(BlurWorkState *state) {
  const int32_t n = state->SmoothWinSize;
  const float sigma = static_cast<float>(n * 0.3333333333333333);
  PB_LOGD("sigma:%.6f,SmoothWinSize:%d,Scalingratio:%d\n", sigma, n, state->Scalingratio);
  const float inv = 1.0f / (sigma * sigma);
  float g[64];
  float *gs = n <= 64 ? g : static_cast<float *>(Malloc(sizeof(float) * n));
  if (!gs) return;  // kernel stays zero; only reachable with absurd window sizes
  for (int32_t i = 0; i < n; ++i) {
    const float x = static_cast<float>(i - n / 2);
    gs[i] = powf(2.71828f, (x * (x * -0.5f)) * inv);
  }
  // Sum in the order of the four-lane reduction: blocks of 8 into two
  // accumulators, reduced pairwise, then the rest one by one.
  float sum = 0.0f;
  int32_t i = 0;
  if (n >= 8) {
    float a[4] = {0, 0, 0, 0}, b[4] = {0, 0, 0, 0};
    for (; i + 8 <= n; i += 8) {
      for (int l = 0; l < 4; ++l) {
        a[l] += gs[i + l];
        b[l] += gs[i + 4 + l];
      }
    }
    float l[4];
    for (int k = 0; k < 4; ++k) l[k] = a[k] + b[k];
    sum = (l[0] + l[2]) + (l[1] + l[3]);
  }
  for (; i < n; ++i) sum += gs[i];
  const float inv_sum = 1.0f / sum;
  for (int32_t k = 0; k < n; ++k) {
    state->kernel[k] = static_cast<uint16_t>(static_cast<uint32_t>((gs[k] * 1024.0f) * inv_sum));
  }
  if (gs != g) Free(gs);
}

int CreateWorkState(BlurWorkState **work, int32_t *buffer_sum, int32_t width, int32_t height,
                    int32_t smooth_win_size) {
  auto *s = static_cast<BlurWorkState *>(Calloc(1, sizeof(BlurWorkState)));
  *work = s;
  if (!s) {
    PB_LOGD("BlurWorkState malloc error\n");
    return 1;
  }
  s->SmoothWinSize = smooth_win_size;
  s->Scalingratio = SelectScalingRatio(width, height);
  s->working_width = width / s->Scalingratio;
  s->working_height = height / s->Scalingratio;
  if (smooth_win_size < 1 || smooth_win_size > 63) {
    PB_LOGD("SmoothWinSize %d not supported\n", smooth_win_size);
    return 1;
  }
  if (!AllocBuffer(&s->kernel, int64_t{2} * smooth_win_size, true, "kernel")) return 1;
  BuildGaussianKernel(s);

  const int64_t w = width, hgt = height, h = smooth_win_size / 2;
  const int64_t p = (w * hgt * 3) / 2;
  const int64_t in_y = (w + 2 * h) * (hgt + 2 * h);
  const int64_t in_uv = (w + 4 * h) * (hgt / 2 + 2 * h);
  const int64_t tmp_y = (w + 2 * h) * (hgt + 2 * h + 1) * 8;
  const int64_t tmp_uv = (w + 4 * h) * (hgt / 2 + 2 * h + 1) * 8;
  const int64_t sum = in_y + 4 * p + in_uv + tmp_y + tmp_uv;
  if (sum + *buffer_sum > INT32_MAX) {
    PB_LOGD("frame %dx%d too large for the working buffers\n", width, height);
    return 1;
  }
  if (!AllocBuffer(&s->Src_copy, p, false, "Src_copy") ||
      !AllocBuffer(&s->XInterp_image, p, true, "XInterp_image") ||
      !AllocBuffer(&s->scale_img, p, true, "scale_img") ||
      !AllocBuffer(&s->input_tmp_y, in_y, false, "input_tmp_y") ||
      !AllocBuffer(&s->input_tmp_uv, in_uv, false, "input_tmp_uv") ||
      !AllocBuffer(&s->tempim_y, tmp_y, false, "tempim_y") ||
      !AllocBuffer(&s->tempim_uv, tmp_uv, false, "tempim_uv") ||
      !AllocBuffer(&s->smooth_img, p, false, "smooth_img")) {
    return 1;
  }
  *buffer_sum += static_cast<int32_t>(sum);
  CarveStripScratch(s, width, height);
  return 0;
}

int ReleaseWorkState(BlurWorkState **work) {
  BlurWorkState *s = *work;
  if (!s) return 0;
  FreeBuffer(&s->kernel);
  FreeBuffer(&s->Src_copy);
  FreeBuffer(&s->XInterp_image);
  FreeBuffer(&s->scale_img);
  FreeBuffer(&s->input_tmp_y);
  FreeBuffer(&s->input_tmp_uv);
  FreeBuffer(&s->tempim_y);
  FreeBuffer(&s->tempim_uv);
  FreeBuffer(&s->smooth_img);
  Free(s);
  *work = nullptr;
  return 0;
}

}  // namespace pb
