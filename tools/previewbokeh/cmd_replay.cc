// replay: blurs again the frames that the library's dumps recorded and
// compares with the recorded output.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "compare.h"
#include "console.h"
#include "dumps.h"
#include "errors.h"
#include "image_io.h"
#include "output_plan.h"
#include "pipeline.h"
#include "timing_json.h"
#include "yuv.h"

namespace fs = std::filesystem;

namespace pbtool {
namespace {

// Amplification of the luma difference in --diff-png pictures.
constexpr int kDiffGain = 16;

// PSNR for JSON: null stands for infinity (identical samples).
nlohmann::json PsnrJson(double psnr) {
  return std::isinf(psnr) ? nlohmann::json(nullptr) : nlohmann::json(psnr);
}

std::string PsnrText(double psnr) {
  if (std::isinf(psnr)) return "inf";
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", psnr);
  return text;
}

}  // namespace

int RunReplay(const ReplayOptions &o) {
  if (o.dir.empty()) throw InputError("replay: the dump directory is required (previewbokeh replay DIR)");
  CheckFNumber(o.f_number, "--fnumber");
  CheckRatio(o.ratio, "--ratio");
  const auto sets = FindDumps(o.dir);
  std::vector<const DumpSet *> frames;
  for (const auto &entry : sets) {
    const DumpSet &set = entry.second;
    if (set.imagein.empty() || set.weightin.empty()) continue;
    CheckFrameSize(set.size, set.imagein);
    const std::string problem = RatioSizeProblem(set.size, o.ratio);
    if (!problem.empty()) throw InputError("--ratio: " + problem + " (" + set.imagein + ")");
    frames.push_back(&set);
  }
  if (frames.empty()) {
    throw InputError(o.dir + ": no pair of imagein_<W>x<H>_<stamp>.img and weightin dumps");
  }
  // The dumps read are the inputs; results may go into the dump directory
  // (the default) but never over a dump.
  const std::string out_dir = o.out_dir.empty() ? o.dir : o.out_dir;
  auto tag_of = [](const DumpSet &set) { return ToString(set.size) + "_" + set.stamp; };
  auto result_file = [&](const DumpSet &set, const char *ext) {
    return (fs::path(out_dir) / ("replayout_" + tag_of(set) + ext)).string();
  };
  auto diff_file = [&](const DumpSet &set) {
    return (fs::path(o.diff_png) / ("diff_" + tag_of(set) + ".png")).string();
  };
  OutputPlan plan;
  plan.AddOutputDirectory(out_dir, "--out");
  if (!o.diff_png.empty()) plan.AddOutputDirectory(o.diff_png, "--diff-png");
  for (const DumpSet *set : frames) {
    for (const std::string *dump : {&set->imagein, &set->weightin, &set->imageout}) {
      if (!dump->empty()) plan.AddInputFile(*dump, "a dump replayed");
    }
    plan.AddOutputFile(result_file(*set, ".img"), "--out");
    if (o.png) plan.AddOutputFile(result_file(*set, ".png"), "--png");
    if (!o.diff_png.empty() && !set->imageout.empty()) plan.AddOutputFile(diff_file(*set), "--diff-png");
  }
  if (!o.json.empty()) plan.AddOutputFile(o.json, "--json");
  CheckOutputsAndOpenLog(&plan, o.global, o.force);
  OutputCleanup cleanup(plan);
  for (const auto &dir : plan.output_directories()) {
    std::error_code ec;
    fs::create_directories(dir.path, ec);
    if (ec || !fs::is_directory(dir.path)) {
      throw InputError(dir.what + ": cannot create directory '" + dir.path + "'" +
                       (ec ? ": " + ec.message() : std::string()));
    }
  }

  // Replaying must not overwrite the dumps it reads.
  unsetenv("PERSIST_VENDOR_CAM_PREBOKEH_SAVE");

  nlohmann::json report = {{"dir", o.dir}, {"fnumber", o.f_number}, {"ratio", o.ratio},
                           {"frames", nlohmann::json::array()}};
  std::unique_ptr<BokehRenderer> renderer;
  Size renderer_size;
  int identical = 0, differing = 0, unchecked = 0;
  for (size_t i = 0; i < frames.size(); ++i) {
    const DumpSet &set = *frames[i];
    YuvFrame input(set.size);
    input.data = ReadDumpBytes(set.imagein, YuvFrame::FrameBytes(set.size));
    const std::vector<uint16_t> weights = ReadDumpWeights(set.weightin, set.size);
    if (!renderer || renderer_size != set.size) {
      renderer.reset();
      renderer = std::make_unique<BokehRenderer>(set.size, o.ratio);
      renderer_size = set.size;
    }
    YuvFrame output;
    BokehRenderer::Timing timing;
    renderer->Render(input, weights, o.f_number, Point{0, 0}, &output, &timing);
    WriteFileBytes(result_file(set, ".img"), output.data.data(), output.data.size());
    if (o.png) WritePng(result_file(set, ".png"), YuvToRgb(output, YuvFormat::kNV21));

    nlohmann::json entry = {{"size", ToString(set.size)},
                            {"stamp", set.stamp},
                            {"set_weights_ms", timing.set_weights_ms},
                            {"blur_ms", timing.blur_ms},
                            {"compared", !set.imageout.empty()}};
    std::string verdict;
    if (set.imageout.empty()) {
      verdict = "no imageout to compare";
      ++unchecked;
    } else {
      YuvFrame recorded(set.size);
      recorded.data = ReadDumpBytes(set.imageout, output.data.size());
      const FrameDiff d = CompareFrames(recorded, output);
      if (d.differing == 0) {
        verdict = "identical";
        ++identical;
      } else {
        verdict = std::to_string(d.differing) + " of " + std::to_string(d.bytes) +
                  " bytes differ, largest difference " + std::to_string(d.max_diff) + ", PSNR " +
                  PsnrText(d.psnr) + " dB (luma " + PsnrText(d.psnr_luma) + ", chroma " +
                  PsnrText(d.psnr_chroma) + ")";
        ++differing;
      }
      if (!o.diff_png.empty()) {
        WritePng(diff_file(set), LumaDifferenceImage(recorded, output, kDiffGain));
      }
      entry.update({{"identical", d.differing == 0},
                    {"differing_bytes", d.differing},
                    {"bytes", d.bytes},
                    {"max_diff", d.max_diff},
                    {"psnr", PsnrJson(d.psnr)},
                    {"psnr_luma", PsnrJson(d.psnr_luma)},
                    {"psnr_chroma", PsnrJson(d.psnr_chroma)}});
    }
    report["frames"].push_back(entry);
    std::printf("%s %s: blur %.3f ms, %s\n", ToString(set.size).c_str(),
                set.stamp.empty() ? "(no stamp)" : set.stamp.c_str(), timing.blur_ms, verdict.c_str());
  }
  report["summary"] = {{"frames", frames.size()},
                       {"identical", identical},
                       {"differ", differing},
                       {"without_imageout", unchecked}};
  if (!o.json.empty()) WriteJsonFile(o.json, report);
  cleanup.Commit();
  std::printf("%zu frames replayed with F_number %d: %d identical, %d differ, %d without imageout%s\n",
              frames.size(), o.f_number, identical, differing, unchecked,
              differing > 0 ? ": the replay does NOT match the recording" : "");
  return differing > 0 ? kExitLibraryFailure : kExitOk;
}

}  // namespace pbtool
