// render: blurs one frame or a sequence with a given disparity map.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "console.h"
#include "dump_recording.h"
#include "errors.h"
#include "fill_holes.h"
#include "focus_track.h"
#include "frame_sink.h"
#include "image_io.h"
#include "inputs.h"
#include "interrupt.h"
#include "option_checks.h"
#include "output_plan.h"
#include "pipeline.h"
#include "ratio_choice.h"
#include "timing_json.h"
#include "visual.h"
#include "weights_sink.h"
#include "yuv.h"

namespace fs = std::filesystem;

namespace pbtool {
namespace {

// The path a directory output gives frame `name`.
std::string FrameOutputFile(const std::string &dir, const std::string &name) {
  return (fs::path(dir) / (name + ".png")).string();
}

bool IsJpegPath(const std::string &path) {
  const std::string ext = LowerExtension(path);
  return ext == ".jpg" || ext == ".jpeg";
}

// Options given that this run would not use: refused rather than ignored.
void RefuseUnusedOptions(const RenderOptions &o, const FrameSource &source, OutKind out_kind,
                         const std::vector<FocusKey> &track) {
  // The track's first line at or before --start sets the focus (and its
  // F_number, when it has one) of every rendered frame.
  for (const FocusKey &key : track) {
    if (key.frame > o.start) break;
    if (!o.focus.empty()) {
      throw InputError("--focus: not used: '" + o.focus_track + "' line " + std::to_string(key.line) +
                       " sets the focus from frame " + std::to_string(key.frame) + " on");
    }
    if (o.fnumber_given && key.f_number != 0) {
      throw InputError("--fnumber: not used: '" + o.focus_track + "' line " + std::to_string(key.line) +
                       " sets the F_number from frame " + std::to_string(key.frame) + " on");
    }
  }
  if (o.jpeg_quality_given && !IsJpegPath(o.out) && !IsJpegPath(o.weights_out)) {
    throw InputError("--jpeg-quality: not used: no .jpg output");
  }
  const bool yuv_in = source.is_raw() || source.is_y4m();
  const bool yuv_out = out_kind == OutKind::kRaw || out_kind == OutKind::kY4m;
  if (o.range_given && yuv_in && yuv_out) {
    throw InputError("--range: not used: '" + o.image + "' and '" + o.out +
                     "' are both YUV, no RGB conversion takes place");
  }
}

}  // namespace

int RunRender(const RenderOptions &o) {
  if (o.image.empty()) throw InputError("--image: required");
  if (o.disparity.empty()) throw InputError("--disparity: required");
  if (o.out.empty()) throw InputError("--out: required");
  CheckFNumber(o.f_number, "--fnumber");
  CheckRatio(o.ratio, "--ratio");
  CheckJpegQuality(o.jpeg_quality, "--jpeg-quality");
  if (o.scale_num) CheckScaleFactor(*o.scale_num, "--scale-num");
  if (o.scale_den) CheckScaleFactor(*o.scale_den, "--scale-den");
  if (o.ref_width) CheckRefWidth(*o.ref_width, "--ref-width");

  FrameInputOptions input;
  input.size = o.size;
  input.format = o.format;
  input.stride = o.stride;
  input.scanlines = o.scanlines;
  input.range = ParseColourRange(o.range, "--range");
  FrameSource source(o.image, input);
  const Size size = source.size();
  if (source.size_from_name()) Note("--size " + ToString(size) + " from the name of '" + o.image + "'");
  const bool sequence = source.is_sequence();
  const OutKind out_kind = ClassifyOut(o.out, sequence);
  const int total = source.count();
  if (o.start < 0 || o.start >= total) {
    throw InputError("--start: " + std::to_string(o.start) + " is outside 0.." + std::to_string(total - 1) +
                     " ('" + o.image + "' has " + std::to_string(total) + " frames)");
  }
  const int count = o.count ? *o.count : total - o.start;
  if (count < 1 || count > total - o.start) {
    throw InputError("--count: " + std::to_string(count) + " is outside 1.." + std::to_string(total - o.start) +
                     " ('" + o.image + "' has " + std::to_string(total) + " frames from 0, starting at " +
                     std::to_string(o.start) + ")");
  }
  if (o.ratio > 1) {
    const std::string problem = RatioSizeProblem(size, o.ratio);
    if (!problem.empty()) throw InputError("--ratio: " + problem);
  }

  // Disparity maps: each one of the frames to render is loaded and checked now.
  DisparityOptions dopt{o.disparity, o.disparity_size, o.scale_num.value_or(0), o.scale_den.value_or(0),
                        o.ref_width.value_or(0)};
  const DisparityMaps maps(dopt, total);
  auto load_disparity = [&](int frame, const Size *size) {
    DisparityMap map = maps.Load(frame, size);
    if (o.fill_holes) FillDisparityHoles(&map.samples);
    return map;
  };
  DisparityMap disparity = load_disparity(o.start, nullptr);
  CheckDisparityFits(disparity, size, maps.File(o.start));
  const Size dsize{disparity.samples.width, disparity.samples.height};
  maps.CheckSizes(o.start + 1, o.start + count, dsize);
  std::vector<std::string> warnings;
  const std::string aspect = AspectWarning(size, dsize, maps.File(o.start));
  if (!aspect.empty()) warnings.push_back(aspect);

  Point focus{size.width / 2, size.height / 2};
  if (!o.focus.empty()) {
    focus = ParsePoint(o.focus, "--focus");
    if (focus.x >= size.width || focus.y >= size.height) {
      throw InputError("--focus: " + o.focus + " is outside the " + ToString(size) + " frame");
    }
  }
  std::vector<FocusKey> track;
  if (!o.focus_track.empty()) track = LoadFocusTrack(o.focus_track, total, size);
  RefuseUnusedOptions(o, source, out_kind, track);
  const std::vector<FrameFocus> frame_focus = ExpandFocusTrack(track, total, {focus, o.f_number});

  WeightsKind weights_kind = WeightsKind::kImage;
  if (!o.weights_out.empty()) weights_kind = ClassifyWeightsOut(o.weights_out, sequence);

  // Every file this run reads and writes, checked before anything is written.
  OutputPlan plan;
  std::vector<std::string> image_files;  // of a directory input, in frame order
  std::error_code ec;
  if (fs::is_directory(o.image, ec)) {
    plan.AddInputDirectory(o.image, "--image");
    image_files = ListImages(o.image, "--image");
    for (const std::string &f : image_files) plan.AddInputFile(f, "--image");
  } else {
    plan.AddInputFile(o.image, "--image");
  }
  if (maps.per_frame()) plan.AddInputDirectory(o.disparity, "--disparity");
  for (const std::string &f : maps.files()) plan.AddInputFile(f, "--disparity");
  if (!o.focus_track.empty()) plan.AddInputFile(o.focus_track, "--focus-track");
  auto frame_label = [&](const std::string &option, int i) {
    if (static_cast<size_t>(i) < image_files.size()) {
      return option + " (frame '" + image_files[static_cast<size_t>(i)] + "')";
    }
    return option + " (frame " + std::to_string(i) + ")";
  };
  if (out_kind == OutKind::kDirectory) {
    plan.AddOutputDirectory(o.out, "--out");
    for (int i = o.start; i < o.start + count; ++i) {
      plan.AddOutputFile(FrameOutputFile(o.out, source.Name(i)), frame_label("--out", i));
    }
  } else {
    plan.AddOutputFile(o.out, "--out");
  }
  if (!o.weights_out.empty()) {
    if (weights_kind == WeightsKind::kDirectory) {
      plan.AddOutputDirectory(o.weights_out, "--weights-out");
      for (int i = o.start; i < o.start + count; ++i) {
        plan.AddOutputFile(WeightsFileFor(o.weights_out, weights_kind, source.Name(i)),
                           frame_label("--weights-out", i));
      }
    } else {
      plan.AddOutputFile(o.weights_out, "--weights-out");
    }
  }
  if (!o.json.empty()) plan.AddOutputFile(o.json, "--json");
  CheckOutputsAndOpenLog(&plan, o.global, o.force);

  OutputCleanup cleanup(plan);
  std::vector<std::string> dump_dirs;
  const DumpRecording dumps(&warnings, &dump_dirs);
  for (const std::string &d : dump_dirs) cleanup.AddCreatedDirectory(d);
  for (const std::string &w : warnings) Warn(w);
  const RatioChoice ratio = ChooseRatio(size, o.ratio);

  InterruptScope interrupt;
  FrameSinkOptions sink_options;
  sink_options.input_format = source.format();
  sink_options.stride = o.out_stride;
  sink_options.scanlines = o.out_scanlines;
  sink_options.range = input.range;
  sink_options.y4m = source.y4m_header();
  sink_options.jpeg_quality = o.jpeg_quality;
  FrameSink sink(o.out, out_kind, sink_options);
  std::unique_ptr<WeightsSink> weights_sink;
  if (!o.weights_out.empty()) {
    weights_sink = std::make_unique<WeightsSink>(o.weights_out, weights_kind, size, o.jpeg_quality);
  }
  WeightEngine engine(size, dsize);
  BokehRenderer renderer(size, o.ratio);
  std::vector<double> weight_ms, blur_ms;
  std::vector<std::string> names;
  std::vector<uint16_t> weights;
  std::vector<uint8_t> disparity_frame = BuildDisparityFrame(disparity);
  // Raw input is read in order: step over the frames before --start.
  for (int i = 0; i < o.start && source.is_raw(); ++i) source.Read(i);
  Progress progress("render", count);
  const double start = NowMs();
  int done = 0;
  for (; done < count && !InterruptScope::Requested(); ++done) {
    const int i = o.start + done;
    const YuvFrame frame = source.Read(i);
    if (done > 0 && maps.per_frame()) disparity_frame = BuildDisparityFrame(load_disparity(i, &dsize));
    const FrameFocus &ff = frame_focus[static_cast<size_t>(i)];
    double t = NowMs();
    engine.Compute(disparity_frame, ff.f_number, ff.focus, &weights);
    weight_ms.push_back(NowMs() - t);
    if (weights_sink) weights_sink->Write(weights, source.Name(i));
    YuvFrame out;
    BokehRenderer::Timing timing;
    renderer.Render(frame, weights, ff.f_number, ff.focus, &out, &timing);
    blur_ms.push_back(timing.set_weights_ms + timing.blur_ms);
    sink.Write(out, source.Name(i));
    names.push_back(source.Name(i));
    progress.Update(done + 1);
  }
  sink.Finish();
  if (weights_sink) weights_sink->Finish();
  progress.Finish();
  const double total_ms = NowMs() - start;
  const bool interrupted = done < count;

  if (!o.json.empty()) {
    nlohmann::json doc = {
        {"command", "render"},
        {"image", o.image},
        {"out", o.out},
        {"frame_size", ToString(size)},
        {"disparity_size", ToString(dsize)},
        {"ratio", ratio.used},
        {"frames_rendered", done},
        {"frames_asked", count},
        {"interrupted", interrupted},
        {"total_ms", total_ms},
        {"frames", FramesToJson(o.start, names, weight_ms, blur_ms)},
        {"summary", {{"weights", StatsToJson(Summarise(weight_ms))}, {"blur", StatsToJson(Summarise(blur_ms))}}},
    };
    WriteJsonFile(o.json, doc);
  }
  cleanup.Commit();

  if (sequence) {
    std::printf("%d frames %s -> %s in %.1f ms: %.2f frames per second, %s\n", done,
                ToString(size).c_str(), o.out.c_str(), total_ms,
                total_ms > 0 ? done * 1000.0 / total_ms : 0.0, DescribeRatio(ratio).c_str());
    std::printf("%s\n%s\n", FormatStats("weights", Summarise(weight_ms)).c_str(),
                FormatStats("blur", Summarise(blur_ms)).c_str());
  } else if (done == 1) {
    const FrameFocus &ff = frame_focus[0];
    std::printf("%s -> %s (%s, disparity %s, focus %d,%d, F_number %d, %s): weights %.3f ms, blur %.3f ms\n",
                o.image.c_str(), o.out.c_str(), ToString(size).c_str(), ToString(dsize).c_str(),
                ff.focus.x, ff.focus.y, ff.f_number, DescribeRatio(ratio).c_str(), weight_ms[0], blur_ms[0]);
  }
  if (dumps.active()) {
    std::printf("%d dump files written to %s\n", dumps.CountWritten(), dumps.directory().c_str());
  }
  if (interrupted) {
    std::fprintf(ToolErr(), "previewbokeh: interrupted after %d of %d frames\n", done, count);
    return kExitInterrupted;
  }
  return kExitOk;
}

}  // namespace pbtool
