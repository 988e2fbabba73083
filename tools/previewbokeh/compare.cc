#include "compare.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace pbtool {

double Psnr(uint64_t squared_error, size_t n) {
  if (squared_error == 0 || n == 0) return std::numeric_limits<double>::infinity();
  const double mse = static_cast<double>(squared_error) / static_cast<double>(n);
  return 10.0 * std::log10(255.0 * 255.0 / mse);
}

FrameDiff CompareFrames(const YuvFrame &a, const YuvFrame &b) {
  FrameDiff d;
  d.bytes = std::min(a.data.size(), b.data.size());
  const size_t luma = std::min(d.bytes, static_cast<size_t>(a.size.width) * a.size.height);
  uint64_t se_luma = 0, se_chroma = 0;
  for (size_t i = 0; i < d.bytes; ++i) {
    const int diff = std::abs(static_cast<int>(a.data[i]) - static_cast<int>(b.data[i]));
    if (diff == 0) continue;
    ++d.differing;
    d.max_diff = std::max(d.max_diff, diff);
    (i < luma ? se_luma : se_chroma) += static_cast<uint64_t>(diff) * static_cast<uint64_t>(diff);
  }
  d.psnr = Psnr(se_luma + se_chroma, d.bytes);
  d.psnr_luma = Psnr(se_luma, luma);
  d.psnr_chroma = Psnr(se_chroma, d.bytes - luma);
  return d;
}

Image LumaDifferenceImage(const YuvFrame &a, const YuvFrame &b, int gain) {
  Image out(a.size.width, a.size.height, 1);
  for (size_t i = 0; i < out.pixels.size(); ++i) {
    const int diff = std::abs(static_cast<int>(a.data[i]) - static_cast<int>(b.data[i]));
    out.pixels[i] = static_cast<uint8_t>(std::min(255, diff * gain));
  }
  return out;
}

}  // namespace pbtool
