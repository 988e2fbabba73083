#include "option_checks.h"

#include <cmath>
#include <cstdio>

#include "errors.h"

namespace pbtool {

void CheckScaleFactor(double value, const std::string &option) {
  // Rounded to the nearest 1/524288 as the header stores it.
  const double q19 = std::round(value * 524288.0);
  if (!std::isfinite(value) || q19 < 1.0 || q19 > 2147483647.0) {
    char text[64];
    std::snprintf(text, sizeof text, "%g", value);
    throw InputError(option + ": " + text +
                     " is outside 0.0000019..4095.998: the disparity header holds it as a positive "
                     "32-bit number with 19 fraction bits");
  }
}

void CheckRefWidth(int value, const std::string &option) {
  if (value < 1 || value > kMaxRefWidth) {
    throw InputError(option + ": " + std::to_string(value) + " is outside 1.." +
                     std::to_string(kMaxRefWidth));
  }
}

void CheckJpegQuality(int value, const std::string &option) {
  if (value < 1 || value > 100) {
    throw InputError(option + ": " + std::to_string(value) + " is outside 1..100");
  }
}

std::string AspectWarning(Size frame, Size disparity, const std::string &disparity_name) {
  const double frame_aspect = static_cast<double>(frame.width) / frame.height;
  const double map_aspect = static_cast<double>(disparity.width) / disparity.height;
  if (std::fabs(map_aspect / frame_aspect - 1.0) <= 0.01) return "";
  return disparity_name + ": the disparity map's shape " + ToString(disparity) +
         " differs from the frame's " + ToString(frame) +
         " by more than 1 %; the library stretches it over the frame";
}

}  // namespace pbtool
