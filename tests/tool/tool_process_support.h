// Helpers of the process tests: run the built tool in a fresh temporary
// directory that holds the demo's 320x240 input and disparity map.
#ifndef PREVIEWBOKEH_TESTS_TOOL_PROCESS_SUPPORT_H_
#define PREVIEWBOKEH_TESTS_TOOL_PROCESS_SUPPORT_H_

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "image_io.h"

namespace pbtool_process {

namespace fs = std::filesystem;
using Args = std::vector<std::string>;

constexpr auto npos = std::string::npos;
// The demo's input and disparity map, written by SetUp.
constexpr char kIn[] = "demo/input.png", kDisp[] = "demo/disparity.png";

struct Result { int status; std::string out, err; };

inline std::string Quote(const std::string &s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

inline std::string Slurp(const std::string &path) {
  std::ifstream f(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(f), {}};
}

// The render arguments; no --disparity when `disparity` is empty.
inline Args RenderArgs(const std::string &image, const std::string &disparity, const std::string &out,
                       Args extra = {}) {
  Args a = {"render", "--image", image, "--out", out};
  if (!disparity.empty()) a.insert(a.end(), {"--disparity", disparity});
  a.insert(a.end(), extra.begin(), extra.end());
  return a;
}

inline bool SamePixel(const pbtool::Image &a, const pbtool::Image &b, int x, int y) {
  return std::memcmp(a.Row(y) + 3 * x, b.Row(y) + 3 * x, 3) == 0;
}

// Each test runs in a fresh temporary directory (the working directory of the
// test and of the tool), with the demo at 320x240 already in "demo/".
class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = (fs::temp_directory_path() / "pbtool_run_XXXXXX").string();
    ASSERT_NE(mkdtemp(dir_.data()), nullptr);
    fs::current_path(dir_);
    const Result r = Run({"demo", "--size", "320x240", "--out", "demo"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
  }
  void TearDown() override {
    std::error_code ec;
    fs::current_path(home_, ec);
    fs::remove_all(dir_, ec);
  }

  // Runs the tool with `args`; `env` is prepended as VAR=value words.
  static Result Run(const Args &args, const std::string &env = "") {
    std::string cmd = "env -u PERSIST_VENDOR_CAM_PREBOKEH_SAVE -u PERSIST_VENDOR_CAM_PREBOKEH_RATIO " + env + " " +
                      PBTOOL_EMULATOR + " " + Quote(PBTOOL_BINARY);
    for (const std::string &a : args) cmd += " " + Quote(a);
    const int raw = std::system((cmd + " >stdout.txt 2>stderr.txt </dev/null").c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp("stdout.txt"), Slurp("stderr.txt")};
  }
  // A render that must succeed.
  static Result Render(const std::string &image, const std::string &disparity, const std::string &out,
                       Args extra = {}) {
    const Result r = Run(RenderArgs(image, disparity, out, extra));
    EXPECT_EQ(r.status, 0) << r.err;
    return r;
  }

  const fs::path home_ = fs::current_path();
  std::string dir_;
};

}  // namespace pbtool_process

#endif  // PREVIEWBOKEH_TESTS_TOOL_PROCESS_SUPPORT_H_
