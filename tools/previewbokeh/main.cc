// previewbokeh: command-line front end of the preview bokeh library.
#include <cstdio>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "console.h"
#include "errors.h"
#include "pipeline.h"

using namespace pbtool;

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
                       "Also render with the reduced-resolution ratio property at this value (0 = no)")
      ->capture_default_str();
  demo_cmd->add_option("--comparison-width", demo.comparison_width,
                       "Downscale comparison.png to this width (0 = full size)")
      ->capture_default_str();

  RenderOptions render;
  CLI::App *render_cmd = app.add_subcommand("render", "Blur a frame or a sequence with a disparity map");
  render_cmd->add_option("--image", render.image,
                         "Input: PNG, JPEG, raw .yuv/.nv21/.nv12 (with --size), or a directory of images")
      ->required();
  render_cmd->add_option("--size", render.size, "Frame size WxH of raw input");
  render_cmd->add_option("--format", render.format, "Chroma order of raw input: nv21 or nv12");
  render_cmd->add_option("--disparity", render.disparity,
                         "8-bit disparity: PNG/JPEG, raw (with --disparity-size), a disparity-frame "
                         "file (68-byte header + samples), or a directory of maps")
      ->required();
  render_cmd->add_option("--disparity-size", render.disparity_size, "Size WxH of a raw disparity map");
  render_cmd->add_option("--focus", render.focus, "Focus point X,Y in frame pixels (default: centre)");
  render_cmd->add_option("--fnumber", render.f_number, "F_number 1..20")->capture_default_str();
  render_cmd->add_option("--ratio", render.ratio,
                         "Reduced-resolution ratio property 1, 2, 4, 6 or 8 (default: environment)");
  render_cmd->add_option("--out", render.out,
                         "Output: .png, .jpg, .yuv/.nv21/.nv12, or a directory for sequences")
      ->required();
  render_cmd->add_option("--weights-out", render.weights_out, "Also write the first weight map, colour-mapped");
  render_cmd->add_option("--scale-num", render.scale_num,
                         "Disparity header: scale numerator (default 2000)");
  render_cmd->add_option("--scale-den", render.scale_den,
                         "Disparity header: scale denominator (default 0.5)");
  render_cmd->add_option("--ref-width", render.ref_width,
                         "Disparity header: reference width (default: the map's width)");

  ReplayOptions replay;
  CLI::App *replay_cmd = app.add_subcommand("replay", "Blur again the frames of the library's dumps");
  replay_cmd->add_option("dir", replay.dir, "Directory of imagein/weightin/imageout dumps")->required();
  replay_cmd->add_option("--fnumber", replay.f_number, "F_number 1..20")->capture_default_str();
  replay_cmd->add_option("--out", replay.out_dir, "Directory for the results (default: the dump directory)");
  replay_cmd->add_flag("--png", replay.png, "Also write each result as PNG");

  BenchOptions bench;
  CLI::App *bench_cmd = app.add_subcommand("bench", "Per-frame timings of the weight engine and the blur");
  bench_cmd->add_option("--size", bench.size, "Frame size WxH")->capture_default_str();
  bench_cmd->add_option("--frames", bench.frames, "Timed frames")->capture_default_str();
  bench_cmd->add_option("--ratio", bench.ratio, "Reduced-resolution ratio property (0 = environment)");
  bench_cmd->add_option("--fnumber", bench.f_number, "F_number 1..20")->capture_default_str();

  ViewOptions view;
  CLI::App *view_cmd = app.add_subcommand("view", "Serve an interactive page that renders through the library");
  view_cmd->add_option("--image", view.image, "Frames as for render (default: the demo scene)");
  view_cmd->add_option("--size", view.size, "Frame size WxH of raw input, or of the demo scene (default 1920x1080)");
  view_cmd->add_option("--format", view.format, "Chroma order of raw input: nv21 or nv12");
  view_cmd->add_option("--disparity", view.disparity, "Disparity map(s) as for render");
  view_cmd->add_option("--disparity-size", view.disparity_size, "Size WxH of a raw disparity map");
  view_cmd->add_option("--scale-num", view.scale_num, "Disparity header: scale numerator (default 2000)");
  view_cmd->add_option("--scale-den", view.scale_den, "Disparity header: scale denominator (default 0.5)");
  view_cmd->add_option("--ref-width", view.ref_width, "Disparity header: reference width (default: the map's width)");
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

  try {
    RedirectLibraryLog(library_log);
    if (!assist_path.empty()) LoadAssist(assist_path);
    if (*demo_cmd) return RunDemo(demo);
    if (*render_cmd) return RunRender(render);
    if (*replay_cmd) return RunReplay(replay);
    if (*bench_cmd) return RunBench(bench);
    if (*view_cmd) return RunView(view);
  } catch (const InputError &e) {
    std::fprintf(ToolErr(), "previewbokeh: %s\n", e.what());
    return kExitBadInput;
  } catch (const LibraryError &e) {
    std::fprintf(ToolErr(), "previewbokeh: %s\n", e.what());
    return kExitLibraryFailure;
  } catch (const std::exception &e) {
    std::fprintf(ToolErr(), "previewbokeh: internal error: %s\n", e.what());
    return kExitLibraryFailure;
  }
  return kExitOk;
}
