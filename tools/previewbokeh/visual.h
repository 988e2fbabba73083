// Pictures for people: colour-mapped weight maps, panels side by side,
// downscaling.
#ifndef PREVIEWBOKEH_TOOL_VISUAL_H_
#define PREVIEWBOKEH_TOOL_VISUAL_H_

#include <cstdint>
#include <vector>

#include "cli.h"
#include "image_io.h"

namespace pbtool {

// Weight 0 (sharp) is dark blue-violet, 512 teal, 1024 (fully blurred) yellow;
// values above 1024 show as 1024.
Image ColourMapWeights(const uint16_t *weights, Size size);

// RGB panels of one height left to right, `gap` white pixels between them.
Image SideBySide(const std::vector<const Image *> &panels, int gap);

// Box-filtered downscale of an RGB image to `width` (height in proportion);
// returns a copy when width >= the image's width or width <= 0.
Image ScaleToWidth(const Image &rgb, int width);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_VISUAL_H_
