// Byte-wise comparison of two frames of one size: counts, the largest
// difference, PSNR, and a picture of where they differ.
#ifndef PREVIEWBOKEH_TOOL_COMPARE_H_
#define PREVIEWBOKEH_TOOL_COMPARE_H_

#include <cstddef>
#include <cstdint>
#include <limits>

#include "image_io.h"
#include "yuv.h"

namespace pbtool {

// PSNR in dB of n samples whose squared differences sum to `squared_error`:
// 10 log10(255^2 / MSE), MSE = squared_error / n; +infinity when they are equal.
double Psnr(uint64_t squared_error, size_t n);

struct FrameDiff {
  size_t bytes = 0;      // bytes compared (the whole frame)
  size_t differing = 0;  // bytes that differ
  int max_diff = 0;      // largest absolute difference of one byte
  // PSNR of all bytes (luma and chroma together), of the luma plane and of
  // the chroma plane; +infinity for identical samples.
  double psnr = std::numeric_limits<double>::infinity();
  double psnr_luma = std::numeric_limits<double>::infinity();
  double psnr_chroma = std::numeric_limits<double>::infinity();
};

// Compares two frames of the same size (packed, any chroma order alike).
FrameDiff CompareFrames(const YuvFrame &a, const YuvFrame &b);

// Grey picture of the luma difference: min(255, |a - b| x gain) per pixel.
Image LumaDifferenceImage(const YuvFrame &a, const YuvFrame &b, int gain);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_COMPARE_H_
