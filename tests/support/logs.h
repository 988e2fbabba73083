// Captures the library's log lines for the lifetime of the object.
#ifndef PREVIEWBOKEH_TESTS_SUPPORT_LOGS_H_
#define PREVIEWBOKEH_TESTS_SUPPORT_LOGS_H_

#include <string>
#include <vector>

#include "platform/test_hooks.h"

namespace pbtest {

class LogCapture {
 public:
  LogCapture() { pb::hooks::StartLogCapture(); }
  ~LogCapture() { if (!taken_) pb::hooks::StopLogCapture(); }
  // Ends the capture; returns the lines recorded.
  std::vector<pb::hooks::LogLine> Take() {
    taken_ = true;
    return pb::hooks::StopLogCapture();
  }
  // Ends the capture; returns only the texts.
  std::vector<std::string> Texts();

 private:
  bool taken_ = false;
};

// True when some line equals text exactly.
bool HasLine(const std::vector<std::string> &lines, const std::string &text);
// True when some line starts with prefix.
bool HasPrefix(const std::vector<std::string> &lines, const std::string &prefix);

// The scaling ratio a handle chose, from its init log line; -1 when absent.
int RatioFromInitLog(const std::vector<std::string> &lines);

}  // namespace pbtest

#endif  // PREVIEWBOKEH_TESTS_SUPPORT_LOGS_H_
