#include "support/frames.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <random>

#include "previewbokeh/weight.h"

namespace pbtest {

const uint16_t kGaussian11[11] = {50, 70, 91, 110, 123, 128, 123, 110, 91, 70, 50};

std::vector<uint8_t> RandomBytes(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> v(n);
  for (auto &b : v) b = static_cast<uint8_t>(rng());
  return v;
}

std::vector<uint16_t> RandomWeights(size_t n, uint32_t seed, uint16_t max_weight) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> d(0, max_weight);
  std::vector<uint16_t> v(n);
  for (auto &w : v) w = static_cast<uint16_t>(d(rng));
  return v;
}

void SetDisparityHeader(uint8_t *frame, int32_t numerator_q19, int32_t denominator_q19,
                        uint16_t width) {
  std::memcpy(frame + offsetof(DisparityFrame, ScaleNumeratorQ19), &numerator_q19, 4);
  std::memcpy(frame + offsetof(DisparityFrame, ScaleDenominatorQ19), &denominator_q19, 4);
  std::memcpy(frame + offsetof(DisparityFrame, RefWidth), &width, 2);
  std::memcpy(frame + offsetof(DisparityFrame, DisparityWidth), &width, 2);
}

namespace {

// Smooths a plane of `channels` interleaved channels (1 or 2) with the
// 11-tap kernel: horizontal pass rounded to 8 bits, then vertical pass.
std::vector<uint8_t> SmoothPlane(const uint8_t *p, int width, int rows, int channels) {
  const int h = 5;
  const int pixels = width / channels;
  std::vector<uint8_t> horiz(static_cast<size_t>(width) * rows), out(horiz.size());
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < width; ++x) {
      const int c = x % channels, px = x / channels;
      uint32_t acc = 0;
      for (int k = -h; k <= h; ++k) {
        const int sx = std::clamp(px + k, 0, pixels - 1);
        acc += kGaussian11[h + k] * p[static_cast<size_t>(y) * width + sx * channels + c];
      }
      horiz[static_cast<size_t>(y) * width + x] = static_cast<uint8_t>((acc + 512) >> 10);
    }
  }
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < width; ++x) {
      uint32_t acc = 0;
      for (int k = -h; k <= h; ++k) {
        const int sy = std::clamp(y + k, 0, rows - 1);
        acc += kGaussian11[h + k] * horiz[static_cast<size_t>(sy) * width + x];
      }
      out[static_cast<size_t>(y) * width + x] =
          static_cast<uint8_t>(std::min<uint32_t>(255, (acc + 512) >> 10));
    }
  }
  return out;
}

uint8_t Mix(uint8_t s, uint8_t b, uint16_t m, uint8_t alpha) {
  const uint32_t w = (static_cast<uint32_t>(m) * alpha + 64) >> 7;
  const uint32_t acc = w * b + (1024 - w) * s;
  return static_cast<uint8_t>(std::min<uint32_t>(255, (acc + 512) >> 10));
}

}  // namespace

void ModelFrame(const uint8_t *src, const uint16_t *weights, int width, int height,
                uint8_t alpha, uint8_t *dst) {
  const size_t luma = static_cast<size_t>(width) * height;
  const std::vector<uint8_t> by = SmoothPlane(src, width, height, 1);
  const int crows = height / 2;
  const std::vector<uint8_t> buv = SmoothPlane(src + luma, width, crows, 2);
  const int luma_rows = (height / 2) * 2;   // two strips of height / 2 rows
  const int chroma_rows = (crows / 2) * 2;  // two strips of (height / 2) / 2 rows
  for (int y = 0; y < luma_rows; ++y) {
    for (int x = 0; x < width; ++x) {
      const size_t i = static_cast<size_t>(y) * width + x;
      dst[i] = Mix(src[i], by[i], weights[i], alpha);
    }
  }
  for (int y = 0; y < chroma_rows; ++y) {
    for (int x = 0; x < width; ++x) {
      const size_t i = static_cast<size_t>(y) * width + x;
      const uint16_t m = weights[static_cast<size_t>(2 * y) * width + (x & ~1)];
      dst[luma + i] = Mix(src[luma + i], buv[i], m, alpha);
    }
  }
}

}  // namespace pbtest
