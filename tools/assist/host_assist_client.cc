#include "host_assist_client.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace pbassist {
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
    return HostAssist{Symbol<GraphicBuffer_new_fn>(lib, "GraphicBuffer_new"),
                      Symbol<GraphicBuffer_delete_fn>(lib, "GraphicBuffer_delete"),
                      Symbol<GraphicBuffer_getPointer_fn>(lib, "GraphicBuffer_getPointer"),
                      Symbol<int (*)()>(lib, "HostAssist_eventCount"),
                      Symbol<char (*)(int, void **)>(lib, "HostAssist_event"),
                      Symbol<void (*)()>(lib, "HostAssist_clearEvents"),
                      Symbol<int (*)(void *)>(lib, "HostGraphicBuffer_lockCount")};
  }();
  return assist;
}

}  // namespace pbassist
