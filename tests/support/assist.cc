#include "support/assist.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace pbtest {
namespace {

template <typename T>
T Symbol(void *lib, const char *name) {
  void *p = dlsym(lib, name);
  if (!p) {
    std::fprintf(stderr, "host assist library lacks %s\n", name);
    std::abort();
  }
  return reinterpret_cast<T>(p);
}

}  // namespace

const HostAssist &Assist() {
  static const HostAssist assist = [] {
    void *lib = dlopen(PB_ASSIST_DIR "/libvelkcamalgassist.so", RTLD_NOW | RTLD_GLOBAL);
    if (!lib) {
      std::fprintf(stderr, "cannot load host assist library: %s\n", dlerror());
      std::abort();
    }
    HostAssist a{};
    a.create = Symbol<GraphicBuffer_new_fn>(lib, "GraphicBuffer_new");
    a.destroy = Symbol<GraphicBuffer_delete_fn>(lib, "GraphicBuffer_delete");
    a.pointer = Symbol<GraphicBuffer_getPointer_fn>(lib, "GraphicBuffer_getPointer");
    a.event_count = Symbol<int (*)()>(lib, "HostAssist_eventCount");
    a.event = Symbol<char (*)(int, void **)>(lib, "HostAssist_event");
    a.clear_events = Symbol<void (*)()>(lib, "HostAssist_clearEvents");
    a.lock_count = Symbol<int (*)(void *)>(lib, "HostGraphicBuffer_lockCount");
    return a;
  }();
  return assist;
}

GraphicFrame::GraphicFrame(int width, int height)
    : buffer_(nullptr), size_(static_cast<size_t>(width) * height * 3 / 2) {
  buffer_ = Assist().create(static_cast<uint32_t>(width), static_cast<uint32_t>(height),
                            static_cast<uint32_t>(size_));
  if (!buffer_) std::abort();
}

GraphicFrame::~GraphicFrame() { Assist().destroy(buffer_); }

uint8_t *GraphicFrame::data() const { return static_cast<uint8_t *>(Assist().pointer(buffer_)); }

}  // namespace pbtest
