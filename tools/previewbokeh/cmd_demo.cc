// demo: renders the built-in scene through the whole chain and writes the
// pictures of each step.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "console.h"
#include "errors.h"
#include "dump_recording.h"
#include "output_plan.h"
#include "pipeline.h"
#include "ratio_choice.h"
#include "scene.h"
#include "visual.h"
#include "yuv.h"

namespace pbtool {
namespace {

void Stage(const char *name, double ms) { std::printf("  %-28s %9.3f ms\n", name, ms); }

}  // namespace

int RunDemo(const DemoOptions &o) {
  const Size size = ParseSize(o.size, "--size");
  CheckFrameSize(size, "--size");
  CheckFNumber(o.f_number, "--fnumber");
  if (o.ratio == 1) {
    throw InputError("--ratio: 1 is the full-resolution rendering the demo always makes; give 2, 4, 6 "
                     "or 8 for a second one, or 0 for none");
  }
  if (o.ratio != 0) CheckRatio(o.ratio, "--ratio");
  if (o.comparison_width < 0) throw InputError("--comparison-width: must not be negative");

  // The demo writes its own fixed set of pictures and replaces them on every
  // run; it still refuses to write over an input or another output.
  const std::filesystem::path dir(o.out_dir);
  auto picture = [&](const std::string &name) { return (dir / name).string(); };
  const std::string reduced_name = "output-r" + std::to_string(o.ratio) + ".png";
  std::vector<std::string> names = {"input.png", "disparity.png", "weights.png", "output.png", "comparison.png"};
  if (o.ratio > 1) names.push_back(reduced_name);
  OutputPlan plan;
  plan.AddOutputDirectory(o.out_dir, "--out");
  for (const std::string &name : names) plan.AddOutputFile(picture(name), "--out", /*replaceable=*/true);
  CheckOutputsAndOpenLog(&plan, o.global, /*force=*/false);
  OutputCleanup cleanup(plan);
  std::vector<std::string> warnings, dump_dirs;
  const DumpRecording dumps(&warnings, &dump_dirs);
  for (const std::string &d : dump_dirs) cleanup.AddCreatedDirectory(d);
  for (const std::string &w : warnings) Warn(w);
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec || !std::filesystem::is_directory(dir)) {
    throw InputError("--out: cannot create directory '" + o.out_dir + "'" + (ec ? ": " + ec.message() : std::string()));
  }

  LoadAssist("");
  std::printf("demo %s, F_number %d, assist library %s\n", ToString(size).c_str(), o.f_number,
              AssistPath().c_str());
  double t = NowMs();
  const Scene scene = MakeDemoScene(size);
  Stage("scene", NowMs() - t);

  t = NowMs();
  const YuvFrame input = RgbToYuv(scene.rgb, YuvFormat::kNV21);
  Stage("RGB -> NV21", NowMs() - t);

  t = NowMs();
  WeightEngine engine(size, scene.layout.disparity);
  Stage("weight_init", NowMs() - t);
  const std::vector<uint8_t> disparity_frame = BuildDisparityFrame(scene.disparity);
  std::vector<uint16_t> weights;
  t = NowMs();
  engine.Compute(disparity_frame, o.f_number, scene.layout.focus, &weights);
  Stage("weight_async_process", NowMs() - t);

  t = NowMs();
  BokehRenderer renderer(size, 1);
  Stage("iBokehInit (ratio 1)", NowMs() - t);
  YuvFrame output;
  BokehRenderer::Timing timing;
  renderer.Render(input, weights, o.f_number, scene.layout.focus, &output, &timing);
  Stage("iBokehCreateWeightMap", timing.set_weights_ms);
  Stage("iBokehBlurImage", timing.blur_ms);

  // The reduced-resolution path, when the library honours the ratio property:
  // a library without it renders at full resolution, byte for byte the same.
  std::unique_ptr<YuvFrame> reduced;
  const RatioChoice second = ChooseRatio(size, o.ratio);
  if (o.ratio > 1 && second.used != o.ratio) {
    std::printf("  ratio %d not used: %s; output-r%d.png skipped\n", o.ratio, second.reason.c_str(), o.ratio);
  } else if (o.ratio > 1) {
    try {
      BokehRenderer small(size, o.ratio);
      auto frame = std::make_unique<YuvFrame>();
      small.Render(input, weights, o.f_number, scene.layout.focus, frame.get(), &timing);
      const std::string label = "iBokehBlurImage (" + DescribeRatio(second) + ")";
      Stage(label.c_str(), timing.blur_ms);
      if (frame->data != output.data) {
        reduced = std::move(frame);
      } else {
        std::printf("  ratio %d gives the full-resolution frame (the library did not take the "
                    "reduced path); output-r%d.png skipped\n", o.ratio, o.ratio);
      }
    } catch (const LibraryError &e) {
      std::printf("  ratio %d not available: %s\n", o.ratio, e.what());
    }
  }

  t = NowMs();
  const Image input_rgb = YuvToRgb(input, YuvFormat::kNV21);
  const Image output_rgb = YuvToRgb(output, YuvFormat::kNV21);
  const Image weights_rgb = ColourMapWeights(weights.data(), size);
  WritePng(picture("input.png"), input_rgb);
  WritePng(picture("disparity.png"), scene.disparity.samples);
  WritePng(picture("weights.png"), weights_rgb);
  WritePng(picture("output.png"), output_rgb);
  std::vector<const Image *> panels = {&input_rgb, &weights_rgb, &output_rgb};
  Image reduced_rgb;
  if (reduced) {
    reduced_rgb = YuvToRgb(*reduced, YuvFormat::kNV21);
    WritePng(picture(reduced_name), reduced_rgb);
    panels.push_back(&reduced_rgb);
  }
  const int gap = std::max(2, size.width / 160);
  WritePng(picture("comparison.png"), ScaleToWidth(SideBySide(panels, gap), o.comparison_width));
  Stage("PNG files", NowMs() - t);
  cleanup.Commit();
  std::printf("wrote %s/{input,disparity,weights,output,comparison}.png%s\n", o.out_dir.c_str(),
              reduced ? (" and " + reduced_name).c_str() : "");
  if (dumps.active()) {
    std::printf("%d dump files written to %s\n", dumps.CountWritten(), dumps.directory().c_str());
  }
  return kExitOk;
}

}  // namespace pbtool
