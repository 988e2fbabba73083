// Which reduced-resolution ratio a bokeh handle will use: the one asked for
// with --ratio or in the environment when the library honours it at the
// frame size, else 1 (full resolution).
#ifndef PREVIEWBOKEH_TOOL_RATIO_CHOICE_H_
#define PREVIEWBOKEH_TOOL_RATIO_CHOICE_H_

#include <string>

#include "cli.h"

namespace pbtool {

struct RatioChoice {
  std::string asked;   // the value asked for ("" when none)
  std::string source;  // "--ratio" or the environment variable
  int used = 1;
  std::string reason;  // why `asked` is not used ("" when it is, or nothing was asked)
};

// `option_ratio` 0 means "as the environment has it".
RatioChoice ChooseRatio(Size frame, int option_ratio);

// "ratio 4, reduced path" or "ratio 1, full resolution (<reason>)".
std::string DescribeRatio(const RatioChoice &choice);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_RATIO_CHOICE_H_
