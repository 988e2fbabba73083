// --json: the timings of render and bench as a JSON document.
#ifndef PREVIEWBOKEH_TOOL_TIMING_JSON_H_
#define PREVIEWBOKEH_TOOL_TIMING_JSON_H_

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "console.h"

namespace pbtool {

// {"count", "min_ms", "median_ms", "p95_ms", "mean_ms", "fps"}
nlohmann::json StatsToJson(const TimingStats &stats);

// One object per frame: {"frame", "name", "weights_ms", "blur_ms"}; the
// vectors have one entry per frame, `first_index` is the first frame's index.
nlohmann::json FramesToJson(int first_index, const std::vector<std::string> &names,
                            const std::vector<double> &weight_ms, const std::vector<double> &blur_ms);

// Writes the document (indented); throws InputError naming --json.
void WriteJsonFile(const std::string &path, const nlohmann::json &document);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_TIMING_JSON_H_
