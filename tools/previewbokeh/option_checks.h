// Range checks of render's numeric options, one documented range each, and
// the disparity-versus-frame shape warning.
#ifndef PREVIEWBOKEH_TOOL_OPTION_CHECKS_H_
#define PREVIEWBOKEH_TOOL_OPTION_CHECKS_H_

#include <string>

#include "cli.h"

namespace pbtool {

// Scale factors are written to the disparity header as 32-bit numbers with
// 19 fraction bits: the smallest positive value is 1/524288, the largest
// about 4095.998.
constexpr double kMinScaleFactor = 1.0 / 524288.0;
constexpr double kMaxScaleFactor = 2147483647.0 / 524288.0;
constexpr int kMaxRefWidth = 65535;

// Throws InputError naming `option` unless kMinScaleFactor <= value <= kMaxScaleFactor.
void CheckScaleFactor(double value, const std::string &option);
// Throws InputError unless 1 <= value <= kMaxRefWidth.
void CheckRefWidth(int value, const std::string &option);
// Throws InputError unless 1 <= value <= 100.
void CheckJpegQuality(int value, const std::string &option);

// A warning line when the map's width/height ratio differs from the frame's
// by more than 1 % (the library stretches the map over the frame), else "".
std::string AspectWarning(Size frame, Size disparity, const std::string &disparity_name);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_OPTION_CHECKS_H_
