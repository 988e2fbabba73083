#include "ratio_choice.h"

#include <cstdlib>

#include "pipeline.h"

namespace pbtool {

RatioChoice ChooseRatio(Size frame, int option_ratio) {
  RatioChoice c;
  if (option_ratio != 0) {
    c.asked = std::to_string(option_ratio);
    c.source = "--ratio";
  } else if (const char *env = std::getenv(kRatioEnvironment); env && *env) {
    c.asked = env;
    c.source = kRatioEnvironment;
  } else {
    return c;
  }
  // The library's reading of the property: a whole number 2, 4, 6 or 8.
  char *end = nullptr;
  const long n = std::strtol(c.asked.c_str(), &end, 10);
  if (end == c.asked.c_str() || *end != '\0' || (n != 1 && n != 2 && n != 4 && n != 6 && n != 8)) {
    c.reason = c.source + " " + c.asked + " is not one of 2, 4, 6, 8";
    return c;
  }
  c.reason = RatioSizeProblem(frame, static_cast<int>(n));
  if (c.reason.empty()) c.used = static_cast<int>(n);
  return c;
}

std::string DescribeRatio(const RatioChoice &c) {
  if (c.used > 1) return "ratio " + std::to_string(c.used) + ", reduced path";
  return "ratio 1, full resolution" + (c.reason.empty() ? std::string() : " (" + c.reason + ")");
}

}  // namespace pbtool
