// render: blurs one frame or a sequence with a given disparity map.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include "commands.h"
#include "console.h"
#include "errors.h"
#include "frame_sink.h"
#include "image_io.h"
#include "inputs.h"
#include "pipeline.h"
#include "visual.h"
#include "yuv.h"

namespace fs = std::filesystem;

namespace pbtool {

int RunRender(const RenderOptions &o) {
  if (o.image.empty()) throw InputError("--image: required");
  if (o.disparity.empty()) throw InputError("--disparity: required");
  if (o.out.empty()) throw InputError("--out: required");
  CheckFNumber(o.f_number, "--fnumber");
  CheckRatio(o.ratio, "--ratio");

  FrameInputOptions input;
  input.size = o.size;
  input.format = o.format;
  input.stride = o.stride;
  input.scanlines = o.scanlines;
  input.range = ParseColourRange(o.range, "--range");
  FrameSource source(o.image, input);
  const Size size = source.size();
  const bool sequence = source.is_sequence();
  const OutKind out_kind = ClassifyOut(o.out, sequence);

  DisparityOptions dopt{o.disparity, o.disparity_size, o.scale_num, o.scale_den, o.ref_width};
  std::vector<std::string> disparity_files;
  std::error_code ec;
  if (fs::is_directory(o.disparity, ec)) {
    disparity_files = ListImages(o.disparity, "--disparity");
    if (static_cast<int>(disparity_files.size()) != source.count()) {
      throw InputError("--disparity: '" + o.disparity + "' holds " +
                       std::to_string(disparity_files.size()) + " maps for " +
                       std::to_string(source.count()) + " frames");
    }
  } else {
    disparity_files.push_back(o.disparity);
  }
  DisparityMap disparity = LoadDisparity(disparity_files[0], dopt);
  CheckDisparityFits(disparity, size, disparity_files[0]);
  const Size dsize{disparity.samples.width, disparity.samples.height};

  Point focus{size.width / 2, size.height / 2};
  if (!o.focus.empty()) {
    focus = ParsePoint(o.focus, "--focus");
    if (focus.x >= size.width || focus.y >= size.height) {
      throw InputError("--focus: " + o.focus + " is outside the " + ToString(size) + " frame");
    }
  }

  FrameSinkOptions sink_options;
  sink_options.input_format = source.format();
  sink_options.stride = o.out_stride;
  sink_options.scanlines = o.out_scanlines;
  sink_options.range = input.range;
  sink_options.y4m = source.y4m_header();
  FrameSink sink(o.out, out_kind, sink_options);
  WeightEngine engine(size, dsize);
  BokehRenderer renderer(size, o.ratio);
  std::vector<double> weight_ms, blur_ms;
  std::vector<uint16_t> weights;
  std::vector<uint8_t> disparity_frame = BuildDisparityFrame(disparity);
  Progress progress("render", source.count());
  const double start = NowMs();
  for (int i = 0; i < source.count(); ++i) {
    const YuvFrame frame = source.Read(i);
    if (i > 0 && disparity_files.size() > 1) {
      disparity = LoadDisparity(disparity_files[static_cast<size_t>(i)], dopt);
      if (disparity.samples.width != dsize.width || disparity.samples.height != dsize.height) {
        throw InputError(disparity_files[static_cast<size_t>(i)] + ": disparity size " +
                         std::to_string(disparity.samples.width) + "x" +
                         std::to_string(disparity.samples.height) +
                         " does not match the first map's " + ToString(dsize));
      }
      disparity_frame = BuildDisparityFrame(disparity);
    }
    double t = NowMs();
    engine.Compute(disparity_frame, o.f_number, focus, &weights);
    weight_ms.push_back(NowMs() - t);
    if (i == 0 && !o.weights_out.empty()) WriteImage(o.weights_out, ColourMapWeights(weights.data(), size));
    YuvFrame out;
    BokehRenderer::Timing timing;
    renderer.Render(frame, weights, o.f_number, focus, &out, &timing);
    blur_ms.push_back(timing.set_weights_ms + timing.blur_ms);
    sink.Write(out, source.Name(i));
    progress.Update(i + 1);
  }
  sink.Finish();
  progress.Finish();
  const double total = NowMs() - start;
  if (sequence) {
    std::printf("%d frames %s -> %s in %.1f ms: %.2f frames per second\n", source.count(),
                ToString(size).c_str(), o.out.c_str(), total, source.count() * 1000.0 / total);
    std::printf("%s\n%s\n", FormatStats("weights", Summarise(weight_ms)).c_str(),
                FormatStats("blur", Summarise(blur_ms)).c_str());
  } else {
    std::printf("%s -> %s (%s, disparity %s, focus %d,%d, F_number %d): weights %.3f ms, blur %.3f ms\n",
                o.image.c_str(), o.out.c_str(), ToString(size).c_str(), ToString(dsize).c_str(),
                focus.x, focus.y, o.f_number, weight_ms[0], blur_ms[0]);
  }
  return kExitOk;
}

}  // namespace pbtool
