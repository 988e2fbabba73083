#include "timing_json.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "errors.h"

namespace pbtool {

nlohmann::json StatsToJson(const TimingStats &s) {
  return {{"count", s.count}, {"min_ms", s.min_ms},   {"median_ms", s.median_ms},
          {"p95_ms", s.p95_ms}, {"mean_ms", s.mean_ms}, {"fps", s.fps}};
}

nlohmann::json FramesToJson(int first_index, const std::vector<std::string> &names,
                            const std::vector<double> &weight_ms, const std::vector<double> &blur_ms) {
  nlohmann::json frames = nlohmann::json::array();
  for (size_t i = 0; i < weight_ms.size() && i < blur_ms.size(); ++i) {
    nlohmann::json f = {{"frame", first_index + static_cast<int>(i)},
                        {"weights_ms", weight_ms[i]},
                        {"blur_ms", blur_ms[i]}};
    if (i < names.size()) f["name"] = names[i];
    frames.push_back(std::move(f));
  }
  return frames;
}

void WriteJsonFile(const std::string &path, const nlohmann::json &document) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) throw InputError("--json: cannot create '" + path + "': " + std::strerror(errno));
  out << document.dump(2) << '\n';
  out.close();
  if (!out) throw InputError("--json: cannot write '" + path + "'");
}

}  // namespace pbtool
