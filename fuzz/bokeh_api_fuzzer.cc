// Fuzzer of the bokeh interface: frame sizes (valid and hostile), the working
// ratio property, and a sequence of calls taken from the input: frame
// parameters with any aperture number, focus point and weight map (any 16-bit
// values, or none), blurs in place or not, before any weight map, with null
// buffers or a null handle. Checks, beyond "no crash":
//   - null arguments are refused with status 1;
//   - a blur succeeds exactly when a weight map is set, and leaves no buffer
//     locked;
//   - every blurred frame has the same bytes with the scalar references as
//     with the vector kernels;
//   - iBokehDeinit releases everything (live allocation count back where it
//     started, for failed inits too).
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "host_assist_client.h"
#include "platform/property.h"
#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "simd/kernel_table.h"

namespace {

using pbassist::Assist;
using pbfuzz::Fail;
using pbfuzz::Input;

class Frame {
 public:
  explicit Frame(size_t bytes)
      : buffer_(Assist().create(1, 1, static_cast<uint32_t>(bytes))), bytes_(bytes) {
    if (!buffer_) std::abort();
  }
  ~Frame() { Assist().destroy(buffer_); }
  Frame(const Frame &) = delete;
  Frame &operator=(const Frame &) = delete;
  void *buffer() const { return buffer_; }
  uint8_t *data() const { return static_cast<uint8_t *>(Assist().pointer(buffer_)); }
  size_t size() const { return bytes_; }
  bool unlocked() const { return Assist().lock_count(buffer_) == 0; }

 private:
  void *buffer_;
  size_t bytes_;
};

constexpr const char *kRatios[] = {"", "1", "2", "4", "6", "8", "3", "0", "-4", "abc", "16", "2 "};
constexpr int32_t kHostileWidths[] = {0, -2, 1, 3, 255, INT32_MAX, INT32_MIN};
constexpr int32_t kHostileHeights[] = {0, 1, -1, INT32_MAX, INT32_MIN};

// Blurs with the vector kernels and again with the scalar references from the
// same starting bytes; the two results must agree.
void BlurBothWays(void *handle, Frame &src, Frame &dst, bool in_place, bool has_map) {
  Frame &out = in_place ? src : dst;
  const std::vector<uint8_t> src0(src.data(), src.data() + src.size());
  const std::vector<uint8_t> dst0(dst.data(), dst.data() + dst.size());
  const int s1 = iBokehBlurImage(handle, src.buffer(), out.buffer());
  if (s1 != (has_map ? 0 : 1)) Fail("blur status", s1, has_map);
  if (!src.unlocked() || !dst.unlocked()) Fail("buffer left locked");
  if (s1 != 0) return;
  const std::vector<uint8_t> vector_out(out.data(), out.data() + out.size());
  std::memcpy(src.data(), src0.data(), src0.size());
  std::memcpy(dst.data(), dst0.data(), dst0.size());
  pb::UseScalarKernels(true);
  const int s2 = iBokehBlurImage(handle, src.buffer(), out.buffer());
  pb::UseScalarKernels(false);
  if (s2 != 0) Fail("scalar blur status", s2);
  const long d = pbfuzz::FirstDifference(vector_out.data(), out.data(), out.size());
  if (d >= 0) Fail("frame: vector != scalar", d, vector_out[d], out.data()[d]);
}

void RunCalls(Input &in, void *handle, int32_t width, int32_t height) {
  const size_t pixels = static_cast<size_t>(width) * height;
  Frame src(pixels * 3 / 2), dst(pixels * 3 / 2);
  in.Fill(src.data(), src.size());
  in.Fill(dst.data(), dst.size());
  std::vector<uint16_t> maps[2] = {std::vector<uint16_t>(pixels), std::vector<uint16_t>(pixels)};
  for (auto &m : maps) {
    in.Fill(reinterpret_cast<uint8_t *>(m.data()), m.size() * 2);
    if (in.Bool()) {
      for (auto &v : m) v = static_cast<uint16_t>(v % 1025u);  // the documented range
    }
  }
  bool has_map = false;
  const int calls = in.Range(1, 8);
  for (int c = 0; c < calls; ++c) {
    switch (in.Range(0, 7)) {
      case 0:
      case 1: {
        BokehFrameParams fp{};
        fp.F_number = in.Bool() ? in.Range(-3, 45) : in.I32();
        fp.sel_x = in.I32();
        fp.sel_y = in.I32();
        const int which = in.Range(0, 2);
        fp.WeightMap = which < 2 ? maps[which].data() : nullptr;
        if (iBokehCreateWeightMap(handle, &fp) != 0) Fail("iBokehCreateWeightMap failed");
        has_map = fp.WeightMap != nullptr;
        break;
      }
      case 2: {
        BokehFrameParams fp{};
        fp.WeightMap = maps[0].data();
        if (iBokehCreateWeightMap(nullptr, &fp) != 1) Fail("null handle accepted");
        iBokehCreateWeightMap(handle, nullptr);  // refused or ignored; must not crash
        break;
      }
      case 3: {
        const int which = in.Range(0, 3);
        int s = 0;
        if (which == 0) s = iBokehBlurImage(handle, nullptr, dst.buffer());
        if (which == 1) s = iBokehBlurImage(handle, src.buffer(), nullptr);
        if (which == 2) s = iBokehBlurImage(nullptr, src.buffer(), dst.buffer());
        if (which == 3) s = iBokehBlurImage(handle, nullptr, nullptr);
        if (s != 1) Fail("null blur argument accepted", which);
        if (!src.unlocked() || !dst.unlocked()) Fail("buffer locked by a refused blur");
        break;
      }
      case 4:
        in.Fill(src.data(), src.size());
        break;
      default:
        BlurBothWays(handle, src, dst, in.Bool(), has_map);
        break;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Assist();
  pb::hooks::StartLogCapture();
  Input in(data, size);
  const long live = pb::hooks::LiveAllocationCount();

  const char *ratio = in.Pick(kRatios);
  pb::hooks::ResetProperties();
  if (*ratio) pb::SetProperty("persist.vendor.cam.prebokeh_ratio", ratio);
  BokehInitParams ip{};
  // Mostly small frames; large enough ones for every reduced ratio at times.
  const bool large = in.Range(0, 15) == 0;
  ip.width = in.Range(0, 9) == 0 ? in.Pick(kHostileWidths) : 2 * in.Range(1, large ? 128 : 24);
  ip.height = in.Range(0, 9) == 0 ? in.Pick(kHostileHeights) : in.Range(2, large ? 160 : 32);

  void *handle = nullptr;
  switch (in.Range(0, 15)) {
    case 0:
      if (iBokehInit(nullptr, &ip) != 1) Fail("null handle pointer accepted");
      break;
    case 1:
      if (iBokehInit(&handle, nullptr) != 1 || handle != nullptr) Fail("null params accepted");
      break;
    default:
      if (iBokehInit(&handle, &ip) == 0) {
        if (ip.SmoothWinSize != 11 || ip.WindowRadius != 5) Fail("window not written back");
        RunCalls(in, handle, ip.width, ip.height);
        if (iBokehDeinit(handle) != 0) Fail("iBokehDeinit failed");
      }
      break;
  }
  if (in.Range(0, 15) == 0 && iBokehDeinit(nullptr) != 1) Fail("iBokehDeinit(null) accepted");
  pb::hooks::ResetProperties();
  if (pb::hooks::LiveAllocationCount() != live) {
    Fail("allocations left after iBokehDeinit", pb::hooks::LiveAllocationCount() - live);
  }
  pb::hooks::StopLogCapture();
  return 0;
}
