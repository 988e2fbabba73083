#include "pipeline.h"

#include <dlfcn.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <previewbokeh/bokeh.h>

#include "errors.h"

namespace pbtool {
namespace {

constexpr char kAssistName[] = "libvelkcamalgassist.so";

camalg_assist_lib_api_t g_assist{};
std::string g_assist_path;

std::string ExecutableDir() {
  std::error_code ec;
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::string() : exe.parent_path().string();
}

template <typename Fn>
void Resolve(void *lib, const char *symbol, Fn *fn, const std::string &path) {
  *fn = reinterpret_cast<Fn>(dlsym(lib, symbol));
  if (!*fn) throw LibraryError(path + ": assist library has no entry " + symbol);
}

void *Open(const std::string &path, std::string *error) {
  void *lib = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL);
  if (!lib) {
    const char *e = dlerror();
    *error = e ? e : "unknown error";
  }
  return lib;
}

}  // namespace

const camalg_assist_lib_api_t &LoadAssist(const std::string &explicit_path) {
  if (g_assist.handle) return g_assist;
  std::string error;
  void *lib = nullptr;
  std::string path;
  if (!explicit_path.empty()) {
    path = explicit_path;
    lib = Open(path, &error);
    if (!lib) throw InputError("--assist: cannot load '" + path + "': " + error);
  } else {
    std::vector<std::string> candidates;
#ifdef PBTOOL_ASSIST_PATH
    candidates.push_back(PBTOOL_ASSIST_PATH);
#endif
    const std::string dir = ExecutableDir();
    if (!dir.empty()) {
      candidates.push_back(dir + "/" + kAssistName);
      candidates.push_back(dir + "/../assist/" + kAssistName);
    }
    for (const std::string &c : candidates) {
      std::error_code ec;
      if (!std::filesystem::exists(c, ec)) continue;
      lib = Open(c, &error);
      if (lib) {
        path = c;
        break;
      }
    }
    if (!lib) {
      path = kAssistName;
      lib = Open(path, &error);
      if (!lib) {
        throw LibraryError(std::string("cannot load the assist library ") + kAssistName + ": " +
                           error + " (give its path with --assist)");
      }
    }
  }
  camalg_assist_lib_api_t api{};
  api.handle = lib;
  Resolve(lib, "GraphicBuffer_new", &api.GraphicBuffer_new, path);
  Resolve(lib, "GraphicBuffer_delete", &api.GraphicBuffer_delete, path);
  Resolve(lib, "GraphicBufferPointer_lock", &api.GraphicBufferPointer_lock, path);
  Resolve(lib, "GraphicBufferPointer_unlock", &api.GraphicBufferPointer_unlock, path);
  Resolve(lib, "GraphicBuffer_getPointer", &api.GraphicBuffer_getPointer, path);
  g_assist = api;
  g_assist_path = path;
  return g_assist;
}

const std::string &AssistPath() { return g_assist_path; }

double NowMs() {
  using Clock = std::chrono::steady_clock;
  return std::chrono::duration<double, std::milli>(Clock::now().time_since_epoch()).count();
}

// ---------------------------------------------------------------------------

GraphicBuffer::GraphicBuffer(Size size) : size_(size) {
  const camalg_assist_lib_api_t &api = LoadAssist("");
  buffer_ = api.GraphicBuffer_new(static_cast<uint32_t>(size.width),
                                  static_cast<uint32_t>(size.height),
                                  static_cast<uint32_t>(YuvFrame::FrameBytes(size)));
  if (!buffer_) throw LibraryError("GraphicBuffer_new(" + ToString(size) + ") returned null");
}

GraphicBuffer::~GraphicBuffer() {
  if (buffer_) g_assist.GraphicBuffer_delete(buffer_);
}

void GraphicBuffer::Write(const YuvFrame &frame) {
  auto *pixels = static_cast<uint8_t *>(g_assist.GraphicBufferPointer_lock(buffer_));
  if (!pixels) throw LibraryError("GraphicBufferPointer_lock returned null");
  std::memcpy(pixels, frame.data.data(), YuvFrame::FrameBytes(size_));
  g_assist.GraphicBufferPointer_unlock(buffer_);
}

void GraphicBuffer::Read(YuvFrame *frame) {
  auto *pixels = static_cast<const uint8_t *>(g_assist.GraphicBufferPointer_lock(buffer_));
  if (!pixels) throw LibraryError("GraphicBufferPointer_lock returned null");
  frame->size = size_;
  frame->data.assign(pixels, pixels + YuvFrame::FrameBytes(size_));
  g_assist.GraphicBufferPointer_unlock(buffer_);
}

// ---------------------------------------------------------------------------

RatioProperty::RatioProperty(int ratio) {
  if (ratio == 0) return;
  active_ = true;
  if (const char *old = std::getenv(kRatioEnvironment)) {
    had_previous_ = true;
    previous_ = old;
  }
  setenv(kRatioEnvironment, std::to_string(ratio).c_str(), 1);
}

RatioProperty::~RatioProperty() {
  if (!active_) return;
  if (had_previous_) {
    setenv(kRatioEnvironment, previous_.c_str(), 1);
  } else {
    unsetenv(kRatioEnvironment);
  }
}

void CheckRatio(int ratio, const std::string &option) {
  if (ratio == 0 || ratio == 1 || ratio == 2 || ratio == 4 || ratio == 6 || ratio == 8) return;
  throw InputError(option + ": ratio " + std::to_string(ratio) + " is not one of 1, 2, 4, 6, 8");
}

std::string RatioSizeProblem(Size frame, int ratio) {
  if (ratio <= 1) return {};
  const int w = frame.width, h = frame.height;
  if (w % (2 * ratio) == 0 && h % 4 == 0 && h % ratio == 0 && h >= 16 * ratio) return {};
  return "ratio " + std::to_string(ratio) + " needs a width that is a multiple of " +
         std::to_string(2 * ratio) + " and a height that is a multiple of 4 and of " +
         std::to_string(ratio) + " and at least " + std::to_string(16 * ratio) + "; " +
         ToString(frame) + " is not";
}

void CheckFNumber(int f_number, const std::string &option) {
  if (f_number < 1 || f_number > 20) {
    throw InputError(option + ": " + std::to_string(f_number) + " is outside 1..20");
  }
}

// ---------------------------------------------------------------------------

WeightEngine::WeightEngine(Size frame, Size disparity) : frame_(frame), disparity_(disparity) {
  WeightInitParams params{};
  params.WeightWidth = frame.width;
  params.WeightHeight = frame.height;
  params.DisparityWidth = disparity.width;
  params.DisparityHeight = disparity.height;
  params.DisparityWinSize = kDisparityWinSize;
  const int status = weight_init(&params, &context_);
  initialised_ = true;  // whatever it attached is released by weight_deinit
  if (status != 0) {
    weight_deinit(&context_);
    initialised_ = false;
    throw LibraryError("weight_init(" + ToString(frame) + ", disparity " + ToString(disparity) +
                       ") failed with status " + std::to_string(status));
  }
}

WeightEngine::~WeightEngine() {
  if (initialised_) weight_deinit(&context_);
}

void WeightEngine::Compute(const std::vector<uint8_t> &disparity_frame, int f_number, Point focus,
                           std::vector<uint16_t> *weights) {
  const size_t needed = kDisparityHeaderBytes + static_cast<size_t>(disparity_.width) * disparity_.height;
  if (disparity_frame.size() != needed) {
    throw std::logic_error("disparity frame does not match the engine's size");
  }
  weights->resize(static_cast<size_t>(frame_.width) * frame_.height);
  WeightProcessParams params{};
  params.F_number = f_number;
  params.sel_x = focus.x;
  params.sel_y = focus.y;
  params.frame = reinterpret_cast<const DisparityFrame *>(disparity_frame.data());
  const int status = weight_async_process(&params, &context_, weights->data());
  if (status != 0) {
    throw LibraryError("weight_async_process failed with status " + std::to_string(status));
  }
}

// ---------------------------------------------------------------------------

BokehRenderer::BokehRenderer(Size frame, int ratio) : frame_(frame), src_(frame), dst_(frame) {
  BokehInitParams params{};
  params.width = frame.width;
  params.height = frame.height;
  void *handle = nullptr;
  int status;
  {
    RatioProperty property(ratio);
    status = iBokehInit(&handle, &params);
  }
  // On failure the library has torn the handle down already; only the status counts.
  if (status != 0) {
    throw LibraryError("iBokehInit(" + ToString(frame) + ") failed with status " +
                       std::to_string(status));
  }
  handle_ = handle;
}

BokehRenderer::~BokehRenderer() {
  if (handle_) iBokehDeinit(handle_);
}

void BokehRenderer::Render(const YuvFrame &in, const std::vector<uint16_t> &weights, int f_number,
                           Point focus, YuvFrame *out, Timing *timing) {
  if (in.size != frame_ || weights.size() != static_cast<size_t>(frame_.width) * frame_.height) {
    throw std::logic_error("frame or weight map does not match the renderer's size");
  }
  src_.Write(in);
  dst_.Write(in);
  BokehFrameParams params{};
  params.F_number = f_number;
  params.sel_x = focus.x;
  params.sel_y = focus.y;
  params.WeightMap = weights.data();
  const double t0 = NowMs();
  int status = iBokehCreateWeightMap(handle_, &params);
  const double t1 = NowMs();
  if (status != 0) {
    throw LibraryError("iBokehCreateWeightMap failed with status " + std::to_string(status));
  }
  status = iBokehBlurImage(handle_, src_.handle(), dst_.handle());
  const double t2 = NowMs();
  if (status != 0) {
    throw LibraryError("iBokehBlurImage failed with status " + std::to_string(status));
  }
  if (timing) {
    timing->set_weights_ms = t1 - t0;
    timing->blur_ms = t2 - t1;
  }
  dst_.Read(out);
}

}  // namespace pbtool
