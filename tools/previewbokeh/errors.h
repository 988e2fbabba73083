// Error kinds of the tool and the exit status each one maps to.
#ifndef PREVIEWBOKEH_TOOL_ERRORS_H_
#define PREVIEWBOKEH_TOOL_ERRORS_H_

#include <stdexcept>
#include <string>

namespace pbtool {

// Exit statuses of the tool.
constexpr int kExitOk = 0;
constexpr int kExitLibraryFailure = 1;  // a library call returned a failure status
constexpr int kExitBadInput = 2;        // bad option, missing or malformed file

// Something the user gave us is wrong: a file, a size, an option value.
// The message names the file or option and the problem.
class InputError : public std::runtime_error {
 public:
  explicit InputError(const std::string &message) : std::runtime_error(message) {}
};

// A library (or assist library) call failed; the message carries its status.
class LibraryError : public std::runtime_error {
 public:
  explicit LibraryError(const std::string &message) : std::runtime_error(message) {}
};

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_ERRORS_H_
