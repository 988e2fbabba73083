// Entry point of the fuzz targets in builds without libFuzzer: runs the target
// once on every file named on the command line (directories: every regular
// file inside, in name order). Exits non-zero when a path cannot be read; a
// failing check inside the target aborts.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

bool RunFile(const std::filesystem::path &path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return false;
  }
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  int runs = 0;
  bool ok = true;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path arg(argv[i]);
    std::error_code ec;
    if (std::filesystem::is_directory(arg, ec)) {
      std::vector<std::filesystem::path> files;
      for (const auto &entry : std::filesystem::directory_iterator(arg, ec)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
      }
      std::sort(files.begin(), files.end());
      for (const auto &f : files) {
        ok = RunFile(f) && ok;
        ++runs;
      }
    } else {
      ok = RunFile(arg) && ok;
      ++runs;
    }
  }
  // An empty input is a case too.
  LLVMFuzzerTestOneInput(nullptr, 0);
  std::printf("replayed %d inputs%s\n", runs, ok ? "" : " (some unreadable)");
  return ok ? 0 : 1;
}
