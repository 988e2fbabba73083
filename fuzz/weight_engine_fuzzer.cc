// Fuzzer of the depth-weight interface: engine sizes (in bounds, zero,
// negative and hostile), window sizes, disparity headers and samples, focus
// points inside and far outside the map, aperture numbers (valid and hostile)
// and null arguments. Checks, beyond "no crash":
//   - a failed weight_init leaves MemorySize alone; weight_deinit always
//     releases everything (live allocation count back where it started);
//   - weight_async_process writes every element of the map, each 0..1024 for
//     apertures 1..20, allocates nothing, and gives the same map with the
//     scalar references as with the vector kernels;
//   - a call with a null argument, or on an engine whose init failed,
//     returns 1 and leaves the map untouched.
#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "platform/test_hooks.h"
#include "previewbokeh/weight.h"
#include "simd/kernel_table.h"

namespace {

using pbfuzz::Fail;
using pbfuzz::Input;

constexpr int32_t kHostileSizes[] = {0, -1, -1000, INT32_MIN, INT32_MAX, 32768, 40000};
constexpr int32_t kHostileWindows[] = {0, -1, -11, INT32_MIN, INT32_MAX, 32768, 64, 2};
constexpr int32_t kHostileFNumbers[] = {0, 21, -1, 40, 255, INT32_MIN, INT32_MAX};

// Mostly small sizes (fast cases), sometimes up to the bound, sometimes hostile.
int32_t Size(Input &in, int32_t small, int32_t bound) {
  const int32_t pick = in.Range(0, 63);
  if (pick < 4) return in.Pick(kHostileSizes);
  return pick == 4 ? in.Range(1, bound) : in.Range(1, small);
}

int32_t Focus(Input &in, int32_t size) {
  const int32_t outside[] = {-1, size, INT32_MIN, INT32_MAX, -100000, size + 100000};
  return in.Range(0, 4) == 0 ? in.Pick(outside) : in.Range(0, size - 1);
}

void Put32(std::vector<uint8_t> &b, size_t offset, int32_t v) { std::memcpy(&b[offset], &v, 4); }
void Put16(std::vector<uint8_t> &b, size_t offset, uint16_t v) { std::memcpy(&b[offset], &v, 2); }

void ProcessFrames(Input &in, WeightContext *ctx, const WeightInitParams &p) {
  // Processing is exercised for maps of reasonable size only.
  if (int64_t{p.WeightWidth} * p.WeightHeight > (1 << 20) ||
      int64_t{p.DisparityWidth} * p.DisparityHeight > (1 << 18)) {
    return;
  }
  const size_t samples = static_cast<size_t>(p.DisparityWidth) * p.DisparityHeight;
  const size_t map_size = static_cast<size_t>(p.WeightWidth) * p.WeightHeight;
  std::vector<uint8_t> frame(DISPARITY_FRAME_HEADER_BYTES + samples);
  std::vector<uint16_t> map(map_size), scalar_map(map_size);
  const int frames = in.Range(1, 3);
  for (int f = 0; f < frames; ++f) {
    in.Fill(frame.data(), frame.size());
    if (in.Range(0, 2) != 0) {
      // A plausible header: scale fields and widths as a producer writes them.
      Put32(frame, offsetof(DisparityFrame, ScaleNumeratorQ19), in.Range(1, 2000) << 19);
      Put32(frame, offsetof(DisparityFrame, ScaleDenominatorQ19), in.Range(1, 4) << 19);
      const uint16_t w = static_cast<uint16_t>(p.DisparityWidth);
      Put16(frame, offsetof(DisparityFrame, RefWidth),
            in.Bool() ? w : static_cast<uint16_t>(in.Range(1, 4096)));
      Put16(frame, offsetof(DisparityFrame, DisparityWidth), w);
      Put16(frame, offsetof(DisparityFrame, DisparityHeight),
            static_cast<uint16_t>(p.DisparityHeight));
    }
    WeightProcessParams wp{};
    wp.F_number = in.Range(0, 4) == 0 ? in.Pick(kHostileFNumbers) : in.Range(1, 20);
    wp.sel_x = Focus(in, p.WeightWidth);
    wp.sel_y = Focus(in, p.WeightHeight);
    wp.frame = reinterpret_cast<const DisparityFrame *>(frame.data());

    std::fill(map.begin(), map.end(), 0xffff);
    if (in.Range(0, 7) == 0) {
      // Null arguments: refused, nothing written.
      WeightProcessParams no_frame = wp;
      no_frame.frame = nullptr;
      const int s1 = weight_async_process(nullptr, ctx, map.data());
      const int s2 = weight_async_process(&wp, nullptr, map.data());
      const int s3 = weight_async_process(&no_frame, ctx, map.data());
      const int s4 = weight_async_process(&wp, ctx, nullptr);
      if (s1 != 1 || s2 != 1 || s3 != 1 || s4 != 1) Fail("null argument accepted", s1, s2, s3);
      for (uint16_t v : map) {
        if (v != 0xffff) Fail("map written by a refused call");
      }
    }

    const long allocations = pb::hooks::AllocationCount();
    if (weight_async_process(&wp, ctx, map.data()) != 0) Fail("process failed", wp.F_number);
    if (pb::hooks::AllocationCount() != allocations) Fail("process allocated");
    const bool valid_aperture = wp.F_number >= 1 && wp.F_number <= 20;
    for (size_t i = 0; i < map_size; ++i) {
      if (map[i] == 0xffff) Fail("map element not written", static_cast<long>(i));
      if (valid_aperture && map[i] > 1024) Fail("weight above 1024", static_cast<long>(i), map[i]);
    }

    // The scalar references give the same map (and a repeated call does).
    std::fill(scalar_map.begin(), scalar_map.end(), 0x5555);
    pb::UseScalarKernels(true);
    const int status = weight_async_process(&wp, ctx, scalar_map.data());
    pb::UseScalarKernels(false);
    if (status != 0) Fail("scalar process failed");
    const long d = pbfuzz::FirstDifference(map.data(), scalar_map.data(), map_size * 2);
    if (d >= 0) Fail("weights: vector != scalar", d / 2, map[d / 2], scalar_map[d / 2]);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  pb::hooks::StartLogCapture();
  Input in(data, size);
  const long live = pb::hooks::LiveAllocationCount();

  WeightInitParams p{};
  p.WeightWidth = Size(in, 64, 1024);
  p.WeightHeight = Size(in, 64, 1024);
  p.DisparityWidth = Size(in, 32, 512);
  p.DisparityHeight = Size(in, 32, 512);
  p.DisparityWinSize = in.Range(0, 15) == 0 ? in.Pick(kHostileWindows) : in.Range(1, 15);
  p.reserved0 = in.I32();
  p.reserved1 = in.I32();
  p.reserved2 = in.I32();
  WeightContext ctx{};
  ctx.MemorySize = in.U32();
  const uint32_t memory_before = ctx.MemorySize;

  switch (in.Range(0, 15)) {
    case 0:
      if (weight_init(nullptr, &ctx) != 1) Fail("null params accepted");
      break;
    case 1:
      if (weight_init(&p, nullptr) != 1) Fail("null context accepted");
      ctx.engine = nullptr;
      break;
    default: {
      const int status = weight_init(&p, &ctx);
      if (status != 0 && ctx.MemorySize != memory_before) Fail("failed init counted memory");
      if (status == 0) {
        ProcessFrames(in, &ctx, p);
      } else if (ctx.engine != nullptr) {
        // An engine whose init failed refuses to process and writes nothing.
        std::vector<uint8_t> frame(DISPARITY_FRAME_HEADER_BYTES + 16, 0);
        WeightProcessParams wp{};
        wp.F_number = 4;
        wp.frame = reinterpret_cast<const DisparityFrame *>(frame.data());
        uint16_t map[16];
        std::fill(map, map + 16, 0xffff);
        if (weight_async_process(&wp, &ctx, map) != 1) Fail("failed engine processed");
        for (uint16_t v : map) {
          if (v != 0xffff) Fail("failed engine wrote the map");
        }
      }
      break;
    }
  }
  if (weight_deinit(&ctx) != 0) Fail("weight_deinit failed");
  if (in.Range(0, 15) == 0 && weight_deinit(nullptr) != 0) Fail("weight_deinit(null) failed");
  if (pb::hooks::LiveAllocationCount() != live) {
    Fail("allocations left after weight_deinit", pb::hooks::LiveAllocationCount() - live);
  }
  pb::hooks::StopLogCapture();
  return 0;
}
