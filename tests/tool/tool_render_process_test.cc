// render, bench and demo run as a user would: the ratio used, an
// interrupted sequence, recording the library's dumps, and the frame range,
// focus track, weight, JSON, JPEG and hole-filling options.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "image_io.h"
#include "tool_process_support.h"

using namespace pbtool;
using namespace pbtool_process;

namespace {

using RenderToolTest = ToolTest;

TEST_F(RenderToolTest, TheRatioUsedIsReported) {
  const struct {
    Args args;
    std::string said;
  } cases[] = {
      {RenderArgs(kIn, kDisp, "o2.png", {"--ratio", "4"}), "ratio 4, reduced path"},
      {RenderArgs(kIn, kDisp, "o3.png"), "ratio 1, full resolution"},
      {{"bench", "--size", "64x64", "--frames", "1", "--ratio", "4"}, "ratio 4, reduced path"},
      {{"bench", "--size", "64x48", "--frames", "1"}, "ratio 1, full resolution"},
      {{"demo", "--size", "64x48", "--out", "d", "--ratio", "4"}, "ratio 4 not used: ratio 4 needs"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.args));
    const Result r = Run(c.args);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE((r.out + r.err).find(c.said), npos) << r.out << r.err;
  }
  // A ratio from the environment that cannot be used is reported with its reason.
  const Result env = Run({"bench", "--size", "64x48", "--frames", "1"}, "PERSIST_VENDOR_CAM_PREBOKEH_RATIO=4");
  EXPECT_EQ(env.status, 0) << env.err;
  EXPECT_NE(env.out.find("ratio 1, full resolution (ratio 4 needs"), npos) << env.out;
}

TEST_F(RenderToolTest, InterruptedSequenceKeepsWholeFramesAndExits130) {
  constexpr int kFrames = 150;
  WriteRawFrames("long.nv21", kFrames);
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    const std::string cmd = "exec " + Command(RenderArgs("long.nv21", kDisp, "out", {"--size", "320x240"}), "") +
                            " >stdout.txt 2>stderr.txt </dev/null";
    execl("/bin/sh", "sh", "-c", cmd.c_str(), static_cast<char *>(nullptr));
    _exit(127);
  }
  // Signal once two frames are out.
  auto frames_out = [] {
    int n = 0;
    std::error_code ec;
    for (fs::directory_iterator it("out", ec), end; !ec && it != end; it.increment(ec)) {
      n += it->path().extension() == ".png";
    }
    return n;
  };
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (frames_out() < 2 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  kill(pid, SIGINT);
  int raw = 0;
  ASSERT_EQ(waitpid(pid, &raw, 0), pid);
  ASSERT_TRUE(WIFEXITED(raw));
  EXPECT_EQ(WEXITSTATUS(raw), 130);
  const std::string err = Slurp("stderr.txt");
  int done = -1, total = -1;
  const size_t at = err.find("interrupted after ");
  ASSERT_NE(at, npos) << err;
  ASSERT_EQ(std::sscanf(err.c_str() + at, "interrupted after %d of %d frames", &done, &total), 2);
  EXPECT_EQ(total, kFrames);
  EXPECT_GE(done, 2);
  EXPECT_LT(done, kFrames);
  // Exactly the frames done, each a whole picture, and nothing else.
  std::vector<std::string> files;
  for (const auto &e : fs::directory_iterator("out")) files.push_back(e.path().filename().string());
  std::sort(files.begin(), files.end());
  ASSERT_EQ(static_cast<int>(files.size()), done);
  for (int i = 0; i < done; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "frame_%05d.png", i);
    EXPECT_EQ(files[static_cast<size_t>(i)], name);
    const Image img = ReadImage("out/" + files[static_cast<size_t>(i)], 3);
    EXPECT_EQ(img.width, kW);
    EXPECT_EQ(img.height, kH);
  }
}

TEST_F(RenderToolTest, RecordingDumpsAsTheReadmeShowsIt) {
  // The README's example, into a directory that does not exist yet.
  Result r = Run(RenderArgs(kIn, kDisp, "x.png", {"--fnumber", "4"}),
                 "PERSIST_VENDOR_CAM_PREBOKEH_SAVE=yes PERSIST_VENDOR_CAM_PREBOKEH_PATH=dumps/");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("3 dump files written to dumps/"), npos) << r.out;
  int dumps = 0;
  for (const auto &e : fs::directory_iterator("dumps")) dumps += e.path().extension() == ".img";
  EXPECT_EQ(dumps, 3);
  // Without the trailing '/': a warning, and the dumps still go inside the directory.
  r = Run(RenderArgs(kIn, kDisp, "y.png"), "PERSIST_VENDOR_CAM_PREBOKEH_SAVE=yes PERSIST_VENDOR_CAM_PREBOKEH_PATH=more");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("does not end in '/'"), npos) << r.err;
  EXPECT_NE(r.out.find("3 dump files written to more/"), npos) << r.out;
  for (const auto &e : fs::directory_iterator(".")) {
    EXPECT_EQ(e.path().filename().string().rfind("more", 0) == 0, e.path().filename() == "more") << e.path();
  }
}

TEST_F(RenderToolTest, FrameRangeFocusTrackWeightsJsonAndJpegQuality) {
  WriteRawFrames("seq.nv21", 4);
  // Frame by frame with --focus as the reference for each result.
  const int fx[2] = {40, 280}, fy[2] = {60, 200};
  for (int k = 0; k < 2; ++k) {
    const std::string p = std::to_string(fx[k]) + "," + std::to_string(fy[k]);
    const std::string k_ = std::to_string(k);
    ASSERT_EQ(Run(RenderArgs(kIn, kDisp, "ref" + k_ + ".nv21", {"--focus", p, "--weights-out", "w" + k_ + ".w16"})).status, 0);
  }
  const std::string ref0 = Slurp("ref0.nv21"), ref1 = Slurp("ref1.nv21");
  ASSERT_EQ(ref0.size(), kW * kH * 3u / 2u);
  ASSERT_FALSE(ref0 == ref1);
  std::ofstream("track.csv") << "frame,x,y,fnumber\n# focus moves at frame 2\n0," << fx[0] << "," << fy[0]
                             << "\n2, " << fx[1] << ", " << fy[1] << "\n";
  const Result r = Run(RenderArgs("seq.nv21", kDisp, "range.nv21",
                                  {"--size", "320x240", "--start", "1", "--count", "2", "--focus-track", "track.csv",
                                   "--weights-out", "range.w16", "--json", "t.json"}));
  ASSERT_EQ(r.status, 0) << r.err;
  // Frames 1 and 2: frame 1 keeps frame 0's focus, frame 2 takes its own.
  EXPECT_TRUE(Slurp("range.nv21") == ref0 + ref1);
  EXPECT_TRUE(Slurp("range.w16") == Slurp("w0.w16") + Slurp("w1.w16"));
  EXPECT_EQ(Slurp("w0.w16").size(), kW * kH * 2u);
  const nlohmann::json j = nlohmann::json::parse(Slurp("t.json"));
  EXPECT_EQ(j["command"], "render");
  ASSERT_EQ(j["frames"].size(), 2u);
  EXPECT_EQ(j["frames"][0]["frame"], 1);
  EXPECT_EQ(j["frames"][1]["name"], "frame_00002");
  EXPECT_GT(j["frames"][1]["blur_ms"].get<double>(), 0.0);
  EXPECT_EQ(j["summary"]["weights"]["count"], 2);
  EXPECT_EQ(j["ratio"], 1);

  // Per-frame weight pictures of a directory sequence, named like the frames.
  fs::create_directories("frames");
  fs::copy_file(kIn, "frames/f1.png");
  fs::copy_file(kIn, "frames/f2.png");
  ASSERT_EQ(Run(RenderArgs("frames", kDisp, "outdir", {"--weights-out", "wdir"})).status, 0);
  EXPECT_TRUE(ReadImage("wdir/f1.png", 3).pixels == ReadImage("demo/weights.png", 3).pixels);
  EXPECT_TRUE(ReadImage("wdir/f2.png", 3).pixels == ReadImage("demo/weights.png", 3).pixels);

  // bench --json holds every timed frame.
  ASSERT_EQ(Run({"bench", "--size", "64x48", "--frames", "3", "--json", "b.json"}).status, 0);
  const nlohmann::json b = nlohmann::json::parse(Slurp("b.json"));
  EXPECT_EQ(b["frames"].size(), 3u);
  EXPECT_EQ(b["summary"]["frame"]["count"], 3);

  // JPEG quality: lower quality, smaller file; the default is 90.
  for (const char *q : {"20", "90"}) ASSERT_EQ(Run(RenderArgs(kIn, kDisp, std::string("q") + q + ".jpg", {"--jpeg-quality", q})).status, 0);
  ASSERT_EQ(Run(RenderArgs(kIn, kDisp, "qdefault.jpg")).status, 0);
  EXPECT_LT(fs::file_size("q20.jpg"), fs::file_size("q90.jpg"));
  EXPECT_TRUE(Slurp("qdefault.jpg") == Slurp("q90.jpg"));
}

TEST_F(RenderToolTest, FillHolesGivesTheResultOfTheHandFilledMap) {
  // Holes punched into the demo's map: a run of zeros in one row (filled from
  // its row) and one whole row of zeros (filled from the row above, nearer).
  Image map = ReadImage(kDisp, 1);
  Image holes = map, filled = map;
  const int y = 20, x0 = 30, x1 = 34;  // zeros at x0..x1: the left half from x0-1, the right from x1+1
  for (int x = x0; x <= x1; ++x) {
    holes.Row(y)[x] = 0;
    filled.Row(y)[x] = x - x0 <= x1 - x ? map.Row(y)[x0 - 1] : map.Row(y)[x1 + 1];
  }
  for (int x = 0; x < map.width; ++x) {
    holes.Row(40)[x] = 0;
    filled.Row(40)[x] = map.Row(39)[x];  // 39 and 41 equally near: the upper row
  }
  for (int x = 0; x < map.width; ++x) ASSERT_NE(map.Row(39)[x], 0);
  WritePng("holes.png", holes);
  WritePng("filled.png", filled);
  auto render = [](const std::string &disparity, const std::string &out, Args extra) {
    Args a = {"render", "--image", kIn, "--disparity", disparity, "--out", out};
    a.insert(a.end(), extra.begin(), extra.end());
    return Run(a);
  };
  ASSERT_EQ(render("holes.png", "a.nv21", {"--fill-holes"}).status, 0);
  ASSERT_EQ(render("filled.png", "b.nv21", {}).status, 0);
  ASSERT_EQ(render("holes.png", "c.nv21", {}).status, 0);
  EXPECT_TRUE(Slurp("a.nv21") == Slurp("b.nv21"));
  EXPECT_FALSE(Slurp("a.nv21") == Slurp("c.nv21"));  // off by default
}

}  // namespace
