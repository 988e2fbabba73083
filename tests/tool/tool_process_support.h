// Helpers of the process tests: run the built tool in a fresh temporary
// directory that holds the demo's 320x240 input and disparity map.
#ifndef PREVIEWBOKEH_TESTS_TOOL_PROCESS_SUPPORT_H_
#define PREVIEWBOKEH_TESTS_TOOL_PROCESS_SUPPORT_H_

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "image_io.h"
#include "yuv.h"

namespace pbtool_process {

namespace fs = std::filesystem;
using Args = std::vector<std::string>;

constexpr auto npos = std::string::npos;
// The demo's input and disparity map, written by SetUp.
constexpr char kIn[] = "demo/input.png", kDisp[] = "demo/disparity.png";
constexpr int kW = 320, kH = 240;  // the demo's frame size

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

// The shell command running the tool with `args`, `env` as VAR=value words
// first; the library's properties come only from `env`.
inline std::string Command(const Args &args, const std::string &env = "") {
  std::string cmd = "env -u PERSIST_VENDOR_CAM_PREBOKEH_SAVE -u PERSIST_VENDOR_CAM_PREBOKEH_PATH "
                    "-u PERSIST_VENDOR_CAM_PREBOKEH_RATIO " +
                    env + " " + PBTOOL_EMULATOR + " " + Quote(PBTOOL_BINARY);
  for (const std::string &a : args) cmd += " " + Quote(a);
  return cmd;
}

// Every path below the working directory with its size (files) or -1
// (directories), but the captured output of the last run.
inline std::set<std::pair<std::string, long>> Tree() {
  std::set<std::pair<std::string, long>> tree;
  for (const auto &e : fs::recursive_directory_iterator(".")) {
    const std::string p = e.path().string();
    if (p == "./stdout.txt" || p == "./stderr.txt") continue;
    tree.insert({p, e.is_directory() ? -1L : static_cast<long>(e.file_size())});
  }
  return tree;
}

inline int Lines(const std::string &s) { return static_cast<int>(std::count(s.begin(), s.end(), '\n')); }

// The render arguments; no --disparity when `disparity` is empty.
inline Args RenderArgs(const std::string &image, const std::string &disparity, const std::string &out,
                       Args extra = {}) {
  Args a = {"render", "--image", image, "--out", out};
  if (!disparity.empty()) a.insert(a.end(), {"--disparity", disparity});
  a.insert(a.end(), extra.begin(), extra.end());
  return a;
}

// The demo's input as `frames` raw NV21 frames in one file.
inline void WriteRawFrames(const std::string &path, int frames = 1) {
  const pbtool::YuvFrame f = pbtool::RgbToYuv(pbtool::ReadImage(kIn, 3), pbtool::YuvFormat::kNV21);
  std::ofstream out(path, std::ios::binary);
  for (int i = 0; i < frames; ++i) out.write(reinterpret_cast<const char *>(f.data.data()), f.data.size());
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
    const int raw = std::system((Command(args, env) + " >stdout.txt 2>stderr.txt </dev/null").c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp("stdout.txt"), Slurp("stderr.txt")};
  }
  // A run refused before it writes: exit 2, one line naming each of `named`,
  // and no file below the working directory written, created or changed.
  static void ExpectRefusedUntouched(const Args &args, const std::vector<std::string> &named) {
    const auto before = Tree();
    const Result r = Run(args);
    EXPECT_EQ(r.status, 2) << r.out << r.err;
    EXPECT_EQ(Lines(r.err), 1) << r.err;
    for (const std::string &p : named) EXPECT_NE(r.err.find(p), npos) << p << " in " << r.err;
    EXPECT_EQ(Tree(), before) << "files were written or changed";
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
