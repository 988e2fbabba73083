// The tool's subcommands. Each throws InputError (exit 2) for bad input and
// LibraryError (exit 1) when a library call fails.
#ifndef PREVIEWBOKEH_TOOL_COMMANDS_H_
#define PREVIEWBOKEH_TOOL_COMMANDS_H_

#include <optional>
#include <string>

#include "image_io.h"
#include "output_plan.h"

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
  GlobalFiles global;        // --assist and --library-log
};
int RunDemo(const DemoOptions &options);

struct RenderOptions {
  std::string image;           // PNG, JPEG, .y4m, raw .yuv/.nv21/.nv12/.i420/.yv12, or a directory
  std::string size;            // raw input only
  std::string format;          // raw input only: i420, yv12, nv12 or nv21 (default: extension, else nv21)
  int stride = 0;              // raw input only: bytes per luma row; 0 = width
  int scanlines = 0;           // raw input only: rows of the luma plane; 0 = height
  int out_stride = 0;          // raw output only; 0 = width
  int out_scanlines = 0;       // raw output only; 0 = height
  std::string range = "limited";  // YUV range of PNG/JPEG input and output: limited or full
  std::string disparity;       // 8-bit PNG/JPEG, raw, disparity-frame file, or a directory
  std::string disparity_size;  // raw disparity only
  std::string focus;           // "X,Y"; default the frame centre
  int f_number = kDefaultFNumber;
  int ratio = 0;               // 0 = leave the property as the environment has it
  std::string out;             // .png, .jpg, .y4m, raw .yuv/.nv21/.nv12/.i420/.yv12, or a directory
  std::string weights_out;     // weight maps: .png/.jpg, .w16/.raw, or a directory for sequences
  std::optional<double> scale_num;  // absent: default (see disparity.h)
  std::optional<double> scale_den;
  std::optional<int> ref_width;     // absent: disparity width
  int start = 0;                    // first frame of a sequence to render
  std::optional<int> count;         // frames to render; absent: to the end
  std::string focus_track;          // CSV of frame,x,y[,F_number]
  std::string json;                 // timings as JSON
  int jpeg_quality = kDefaultJpegQuality;  // for .jpg outputs
  bool fill_holes = false;          // 0 disparity samples take the nearest valid value
  bool force = false;               // overwrite existing outputs (never inputs)
  bool fnumber_given = false;       // --fnumber given (else the default above)
  bool jpeg_quality_given = false;  // --jpeg-quality given
  bool range_given = false;         // --range given
  GlobalFiles global;               // --assist and --library-log, checked with the outputs
};
int RunRender(const RenderOptions &options);

struct ReplayOptions {
  std::string dir;
  int f_number = kDefaultFNumber;
  std::string out_dir;  // default: dir
  bool png = false;     // also write each result as PNG
  int ratio = 0;        // ratio property for the handle; 0 = leave the environment as it is
  std::string diff_png;  // directory for amplified luma difference pictures; "" = none
  std::string json;      // per-frame timings and comparisons as JSON; "" = none
  bool force = false;    // overwrite existing results (never a dump)
  GlobalFiles global;
};
int RunReplay(const ReplayOptions &options);

struct BenchOptions {
  std::string size = "1920x1080";
  int frames = 50;
  int ratio = 0;
  int f_number = kDefaultFNumber;
  std::string json;  // timings as JSON
  bool force = false;
  GlobalFiles global;
};
int RunBench(const BenchOptions &options);

// Default port of view: fixed, so a bookmark keeps working.
constexpr int kDefaultViewPort = 8642;

struct ViewOptions {
  // Frames as for render (none: the demo scene; --size is then its size).
  std::string image, size, format, disparity, disparity_size;
  std::optional<double> scale_num, scale_den;  // absent: default (see disparity.h)
  std::optional<int> ref_width;                // absent: disparity width
  std::string dumps;  // a directory of recorded dumps instead
  std::string focus;  // where the page starts; default the centre (demo: the subject)
  int f_number = kDefaultFNumber;
  std::string host = "127.0.0.1";
  int port = kDefaultViewPort;  // 0 = any free port
  bool open = false;            // start the desktop's browser
  GlobalFiles global;
};
int RunView(const ViewOptions &options);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_COMMANDS_H_
