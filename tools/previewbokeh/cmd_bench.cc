// bench: per-frame timings of the weight engine and of the blur on the demo scene.
#include <cstdio>
#include <string>
#include <vector>

#include "commands.h"
#include "console.h"
#include "dump_recording.h"
#include "errors.h"
#include "output_plan.h"
#include "pipeline.h"
#include "ratio_choice.h"
#include "scene.h"
#include "timing_json.h"
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
  if (o.ratio > 1) {
    const std::string problem = RatioSizeProblem(size, o.ratio);
    if (!problem.empty()) throw InputError("--ratio: " + problem);
  }
  if (o.force && o.json.empty()) throw InputError("--force: not used: bench writes no file without --json");
  OutputPlan plan;
  if (!o.json.empty()) plan.AddOutputFile(o.json, "--json");
  CheckOutputsAndOpenLog(&plan, o.global, o.force);
  OutputCleanup cleanup(plan);
  std::vector<std::string> warnings, dump_dirs;
  const DumpRecording dumps(&warnings, &dump_dirs);
  for (const std::string &d : dump_dirs) cleanup.AddCreatedDirectory(d);
  for (const std::string &w : warnings) Warn(w);
  const RatioChoice ratio = ChooseRatio(size, o.ratio);
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
  if (!o.json.empty()) {
    const nlohmann::json doc = {
        {"command", "bench"},
        {"frame_size", ToString(size)},
        {"disparity_size", ToString(scene.layout.disparity)},
        {"ratio", ratio.used},
        {"f_number", o.f_number},
        {"frames", FramesToJson(0, {}, weight_ms, blur_ms)},
        {"summary",
         {{"weights", StatsToJson(Summarise(weight_ms))},
          {"blur", StatsToJson(Summarise(blur_ms))},
          {"frame", StatsToJson(Summarise(frame_ms))}}},
    };
    WriteJsonFile(o.json, doc);
  }
  cleanup.Commit();
  std::printf("bench %s, disparity %s, %d frames, F_number %d, %s\n", ToString(size).c_str(),
              ToString(scene.layout.disparity).c_str(), o.frames, o.f_number, DescribeRatio(ratio).c_str());
  std::printf("%s\n", FormatStats("weights", Summarise(weight_ms)).c_str());
  std::printf("%s\n", FormatStats("blur", Summarise(blur_ms)).c_str());
  std::printf("%s\n", FormatStats("frame", Summarise(frame_ms)).c_str());
  if (dumps.active()) {
    std::printf("%d dump files written to %s\n", dumps.CountWritten(), dumps.directory().c_str());
  }
  return kExitOk;
}

}  // namespace pbtool
