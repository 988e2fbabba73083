// The host assist library as tests, benchmarks and fuzzers reach it: loaded
// by path from the build tree, once per process, with global symbols, so that
// the library's own dlopen("libvelkcamalgassist.so") finds this copy.
#ifndef PREVIEWBOKEH_TOOLS_ASSIST_HOST_ASSIST_CLIENT_H_
#define PREVIEWBOKEH_TOOLS_ASSIST_HOST_ASSIST_CLIENT_H_

#include "previewbokeh/camalg_assist.h"

namespace pbassist {

struct HostAssist {
  GraphicBuffer_new_fn create;
  GraphicBuffer_delete_fn destroy;
  GraphicBuffer_getPointer_fn pointer;
  // Host-only entries: the lock/unlock events seen so far, and a buffer's
  // current lock depth.
  int (*event_count)();
  char (*event)(int index, void **buffer);
  void (*clear_events)();
  int (*lock_count)(void *buffer);
};

// Aborts with a message when the library cannot be loaded or lacks an entry.
const HostAssist &Assist();

}  // namespace pbassist

#endif  // PREVIEWBOKEH_TOOLS_ASSIST_HOST_ASSIST_CLIENT_H_
