/*
 * Preview bokeh: blurs the background of YUV 4:2:0 semi-planar preview frames
 * under a 16-bit weight map (0 = keep sharp, 1024 = take the blurred sample).
 *
 * Calling order, from one thread per handle:
 *   iBokehInit                        once per preview size
 *   for each frame:
 *     iBokehCreateWeightMap           aperture, focus point, weight map of the frame
 *     iBokehBlurImage                 source graphic buffer -> destination graphic buffer
 *   iBokehDeinit                      once
 *
 * Every function returns 0 on success and 1 on failure; failures are logged
 * under the tag "PreviewBokeh". The weight map given to iBokehCreateWeightMap
 * is not copied: it must stay valid until the frame has been blurred.
 */
#ifndef PREVIEWBOKEH_BOKEH_H_
#define PREVIEWBOKEH_BOKEH_H_

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define PREVIEWBOKEH_EXPORT __attribute__((visibility("default")))
#else
#define PREVIEWBOKEH_EXPORT
#endif

/* Passed to iBokehInit. The library writes the two output fields before it
 * creates anything else, so they are set even when init fails later. */
typedef struct BokehInitParams {
  int32_t width;          /* in:  frame width in pixels (even, > 0) */
  int32_t height;         /* in:  frame height in rows (>= 2) */
  uint8_t reserved0[8];   /*      not read or written */
  int32_t SmoothWinSize;  /* out: smoothing window length in taps (11) */
  uint8_t reserved1[8];   /*      not read or written */
  int32_t WindowRadius;   /* out: window radius (5) */
} BokehInitParams;

/* Passed to iBokehCreateWeightMap before each frame. */
typedef struct BokehFrameParams {
  int32_t F_number;       /* aperture; 1..19 map to blur levels 19..10, 20 turns the blur off */
  int32_t sel_x;          /* focus point column (logged only) */
  int32_t sel_y;          /* focus point row (logged only) */
  uint8_t reserved0[4];
  const uint16_t *WeightMap; /* width x height weights 0..1024, row-major, stride = width */
} BokehFrameParams;

/* Creates a handle for frames of params->width x params->height. *handle is
 * set as soon as the handle exists; on failure it points at a torn-down handle
 * and only the status tells: do not use it. */
PREVIEWBOKEH_EXPORT int iBokehInit(void **handle, BokehInitParams *params);

/* Stores the aperture, focus point and weight map used by the next frames. */
PREVIEWBOKEH_EXPORT int iBokehCreateWeightMap(void *handle, BokehFrameParams *params);

/* Blurs one frame. SrcImg and dstImg are platform graphic buffers, locked and
 * unlocked through the assist library; they may be the same buffer. Returns
 * once the destination holds the whole frame. Fails (1) when no weight map
 * has been set. */
PREVIEWBOKEH_EXPORT int iBokehBlurImage(void *handle, void *SrcImg, void *dstImg);

/* Destroys a handle: joins the worker threads and frees all memory. */
PREVIEWBOKEH_EXPORT int iBokehDeinit(void *handle);

#ifdef __cplusplus
}  /* extern "C" */
#endif

/* The layout is shared with the camera layer and must not move. */
#ifdef __cplusplus
#define PREVIEWBOKEH_STATIC_ASSERT static_assert
#else
#define PREVIEWBOKEH_STATIC_ASSERT _Static_assert
#endif
PREVIEWBOKEH_STATIC_ASSERT(offsetof(BokehInitParams, width) == 0, "width offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(BokehInitParams, height) == 4, "height offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(BokehInitParams, SmoothWinSize) == 16, "SmoothWinSize offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(BokehInitParams, WindowRadius) == 28, "WindowRadius offset");
PREVIEWBOKEH_STATIC_ASSERT(sizeof(BokehInitParams) == 32, "BokehInitParams size");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(BokehFrameParams, F_number) == 0, "F_number offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(BokehFrameParams, sel_x) == 4, "sel_x offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(BokehFrameParams, sel_y) == 8, "sel_y offset");
#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
PREVIEWBOKEH_STATIC_ASSERT(offsetof(BokehFrameParams, WeightMap) == 16, "WeightMap offset");
PREVIEWBOKEH_STATIC_ASSERT(sizeof(BokehFrameParams) == 24, "BokehFrameParams size");
#endif

#endif  /* PREVIEWBOKEH_BOKEH_H_ */
