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
// 11-tap kernel: horizontal pass rounded to 8 bits, then vertical pass. The
// taps sum to 1016, so no pass exceeds 255.
std::vector<uint8_t> SmoothPlane(const uint8_t *p, int width, int rows, int channels) {
  const int pixels = width / channels;
  auto pass = [&](const uint8_t *in, bool vertical) {
    std::vector<uint8_t> out(static_cast<size_t>(width) * rows);
    for (int y = 0; y < rows; ++y) {
      for (int x = 0; x < width; ++x) {
        uint32_t acc = 0;
        for (int k = -5; k <= 5; ++k) {
          const size_t i = vertical ? static_cast<size_t>(std::clamp(y + k, 0, rows - 1)) * width + x
                                    : static_cast<size_t>(y) * width + x % channels +
                                          std::clamp(x / channels + k, 0, pixels - 1) * channels;
          acc += kGaussian11[5 + k] * in[i];
        }
        out[static_cast<size_t>(y) * width + x] = static_cast<uint8_t>((acc + 512) >> 10);
      }
    }
    return out;
  };
  return pass(pass(p, false).data(), true);
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
  // Two strips of height / 2 luma rows and of (height / 2) / 2 chroma rows.
  const size_t luma_end = static_cast<size_t>(height / 2) * 2 * width;
  const size_t chroma_end = static_cast<size_t>(crows / 2) * 2 * width;
  for (size_t i = 0; i < luma_end; ++i) dst[i] = Mix(src[i], by[i], weights[i], alpha);
  for (size_t i = 0; i < chroma_end; ++i) {
    const uint16_t m = weights[(i / width) * 2 * width + ((i % width) & ~size_t{1})];
    dst[luma + i] = Mix(src[luma + i], buv[i], m, alpha);
  }
}

}  // namespace pbtest
