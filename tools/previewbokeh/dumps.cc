#include "dumps.h"

#include <cctype>
#include <filesystem>

#include "errors.h"
#include "image_io.h"

namespace fs = std::filesystem;

namespace pbtool {
namespace {

bool AllDigits(const std::string &s) {
  if (s.empty() || s.size() > 5) return false;
  for (char c : s) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

}  // namespace

bool ParseDumpName(const std::string &file_name, DumpName *out) {
  const std::string suffix = ".img";
  if (file_name.size() <= suffix.size() ||
      file_name.compare(file_name.size() - suffix.size(), suffix.size(), suffix) != 0) {
    return false;
  }
  const std::string base = file_name.substr(0, file_name.size() - suffix.size());
  // The stamp follows the last '_', the size the one before it; names may hold '_'.
  const size_t stamp_sep = base.rfind('_');
  if (stamp_sep == std::string::npos || stamp_sep == 0) return false;
  const size_t size_sep = base.rfind('_', stamp_sep - 1);
  if (size_sep == std::string::npos || size_sep == 0) return false;
  const std::string size = base.substr(size_sep + 1, stamp_sep - size_sep - 1);
  const size_t x = size.find('x');
  if (x == std::string::npos || !AllDigits(size.substr(0, x)) || !AllDigits(size.substr(x + 1))) {
    return false;
  }
  out->name = base.substr(0, size_sep);
  out->size = {std::stoi(size.substr(0, x)), std::stoi(size.substr(x + 1))};
  out->stamp = base.substr(stamp_sep + 1);
  return true;
}

std::map<std::tuple<int, int, std::string>, DumpSet> FindDumps(const std::string &dir) {
  std::error_code ec;
  if (!fs::is_directory(dir, ec)) throw InputError(dir + ": not a directory");
  std::map<std::tuple<int, int, std::string>, DumpSet> sets;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    DumpName n;
    if (!it->is_regular_file() || !ParseDumpName(it->path().filename().string(), &n)) continue;
    std::string *slot = nullptr;
    DumpSet &set = sets[{n.size.width, n.size.height, n.stamp}];
    set.size = n.size;
    set.stamp = n.stamp;
    if (n.name == "imagein") slot = &set.imagein;
    if (n.name == "weightin") slot = &set.weightin;
    if (n.name == "imageout") slot = &set.imageout;
    if (slot) *slot = it->path().string();
  }
  if (ec) throw InputError(dir + ": cannot list: " + ec.message());
  return sets;
}

std::vector<uint8_t> ReadDumpBytes(const std::string &path, size_t expected) {
  std::vector<uint8_t> bytes = ReadFileBytes(path);
  if (bytes.size() != expected) {
    throw InputError(path + ": " + std::to_string(bytes.size()) + " bytes, expected " +
                     std::to_string(expected) + " for its size");
  }
  return bytes;
}

std::vector<uint16_t> ReadDumpWeights(const std::string &path, Size size) {
  const size_t pixels = static_cast<size_t>(size.width) * size.height;
  const std::vector<uint8_t> bytes = ReadDumpBytes(path, pixels * 2);
  std::vector<uint16_t> weights(pixels);
  for (size_t k = 0; k < pixels; ++k) {
    weights[k] = static_cast<uint16_t>(bytes[2 * k] | bytes[2 * k + 1] << 8);
  }
  return weights;
}

}  // namespace pbtool
