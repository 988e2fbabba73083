#include "y4m.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>

#include "errors.h"

namespace pbtool {
namespace {

constexpr char kMagic[] = "YUV4MPEG2";
constexpr size_t kMaxLine = 4096;  // longest header line accepted

bool ParseInt(const std::string &text, int *value) {
  if (text.empty() || text.size() > 9) return false;
  int v = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    v = v * 10 + (c - '0');
  }
  *value = v;
  return true;
}

// "N:D" with non-negative integers.
bool ParseRatio(const std::string &text, int *num, int *den) {
  const size_t colon = text.find(':');
  return colon != std::string::npos && ParseInt(text.substr(0, colon), num) &&
         ParseInt(text.substr(colon + 1), den);
}

// Reads up to and including '\n'; false at end of file before any byte, or
// when the line is longer than kMaxLine (then *line holds what was read).
bool ReadLine(std::FILE *f, std::string *line, bool *too_long) {
  line->clear();
  *too_long = false;
  int c;
  while ((c = std::fgetc(f)) != EOF) {
    if (c == '\n') return true;
    if (line->size() == kMaxLine) {
      *too_long = true;
      return false;
    }
    line->push_back(static_cast<char>(c));
  }
  return false;
}

}  // namespace

Y4mHeader ParseY4mHeader(const std::string &line, const std::string &name) {
  std::istringstream words(line);
  std::string word;
  if (!(words >> word) || word != kMagic) {
    throw InputError(name + ": not a YUV4MPEG2 stream (no 'YUV4MPEG2' header)");
  }
  Y4mHeader h;
  bool has_w = false, has_h = false;
  while (words >> word) {
    const char tag = word[0];
    const std::string value = word.substr(1);
    const auto bad = [&](const std::string &why) {
      return InputError(name + ": y4m header tag '" + word + "': " + why);
    };
    switch (tag) {
      case 'W':
        if (!ParseInt(value, &h.size.width) || h.size.width == 0) throw bad("not a width");
        has_w = true;
        break;
      case 'H':
        if (!ParseInt(value, &h.size.height) || h.size.height == 0) throw bad("not a height");
        has_h = true;
        break;
      case 'F':
        if (!ParseRatio(value, &h.fps_num, &h.fps_den) || h.fps_num == 0 || h.fps_den == 0) {
          throw bad("not a frame rate N:D");
        }
        break;
      case 'A': {
        int n, d;
        if (!ParseRatio(value, &n, &d)) throw bad("not a pixel aspect N:D");
        h.aspect = value;
        break;
      }
      case 'I':
        if (value != "p" && value != "t" && value != "b" && value != "m" && value != "?") {
          throw bad("interlacing is not one of p, t, b, m, ?");
        }
        h.interlace = value;
        break;
      case 'C':
        if (value != "420jpeg" && value != "420paldv" && value != "420mpeg2" && value != "420") {
          throw InputError(name + ": y4m chroma mode C" + value +
                           " is not supported (only 4:2:0: C420jpeg, C420paldv, C420mpeg2, C420)");
        }
        h.chroma = value;
        break;
      case 'X':
        h.extensions.push_back(value);
        break;
      default:
        throw bad("unknown tag");
    }
  }
  if (!has_w || !has_h) throw InputError(name + ": y4m header has no " + (has_w ? "H" : "W") + " tag");
  CheckFrameSize(h.size, name);
  return h;
}

std::string FormatY4mHeader(const Y4mHeader &h) {
  std::string line = std::string(kMagic) + " W" + std::to_string(h.size.width) + " H" +
                     std::to_string(h.size.height) + " F" + std::to_string(h.fps_num) + ":" +
                     std::to_string(h.fps_den) + " I" + h.interlace + " A" + h.aspect + " C" +
                     h.chroma;
  for (const std::string &x : h.extensions) line += " X" + x;
  return line + "\n";
}

Y4mIndex IndexY4m(const std::string &path) {
  std::unique_ptr<std::FILE, int (*)(std::FILE *)> f(std::fopen(path.c_str(), "rb"), std::fclose);
  if (!f) throw InputError(path + ": cannot open: " + std::strerror(errno));
  if (std::fseek(f.get(), 0, SEEK_END) != 0) throw InputError(path + ": cannot seek");
  const long end_pos = std::ftell(f.get());
  std::rewind(f.get());
  if (end_pos < 0) throw InputError(path + ": cannot seek");
  const uint64_t file_bytes = static_cast<uint64_t>(end_pos);

  Y4mIndex index;
  std::string line;
  bool too_long;
  if (!ReadLine(f.get(), &line, &too_long)) {
    if (line.compare(0, std::strlen(kMagic), kMagic) != 0) {
      throw InputError(path + ": not a YUV4MPEG2 stream (no 'YUV4MPEG2' header)");
    }
    throw InputError(path + ": y4m header line " +
                     (too_long ? "longer than " + std::to_string(kMaxLine) + " bytes" : "not ended"));
  }
  index.header = ParseY4mHeader(line, path);
  const uint64_t frame_bytes =
      static_cast<uint64_t>(index.header.size.width) * index.header.size.height * 3 / 2;
  for (;;) {
    const long pos = std::ftell(f.get());
    if (pos < 0) throw InputError(path + ": cannot seek");
    if (static_cast<uint64_t>(pos) == file_bytes) break;
    const std::string frame = "frame " + std::to_string(index.frame_offsets.size());
    if (!ReadLine(f.get(), &line, &too_long) || line.compare(0, 5, "FRAME") != 0 ||
        (line.size() > 5 && line[5] != ' ')) {
      throw InputError(path + ": " + frame + " at byte " + std::to_string(pos) +
                       " does not start with a FRAME line");
    }
    const uint64_t data = static_cast<uint64_t>(std::ftell(f.get()));
    if (file_bytes - data < frame_bytes) {
      throw InputError(path + ": " + frame + " is cut short: " + std::to_string(file_bytes - data) +
                       " of " + std::to_string(frame_bytes) + " bytes of a " +
                       ToString(index.header.size) + " frame");
    }
    index.frame_offsets.push_back(data);
    if (std::fseek(f.get(), static_cast<long>(data + frame_bytes), SEEK_SET) != 0) {
      throw InputError(path + ": cannot seek");
    }
  }
  if (index.frame_offsets.empty()) throw InputError(path + ": y4m stream holds no frame");
  return index;
}

}  // namespace pbtool
