#include "focus_track.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <sstream>

#include "errors.h"
#include "image_io.h"

namespace pbtool {
namespace {

std::string Trim(const std::string &s) {
  size_t b = 0, e = s.size();
  while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
  return s.substr(b, e - b);
}

bool ParseInt(const std::string &text, long *value) {
  if (text.empty()) return false;
  char *end = nullptr;
  errno = 0;
  *value = std::strtol(text.c_str(), &end, 10);
  return errno == 0 && end && *end == '\0';
}

std::vector<std::string> SplitFields(const std::string &line) {
  std::vector<std::string> fields;
  std::stringstream ss(line);
  std::string field;
  while (std::getline(ss, field, ',')) fields.push_back(Trim(field));
  if (!line.empty() && line.back() == ',') fields.push_back("");
  return fields;
}

}  // namespace

std::vector<FocusKey> ParseFocusTrack(const std::string &text, const std::string &name,
                                      int frame_count, Size frame) {
  std::vector<FocusKey> keys;
  std::stringstream in(text);
  std::string raw;
  bool first_data_line = true;
  std::map<long, int> line_of_frame;
  for (int line_no = 1; std::getline(in, raw); ++line_no) {
    const std::string line = Trim(raw.substr(0, raw.find('#')));
    if (line.empty()) continue;
    const std::vector<std::string> f = SplitFields(line);
    auto fail = [&](const std::string &problem) {
      throw InputError("--focus-track: " + name + " line " + std::to_string(line_no) + ": " + problem);
    };
    long v[4] = {0, 0, 0, 0};
    const bool numeric_start = ParseInt(f[0], &v[0]);
    if (first_data_line && !numeric_start) {  // header
      first_data_line = false;
      continue;
    }
    first_data_line = false;
    if (f.size() != 3 && f.size() != 4) {
      fail("'" + line + "' has " + std::to_string(f.size()) +
           " fields; expected frame,x,y or frame,x,y,F_number");
    }
    static const char *const kField[] = {"frame", "x", "y", "F_number"};
    for (size_t i = 0; i < f.size(); ++i) {
      if (!ParseInt(f[i], &v[i])) fail(std::string(kField[i]) + " '" + f[i] + "' is not a whole number");
    }
    if (v[0] < 0 || v[0] >= frame_count) {
      fail("frame " + std::to_string(v[0]) + " is outside 0.." + std::to_string(frame_count - 1));
    }
    if (v[1] < 0 || v[1] >= frame.width || v[2] < 0 || v[2] >= frame.height) {
      fail("focus " + std::to_string(v[1]) + "," + std::to_string(v[2]) + " is outside the " +
           ToString(frame) + " frame");
    }
    if (f.size() == 4 && (v[3] < 1 || v[3] > 20)) {
      fail("F_number " + std::to_string(v[3]) + " is outside 1..20");
    }
    const auto seen = line_of_frame.emplace(v[0], line_no);
    if (!seen.second) {
      fail("frame " + std::to_string(v[0]) + " already has line " + std::to_string(seen.first->second));
    }
    FocusKey key;
    key.frame = static_cast<int>(v[0]);
    key.focus = {static_cast<int>(v[1]), static_cast<int>(v[2])};
    key.f_number = static_cast<int>(v[3]);
    key.line = line_no;
    keys.push_back(key);
  }
  if (keys.empty()) throw InputError("--focus-track: " + name + ": no frame,x,y lines");
  std::stable_sort(keys.begin(), keys.end(),
                   [](const FocusKey &a, const FocusKey &b) { return a.frame < b.frame; });
  return keys;
}

std::vector<FocusKey> LoadFocusTrack(const std::string &path, int frame_count, Size frame) {
  const std::vector<uint8_t> bytes = ReadFileBytes(path);
  return ParseFocusTrack(std::string(bytes.begin(), bytes.end()), path, frame_count, frame);
}

std::vector<FrameFocus> ExpandFocusTrack(const std::vector<FocusKey> &keys, int frame_count,
                                         FrameFocus initial) {
  std::vector<FrameFocus> frames(static_cast<size_t>(std::max(frame_count, 0)));
  FrameFocus current = initial;
  size_t k = 0;
  for (int i = 0; i < frame_count; ++i) {
    for (; k < keys.size() && keys[k].frame <= i; ++k) {
      current.focus = keys[k].focus;
      if (keys[k].f_number != 0) current.f_number = keys[k].f_number;
    }
    frames[static_cast<size_t>(i)] = current;
  }
  return frames;
}

}  // namespace pbtool
