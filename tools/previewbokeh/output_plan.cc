#include "output_plan.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <utility>

#include <sys/stat.h>

#include "console.h"
#include "errors.h"

namespace fs = std::filesystem;

namespace pbtool {
namespace {

std::string Describe(const OutputPlan::Entry &e) { return "'" + e.path + "' (" + e.what + ")"; }


}  // namespace

std::string ResolvePath(const std::string &path) {
  std::error_code ec;
  fs::path p = fs::weakly_canonical(fs::absolute(path, ec), ec);
  if (ec) p = fs::absolute(path, ec).lexically_normal();
  std::string s = p.string();
  // "dir/" and "dir" are one directory.
  while (s.size() > 1 && s.back() == '/') s.pop_back();
  return s;
}

bool PathIsWithin(const std::string &inner, const std::string &outer) {
  if (inner == outer) return true;
  if (outer == "/") return !inner.empty() && inner[0] == '/';
  return inner.size() > outer.size() && inner.compare(0, outer.size(), outer) == 0 &&
         inner[outer.size()] == '/';
}

void OutputPlan::AddInputFile(const std::string &path, const std::string &what) {
  input_files_.push_back({path, what, ResolvePath(path), false});
}

void OutputPlan::AddInputDirectory(const std::string &dir, const std::string &what) {
  input_dirs_.push_back({dir, what, ResolvePath(dir), false});
}

void OutputPlan::AddOutputFile(const std::string &path, const std::string &what, bool replaceable) {
  output_files_.push_back({path, what, ResolvePath(path), replaceable});
}

void OutputPlan::AddOutputDirectory(const std::string &dir, const std::string &what) {
  output_dirs_.push_back({dir, what, ResolvePath(dir), false});
}

void OutputPlan::Check(bool force) const {
  for (const Entry &dir : output_dirs_) {
    for (const Entry &in : input_dirs_) {
      if (PathIsWithin(dir.resolved, in.resolved)) {
        throw InputError(dir.what + ": output directory '" + dir.path + "'" +
                         (dir.resolved == in.resolved ? " is" : " lies inside") +
                         " the input directory " + Describe(in) + "; choose another output");
      }
    }
    std::error_code ec;
    if (fs::exists(dir.resolved, ec) && !fs::is_directory(dir.resolved, ec)) {
      throw InputError(dir.what + ": '" + dir.path + "' exists and is not a directory");
    }
  }
  // Inputs by resolved path and, for files that exist, by device and inode
  // (a hard link is the same file under another name).
  std::map<std::string, const Entry *> inputs_by_path;
  std::map<std::pair<dev_t, ino_t>, const Entry *> inputs_by_inode;
  for (const Entry &in : input_files_) {
    inputs_by_path.emplace(in.resolved, &in);
    struct stat st {};
    if (stat(in.resolved.c_str(), &st) == 0) inputs_by_inode.emplace(std::make_pair(st.st_dev, st.st_ino), &in);
  }
  for (const Entry &out : output_files_) {
    const Entry *in = nullptr;
    const auto by_path = inputs_by_path.find(out.resolved);
    struct stat st {};
    if (by_path != inputs_by_path.end()) {
      in = by_path->second;
    } else if (stat(out.resolved.c_str(), &st) == 0) {
      const auto by_inode = inputs_by_inode.find({st.st_dev, st.st_ino});
      if (by_inode != inputs_by_inode.end()) in = by_inode->second;
    }
    if (in) {
      throw InputError(out.what + ": '" + out.path + "' is the input " + Describe(*in) +
                       "; choose another output");
    }
    std::error_code ec;
    if (fs::is_directory(out.resolved, ec)) {
      throw InputError(out.what + ": '" + out.path + "' is a directory, not a file");
    }
    // Only output directories are made; a file's own directory must exist.
    const std::string parent = fs::path(out.resolved).parent_path().string();
    const bool planned = std::any_of(output_dirs_.begin(), output_dirs_.end(),
                                     [&](const Entry &d) { return PathIsWithin(parent, d.resolved); });
    if (!planned && !fs::is_directory(parent, ec)) {
      throw InputError(out.what + ": the directory of '" + out.path + "' does not exist");
    }
  }
  // Two outputs on one path: sorted by resolved path, equal ones are neighbours.
  std::vector<const Entry *> sorted;
  for (const Entry &e : output_files_) sorted.push_back(&e);
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const Entry *a, const Entry *b) { return a->resolved < b->resolved; });
  for (size_t i = 1; i < sorted.size(); ++i) {
    if (sorted[i - 1]->resolved == sorted[i]->resolved) {
      throw InputError(sorted[i]->what + ": '" + sorted[i]->path + "' is also written by " +
                       sorted[i - 1]->what + " as '" + sorted[i - 1]->path +
                       "'; one would replace the other");
    }
  }
  if (!force) {
    for (const Entry &e : output_files_) {
      std::error_code ec;
      if (!e.replaceable && fs::exists(e.resolved, ec)) {
        throw InputError(e.what + ": '" + e.path + "' exists; use --force to overwrite it");
      }
    }
  }
}

void CheckOutputsAndOpenLog(OutputPlan *plan, const GlobalFiles &global, bool force) {
  if (!global.assist.empty()) plan->AddInputFile(global.assist, "--assist");
  if (!global.library_log.empty() && global.library_log != "-") {
    plan->AddOutputFile(global.library_log, "--library-log", /*replaceable=*/true);
  }
  plan->Check(force);
  RedirectLibraryLog(global.library_log);
}

OutputCleanup::OutputCleanup(const OutputPlan &plan) {
  for (const auto &f : plan.output_files()) {
    std::error_code ec;
    if (!fs::exists(f.resolved, ec)) new_files_.push_back(f.resolved);
  }
  for (const auto &d : plan.output_directories()) AddDirectory(d.resolved);
}

void OutputCleanup::AddDirectory(const std::string &dir) {
  std::vector<std::string> missing;
  std::error_code ec;
  for (fs::path p = ResolvePath(dir); !p.empty() && !fs::exists(p, ec); p = p.parent_path()) {
    missing.push_back(p.string());
    if (p == p.parent_path()) break;
  }
  new_dirs_.insert(new_dirs_.end(), missing.rbegin(), missing.rend());
}

OutputCleanup::~OutputCleanup() {
  if (committed_) return;
  std::error_code ec;
  for (const std::string &f : new_files_) fs::remove(f, ec);
  // Children first; fs::remove leaves a directory that is not empty.
  for (auto it = new_dirs_.rbegin(); it != new_dirs_.rend(); ++it) fs::remove(*it, ec);
}

}  // namespace pbtool
