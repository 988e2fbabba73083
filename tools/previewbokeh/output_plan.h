// Every file a run will write, checked against its inputs and against each
// other before anything is written, and the clean-up of what a failed run
// created.
#ifndef PREVIEWBOKEH_TOOL_OUTPUT_PLAN_H_
#define PREVIEWBOKEH_TOOL_OUTPUT_PLAN_H_

#include <string>
#include <vector>

namespace pbtool {

class OutputPlan {
 public:
  // `what` names the option (and frame) a path comes from, for messages.
  void AddInputFile(const std::string &path, const std::string &what);
  void AddInputDirectory(const std::string &dir, const std::string &what);
  // `replaceable`: an existing file is overwritten without --force (a log).
  void AddOutputFile(const std::string &path, const std::string &what, bool replaceable = false);
  // A directory the outputs go into; created when missing.
  void AddOutputDirectory(const std::string &dir, const std::string &what);

  // Throws InputError, with one message naming both paths, when an output is
  // an input, two outputs are one file, an output directory is or lies
  // inside an input directory, or (without `force`) an output file exists.
  void Check(bool force) const;

  struct Entry {
    std::string path;
    std::string what;
    std::string resolved;  // absolute, symlinks and dot components resolved
    bool replaceable = false;
  };
  const std::vector<Entry> &output_files() const { return output_files_; }
  const std::vector<Entry> &output_directories() const { return output_dirs_; }

 private:
  std::vector<Entry> input_files_, input_dirs_, output_files_, output_dirs_;
};

// The files of the tool's own options, shared by every subcommand: the
// assist library it loads (an input) and the --library-log file (an output
// replaced on every run; "-" is stderr, "" none).
struct GlobalFiles {
  std::string assist;
  std::string library_log;
};

// Adds the global files to `plan`, checks it (see OutputPlan::Check) and only
// then opens the library's log: a refused run truncates no file.
void CheckOutputsAndOpenLog(OutputPlan *plan, const GlobalFiles &global, bool force);

// Absolute form of `path` with symbolic links and "." / ".." resolved as far
// as the path exists (std::filesystem::weakly_canonical).
std::string ResolvePath(const std::string &path);

// True when `inner` equals `outer` or lies below it (resolved paths).
bool PathIsWithin(const std::string &inner, const std::string &outer);

// Removes, unless Commit() was called, the planned output files and
// directories that did not exist when it was made: a failed run leaves no
// empty or partial file or directory behind. Directories go only when empty.
class OutputCleanup {
 public:
  explicit OutputCleanup(const OutputPlan &plan);
  ~OutputCleanup();
  OutputCleanup(const OutputCleanup &) = delete;
  OutputCleanup &operator=(const OutputCleanup &) = delete;

  // Also removes `dir` (and its missing parents) on failure when it is missing now.
  void AddDirectory(const std::string &dir);
  // Also removes `dir`, made by this run, on failure (call parents first).
  void AddCreatedDirectory(const std::string &dir) { new_dirs_.push_back(dir); }
  void Commit() { committed_ = true; }

 private:
  std::vector<std::string> new_files_;
  std::vector<std::string> new_dirs_;  // parents before children
  bool committed_ = false;
};

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_OUTPUT_PLAN_H_
