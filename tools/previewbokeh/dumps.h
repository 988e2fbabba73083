// The library's debug dumps: "<name>_<W>x<H>_<stamp>.img" files of raw bytes.
#ifndef PREVIEWBOKEH_TOOL_DUMPS_H_
#define PREVIEWBOKEH_TOOL_DUMPS_H_

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "cli.h"

namespace pbtool {

// Parsed dump file name.
struct DumpName {
  std::string name;   // "imagein", "weightin", "imageout", ...
  Size size;
  std::string stamp;  // "20210719112539" (may be empty)
};

// Parses "<name>_<W>x<H>_<stamp>.img"; false when the file name has another form.
bool ParseDumpName(const std::string &file_name, DumpName *out);

// One recorded frame: the dumps of one size and stamp.
struct DumpSet {
  Size size;
  std::string stamp;
  std::string imagein, weightin, imageout;  // paths, empty when absent
};

// Groups the dumps of a directory by size and stamp, in name order.
// Throws InputError when the directory cannot be read.
std::map<std::tuple<int, int, std::string>, DumpSet> FindDumps(const std::string &dir);

// The bytes of a dump, which must be `expected` long for the size its name
// gives; throws InputError naming the file otherwise.
std::vector<uint8_t> ReadDumpBytes(const std::string &path, size_t expected);

// A weightin dump: width x height 16-bit little-endian weights.
std::vector<uint16_t> ReadDumpWeights(const std::string &path, Size size);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_DUMPS_H_
