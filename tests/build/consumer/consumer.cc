// Links against the installed library through its public headers only and
// calls entry points whose result needs no frame: the documented null checks,
// and the assist-library loader (LD_LIBRARY_PATH names the assist library).
#include <dlfcn.h>

#include <cstdio>

#include <previewbokeh/bokeh.h>
#include <previewbokeh/camalg_assist.h>
#include <previewbokeh/weight.h>

namespace {

int g_failures = 0;

void Expect(bool ok, const char *what) {
  std::printf("%s: %s\n", ok ? "ok  " : "FAIL", what);
  if (!ok) ++g_failures;
}

}  // namespace

int main() {
  // Every export must resolve, including those not called here.
  using WeightInit = int (*)(const WeightInitParams *, WeightContext *);
  using WeightProcess = int (*)(const WeightProcessParams *, WeightContext *, uint16_t *);
  using WeightDeinit = int (*)(WeightContext *);
  volatile WeightInit init = &weight_init;
  volatile WeightProcess process = &weight_async_process;
  volatile WeightDeinit deinit = &weight_deinit;
  Expect(init != nullptr && process != nullptr && deinit != nullptr, "weight_* resolved");

  void *handle = nullptr;
  Expect(iBokehInit(&handle, nullptr) == 1, "iBokehInit with null params fails");
  Expect(handle == nullptr, "iBokehInit with null params leaves the handle alone");
  Expect(iBokehCreateWeightMap(nullptr, nullptr) == 1, "iBokehCreateWeightMap(null) fails");
  Expect(iBokehBlurImage(nullptr, nullptr, nullptr) == 1, "iBokehBlurImage(null) fails");
  Expect(iBokehDeinit(nullptr) == 1, "iBokehDeinit(null) fails");

  camalg_assist_lib_api_t api = {};
  Expect(velk_load_caa_api(&api) == 0, "velk_load_caa_api finds the assist library");
  Expect(api.handle != nullptr && api.GraphicBufferPointer_lock != nullptr &&
             api.GraphicBufferPointer_unlock != nullptr,
         "assist function table filled");
  if (api.handle != nullptr) dlclose(api.handle);

  std::printf("%d failure(s)\n", g_failures);
  return g_failures == 0 ? 0 : 1;
}
