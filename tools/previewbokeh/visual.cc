#include "visual.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <stdexcept>

#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/scale_argb.h>

namespace pbtool {
namespace {

struct Stop {
  int at;  // weight
  uint8_t r, g, b;
};

// A perceptually ordered ramp from dark violet over teal to yellow.
constexpr Stop kRamp[] = {
    {0, 68, 1, 84}, {256, 59, 82, 139}, {512, 33, 145, 140}, {768, 94, 201, 98}, {1024, 253, 231, 37},
};

}  // namespace

Image ColourMapWeights(const uint16_t *weights, Size size) {
  uint8_t lut[1025][3];
  for (int w = 0; w <= 1024; ++w) {
    int i = 0;
    while (i + 2 < static_cast<int>(std::size(kRamp)) && w > kRamp[i + 1].at) ++i;
    const Stop &a = kRamp[i], &b = kRamp[i + 1];
    const int t = w - a.at, span = b.at - a.at;
    lut[w][0] = static_cast<uint8_t>(a.r + (b.r - a.r) * t / span);
    lut[w][1] = static_cast<uint8_t>(a.g + (b.g - a.g) * t / span);
    lut[w][2] = static_cast<uint8_t>(a.b + (b.b - a.b) * t / span);
  }
  Image out(size.width, size.height, 3);
  const size_t n = static_cast<size_t>(size.width) * size.height;
  for (size_t i = 0; i < n; ++i) {
    const int w = std::min<int>(weights[i], 1024);
    std::memcpy(&out.pixels[3 * i], lut[w], 3);
  }
  return out;
}

Image SideBySide(const std::vector<const Image *> &panels, int gap) {
  if (panels.empty()) return Image();
  const int height = panels.front()->height;
  int width = gap * (static_cast<int>(panels.size()) - 1);
  for (const Image *p : panels) {
    if (p->height != height || p->channels != 3) {
      throw std::logic_error("SideBySide: panels must be RGB of one height");
    }
    width += p->width;
  }
  Image out(width, height, 3);
  std::fill(out.pixels.begin(), out.pixels.end(), 255);
  int x0 = 0;
  for (const Image *p : panels) {
    for (int y = 0; y < height; ++y) {
      std::memcpy(out.Row(y) + 3 * x0, p->Row(y), static_cast<size_t>(p->width) * 3);
    }
    x0 += p->width + gap;
  }
  return out;
}

Image ScaleToWidth(const Image &rgb, int width) {
  if (width <= 0 || width >= rgb.width) return rgb;
  const int height = std::max(1, static_cast<int>(static_cast<int64_t>(rgb.height) * width / rgb.width));
  std::vector<uint8_t> argb(static_cast<size_t>(rgb.width) * rgb.height * 4);
  libyuv::RAWToARGB(rgb.pixels.data(), rgb.width * 3, argb.data(), rgb.width * 4, rgb.width,
                    rgb.height);
  std::vector<uint8_t> small(static_cast<size_t>(width) * height * 4);
  libyuv::ARGBScale(argb.data(), rgb.width * 4, rgb.width, rgb.height, small.data(), width * 4,
                    width, height, libyuv::kFilterBox);
  Image out(width, height, 3);
  libyuv::ARGBToRAW(small.data(), width * 4, out.pixels.data(), width * 3, width, height);
  return out;
}

}  // namespace pbtool
