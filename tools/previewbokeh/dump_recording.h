// Recording the library's debug dumps from the tool: the library writes them
// only when its save property is exactly "yes", joins the path property and
// the file name without a separator, and reports a failed fopen only in its
// log. The tool checks and prepares both properties before a handle is
// created, and counts what was written afterwards.
#ifndef PREVIEWBOKEH_TOOL_DUMP_RECORDING_H_
#define PREVIEWBOKEH_TOOL_DUMP_RECORDING_H_

#include <ctime>
#include <map>
#include <string>
#include <vector>

namespace pbtool {

constexpr char kSaveEnvironment[] = "PERSIST_VENDOR_CAM_PREBOKEH_SAVE";
constexpr char kPathEnvironment[] = "PERSIST_VENDOR_CAM_PREBOKEH_PATH";
constexpr char kDefaultDumpPath[] = "/data/vendor/cameraserver/";

// True for the file names the library gives its frame dumps.
bool IsFrameDumpName(const std::string &file_name);

class DumpRecording {
 public:
  // Reads the save and path properties from the environment. Warnings go to
  // `warnings`. When recording: appends a missing '/' to the path property
  // (in the environment, for the library) and creates the directory, or
  // throws InputError when it cannot. `created_dirs` receives the
  // directories this made, parents first.
  DumpRecording(std::vector<std::string> *warnings, std::vector<std::string> *created_dirs);

  bool active() const { return active_; }
  const std::string &directory() const { return dir_; }
  // Dump files written (new or rewritten) since the constructor ran.
  int CountWritten() const;

 private:
  bool active_ = false;
  std::string dir_;
  std::map<std::string, timespec> before_;  // file name -> modification time
};

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_DUMP_RECORDING_H_
