#include "cli.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <filesystem>
#include <regex>

#include "errors.h"

namespace pbtool {
namespace {

// Parses a whole string of decimal digits into a non-negative int; false on
// anything else (signs, blanks, overflow).
bool ParseNonNegative(const std::string &text, int *value) {
  if (text.empty() || text.size() > 9) return false;
  long v = 0;
  for (char c : text) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    v = v * 10 + (c - '0');
  }
  *value = static_cast<int>(v);
  return true;
}

}  // namespace

Size ParseSize(const std::string &text, const std::string &option) {
  const size_t sep = text.find_first_of("xX*");
  Size s;
  if (sep == std::string::npos || !ParseNonNegative(text.substr(0, sep), &s.width) ||
      !ParseNonNegative(text.substr(sep + 1), &s.height)) {
    throw InputError(option + ": '" + text + "' is not a size of the form WxH (e.g. 1920x1080)");
  }
  if (s.width == 0 || s.height == 0) {
    throw InputError(option + ": '" + text + "' has a zero side");
  }
  return s;
}

Point ParsePoint(const std::string &text, const std::string &option) {
  const size_t sep = text.find(',');
  Point p;
  if (sep == std::string::npos || !ParseNonNegative(text.substr(0, sep), &p.x) ||
      !ParseNonNegative(text.substr(sep + 1), &p.y)) {
    throw InputError(option + ": '" + text + "' is not a point of the form X,Y (e.g. 960,540)");
  }
  return p;
}

void CheckFrameSize(const Size &size, const std::string &what) {
  if (size.width % 2 != 0 || size.height % 2 != 0) {
    throw InputError(what + ": size " + ToString(size) +
                     " is odd; YUV 4:2:0 frames need an even width and height");
  }
  if (size.width < kMinFrameSide || size.height < kMinFrameSide || size.width > kMaxFrameSide ||
      size.height > kMaxFrameSide) {
    throw InputError(what + ": size " + ToString(size) + " is outside " +
                     std::to_string(kMinFrameSide) + ".." + std::to_string(kMaxFrameSide) +
                     " pixels per side");
  }
}

std::optional<Size> SizeInFileName(const std::string &path) {
  static const std::regex token("(?:^|[^A-Za-z0-9])([1-9][0-9]{0,4})[xX]([1-9][0-9]{0,4})(?![0-9])");
  const std::string name = std::filesystem::path(path).filename().string();
  std::optional<Size> found;
  for (std::sregex_iterator it(name.begin(), name.end(), token), end; it != end; ++it) {
    const Size s{std::stoi((*it)[1].str()), std::stoi((*it)[2].str())};
    if (found && *found != s) return std::nullopt;  // ambiguous
    found = s;
  }
  return found;
}

std::string ToString(const Size &size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

std::string LowerExtension(const std::string &path) {
  std::string ext = std::filesystem::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext;
}

}  // namespace pbtool
