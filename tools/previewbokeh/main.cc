// previewbokeh: command-line front end of the preview bokeh library.
#include <cstdio>
#include <exception>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "console.h"
#include "errors.h"
#include "pipeline.h"

using namespace pbtool;

namespace {

// An option whose absence stays distinguishable from every value it can take.
template <typename T>
CLI::Option *AddOptional(CLI::App *cmd, const std::string &name, std::optional<T> *target,
                         const std::string &help) {
  return cmd->add_option_function<T>(name, [target](const T &value) { *target = value; }, help);
}

// The header values made for an 8-bit disparity image (render and view).
void AddDisparityHeaderOptions(CLI::App *cmd, std::optional<double> *scale_num,
                               std::optional<double> *scale_den, std::optional<int> *ref_width) {
  AddOptional(cmd, "--scale-num", scale_num,
              "Disparity header: scale numerator, 0.0000019..4095.998 (default 2000)");
  AddOptional(cmd, "--scale-den", scale_den,
              "Disparity header: scale denominator, 0.0000019..4095.998 (default 0.5)");
  AddOptional(cmd, "--ref-width", ref_width,
              "Disparity header: reference width 1..65535 (default: the map's width)");
}

}  // namespace

int main(int argc, char **argv) {
  CLI::App app{"Preview bokeh: renders depth-dependent background blur through the library's "
               "public interfaces"};
  app.name("previewbokeh");
  app.require_subcommand(1);
  app.set_version_flag("--version", "previewbokeh " PBTOOL_VERSION);
  // Options of the tool itself are accepted after the subcommand too.
  app.fallthrough();
  std::string assist_path;
  std::string library_log;
  app.add_option("--assist", assist_path,
                 "Path of the assist library (default: the copy built with this tool, then the "
                 "loader's search for libvelkcamalgassist.so)");
  app.add_option("--library-log", library_log,
                 "Where the library's log lines go: a file, or '-' for stderr (default: dropped)");

  DemoOptions demo;
  CLI::App *demo_cmd = app.add_subcommand("demo", "Render the built-in scene and write pictures of each step");
  demo_cmd->add_option("--out", demo.out_dir, "Output directory")->capture_default_str();
  demo_cmd->add_option("--size", demo.size, "Frame size WxH")->capture_default_str();
  demo_cmd->add_option("--fnumber", demo.f_number, "F_number 1..20")->capture_default_str();
  demo_cmd->add_option("--ratio", demo.ratio,
                       "Also render with the reduced-resolution ratio property at this value: 2, 4, "
                       "6 or 8 (0 = no)")
      ->capture_default_str();
  demo_cmd->add_option("--comparison-width", demo.comparison_width,
                       "Downscale comparison.png to this width (0, or a width at or above the full "
                       "width: full size)")
      ->capture_default_str();

  RenderOptions render;
  CLI::App *render_cmd = app.add_subcommand("render", "Blur a frame or a sequence with a disparity map");
  render_cmd->add_option("--image", render.image,
                         "Required. Input: PNG, JPEG, .y4m, raw .yuv/.nv21/.nv12/.i420/.yv12 (with "
                         "--size), or a directory of images");
  render_cmd->add_option("--size", render.size, "Frame size WxH of raw input");
  render_cmd->add_option("--format", render.format,
                         "Layout of raw input: i420, yv12, nv12 or nv21 (default: the extension's, "
                         ".yuv = nv21)");
  render_cmd->add_option("--stride", render.stride,
                         "Raw input: bytes per luma row (>= width; chroma rows: stride for nv12/nv21, "
                         "stride/2 for i420/yv12; default: width)");
  render_cmd->add_option("--scanlines", render.scanlines,
                         "Raw input: rows of the luma plane (>= height, even; chroma planes start after "
                         "them and have scanlines/2 rows; default: height)");
  render_cmd->add_option("--out-stride", render.out_stride, "Raw output: bytes per luma row (default: width)");
  render_cmd->add_option("--out-scanlines", render.out_scanlines,
                         "Raw output: rows of the luma plane (default: height)");
  CLI::Option *range_opt = render_cmd->add_option("--range", render.range,
                         "YUV range of the RGB conversion of PNG/JPEG input and output: limited "
                         "(BT.601 16..235) or full (0..255)")
      ->capture_default_str();
  render_cmd->add_option("--disparity", render.disparity,
                         "Required. 8-bit disparity: PNG/JPEG, raw (with --disparity-size), a "
                         "disparity-frame file (68-byte header + samples), or a directory of maps");
  render_cmd->add_option("--disparity-size", render.disparity_size, "Size WxH of a raw disparity map");
  render_cmd->add_option("--focus", render.focus, "Focus point X,Y in frame pixels (default: centre)");
  CLI::Option *render_fnumber_opt =
      render_cmd->add_option("--fnumber", render.f_number, "F_number 1..20")->capture_default_str();
  CLI::Option *render_ratio_opt = render_cmd->add_option("--ratio", render.ratio,
                         "Reduced-resolution ratio property 1, 2, 4, 6 or 8 (default: environment)");
  render_cmd->add_option("--out", render.out,
                         "Required. Output: .png, .jpg, .y4m, raw .yuv/.nv21/.nv12/.i420/.yv12 (default "
                         "layout: the input's), or a directory for sequences");
  render_cmd->add_option("--weights-out", render.weights_out,
                         "Also write the weight maps: colour-mapped .png/.jpg (one frame), a directory "
                         "of PNGs named like the frames, or raw 16-bit little-endian .w16/.raw");
  AddDisparityHeaderOptions(render_cmd, &render.scale_num, &render.scale_den, &render.ref_width);
  render_cmd->add_option("--start", render.start, "First frame of a sequence to render (from 0)")
      ->capture_default_str();
  AddOptional(render_cmd, "--count", &render.count, "Frames to render (default: to the end)");
  render_cmd->add_option("--focus-track", render.focus_track,
                         "CSV file of frame,x,y[,F_number] lines: focus per frame of a sequence");
  render_cmd->add_option("--json", render.json, "Also write the timings as JSON to this file");
  CLI::Option *jpeg_quality_opt = render_cmd->add_option("--jpeg-quality", render.jpeg_quality, "Quality of .jpg outputs, 1..100")
      ->capture_default_str();
  render_cmd->add_flag("--fill-holes", render.fill_holes,
                       "Disparity samples of 0 are invalid: give them the nearest valid value of "
                       "their row, else of their column");
  render_cmd->add_flag("--force", render.force, "Overwrite existing output files (never an input)");

  ReplayOptions replay;
  CLI::App *replay_cmd = app.add_subcommand("replay", "Blur again the frames of the library's dumps");
  replay_cmd->add_option("dir", replay.dir, "Required. Directory of imagein/weightin/imageout dumps");
  replay_cmd->add_option("--fnumber", replay.f_number, "F_number 1..20")->capture_default_str();
  replay_cmd->add_option("--out", replay.out_dir, "Directory for the results (default: the dump directory)");
  replay_cmd->add_flag("--png", replay.png, "Also write each result as PNG");
  CLI::Option *replay_ratio_opt = replay_cmd->add_option("--ratio", replay.ratio,
                         "Reduced-resolution ratio property 1, 2, 4, 6 or 8 for the handle (default: "
                         "environment); a recording made with a ratio replays only with that ratio");
  replay_cmd->add_option("--diff-png", replay.diff_png,
                         "Directory for a grey picture per compared frame: |luma difference| x 16");
  replay_cmd->add_option("--json", replay.json, "Write per-frame timings and comparisons to this JSON file");
  replay_cmd->add_flag("--force", replay.force, "Overwrite existing results (never a dump)");

  BenchOptions bench;
  CLI::App *bench_cmd = app.add_subcommand("bench", "Per-frame timings of the weight engine and the blur");
  bench_cmd->add_option("--size", bench.size, "Frame size WxH")->capture_default_str();
  bench_cmd->add_option("--frames", bench.frames, "Timed frames")->capture_default_str();
  bench_cmd->add_option("--ratio", bench.ratio, "Reduced-resolution ratio property (0 = environment)");
  bench_cmd->add_option("--fnumber", bench.f_number, "F_number 1..20")->capture_default_str();
  bench_cmd->add_option("--json", bench.json, "Also write the timings as JSON to this file");
  bench_cmd->add_flag("--force", bench.force, "Overwrite an existing --json file");

  ViewOptions view;
  CLI::App *view_cmd = app.add_subcommand("view", "Serve an interactive page that renders through the library");
  view_cmd->add_option("--image", view.image, "Frames as for render (default: the demo scene)");
  view_cmd->add_option("--size", view.size, "Frame size WxH of raw input, or of the demo scene (default 1920x1080)");
  view_cmd->add_option("--format", view.format, "Chroma order of raw input: nv21 or nv12");
  view_cmd->add_option("--disparity", view.disparity, "Disparity map(s) as for render");
  view_cmd->add_option("--disparity-size", view.disparity_size, "Size WxH of a raw disparity map");
  AddDisparityHeaderOptions(view_cmd, &view.scale_num, &view.scale_den, &view.ref_width);
  view_cmd->add_option("--dumps", view.dumps, "Step through the library's imagein/weightin dumps of a directory");
  view_cmd->add_option("--focus", view.focus, "Initial focus point X,Y in frame pixels");
  view_cmd->add_option("--fnumber", view.f_number, "Initial F_number 1..20")->capture_default_str();
  view_cmd->add_option("--host", view.host, "Address to listen on")->capture_default_str();
  view_cmd->add_option("--port", view.port, "Port to listen on (0 = any free port)")->capture_default_str();
  view_cmd->add_flag("--open", view.open, "Start the desktop's browser on the page");

  // CLI11 reports an unknown subcommand only as a missing one; name it.
  bool has_subcommand = false, wants_help = false;
  for (int i = 1; i < argc && !has_subcommand; ++i) {
    const std::string arg = argv[i];
    if (arg == "--assist" || arg == "--library-log") {
      ++i;
      continue;
    }
    wants_help = wants_help || arg == "-h" || arg == "--help" || arg == "--version";
    if (arg.empty() || arg[0] == '-') continue;
    if (arg != "demo" && arg != "render" && arg != "replay" && arg != "bench" && arg != "view") {
      std::fprintf(stderr, "previewbokeh: unknown subcommand '%s' (use demo, render, replay, bench or view)\n",
                   arg.c_str());
      return kExitBadInput;
    }
    has_subcommand = true;
  }
  if (!has_subcommand && !wants_help) {
    std::fprintf(stderr, "previewbokeh: a subcommand is required: demo, render, replay, bench or view "
                         "(--help for more)\n");
    return kExitBadInput;
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help
    std::fprintf(stderr, "previewbokeh: %s\n", e.what());
    return kExitBadInput;
  }

  render.fnumber_given = render_fnumber_opt->count() > 0;
  render.jpeg_quality_given = jpeg_quality_opt->count() > 0;
  render.range_given = range_opt->count() > 0;
  const GlobalFiles global{assist_path, library_log};
  demo.global = render.global = replay.global = bench.global = view.global = global;

  int status = kExitOk;
  try {
    // "--ratio 0" would mean "not given": say so rather than take it silently.
    for (const CLI::Option *ratio : {render_ratio_opt, replay_ratio_opt}) {
      if (ratio->count() && ratio->as<int>() == 0) {
        throw InputError("--ratio: 0 is not one of 1, 2, 4, 6, 8 (leave --ratio out to use the "
                         "environment's ratio property)");
      }
    }
    // Each subcommand opens the log once its outputs are checked against its inputs.
    if (!assist_path.empty()) LoadAssist(assist_path);
    if (*demo_cmd) status = RunDemo(demo);
    if (*render_cmd) status = RunRender(render);
    if (*replay_cmd) status = RunReplay(replay);
    if (*bench_cmd) status = RunBench(bench);
    if (*view_cmd) status = RunView(view);
  } catch (const InputError &e) {
    std::fprintf(ToolErr(), "previewbokeh: %s\n", e.what());
    status = kExitBadInput;
  } catch (const LibraryError &e) {
    std::fprintf(ToolErr(), "previewbokeh: %s\n", e.what());
    status = kExitLibraryFailure;
  } catch (const std::exception &e) {
    std::fprintf(ToolErr(), "previewbokeh: internal error: %s\n", e.what());
    status = kExitLibraryFailure;
  }
  // A failed run leaves no empty log file behind.
  if (status != kExitOk) RemoveEmptyLibraryLog();
  return status;
}
