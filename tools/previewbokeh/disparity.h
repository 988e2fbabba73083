// Disparity maps and the disparity-frame byte layout the weight engine reads:
// a 68-byte header followed by width x height 8-bit samples.
#ifndef PREVIEWBOKEH_TOOL_DISPARITY_H_
#define PREVIEWBOKEH_TOOL_DISPARITY_H_

#include <cstdint>
#include <string>
#include <vector>

#include "cli.h"
#include "image_io.h"

namespace pbtool {

constexpr int kDisparityHeaderBytes = 68;

// Header values the weight engine's range table uses. Disparity sample i is
// mapped to about s / (max(i, k) - d0 + c) with s = 0.4 * |num / den| *
// width / ref_width, d0 = 16 * width / ref_width: small disparities (far
// away) map to large values, large disparities (near) to small ones.
struct DisparityHeader {
  int32_t scale_numerator_q19 = 0;
  int32_t scale_denominator_q19 = 0;
  uint16_t ref_width = 0;
  uint16_t width = 0;   // width of the map as the producer saw it
  uint16_t height = 0;  // height of the map as the producer saw it
};

// Defaults for 8-bit disparity images (0 = far, 255 = near): numerator 2000,
// denominator 0.5, reference width = map width, so s = 1600. Subjects around
// disparity 100..200 then get an in-focus band of a few levels, a background
// below about 35 is blurred fully, and the range in between blurs gradually.
constexpr double kDefaultScaleNumerator = 2000.0;
constexpr double kDefaultScaleDenominator = 0.5;

// Real value -> signed fixed point with 19 fraction bits; throws InputError
// naming `option` when it does not fit in 32 bits.
int32_t ToQ19(double value, const std::string &option);

// Header for a map of `size` from real-valued scale factors; ref_width 0
// means "the map's own width".
DisparityHeader MakeHeader(Size size, double numerator, double denominator, int ref_width);

// A disparity map with the header that goes with it.
struct DisparityMap {
  DisparityHeader header;
  Image samples;  // 1 channel
};

// Header + samples as one byte buffer (the weight engine's input).
std::vector<uint8_t> BuildDisparityFrame(const DisparityMap &map);

// Parses a complete disparity-frame file: the header's width and height must
// be positive and the file exactly 68 + width * height bytes. `name` for errors.
DisparityMap ParseDisparityFrame(const std::vector<uint8_t> &bytes, const std::string &name);

// Header fields straight from their byte offsets (little-endian).
DisparityHeader ReadHeader(const uint8_t *header);
void WriteHeader(const DisparityHeader &h, uint8_t *header);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_DISPARITY_H_
