// The tool's subcommands. Each throws InputError (exit 2) for bad input and
// LibraryError (exit 1) when a library call fails.
#ifndef PREVIEWBOKEH_TOOL_COMMANDS_H_
#define PREVIEWBOKEH_TOOL_COMMANDS_H_

#include <string>

namespace pbtool {

// F_number used when none is given: blur level 18 (alpha 126 of 128), a
// typical preview aperture setting.
constexpr int kDefaultFNumber = 4;

struct DemoOptions {
  std::string out_dir = "previewbokeh-demo";
  std::string size = "1920x1080";
  int f_number = kDefaultFNumber;
  int ratio = 4;             // second rendering at this reduced ratio; 0 = none
  int comparison_width = 0;  // downscale comparison.png to this width; 0 = full size
};
int RunDemo(const DemoOptions &options);

struct RenderOptions {
  std::string image;           // PNG, JPEG, raw .yuv/.nv21/.nv12, or a directory of images
  std::string size;            // raw input only
  std::string format;          // raw input only: nv21 (default) or nv12
  std::string disparity;       // 8-bit PNG/JPEG, raw, disparity-frame file, or a directory
  std::string disparity_size;  // raw disparity only
  std::string focus;           // "X,Y"; default the frame centre
  int f_number = kDefaultFNumber;
  int ratio = 0;               // 0 = leave the property as the environment has it
  std::string out;             // .png, .jpg, .yuv/.nv21/.nv12, or a directory for sequences
  std::string weights_out;     // optional colour-mapped weight map (.png/.jpg)
  double scale_num = 0;        // 0 = default (see disparity.h)
  double scale_den = 0;
  int ref_width = 0;           // 0 = disparity width
};
int RunRender(const RenderOptions &options);

struct ReplayOptions {
  std::string dir;
  int f_number = kDefaultFNumber;
  std::string out_dir;  // default: dir
  bool png = false;     // also write each result as PNG
};
int RunReplay(const ReplayOptions &options);

struct BenchOptions {
  std::string size = "1920x1080";
  int frames = 50;
  int ratio = 0;
  int f_number = kDefaultFNumber;
};
int RunBench(const BenchOptions &options);

// Default port of view: fixed, so a bookmark keeps working.
constexpr int kDefaultViewPort = 8642;

struct ViewOptions {
  // Frames as for render (none: the demo scene; --size is then its size).
  std::string image, size, format, disparity, disparity_size;
  double scale_num = 0, scale_den = 0;
  int ref_width = 0;
  std::string dumps;  // a directory of recorded dumps instead
  std::string focus;  // where the page starts; default the centre (demo: the subject)
  int f_number = kDefaultFNumber;
  std::string host = "127.0.0.1";
  int port = kDefaultViewPort;  // 0 = any free port
  bool open = false;            // start the desktop's browser
};
int RunView(const ViewOptions &options);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_COMMANDS_H_
