// Access to the host assist library from tests, and graphic-buffer frames.
#ifndef PREVIEWBOKEH_TESTS_SUPPORT_ASSIST_H_
#define PREVIEWBOKEH_TESTS_SUPPORT_ASSIST_H_

#include <cstddef>
#include <cstdint>

#include "previewbokeh/camalg_assist.h"

namespace pbtest {

struct HostAssist {
  GraphicBuffer_new_fn create;
  GraphicBuffer_delete_fn destroy;
  GraphicBuffer_getPointer_fn pointer;
  int (*event_count)();
  char (*event)(int index, void **buffer);
  void (*clear_events)();
  int (*lock_count)(void *buffer);
};

// Loads the host assist library from the build tree (once, RTLD_GLOBAL), so
// that the library's own dlopen("libvelkcamalgassist.so") finds this copy.
const HostAssist &Assist();

// A YUV 4:2:0 semi-planar frame in a host graphic buffer.
class GraphicFrame {
 public:
  GraphicFrame(int width, int height);
  ~GraphicFrame();
  GraphicFrame(const GraphicFrame &) = delete;
  GraphicFrame &operator=(const GraphicFrame &) = delete;

  void *buffer() const { return buffer_; }
  uint8_t *data() const;
  size_t size() const { return size_; }

 private:
  void *buffer_;
  size_t size_;
};

}  // namespace pbtest

#endif  // PREVIEWBOKEH_TESTS_SUPPORT_ASSIST_H_
