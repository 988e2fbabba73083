// --fill-holes: disparity samples of 0 mark pixels without a measurement.
#ifndef PREVIEWBOKEH_TOOL_FILL_HOLES_H_
#define PREVIEWBOKEH_TOOL_FILL_HOLES_H_

#include "image_io.h"

namespace pbtool {

// Replaces each 0 sample of a 1-channel map by the nearest non-zero sample of
// its row (the left one when two are equally near); samples of rows without
// any then take the nearest non-zero value of their column after that row
// pass (the upper one on a tie). A map of zeros only is left as it is.
// Returns the number of samples that were 0.
int FillDisparityHoles(Image *map);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_FILL_HOLES_H_
