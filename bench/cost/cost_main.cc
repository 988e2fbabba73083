// Workload for counting AArch64 instructions under qemu-aarch64 with
// bench/cost/insn_count_plugin.c. One run: set up one case, then call it
// `iterations` times. Set-up is excluded by the caller, which runs the same
// case with two iteration counts and divides the difference of the counts
// (bench/cost/run_cost.sh).
//
//   previewbokeh_cost [--scalar] CASE ITERATIONS
//   previewbokeh_cost --list
//
// Cases:
//   iBokehBlurImage              1920x1080 frame through the public interface,
//                                ratio from PERSIST_VENDOR_CAM_PREBOKEH_RATIO
//   weight_async_process/WxH     1920x1080 weight map from a WxH disparity frame
//   <family>.<kernel>            one kernel of the kernel table over a whole
//                                1080p plane (luma 1920x1080, chroma 1920x540)
//
// --scalar uses the scalar kernel table instead of the vector one. The run
// prints "<case> <output units per call> <unit>" on stdout and fails (status 1)
// when a call fails or the case is unknown.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "blur/smooth.h"
#include "host_assist_client.h"
#include "init_log.h"
#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "previewbokeh/weight.h"
#include "simd/kernel_table.h"

namespace {

constexpr int32_t kWidth = 1920;
constexpr int32_t kHeight = 1080;
constexpr int32_t kRadius = 5;
constexpr uint8_t kAlpha = 128;
constexpr int32_t kFNumber = 4;
// The blur's 11-tap Gaussian in 1/1024.
const uint16_t kGaussian[] = {50, 70, 91, 110, 123, 128, 123, 110, 91, 70, 50};

[[noreturn]] void Fail(const std::string &what) {
  std::fprintf(stdout, "error: %s\n", what.c_str());
  std::fflush(stdout);
  std::exit(1);
}

// A camera-like plane: gradients plus noise.
std::vector<uint8_t> Picture(size_t n, int32_t stride, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) {
    v[i] = static_cast<uint8_t>((i / 5 + (i / static_cast<size_t>(stride)) / 3 + rng() % 32) & 255);
  }
  return v;
}

// A depth-like weight map of width x height, 0..1024: a sharp region around
// the centre, a ramp, a fully blurred background, with a smooth random
// variation (a coarse random grid, bilinearly interpolated) on top.
std::vector<uint16_t> WeightMap(int32_t width, int32_t height) {
  constexpr int kGrid = 16;
  std::mt19937 rng(11);
  int32_t grid[kGrid + 1][kGrid + 1];
  for (auto &row : grid) {
    for (auto &g : row) g = static_cast<int32_t>(rng() % 257) - 128;
  }
  std::vector<uint16_t> w(static_cast<size_t>(width) * height);
  for (int32_t y = 0; y < height; ++y) {
    const int32_t gy = y * kGrid / height, fy = y * kGrid % height;
    for (int32_t x = 0; x < width; ++x) {
      const int32_t gx = x * kGrid / width, fx = x * kGrid % width;
      const int64_t top = int64_t(grid[gy][gx]) * (width - fx) + int64_t(grid[gy][gx + 1]) * fx;
      const int64_t bottom =
          int64_t(grid[gy + 1][gx]) * (width - fx) + int64_t(grid[gy + 1][gx + 1]) * fx;
      const int64_t noise = (top * (height - fy) + bottom * fy) / (int64_t(width) * height);
      const int64_t d = std::abs(x - width / 2) + std::abs(y - height / 2);
      const int64_t v = (d - 300) * 2 + noise;
      w[static_cast<size_t>(y) * width + x] = static_cast<uint16_t>(std::clamp<int64_t>(v, 0, 1024));
    }
  }
  return w;
}

// A set-up case: the call to repeat, the output units of one call and their name.
struct Case {
  std::function<void()> call;
  double units;
  const char *unit;
};

// ---------------------------------------------------------------------------
// Whole frames through the public interface.

Case FrameCase() {
  struct State {
    void *handle = nullptr;
    void *src = nullptr;
    void *dst = nullptr;
    std::vector<uint16_t> weights;
    BokehFrameParams frame{};
  };
  static State s;  // lives until exit, like a camera session
  const auto &assist = pbassist::Assist();
  const uint32_t bytes = kWidth * kHeight * 3 / 2;
  s.src = assist.create(kWidth, kHeight, bytes);
  s.dst = assist.create(kWidth, kHeight, bytes);
  if (!s.src || !s.dst) Fail("GraphicBuffer_new failed");
  const std::vector<uint8_t> picture = Picture(bytes, kWidth, 7);
  std::memcpy(assist.pointer(s.src), picture.data(), bytes);
  s.weights = WeightMap(kWidth, kHeight);

  BokehInitParams init{};
  init.width = kWidth;
  init.height = kHeight;
  pb::hooks::StartLogCapture();
  const int status = iBokehInit(&s.handle, &init);
  const int ratio = pbbench::RatioFromInitLog(pb::hooks::StopLogCapture());
  if (status != 0) Fail("iBokehInit failed");
  const char *wanted = std::getenv("PERSIST_VENDOR_CAM_PREBOKEH_RATIO");
  if (wanted && *wanted && ratio != std::atoi(wanted)) {
    Fail(std::string("ratio ") + wanted + " requested, " + std::to_string(ratio) + " in use");
  }
  s.frame.F_number = kFNumber;
  s.frame.sel_x = kWidth / 2;
  s.frame.sel_y = kHeight / 2;
  s.frame.WeightMap = s.weights.data();
  if (iBokehCreateWeightMap(s.handle, &s.frame) != 0) Fail("iBokehCreateWeightMap failed");
  return {[] {
            if (iBokehBlurImage(s.handle, s.src, s.dst) != 0) Fail("iBokehBlurImage failed");
          },
          double(bytes), "frame byte"};
}

// ---------------------------------------------------------------------------
// The depth-weight engine through the public interface.

std::vector<uint8_t> DisparityFrame(int32_t width, int32_t height) {
  std::vector<uint8_t> f(DISPARITY_FRAME_HEADER_BYTES + static_cast<size_t>(width) * height);
  const int32_t num = 640 << 19, den = 1 << 19;
  const uint16_t ref = 640, w = static_cast<uint16_t>(width), h = static_cast<uint16_t>(height);
  std::memcpy(&f[offsetof(::DisparityFrame, ScaleNumeratorQ19)], &num, 4);
  std::memcpy(&f[offsetof(::DisparityFrame, ScaleDenominatorQ19)], &den, 4);
  std::memcpy(&f[offsetof(::DisparityFrame, RefWidth)], &ref, 2);
  std::memcpy(&f[offsetof(::DisparityFrame, DisparityWidth)], &w, 2);
  std::memcpy(&f[offsetof(::DisparityFrame, DisparityHeight)], &h, 2);
  // A depth ramp with noise: a plausible scene spread over the in-focus band.
  std::mt19937 rng(5);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      f[DISPARITY_FRAME_HEADER_BYTES + static_cast<size_t>(y) * width + x] =
          static_cast<uint8_t>(16 + (x * 40) / width + (y * 20) / height + rng() % 4);
    }
  }
  return f;
}

Case WeightCase(int32_t dw, int32_t dh) {
  struct State {
    WeightContext ctx{};
    std::vector<uint8_t> frame;
    std::vector<uint16_t> out;
    WeightProcessParams params{};
  };
  static State s;
  WeightInitParams init{kWidth, kHeight, dw, dh, 0, 0, 0, 11};
  if (weight_init(&init, &s.ctx) != 0) Fail("weight_init failed");
  s.frame = DisparityFrame(dw, dh);
  s.out.resize(static_cast<size_t>(kWidth) * kHeight);
  s.params.F_number = kFNumber;
  s.params.sel_x = kWidth / 2;
  s.params.sel_y = kHeight / 2;
  s.params.frame = reinterpret_cast<const ::DisparityFrame *>(s.frame.data());
  return {[] {
            if (weight_async_process(&s.params, &s.ctx, s.out.data()) != 0) {
              Fail("weight_async_process failed");
            }
          },
          double(kWidth) * kHeight, "weight"};
}

// ---------------------------------------------------------------------------
// Kernels of the table, one call over a whole plane.

// Buffers of one plane: luma 1920x1080, chroma 1920 bytes x 540 rows, reduced
// by `ratio` (1 = full resolution) for the working plane.
struct Plane {
  int32_t width, height, low_width, low_height;
  std::vector<uint8_t> src, low, smoothed, dst, padded, intermediate, xinterp;
  std::vector<uint16_t> weights;
  Plane(bool chroma, int ratio)
      : width(kWidth),
        height(chroma ? kHeight / 2 : kHeight),
        low_width(kWidth / ratio),
        low_height(height / ratio),
        src(Picture(size_t(width) * height, width, 1)),
        low(Picture(size_t(low_width) * low_height, low_width, 2)),
        smoothed(size_t(low_width) * low_height),
        dst(size_t(width) * height),
        padded(chroma ? pb::SmoothChromaPaddedBytes(low_width, low_height, kRadius)
                      : pb::SmoothLumaPaddedBytes(low_width, low_height, kRadius)),
        intermediate(pb::SmoothIntermediateBytes(low_width, low_height, kRadius)),
        xinterp(size_t(low_width) * height),
        weights(WeightMap(kWidth, kHeight)) {}
};

Plane &NewPlane(bool chroma, int ratio) {
  static std::vector<std::unique_ptr<Plane>> planes;
  planes.push_back(std::make_unique<Plane>(chroma, ratio));
  return *planes.back();
}

Case SmoothCase(pb::SmoothFn fn, bool chroma) {
  Plane &p = NewPlane(chroma, 1);
  return {[fn, &p] {
            fn(p.src.data(), p.padded.data(), p.smoothed.data(), p.width, p.height, kGaussian,
               kRadius, kRadius, p.intermediate.data(), 0, p.height - 1);
          },
          double(p.smoothed.size()), "output byte"};
}

Case SmoothComposeCase(pb::SmoothComposeFn fn, bool chroma) {
  Plane &p = NewPlane(chroma, 1);
  return {[fn, &p] {
            fn(p.src.data(), p.padded.data(), p.smoothed.data(), p.width, p.height, kGaussian,
               kRadius, kRadius, p.intermediate.data(), 0, p.height - 1, p.weights.data(), kAlpha,
               p.dst.data());
          },
          double(p.dst.size()), "output byte"};
}

// Composite (ratio 1) or upscale and composite (reduced ratios).
Case ComposeCase(pb::ComposeKernel fn, bool chroma, int ratio) {
  Plane &p = NewPlane(chroma, ratio);
  return {[fn, &p] {
            fn(p.src.data(), p.width, p.height, p.low_width, p.low_height, p.weights.data(),
               p.low.data(), p.dst.data(), 0, p.height - 1, kAlpha);
          },
          double(p.dst.size()), "output byte"};
}

Case DownscaleCase(pb::DownscaleKernel fn, bool chroma, int ratio) {
  Plane &p = NewPlane(chroma, ratio);
  return {[fn, &p] {
            fn(p.src.data(), p.low.data(), p.xinterp.data(), p.width, p.height, p.low_width,
               p.low_height, 0, p.low_height - 1);
          },
          double(p.src.size()), "input byte"};
}

Case ComputeWeightsCase(pb::ComputeWeightsFn fn) {
  struct State {
    std::vector<uint8_t> src;
    std::vector<uint16_t> out;
  };
  static State s;
  s.src.resize(480 * 270);
  std::mt19937 rng(3);
  for (auto &v : s.src) v = static_cast<uint8_t>(60 + rng() % 80);
  s.out.resize(size_t(kWidth) * kHeight);
  return {[fn] {
            fn(kWidth, kHeight, kWidth / 2, kHeight / 2, 0, kHeight - 1, s.out.data(), 480, 270,
               50, 128, s.src.data());
          },
          double(s.out.size()), "weight"};
}

Case MinMaxCase(pb::MinMaxFn fn) {
  static std::vector<uint8_t> src;
  src = Picture(size_t(kWidth) * kHeight, kWidth, 9);
  return {[fn] {
            uint8_t lo = 0, hi = 0;
            fn(src.data(), static_cast<int32_t>(src.size()), &lo, &hi);
            if (lo > hi) Fail("min above max");
          },
          double(src.size()), "input byte"};
}

Case ApplyRangeCase(pb::ApplyRangeFn fn) {
  static std::vector<uint8_t> src, out;
  static uint8_t table[256];
  src = Picture(size_t(kWidth) * kHeight, kWidth, 10);
  out.assign(src.size(), 0);
  for (int v = 0; v < 256; ++v) table[v] = static_cast<uint8_t>(255 - v);
  return {[fn] {
            fn(src.data(), out.data(), static_cast<int32_t>(src.size()), table);
            if (out[0] != 255 - src[0]) Fail("range table not applied");
          },
          double(src.size()), "input byte"};
}

// Every kernel case by name, with a factory that sets it up from `table`.
struct KernelCase {
  std::string name;
  std::function<Case(const pb::KernelTable &)> make;
};

std::vector<KernelCase> KernelCases() {
  using T = pb::KernelTable;
  std::vector<KernelCase> cases = {
      {"smooth.luma", [](const T &t) { return SmoothCase(t.smooth.luma, false); }},
      {"smooth.chroma", [](const T &t) { return SmoothCase(t.smooth.chroma, true); }},
      {"smooth_compose.luma",
       [](const T &t) { return SmoothComposeCase(t.smooth_compose.luma, false); }},
      {"smooth_compose.chroma",
       [](const T &t) { return SmoothComposeCase(t.smooth_compose.chroma, true); }},
      {"compose.luma", [](const T &t) { return ComposeCase(t.compose.luma, false, 1); }},
      {"compose.chroma", [](const T &t) { return ComposeCase(t.compose.chroma, true, 1); }},
  };
  for (int i = 0; i < pb::kReducedRatioCount; ++i) {
    const int r = pb::kReducedRatios[i];
    const std::string prefix = "reduced" + std::to_string(r) + ".";
    cases.push_back({prefix + "downscale_luma", [i, r](const T &t) {
                       return DownscaleCase(t.reduced[i].downscale_luma, false, r);
                     }});
    cases.push_back({prefix + "downscale_chroma", [i, r](const T &t) {
                       return DownscaleCase(t.reduced[i].downscale_chroma, true, r);
                     }});
    cases.push_back({prefix + "compose_luma", [i, r](const T &t) {
                       return ComposeCase(t.reduced[i].compose_luma, false, r);
                     }});
    cases.push_back({prefix + "compose_chroma", [i, r](const T &t) {
                       return ComposeCase(t.reduced[i].compose_chroma, true, r);
                     }});
  }
  cases.push_back({"weight.compute", [](const T &t) { return ComputeWeightsCase(t.weight.compute); }});
  cases.push_back({"disparity.min_max", [](const T &t) { return MinMaxCase(t.disparity.min_max); }});
  cases.push_back(
      {"disparity.apply_range", [](const T &t) { return ApplyRangeCase(t.disparity.apply_range); }});
  return cases;
}

const char *const kApiCases[] = {"iBokehBlurImage", "weight_async_process/480x270",
                                 "weight_async_process/960x540"};

Case MakeCase(const std::string &name, bool scalar) {
  if (name == "iBokehBlurImage") return FrameCase();
  int32_t dw = 0, dh = 0;
  char tail = 0;
  if (std::sscanf(name.c_str(), "weight_async_process/%dx%d%c", &dw, &dh, &tail) == 2 && dw > 0 &&
      dh > 0) {
    return WeightCase(dw, dh);
  }
  const pb::KernelTable &table = scalar ? pb::ScalarKernelTable() : pb::VectorKernelTable();
  for (const auto &k : KernelCases()) {
    if (k.name == name) return k.make(table);
  }
  Fail("unknown case '" + name + "' (--list lists them)");
}

}  // namespace

int main(int argc, char **argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() == 1 && args[0] == "--list") {
    for (const char *c : kApiCases) std::printf("%s\n", c);
    for (const auto &k : KernelCases()) std::printf("%s\n", k.name.c_str());
    return 0;
  }
  bool scalar = false;
  if (!args.empty() && args[0] == "--scalar") {
    scalar = true;
    args.erase(args.begin());
  }
  char *end = nullptr;
  const long iterations = args.size() == 2 ? std::strtol(args[1].c_str(), &end, 10) : -1;
  if (args.size() != 2 || *end != 0 || iterations < 0) {
    std::fprintf(stderr, "usage: %s [--scalar] CASE ITERATIONS | --list\n", argv[0]);
    return 2;
  }
  pb::UseScalarKernels(scalar);
  if (scalar != pb::ScalarKernelsInUse()) Fail("vector kernels are not built");
  const Case c = MakeCase(args[0], scalar);
  for (long i = 0; i < iterations; ++i) c.call();
  std::printf("%s %.0f %s\n", args[0].c_str(), c.units, c.unit);
  return 0;
}
