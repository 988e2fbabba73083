// The working ratio a handle chose, read back from the log lines of its
// iBokehInit (captured with pb::hooks::StartLogCapture), for the benchmarks
// that must know which path they measure.
#ifndef PREVIEWBOKEH_BENCH_INIT_LOG_H_
#define PREVIEWBOKEH_BENCH_INIT_LOG_H_

#include <cstdio>
#include <vector>

#include "platform/test_hooks.h"

namespace pbbench {

// The ratio of the "sigma:..." line, or -1 when there is none.
inline int RatioFromInitLog(const std::vector<pb::hooks::LogLine> &lines) {
  for (const auto &l : lines) {
    int ratio = 0;
    if (std::sscanf(l.text.c_str(), "sigma:%*f,SmoothWinSize:%*d,Scalingratio:%d", &ratio) == 1) {
      return ratio;
    }
  }
  return -1;
}

}  // namespace pbbench

#endif  // PREVIEWBOKEH_BENCH_INIT_LOG_H_
