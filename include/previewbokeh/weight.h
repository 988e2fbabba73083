/*
 * Depth weight map: turns an 8-bit disparity map (lower resolution than the
 * preview) into the full-resolution 16-bit weight map that iBokehCreateWeightMap
 * takes: 0 inside the in-focus band around the focus point, growing with the
 * distance from that band up to 1024 (fully blurred).
 *
 * Calling order, from one thread per engine:
 *   weight_init                       once; creates the engine inside the context
 *   weight_async_process              once per disparity frame (synchronous:
 *                                     the map is complete when it returns)
 *   weight_deinit                     once; frees the engine
 *
 * Ownership: the caller owns every record passed in, the disparity frame and
 * the output weight map; the engine (and every buffer it allocates) is owned
 * through WeightContext.engine and released by weight_deinit. After a failed
 * weight_init call weight_deinit all the same: it frees whatever was attached.
 *
 * Failures are logged under the tag "PreviewBokeh".
 */
#ifndef PREVIEWBOKEH_WEIGHT_H_
#define PREVIEWBOKEH_WEIGHT_H_

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef PREVIEWBOKEH_EXPORT
#if defined(__GNUC__)
#define PREVIEWBOKEH_EXPORT __attribute__((visibility("default")))
#else
#define PREVIEWBOKEH_EXPORT
#endif
#endif

/* Passed to weight_init. All sizes must be positive. */
typedef struct WeightInitParams {
  int32_t WeightWidth;      /* weight map width in pixels (the preview width) */
  int32_t WeightHeight;     /* weight map height in rows */
  int32_t DisparityWidth;   /* disparity map width in samples (< 32768) */
  int32_t DisparityHeight;  /* disparity map height in rows (< 32768) */
  int32_t reserved0;        /* not read */
  int32_t reserved1;        /* reserved, not used */
  int32_t reserved2;        /* not read */
  int32_t DisparityWinSize; /* length (>= 1) of the uniform window smoothing the disparity */
} WeightInitParams;

/* Owned by the caller; the same record goes to all three functions. */
typedef struct WeightContext {
  uint32_t MemorySize;      /* running byte counter: weight_init adds the size of its buffers */
  uint8_t reserved[36];     /* the caller's; not touched */
  void *engine;             /* set by weight_init, read by the other two; opaque */
} WeightContext;

/* Header of a disparity frame: 68 bytes, followed at byte 68 (no padding) by
 * DisparityWidth x DisparityHeight samples of 8 bits, row by row, in the sizes
 * given to weight_init. The header need not be aligned. */
#define DISPARITY_FRAME_HEADER_BYTES 68
typedef struct DisparityFrame {
  uint8_t reserved0[16];        /* ignored */
  int32_t ScaleNumeratorQ19;    /* signed, 19 fraction bits */
  int32_t ScaleDenominatorQ19;  /* signed, 19 fraction bits */
  uint8_t reserved1[36];        /* ignored */
  uint16_t RefWidth;            /* width against which DisparityWidth is scaled */
  uint16_t reserved2;           /* ignored */
  uint16_t DisparityWidth;      /* width as the producer saw it (only used by the range table) */
  uint16_t DisparityHeight;     /* height as the producer saw it (not read) */
} DisparityFrame;

/* Passed to weight_async_process for each frame. */
typedef struct WeightProcessParams {
  int32_t F_number;             /* aperture 1..20; outside that range the gain is unity */
  int32_t sel_x;                /* focus point column in weight-map pixels (clamped into the map) */
  int32_t sel_y;                /* focus point row in weight-map pixels (clamped into the map) */
  uint8_t reserved0[4];
  const DisparityFrame *frame;  /* header + samples of this frame; read during the call only */
} WeightProcessParams;

/* Creates the engine for the given sizes and stores it in context->engine
 * (before anything else is allocated). On success adds the bytes of its
 * buffers to context->MemorySize and returns 0; on failure returns 1 and the
 * caller releases what was attached with weight_deinit. */
PREVIEWBOKEH_EXPORT int weight_init(const WeightInitParams *params, WeightContext *context);

/* Writes WeightWidth x WeightHeight weights (0..1024, row-major, stride
 * WeightWidth) into weight_map, which the caller owns and which must hold at
 * least WeightWidth x WeightHeight elements. Synchronous, on the calling
 * thread; allocates nothing. Returns 0; 1 (writing nothing) for a null
 * pointer argument or an engine whose weight_init failed. */
PREVIEWBOKEH_EXPORT int weight_async_process(const WeightProcessParams *params,
                                             WeightContext *context, uint16_t *weight_map);

/* Frees the engine and its buffers. context->engine is left as it was and
 * must not be used again without a new weight_init. Returns 0. */
PREVIEWBOKEH_EXPORT int weight_deinit(WeightContext *context);

#ifdef __cplusplus
}  /* extern "C" */
#endif

/* The layouts are shared with the camera layer and must not move. */
#ifndef PREVIEWBOKEH_STATIC_ASSERT
#ifdef __cplusplus
#define PREVIEWBOKEH_STATIC_ASSERT static_assert
#else
#define PREVIEWBOKEH_STATIC_ASSERT _Static_assert
#endif
#endif
PREVIEWBOKEH_STATIC_ASSERT(offsetof(WeightInitParams, WeightWidth) == 0, "WeightWidth offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(WeightInitParams, WeightHeight) == 4, "WeightHeight offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(WeightInitParams, DisparityWidth) == 8,
                           "DisparityWidth offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(WeightInitParams, DisparityHeight) == 12,
                           "DisparityHeight offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(WeightInitParams, reserved1) == 20, "reserved1 offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(WeightInitParams, DisparityWinSize) == 28,
                           "DisparityWinSize offset");
PREVIEWBOKEH_STATIC_ASSERT(sizeof(WeightInitParams) == 32, "WeightInitParams size");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(WeightContext, MemorySize) == 0, "MemorySize offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(DisparityFrame, ScaleNumeratorQ19) == 16,
                           "ScaleNumeratorQ19 offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(DisparityFrame, ScaleDenominatorQ19) == 20,
                           "ScaleDenominatorQ19 offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(DisparityFrame, RefWidth) == 60, "RefWidth offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(DisparityFrame, DisparityWidth) == 64, "DisparityWidth offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(DisparityFrame, DisparityHeight) == 66,
                           "DisparityHeight offset");
PREVIEWBOKEH_STATIC_ASSERT(sizeof(DisparityFrame) == DISPARITY_FRAME_HEADER_BYTES,
                           "DisparityFrame size");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(WeightProcessParams, F_number) == 0, "F_number offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(WeightProcessParams, sel_x) == 4, "sel_x offset");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(WeightProcessParams, sel_y) == 8, "sel_y offset");
#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
PREVIEWBOKEH_STATIC_ASSERT(offsetof(WeightContext, engine) == 40, "engine offset");
PREVIEWBOKEH_STATIC_ASSERT(sizeof(WeightContext) == 48, "WeightContext size");
PREVIEWBOKEH_STATIC_ASSERT(offsetof(WeightProcessParams, frame) == 16, "frame offset");
PREVIEWBOKEH_STATIC_ASSERT(sizeof(WeightProcessParams) == 24, "WeightProcessParams size");
#endif

#endif  /* PREVIEWBOKEH_WEIGHT_H_ */
