// bench: per-frame timings of the weight engine and of the blur on the demo scene.
#include <cstdio>

#include "commands.h"
#include "console.h"
#include "errors.h"
#include "pipeline.h"
#include "scene.h"
#include "yuv.h"

namespace pbtool {

int RunBench(const BenchOptions &o) {
  const Size size = ParseSize(o.size, "--size");
  CheckFrameSize(size, "--size");
  CheckRatio(o.ratio, "--ratio");
  CheckFNumber(o.f_number, "--fnumber");
  if (o.frames < 1 || o.frames > 100000) {
    throw InputError("--frames: " + std::to_string(o.frames) + " is outside 1..100000");
  }
  const Scene scene = MakeDemoScene(size);
  const YuvFrame input = RgbToYuv(scene.rgb, YuvFormat::kNV21);
  const std::vector<uint8_t> disparity = BuildDisparityFrame(scene.disparity);
  WeightEngine engine(size, scene.layout.disparity);
  BokehRenderer renderer(size, o.ratio);

  std::vector<uint16_t> weights;
  YuvFrame output;
  BokehRenderer::Timing timing;
  // One frame first, untimed: page faults of fresh buffers are not the frame's cost.
  engine.Compute(disparity, o.f_number, scene.layout.focus, &weights);
  renderer.Render(input, weights, o.f_number, scene.layout.focus, &output, &timing);

  std::vector<double> weight_ms, blur_ms, frame_ms;
  Progress progress("bench", o.frames);
  for (int i = 0; i < o.frames; ++i) {
    const double t = NowMs();
    engine.Compute(disparity, o.f_number, scene.layout.focus, &weights);
    const double w = NowMs() - t;
    renderer.Render(input, weights, o.f_number, scene.layout.focus, &output, &timing);
    weight_ms.push_back(w);
    blur_ms.push_back(timing.set_weights_ms + timing.blur_ms);
    frame_ms.push_back(w + timing.set_weights_ms + timing.blur_ms);
    progress.Update(i + 1);
  }
  progress.Finish();
  std::printf("bench %s, disparity %s, %d frames, F_number %d%s\n", ToString(size).c_str(),
              ToString(scene.layout.disparity).c_str(), o.frames, o.f_number,
              o.ratio ? (", ratio property " + std::to_string(o.ratio)).c_str() : "");
  std::printf("%s\n", FormatStats("weights", Summarise(weight_ms)).c_str());
  std::printf("%s\n", FormatStats("blur", Summarise(blur_ms)).c_str());
  std::printf("%s\n", FormatStats("frame", Summarise(frame_ms)).c_str());
  return kExitOk;
}

}  // namespace pbtool
