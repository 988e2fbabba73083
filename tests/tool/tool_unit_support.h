// Helpers of the unit tests: the message of an InputError, and a fresh
// temporary working directory per test.
#ifndef PREVIEWBOKEH_TESTS_TOOL_UNIT_SUPPORT_H_
#define PREVIEWBOKEH_TESTS_TOOL_UNIT_SUPPORT_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "errors.h"

namespace pbtool_unit {

// Runs `fn` and returns the InputError message ("" when none was thrown).
inline std::string InputErrorOf(const std::function<void()> &fn) {
  try {
    fn();
  } catch (const pbtool::InputError &e) {
    return e.what();
  }
  return "";
}

// Each test runs in a fresh temporary directory, its working directory,
// removed with everything in it afterwards.
class InTempDir : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = (std::filesystem::temp_directory_path() / "pbtool_unit_XXXXXX").string();
    ASSERT_NE(mkdtemp(dir_.data()), nullptr);
    std::filesystem::current_path(dir_);
  }
  void TearDown() override {
    std::error_code ec;
    std::filesystem::current_path(home_, ec);
    std::filesystem::remove_all(dir_, ec);
  }
  // A small file to name as an input.
  static void Touch(const std::string &path) { std::ofstream(path) << "x"; }
  // Absolute path of `name` in the directory.
  std::string Path(const std::string &name) const { return (std::filesystem::path(dir_) / name).string(); }

  const std::filesystem::path home_ = std::filesystem::current_path();
  std::string dir_;
};

}  // namespace pbtool_unit

#endif  // PREVIEWBOKEH_TESTS_TOOL_UNIT_SUPPORT_H_
