#include <dlfcn.h>

#include "platform/log.h"
#include "previewbokeh/camalg_assist.h"

namespace {

struct Entry {
  const char *symbol;
  const char *missing;  // log text when the symbol is absent
};

// In table order. The last three messages name the entries differently from
// their symbols; callers' log parsers depend on the wording.
constexpr Entry kEntries[5] = {
    {"GraphicBuffer_new", "fail to dlsym GraphicBuffer_new"},
    {"GraphicBuffer_delete", "fail to dlsym GraphicBuffer_delete"},
    {"GraphicBufferPointer_lock", "fail to dlsym GraphicBuffer_lock"},
    {"GraphicBufferPointer_unlock", "fail to dlsym GraphicBuffer_unlock"},
    {"GraphicBuffer_getPointer", "fail to dlsym GraphicBuffer_getNativeBuffer"},
};

const char *DlErrorText() {
  const char *e = dlerror();
  return e ? e : "unknown";
}

}  // namespace

__attribute__((visibility("default"))) int velk_load_caa_api(camalg_assist_lib_api_t *api) {
  if (!api) {
    PB_LOGD("velk_load_caa_api: null api table\n");
    return 1;
  }
  api->handle = dlopen("libvelkcamalgassist.so", RTLD_LAZY);
  if (!api->handle) {
    PB_LOGD("open CAMALG ASSIST API failed.error = %s", DlErrorText());
    return 1;
  }
  void **fields[5] = {
      reinterpret_cast<void **>(&api->GraphicBuffer_new),
      reinterpret_cast<void **>(&api->GraphicBuffer_delete),
      reinterpret_cast<void **>(&api->GraphicBufferPointer_lock),
      reinterpret_cast<void **>(&api->GraphicBufferPointer_unlock),
      reinterpret_cast<void **>(&api->GraphicBuffer_getPointer),
  };
  for (int i = 0; i < 5; ++i) {
    dlerror();
    *fields[i] = dlsym(api->handle, kEntries[i].symbol);
    if (!*fields[i]) {
      PB_LOGD("%s", kEntries[i].missing);
      PB_LOGD("error = %s", DlErrorText());
      dlclose(api->handle);
      api->handle = nullptr;  // closed here, so the handle's tear-down must not close it again
      return 1;
    }
  }
  return 0;
}
