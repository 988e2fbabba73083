#include "dump_recording.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "errors.h"

namespace fs = std::filesystem;

namespace pbtool {
namespace {

// Dump file names and modification times in `dir`.
std::map<std::string, timespec> ListDumps(const std::string &dir) {
  std::map<std::string, timespec> files;
  std::error_code ec;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    struct stat st {};
    if (IsFrameDumpName(name) && stat(it->path().c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
      files[name] = st.st_mtim;
    }
  }
  return files;
}

bool StartsWith(const std::string &s, const char *prefix) { return s.rfind(prefix, 0) == 0; }

}  // namespace

bool IsFrameDumpName(const std::string &name) {
  const std::string suffix = ".img";
  return (StartsWith(name, "imagein_") || StartsWith(name, "weightin_") ||
          StartsWith(name, "imageout_")) &&
         name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
}

DumpRecording::DumpRecording(std::vector<std::string> *warnings, std::vector<std::string> *created_dirs) {
  const char *save = std::getenv(kSaveEnvironment);
  if (!save || !*save) return;
  const std::string value = save;
  if (value != "yes") {
    if (value != "no") {
      warnings->push_back(std::string(kSaveEnvironment) + "=" + value +
                          " records nothing: the library records dumps only when it is exactly 'yes'");
    }
    return;
  }
  const char *path = std::getenv(kPathEnvironment);
  dir_ = path && *path ? path : kDefaultDumpPath;
  if (dir_.back() != '/') {
    warnings->push_back(std::string(kPathEnvironment) + "=" + dir_ +
                        " does not end in '/': using '" + dir_ +
                        "/' (the library puts the file name straight after it)");
    dir_ += '/';
    setenv(kPathEnvironment, dir_.c_str(), 1);
  }
  std::error_code ec;
  std::vector<std::string> missing;
  const fs::path target = fs::absolute(dir_.size() > 1 ? dir_.substr(0, dir_.size() - 1) : dir_, ec);
  for (fs::path p = target.lexically_normal(); !p.empty() && !fs::exists(p, ec);
       p = p.parent_path()) {
    missing.insert(missing.begin(), p.string());
    if (p == p.parent_path()) break;
  }
  fs::create_directories(dir_, ec);
  if (ec || !fs::is_directory(dir_)) {
    throw InputError(std::string(kPathEnvironment) + ": cannot create the dump directory '" + dir_ +
                     "'" + (ec ? ": " + ec.message() : std::string()));
  }
  created_dirs->insert(created_dirs->end(), missing.begin(), missing.end());
  active_ = true;
  before_ = ListDumps(dir_);
}

int DumpRecording::CountWritten() const {
  if (!active_) return 0;
  int count = 0;
  for (const auto &f : ListDumps(dir_)) {
    const auto old = before_.find(f.first);
    count += old == before_.end() || old->second.tv_sec != f.second.tv_sec ||
             old->second.tv_nsec != f.second.tv_nsec;
  }
  return count;
}

}  // namespace pbtool
