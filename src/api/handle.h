// The bokeh handle and its per-frame settings.
#ifndef PREVIEWBOKEH_API_HANDLE_H_
#define PREVIEWBOKEH_API_HANDLE_H_

#include <cstdint>

#include "blur/frame_driver.h"
#include "blur/work_state.h"
#include "pool/thread_pool.h"
#include "previewbokeh/camalg_assist.h"

namespace pb {

struct BokehHandle {
  int32_t buffer_sum;         // bytes of the working buffers
  int32_t thread_count;       // worker threads = strips per plane
  ThreadPool *pool;           // null when no live pool exists
  StripTaskArgs *pThreadArg;  // 2 x thread_count records: luma strips, then chroma
  int32_t width;
  int32_t height;
  BlurWorkState *work;
  BokehFrameState *frame;
  camalg_assist_lib_api_t api;
};

}  // namespace pb

#endif  // PREVIEWBOKEH_API_HANDLE_H_
