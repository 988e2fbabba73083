// The library driven the way a camera HAL drives it: the assist library's
// graphic buffers, the depth-weight engine and a bokeh handle.
#ifndef PREVIEWBOKEH_TOOL_PIPELINE_H_
#define PREVIEWBOKEH_TOOL_PIPELINE_H_

#include <cstdint>
#include <string>
#include <vector>

#include <previewbokeh/camalg_assist.h>
#include <previewbokeh/weight.h>

#include "cli.h"
#include "disparity.h"
#include "yuv.h"

namespace pbtool {

// Loads the assist library once per process and keeps it loaded. Tried in
// order: `explicit_path` (when not empty), the copy built next to this tool,
// then the dynamic loader's search for "libvelkcamalgassist.so". Loading it by
// full path with RTLD_GLOBAL first makes the library's own dlopen by name find
// the same copy. Throws LibraryError when none loads or an entry is missing.
const camalg_assist_lib_api_t &LoadAssist(const std::string &explicit_path);

// Path the assist library was loaded from (for messages); empty before LoadAssist.
const std::string &AssistPath();

// A graphic buffer of the assist library holding one frame.
class GraphicBuffer {
 public:
  explicit GraphicBuffer(Size size);
  ~GraphicBuffer();
  GraphicBuffer(const GraphicBuffer &) = delete;
  GraphicBuffer &operator=(const GraphicBuffer &) = delete;

  void *handle() const { return buffer_; }
  // Copies a frame in / out, locking around the access as a HAL would.
  void Write(const YuvFrame &frame);
  void Read(YuvFrame *frame);

 private:
  Size size_;
  void *buffer_ = nullptr;
};

// Sets the reduced-resolution ratio property for the handles created while it
// lives (the host library reads properties from the environment at init);
// restores the previous value afterwards. Ratio 0 leaves the property alone.
class RatioProperty {
 public:
  explicit RatioProperty(int ratio);
  ~RatioProperty();
  RatioProperty(const RatioProperty &) = delete;
  RatioProperty &operator=(const RatioProperty &) = delete;

 private:
  bool active_ = false;
  bool had_previous_ = false;
  std::string previous_;
};

constexpr char kRatioEnvironment[] = "PERSIST_VENDOR_CAM_PREBOKEH_RATIO";

// Throws InputError naming `option` unless ratio is 1, 2, 4, 6 or 8 (0 = unset).
void CheckRatio(int ratio, const std::string &option);

// Why the library keeps ratio 1 when asked for `ratio` (2, 4, 6 or 8) at
// `frame`: its size rule is width a multiple of 2 x ratio, height a multiple
// of 4 and of the ratio, height at least 16 x ratio. Empty when the ratio is
// honoured (and for ratios 0 and 1, which need nothing).
std::string RatioSizeProblem(Size frame, int ratio);

// Throws InputError naming `option` unless 1 <= f <= 20.
void CheckFNumber(int f_number, const std::string &option);

// Smoothing window of the disparity map used by the tool.
constexpr int kDisparityWinSize = 5;

// The depth-weight engine for one frame size and one disparity size.
class WeightEngine {
 public:
  WeightEngine(Size frame, Size disparity);
  ~WeightEngine();
  WeightEngine(const WeightEngine &) = delete;
  WeightEngine &operator=(const WeightEngine &) = delete;

  // Computes the frame-sized weight map into `weights` (resized as needed).
  // `disparity_frame` is header + samples of the engine's disparity size.
  void Compute(const std::vector<uint8_t> &disparity_frame, int f_number, Point focus,
               std::vector<uint16_t> *weights);
  uint32_t memory_size() const { return context_.MemorySize; }

 private:
  Size frame_;
  Size disparity_;
  WeightContext context_{};
  bool initialised_ = false;
};

// A bokeh handle with its source and destination graphic buffers.
class BokehRenderer {
 public:
  // ratio: value for the reduced-resolution property while the handle is
  // created (0 = leave the environment as it is).
  BokehRenderer(Size frame, int ratio);
  ~BokehRenderer();
  BokehRenderer(const BokehRenderer &) = delete;
  BokehRenderer &operator=(const BokehRenderer &) = delete;

  // Stage timings of the last Render call, in milliseconds.
  struct Timing {
    double set_weights_ms = 0;  // iBokehCreateWeightMap
    double blur_ms = 0;         // iBokehBlurImage
  };

  // Blurs `in` into `out` under `weights` (frame-sized). The destination
  // buffer starts as a copy of the source, so rows the library leaves as they
  // were (heights not divisible by 4) keep the sharp picture.
  void Render(const YuvFrame &in, const std::vector<uint16_t> &weights, int f_number, Point focus,
              YuvFrame *out, Timing *timing = nullptr);

 private:
  Size frame_;
  void *handle_ = nullptr;
  GraphicBuffer src_;
  GraphicBuffer dst_;
};

// Milliseconds of a monotonic clock.
double NowMs();

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_PIPELINE_H_
