// Differential fuzzer of the image kernels: each vector kernel is called with
// arguments inside its contract (sizes, row ranges, taps, weights, alpha all
// taken from the input) next to its scalar reference on identical inputs, and
// any differing output byte aborts. Scratch buffers start with different
// garbage for the two, so a kernel that reads scratch it did not write shows
// up as a difference too.
//
// Covered: every entry of the kernel table against the same entry of the
// scalar table: the luma and chroma smoothing, the fused smoothing and
// composite, the full-resolution composites, for every reduced ratio the
// downscale and upscale-composite kernels of both planes, the weight map, the
// disparity minimum/maximum and the range-table application.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "blur/smooth.h"
#include "fuzz_support.h"
#include "platform/test_hooks.h"
#include "scale/compose.h"
#include "scale/downscale.h"
#include "simd/kernel_table.h"
#include "weight/disparity_stats.h"
#include "weight/range_table.h"
#include "weight/weight_map.h"

namespace {

using pbfuzz::Fail;
using pbfuzz::FirstDifference;
using pbfuzz::Input;

constexpr uint16_t kGaussian11[11] = {50, 70, 91, 110, 123, 128, 123, 110, 91, 70, 50};

std::vector<uint8_t> Bytes(Input &in, size_t n) {
  std::vector<uint8_t> v(n);
  in.Fill(v.data(), n);
  return v;
}

// Garbage that differs between the two runs: v ^ salt.
std::vector<uint8_t> Garbage(size_t n, uint8_t salt) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>((i * 131u) ^ salt);
  return v;
}

// Mostly small widths (every vector tail length up to 72 bytes), now and then
// frame-sized ones (up to about 2100 bytes; rare, they cost 100 small cases).
int32_t Width(Input &in, int32_t multiple) {
  const bool large = in.Range(0, 63) == 0;
  const int32_t max_units = (large ? 2100 : 72) / multiple;
  return in.Range(1, max_units > 0 ? max_units : 1) * multiple;
}

// Weights: mostly the documented 0..1024, sometimes any 16-bit value.
std::vector<uint16_t> Weights(Input &in, size_t n) {
  std::vector<uint16_t> w(n);
  std::vector<uint8_t> raw = Bytes(in, 2 * n);
  const bool any = in.Range(0, 3) == 0;
  for (size_t i = 0; i < n; ++i) {
    const uint16_t v = static_cast<uint16_t>(raw[2 * i] | (raw[2 * i + 1] << 8));
    w[i] = any ? v : static_cast<uint16_t>(v % 1025u);
  }
  return w;
}

// Taps of a (2h + 1)-long kernel.
std::vector<uint16_t> Taps(Input &in, int32_t *radius) {
  const int mode = in.Range(0, 5);
  if (mode <= 2) {
    *radius = 5;
    return std::vector<uint16_t>(kGaussian11, kGaussian11 + 11);
  }
  const int32_t h = in.Range(0, 9);
  *radius = h;
  const size_t n = static_cast<size_t>(2 * h + 1);
  std::vector<uint16_t> taps(n);
  if (mode == 3) {  // uniform, as the depth weights use
    for (auto &t : taps) t = static_cast<uint16_t>(1024 / n);
  } else if (mode == 4) {  // random, summing to at most 1024
    uint32_t left = 1024;
    for (auto &t : taps) {
      t = static_cast<uint16_t>(in.Range(0, static_cast<int32_t>(left)) / 2);
      left -= t;
    }
  } else {  // any taps: the horizontal pass may then exceed 8 bits
    for (auto &t : taps) t = in.U16();
  }
  return taps;
}

void CheckSame(const char *what, const std::vector<uint8_t> &a, const std::vector<uint8_t> &b,
               long width) {
  const long d = FirstDifference(a.data(), b.data(), a.size());
  if (d >= 0) Fail(what, d / width, d % width, static_cast<long>(a[d]) << 8 | b[d]);
}

const pb::KernelTable &Scalar() { return pb::ScalarKernelTable(); }
const pb::KernelTable &Vector() { return pb::VectorKernelTable(); }

// A plane, taps and a row range for a smoothing call, with its scratch sizes.
struct SmoothArgs {
  int32_t width, height, h, first, last;
  std::vector<uint16_t> taps;
  size_t padded_bytes, inter_bytes;
};

SmoothArgs DrawSmoothArgs(Input &in, bool chroma) {
  SmoothArgs a{};
  a.width = Width(in, chroma ? 2 : 1);
  a.height = a.width > 200 ? in.Range(1, 4) : in.Range(1, 12);
  a.taps = Taps(in, &a.h);
  a.first = in.Range(0, a.height - 1);
  a.last = in.Range(a.first, a.height - 1);
  a.padded_bytes = chroma ? pb::SmoothChromaPaddedBytes(a.width, a.height, a.h)
                          : pb::SmoothLumaPaddedBytes(a.width, a.height, a.h);
  a.inter_bytes = pb::SmoothIntermediateBytes(a.width, a.height, a.h);
  return a;
}

void FuzzSmooth(Input &in, bool chroma) {
  const SmoothArgs a = DrawSmoothArgs(in, chroma);
  const int32_t width = a.width, height = a.height, h = a.h, first = a.first, last = a.last;
  const std::vector<uint16_t> &taps = a.taps;
  const size_t padded_bytes = a.padded_bytes, inter_bytes = a.inter_bytes;
  const auto input = Bytes(in, static_cast<size_t>(width) * height);
  const auto before = Bytes(in, input.size());
  auto out_c = before, out_v = before;
  auto pad_c = Garbage(padded_bytes, 0x00), pad_v = Garbage(padded_bytes, 0xa5);
  auto int_c = Garbage(inter_bytes, 0x3c), int_v = Garbage(inter_bytes, 0xc3);
  const pb::SmoothFn c = chroma ? Scalar().smooth.chroma : Scalar().smooth.luma;
  const pb::SmoothFn v = chroma ? Vector().smooth.chroma : Vector().smooth.luma;
  c(input.data(), pad_c.data(), out_c.data(), width, height, taps.data(), h, h, int_c.data(),
    first, last);
  v(input.data(), pad_v.data(), out_v.data(), width, height, taps.data(), h, h, int_v.data(),
    first, last);
  CheckSame(chroma ? "SmoothChroma vector != scalar" : "SmoothLuma vector != scalar", out_c, out_v,
            width);
}

void FuzzCompose(Input &in, bool chroma) {
  const int32_t width = Width(in, chroma ? 2 : 1);
  const int32_t height = width > 200 ? in.Range(1, 4) : in.Range(1, 16);
  const int32_t first = in.Range(0, height - 1);
  const int32_t last = in.Range(first, height - 1);
  const uint8_t alpha = in.Range(0, 1) ? in.Byte() : static_cast<uint8_t>(in.Range(0, 128));
  const size_t plane = static_cast<size_t>(width) * height;
  const auto src = Bytes(in, plane);
  const auto blurred = Bytes(in, plane);
  const auto weights = Weights(in, chroma ? 2 * plane : plane);  // luma resolution
  const auto before = Bytes(in, plane);
  auto out_c = before, out_v = before;
  const pb::ComposeKernel c = chroma ? Scalar().compose.chroma : Scalar().compose.luma;
  const pb::ComposeKernel v = chroma ? Vector().compose.chroma : Vector().compose.luma;
  c(src.data(), width, height, width, height, weights.data(), blurred.data(), out_c.data(), first,
    last, alpha);
  v(src.data(), width, height, width, height, weights.data(), blurred.data(), out_v.data(), first,
    last, alpha);
  CheckSame(chroma ? "ComposeChroma vector != scalar" : "ComposeLuma vector != scalar", out_c,
            out_v, width);
}

// The fused smoothing and composite of the full-resolution path; now and then
// in place (dst is the input plane), which the vector form must notice.
void FuzzSmoothCompose(Input &in, bool chroma) {
  const SmoothArgs a = DrawSmoothArgs(in, chroma);
  const int32_t width = a.width, height = a.height, h = a.h, first = a.first, last = a.last;
  const std::vector<uint16_t> &taps = a.taps;
  const size_t padded_bytes = a.padded_bytes, inter_bytes = a.inter_bytes;
  const uint8_t alpha = in.Range(0, 1) ? in.Byte() : static_cast<uint8_t>(in.Range(0, 128));
  const bool in_place = in.Range(0, 7) == 0;
  const size_t plane = static_cast<size_t>(width) * height;
  const auto input = Bytes(in, plane);
  const auto weights = Weights(in, chroma ? 2 * plane : plane);
  const auto before = Bytes(in, plane);
  auto out_c = in_place ? input : before, out_v = out_c;
  auto in_c = input, in_v = input;
  auto pad_c = Garbage(padded_bytes, 0x00), pad_v = Garbage(padded_bytes, 0xa5);
  auto int_c = Garbage(inter_bytes, 0x3c), int_v = Garbage(inter_bytes, 0xc3);
  auto sm_c = Garbage(plane, 0x5a), sm_v = Garbage(plane, 0x96);
  const pb::SmoothComposeFn c =
      chroma ? Scalar().smooth_compose.chroma : Scalar().smooth_compose.luma;
  const pb::SmoothComposeFn v =
      chroma ? Vector().smooth_compose.chroma : Vector().smooth_compose.luma;
  uint8_t *dst_c = in_place ? in_c.data() : out_c.data();
  uint8_t *dst_v = in_place ? in_v.data() : out_v.data();
  c(in_c.data(), pad_c.data(), sm_c.data(), width, height, taps.data(), h, h, int_c.data(), first,
    last, weights.data(), alpha, dst_c);
  v(in_v.data(), pad_v.data(), sm_v.data(), width, height, taps.data(), h, h, int_v.data(), first,
    last, weights.data(), alpha, dst_v);
  CheckSame(chroma ? "SmoothComposeChroma vector != scalar" : "SmoothComposeLuma vector != scalar",
            in_place ? in_c : out_c, in_place ? in_v : out_v, width);
}

// A frame size that the reduced path accepts at ratio n (width a multiple of
// 2n, height a multiple of 4 and of n, at least 16n), and the plane sizes the
// strip tasks pass for it.
struct ReducedPlane {
  int32_t width, height, low_width, low_height;
};

ReducedPlane PlaneFor(Input &in, int n, bool chroma) {
  const int32_t height_step = n % 4 == 0 ? n : (n == 6 ? 12 : 4);
  const int32_t min_units = (16 * n + height_step - 1) / height_step;
  const int32_t width = Width(in, 2 * n);
  const int32_t frame_height = height_step * in.Range(min_units, min_units + (width > 200 ? 0 : 4));
  const int32_t low_height = frame_height / n;
  return chroma ? ReducedPlane{width, frame_height / 2, width / n, low_height / 2}
                : ReducedPlane{width, frame_height, width / n, low_height};
}

void FuzzReduced(Input &in, bool upscale) {
  static const int kRatios[] = {2, 4, 6, 8};
  const int n = in.Pick(kRatios);
  const bool chroma = in.Bool();
  const pb::ReducedKernels &kc = *pb::ReducedKernelsFor(Scalar(), n);
  const pb::ReducedKernels &kv = *pb::ReducedKernelsFor(Vector(), n);
  const ReducedPlane p = PlaneFor(in, n, chroma);
  const size_t plane = static_cast<size_t>(p.width) * p.height;
  const size_t low = static_cast<size_t>(p.low_width) * p.low_height;
  const auto src = Bytes(in, plane);
  if (!upscale) {
    // Rows as a strip asks for them (halo included), sometimes past the image.
    int32_t first = in.Range(0, p.low_height - 1);
    int32_t last = in.Range(first, p.low_height - 1);
    if (in.Range(0, 7) == 0) {
      first -= in.Range(0, 6);
      last += in.Range(0, 6);
    }
    const auto before = Bytes(in, low);
    auto out_c = before, out_v = before;
    auto xi_c = Garbage(static_cast<size_t>(p.low_width) * p.height, 0x11);
    auto xi_v = Garbage(xi_c.size(), 0xee);
    const pb::DownscaleKernel c = chroma ? kc.downscale_chroma : kc.downscale_luma;
    const pb::DownscaleKernel v = chroma ? kv.downscale_chroma : kv.downscale_luma;
    c(src.data(), out_c.data(), xi_c.data(), p.width, p.height, p.low_width, p.low_height, first,
      last);
    v(src.data(), out_v.data(), xi_v.data(), p.width, p.height, p.low_width, p.low_height, first,
      last);
    CheckSame(chroma ? "DownscaleChroma vector != scalar" : "DownscaleLuma vector != scalar", out_c,
              out_v, p.low_width);
    return;
  }
  const int32_t first = in.Range(0, p.height - 1);
  const int32_t last = in.Range(first, p.height - 1);
  const uint8_t alpha = in.Range(0, 1) ? in.Byte() : static_cast<uint8_t>(in.Range(0, 128));
  const auto blurred = Bytes(in, low);
  const auto weights = Weights(in, chroma ? 2 * plane : plane);
  const auto before = Bytes(in, plane);
  auto out_c = before, out_v = before;
  const pb::ComposeKernel c = chroma ? kc.compose_chroma : kc.compose_luma;
  const pb::ComposeKernel v = chroma ? kv.compose_chroma : kv.compose_luma;
  c(src.data(), p.width, p.height, p.low_width, p.low_height, weights.data(), blurred.data(),
    out_c.data(), first, last, alpha);
  v(src.data(), p.width, p.height, p.low_width, p.low_height, weights.data(), blurred.data(),
    out_v.data(), first, last, alpha);
  CheckSame(chroma ? "UpscaleComposeChroma vector != scalar" : "UpscaleComposeLuma vector != scalar",
            out_c, out_v, p.width);
}

// Weight maps scaled up and down from small disparity maps, focus point and
// rows inside the map, mostly the engine's band scale and gain.
void FuzzWeights(Input &in) {
  const int32_t src_width = in.Range(1, 80);
  const int32_t src_height = in.Range(1, 20);
  const int32_t width = in.Range(1, in.Range(0, 15) == 0 ? 2100 : 160);
  const int32_t height = in.Range(1, 24);
  const int32_t sel_x = in.Range(0, width - 1);
  const int32_t sel_y = in.Range(0, height - 1);
  const int32_t first = in.Range(0, height - 1);
  const int32_t last = in.Range(first, height - 1);
  const uint8_t band_scale = in.Range(0, 3) ? 50 : static_cast<uint8_t>(in.Range(1, 255));
  const uint8_t gain = in.Bool() ? 128 : in.Byte();
  const auto src = Bytes(in, static_cast<size_t>(src_width) * src_height);
  std::vector<uint16_t> out_c(static_cast<size_t>(width) * height, 0xbeef), out_v(out_c);
  Scalar().weight.compute(width, height, sel_x, sel_y, first, last, out_c.data(), src_width,
                          src_height, band_scale, gain, src.data());
  Vector().weight.compute(width, height, sel_x, sel_y, first, last, out_v.data(), src_width,
                          src_height, band_scale, gain, src.data());
  const long d = FirstDifference(out_c.data(), out_v.data(), out_c.size() * sizeof out_c[0]);
  if (d >= 0) {
    Fail("ComputeWeights vector != scalar", d / 2 / width, d / 2 % width, out_c[d / 2]);
  }

  uint8_t min_c = 0, max_c = 0, min_v = 0, max_v = 0;
  Scalar().disparity.min_max(src.data(), static_cast<int32_t>(src.size()), &min_c, &max_c);
  Vector().disparity.min_max(src.data(), static_cast<int32_t>(src.size()), &min_v, &max_v);
  if (min_c != min_v || max_c != max_v) Fail("DisparityMinMax vector != scalar", min_c, max_c);

  uint8_t table[256];
  for (uint8_t &t : table) t = in.Byte();
  std::vector<uint8_t> ranged_c(src.size()), ranged_v(src.size());
  Scalar().disparity.apply_range(src.data(), ranged_c.data(), static_cast<int32_t>(src.size()),
                                 table);
  Vector().disparity.apply_range(src.data(), ranged_v.data(), static_cast<int32_t>(src.size()),
                                 table);
  const long r = FirstDifference(ranged_c.data(), ranged_v.data(), ranged_c.size());
  if (r >= 0) Fail("ApplyRangeTable vector != scalar", r, src[r], ranged_c[r]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  pb::hooks::StartLogCapture();  // refused arguments log; keep the output quiet
  Input in(data, size);
  switch (in.Range(0, 10)) {
    case 0:
      FuzzSmooth(in, false);
      break;
    case 1:
      FuzzSmooth(in, true);
      break;
    case 2:
      FuzzCompose(in, false);
      break;
    case 3:
      FuzzCompose(in, true);
      break;
    case 4:
    case 5:
      FuzzReduced(in, false);
      break;
    case 6:
    case 7:
      FuzzReduced(in, true);
      break;
    case 8:
      FuzzSmoothCompose(in, false);
      break;
    case 9:
      FuzzSmoothCompose(in, true);
      break;
    default:
      FuzzWeights(in);
      break;
  }
  pb::hooks::StopLogCapture();
  return 0;
}
