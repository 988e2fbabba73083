#include "disparity.h"

#include <cmath>
#include <cstring>

#include "errors.h"

namespace pbtool {
namespace {

// Header byte offsets.
constexpr int kNumeratorOffset = 16;
constexpr int kDenominatorOffset = 20;
constexpr int kRefWidthOffset = 60;
constexpr int kWidthOffset = 64;
constexpr int kHeightOffset = 66;

uint32_t Load32(const uint8_t *p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}
uint16_t Load16(const uint8_t *p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
void Store32(uint32_t v, uint8_t *p) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
void Store16(uint16_t v, uint8_t *p) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

}  // namespace

int32_t ToQ19(double value, const std::string &option) {
  const double scaled = std::round(value * 524288.0);
  if (!std::isfinite(scaled) || scaled > 2147483647.0 || scaled < -2147483648.0) {
    throw InputError(option + ": " + std::to_string(value) +
                     " does not fit the Q19 fixed-point range (-4096 .. 4095.99)");
  }
  return static_cast<int32_t>(scaled);
}

DisparityHeader MakeHeader(Size size, double numerator, double denominator, int ref_width) {
  if (size.width > 65535 || size.height > 65535) {
    throw InputError("disparity map: size " + ToString(size) + " does not fit the header");
  }
  if (denominator == 0.0) throw InputError("--scale-den: must not be zero");
  if (ref_width < 0 || ref_width > 65535) {
    throw InputError("--ref-width: " + std::to_string(ref_width) + " is outside 0..65535");
  }
  DisparityHeader h;
  h.scale_numerator_q19 = ToQ19(numerator, "--scale-num");
  h.scale_denominator_q19 = ToQ19(denominator, "--scale-den");
  if (h.scale_denominator_q19 == 0) throw InputError("--scale-den: rounds to zero in Q19");
  h.ref_width = static_cast<uint16_t>(ref_width == 0 ? size.width : ref_width);
  h.width = static_cast<uint16_t>(size.width);
  h.height = static_cast<uint16_t>(size.height);
  return h;
}

DisparityHeader ReadHeader(const uint8_t *header) {
  DisparityHeader h;
  h.scale_numerator_q19 = static_cast<int32_t>(Load32(header + kNumeratorOffset));
  h.scale_denominator_q19 = static_cast<int32_t>(Load32(header + kDenominatorOffset));
  h.ref_width = Load16(header + kRefWidthOffset);
  h.width = Load16(header + kWidthOffset);
  h.height = Load16(header + kHeightOffset);
  return h;
}

void WriteHeader(const DisparityHeader &h, uint8_t *header) {
  std::memset(header, 0, kDisparityHeaderBytes);
  Store32(static_cast<uint32_t>(h.scale_numerator_q19), header + kNumeratorOffset);
  Store32(static_cast<uint32_t>(h.scale_denominator_q19), header + kDenominatorOffset);
  Store16(h.ref_width, header + kRefWidthOffset);
  Store16(h.width, header + kWidthOffset);
  Store16(h.height, header + kHeightOffset);
}

std::vector<uint8_t> BuildDisparityFrame(const DisparityMap &map) {
  std::vector<uint8_t> frame(kDisparityHeaderBytes + map.samples.pixels.size());
  WriteHeader(map.header, frame.data());
  std::memcpy(frame.data() + kDisparityHeaderBytes, map.samples.pixels.data(),
              map.samples.pixels.size());
  return frame;
}

DisparityMap ParseDisparityFrame(const std::vector<uint8_t> &bytes, const std::string &name) {
  if (bytes.size() < static_cast<size_t>(kDisparityHeaderBytes)) {
    throw InputError(name + ": " + std::to_string(bytes.size()) +
                     " bytes is too short for a disparity frame (68-byte header + samples)");
  }
  DisparityMap map;
  map.header = ReadHeader(bytes.data());
  const size_t expected =
      kDisparityHeaderBytes + static_cast<size_t>(map.header.width) * map.header.height;
  if (map.header.width == 0 || map.header.height == 0 || bytes.size() != expected) {
    throw InputError(name + ": not a PNG/JPEG image, and not a disparity frame: its header says " +
                     std::to_string(map.header.width) + "x" + std::to_string(map.header.height) +
                     " (" + std::to_string(expected) + " bytes) but the file has " +
                     std::to_string(bytes.size()) + " bytes");
  }
  map.samples = Image(map.header.width, map.header.height, 1);
  std::memcpy(map.samples.pixels.data(), bytes.data() + kDisparityHeaderBytes,
              map.samples.pixels.size());
  return map;
}

}  // namespace pbtool
