// replay: blurs again the frames that the library's dumps recorded and
// compares with the recorded output.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "commands.h"
#include "console.h"
#include "dumps.h"
#include "errors.h"
#include "image_io.h"
#include "pipeline.h"
#include "yuv.h"

namespace fs = std::filesystem;

namespace pbtool {
namespace {

std::vector<uint8_t> ReadDump(const std::string &path, size_t expected) {
  std::vector<uint8_t> bytes = ReadFileBytes(path);
  if (bytes.size() != expected) {
    throw InputError(path + ": " + std::to_string(bytes.size()) + " bytes, expected " +
                     std::to_string(expected) + " for its size");
  }
  return bytes;
}

}  // namespace

int RunReplay(const ReplayOptions &o) {
  CheckFNumber(o.f_number, "--fnumber");
  const auto sets = FindDumps(o.dir);
  std::vector<const DumpSet *> frames;
  for (const auto &entry : sets) {
    const DumpSet &set = entry.second;
    if (set.imagein.empty() || set.weightin.empty()) continue;
    CheckFrameSize(set.size, set.imagein);
    frames.push_back(&set);
  }
  if (frames.empty()) {
    throw InputError(o.dir + ": no pair of imagein_<W>x<H>_<stamp>.img and weightin dumps");
  }
  const std::string out_dir = o.out_dir.empty() ? o.dir : o.out_dir;
  std::error_code ec;
  fs::create_directories(out_dir, ec);
  if (ec || !fs::is_directory(out_dir)) throw InputError("--out: cannot create directory '" + out_dir + "'");

  // Replaying must not overwrite the dumps it reads.
  unsetenv("PERSIST_VENDOR_CAM_PREBOKEH_SAVE");

  std::unique_ptr<BokehRenderer> renderer;
  Size renderer_size;
  int identical = 0, differing = 0, unchecked = 0;
  for (size_t i = 0; i < frames.size(); ++i) {
    const DumpSet &set = *frames[i];
    const size_t pixels = static_cast<size_t>(set.size.width) * set.size.height;
    YuvFrame input(set.size);
    input.data = ReadDump(set.imagein, YuvFrame::FrameBytes(set.size));
    const std::vector<uint8_t> weight_bytes = ReadDump(set.weightin, pixels * 2);
    std::vector<uint16_t> weights(pixels);
    for (size_t k = 0; k < pixels; ++k) {
      weights[k] = static_cast<uint16_t>(weight_bytes[2 * k] | weight_bytes[2 * k + 1] << 8);
    }
    if (!renderer || renderer_size != set.size) {
      renderer.reset();
      renderer = std::make_unique<BokehRenderer>(set.size, 0);
      renderer_size = set.size;
    }
    YuvFrame output;
    BokehRenderer::Timing timing;
    renderer->Render(input, weights, o.f_number, Point{0, 0}, &output, &timing);
    const std::string base = "replayout_" + ToString(set.size) + "_" + set.stamp;
    WriteFileBytes((fs::path(out_dir) / (base + ".img")).string(), output.data.data(), output.data.size());
    if (o.png) WritePng((fs::path(out_dir) / (base + ".png")).string(), YuvToRgb(output, YuvFormat::kNV21));

    std::string verdict;
    if (set.imageout.empty()) {
      verdict = "no imageout to compare";
      ++unchecked;
    } else {
      const std::vector<uint8_t> recorded = ReadDump(set.imageout, output.data.size());
      size_t diff = 0;
      for (size_t k = 0; k < recorded.size(); ++k) diff += recorded[k] != output.data[k];
      if (diff == 0) {
        verdict = "identical";
        ++identical;
      } else {
        verdict = std::to_string(diff) + " of " + std::to_string(recorded.size()) + " bytes differ";
        ++differing;
      }
    }
    std::printf("%s %s: blur %.3f ms, %s\n", ToString(set.size).c_str(),
                set.stamp.empty() ? "(no stamp)" : set.stamp.c_str(), timing.blur_ms, verdict.c_str());
  }
  std::printf("%zu frames replayed with F_number %d: %d identical, %d differ, %d without imageout\n",
              frames.size(), o.f_number, identical, differing, unchecked);
  return kExitOk;
}

}  // namespace pbtool
