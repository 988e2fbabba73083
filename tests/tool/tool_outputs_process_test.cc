// Every subcommand as a process: outputs checked against inputs and each
// other before anything is written (the library log included), raw sizes
// from file names, the tool's own options on either side of the subcommand,
// and options that would not be used refused rather than ignored.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "disparity.h"
#include "image_io.h"
#include "tool_process_support.h"
#include "yuv.h"

using namespace pbtool;
using namespace pbtool_process;

namespace {

// The demo's input as `frames` raw NV21 frames.
void WriteRawFrame(const std::string &path, int frames = 1) {
  const YuvFrame f = RgbToYuv(ReadImage(kIn, 3), YuvFormat::kNV21);
  std::ofstream out(path, std::ios::binary);
  for (int i = 0; i < frames; ++i) out.write(reinterpret_cast<const char *>(f.data.data()), f.data.size());
}

// The assist library the demo reports loading.
std::string AssistOf(const std::string &demo_stdout) {
  std::smatch m;
  return std::regex_search(demo_stdout, m, std::regex("assist library (\\S+)")) ? m[1].str() : "";
}

class OutputsTest : public ToolTest {
 protected:
  // Records the library's dumps of one render into "dumps/".
  void RecordDumps() {
    const Result r = Run(RenderArgs(kIn, kDisp, "recorded.png"),
                         "PERSIST_VENDOR_CAM_PREBOKEH_SAVE=yes PERSIST_VENDOR_CAM_PREBOKEH_PATH=dumps/");
    ASSERT_EQ(r.status, 0) << r.err;
    for (const auto &e : fs::directory_iterator("dumps")) {
      if (e.path().filename().string().rfind("imagein_", 0) == 0) imagein_ = e.path().string();
    }
    ASSERT_FALSE(imagein_.empty());
  }
  std::string imagein_;
};

// Refused runs of replay, bench and demo: exit 2, one line naming what
// collides, and no file written, created or truncated (the library log too).
TEST_F(OutputsTest, ReplayBenchAndDemoCheckTheirOutputsFirst) {
  RecordDumps();
  ASSERT_EQ(Run({"replay", "dumps", "--out", "done"}).status, 0);
  ASSERT_EQ(Run({"replay", "dumps"}).status, 0);
  std::ofstream("old.log") << "lines of an earlier run\n";
  std::ofstream("taken.json") << "{}\n";
  std::ofstream("afile") << "x";
  const std::string assist = AssistOf(Run({"demo", "--size", "64x48", "--out", "small", "--ratio", "0"}).out);
  ASSERT_FALSE(assist.empty());
  fs::create_directories("lib");
  fs::copy_file(assist, "lib/output.png");  // loadable under a picture's name
  const struct {
    const char *name;
    Args args;
    std::vector<std::string> named;
  } cases[] = {
      {"replay json over a dump", {"replay", "dumps", "--out", "r1", "--json", imagein_}, {"--json", imagein_, "is the input"}},
      {"replay log over a dump", {"--library-log", imagein_, "replay", "dumps", "--out", "r2"}, {"--library-log", "is the input"}},
      {"replay results exist", {"--library-log", "old.log", "replay", "dumps", "--out", "done"}, {"done/replayout_", "--force"}},
      {"replay in the dump directory twice", {"replay", "dumps", "--out", "dumps"}, {"dumps/replayout_", "--force"}},
      {"replay json is a result", {"replay", "dumps", "--out", "done", "--force", "--json",
                                   "done/" + fs::directory_iterator("done")->path().filename().string()},
       {"--json", "also written by --out"}},
      {"replay out is a file", {"replay", "dumps", "--out", "afile"}, {"'afile' exists and is not a directory"}},
      {"replay diffs into a file", {"replay", "dumps", "--out", "r3", "--diff-png", "afile"}, {"--diff-png", "afile"}},
      {"bench json exists", {"--library-log", "old.log", "bench", "--size", "64x48", "--frames", "1", "--json", "taken.json"}, {"taken.json", "--force"}},
      {"bench json is the log", {"bench", "--size", "64x48", "--frames", "1", "--json", "new.log", "--library-log", "new.log"}, {"--json", "--library-log"}},
      {"demo out is a file", {"demo", "--size", "64x48", "--out", "afile"}, {"--out", "'afile' exists and is not a directory"}},
      {"demo picture is the log", {"--library-log", "d/output.png", "demo", "--size", "64x48", "--out", "d"}, {"--library-log", "d/output.png"}},
      {"demo picture is the assist library", {"--assist", "lib/output.png", "demo", "--size", "64x48", "--out", "lib", "--ratio", "0"},
       {"--assist", "lib/output.png", "is the input"}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    ExpectRefusedUntouched(c.args, c.named);
  }
  EXPECT_EQ(Slurp("old.log"), "lines of an earlier run\n");
}

TEST_F(OutputsTest, ReplayAndBenchReplaceResultsOnlyWithForceAndDemoReplacesItsOwn) {
  RecordDumps();
  // The dump directory is the default place of the results.
  Result r = Run({"replay", "dumps", "--png"});
  ASSERT_EQ(r.status, 0) << r.err;
  std::string result;
  for (const auto &e : fs::directory_iterator("dumps")) {
    if (e.path().extension() == ".img" && e.path().filename().string().rfind("replayout_", 0) == 0) result = e.path().string();
  }
  ASSERT_FALSE(result.empty());
  std::ofstream(result, std::ios::binary) << "stale";
  r = Run({"replay", "dumps", "--force", "--png"});
  ASSERT_EQ(r.status, 0) << r.err;
  // The results are not read as dumps: still one frame, now the full result again.
  EXPECT_NE(r.out.find("1 frames replayed"), npos) << r.out;
  EXPECT_EQ(Slurp(result).size(), kW * kH * 3u / 2u);

  ASSERT_EQ(Run({"bench", "--size", "64x48", "--frames", "1", "--json", "b.json"}).status, 0);
  std::ofstream("b.json") << "stale";
  ASSERT_EQ(Run({"bench", "--size", "64x48", "--frames", "2", "--json", "b.json", "--force"}).status, 0);
  EXPECT_NE(Slurp("b.json").find("\"bench\""), npos);

  // The demo writes the same pictures again without --force, and only them.
  const auto before = Tree();
  std::ofstream("demo/output.png") << "stale";
  r = Run({"demo", "--size", "320x240", "--out", "demo"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Tree(), before);
  EXPECT_EQ(ReadImage("demo/output.png", 3).width, kW);
}

// A raw file's name that carries a size: it is the size unless --size
// says another one, which is refused.
TEST_F(OutputsTest, RawSizeFromTheFileName) {
  WriteRawFrame("plain.nv21");
  WriteRawFrame("clip_320x240.nv21");
  WriteRawFrame("frame-320x240-nv21.yuv");
  WriteRawFrame("a_160x120_320x240.nv21");  // two sizes: the name says nothing
  ASSERT_EQ(Run(RenderArgs("plain.nv21", kDisp, "ref.nv21", {"--size", "320x240"})).status, 0);
  const struct {
    const char *file;
    Args extra;
    int status;
    std::vector<std::string> said;
  } cases[] = {
      // 320x240 bytes are 4 whole 160x120 frames: only the name shows the mistake.
      {"clip_320x240.nv21", {"--size", "160x120"}, 2, {"--size: 160x120", "320x240", "clip_320x240.nv21"}},
      {"frame-320x240-nv21.yuv", {"--size", "640x120"}, 2, {"--size: 640x120", "320x240", "frame-320x240-nv21.yuv"}},
      {"clip_320x240.nv21", {}, 0, {"--size 320x240 from the name of 'clip_320x240.nv21'"}},
      {"frame-320x240-nv21.yuv", {}, 0, {"--size 320x240 from the name"}},
      {"clip_320x240.nv21", {"--size", "320x240"}, 0, {}},
      {"a_160x120_320x240.nv21", {}, 2, {"--size: required", "a_160x120_320x240.nv21"}},
      {"a_160x120_320x240.nv21", {"--size", "320x240"}, 0, {}},
  };
  int n = 0;
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(c.file) + " " + ::testing::PrintToString(c.extra));
    const std::string out = "o" + std::to_string(n++) + ".nv21";
    const Result r = Run(RenderArgs(c.file, kDisp, out, c.extra));
    EXPECT_EQ(r.status, c.status) << r.err;
    for (const std::string &s : c.said) EXPECT_NE(r.err.find(s), npos) << s << " in " << r.err;
    if (c.status == 0) {
      EXPECT_TRUE(Slurp(out) == Slurp("ref.nv21"));
    } else {
      EXPECT_EQ(Lines(r.err), 1) << r.err;
      EXPECT_FALSE(fs::exists(out));
    }
  }
}

// --assist and --library-log act the same before and after the subcommand.
TEST_F(OutputsTest, ToolOptionsOnEitherSideOfTheSubcommand) {
  const std::string assist = AssistOf(Run({"demo", "--size", "64x48", "--out", "small", "--ratio", "0"}).out);
  ASSERT_FALSE(assist.empty());
  const Args render = RenderArgs(kIn, kDisp, "");
  const Args bench = {"bench", "--size", "64x48", "--frames", "1"};
  for (bool after : {false, true}) {
    for (const Args &command : {render, bench}) {
      const std::string log = std::string(after ? "after_" : "before_") + command[0] + ".log";
      Args tool = {"--library-log", log, "--assist", assist};
      Args args = command;
      if (command[0] == "render") args[4] = log + ".png";
      args.insert(after ? args.end() : args.begin(), tool.begin(), tool.end());
      SCOPED_TRACE(::testing::PrintToString(args));
      Result r = Run(args);
      ASSERT_EQ(r.status, 0) << r.err;
      const std::string lines = Slurp(log);
      EXPECT_NE(lines.find("PreviewBokeh"), npos) << lines;
      EXPECT_NE(lines.find("iBokehBlurImage"), npos) << lines;
      EXPECT_EQ(r.err.find("iBokehBlurImage"), npos) << "library lines on stderr: " << r.err;
      // A missing assist library is refused on either side.
      Args missing = command;
      if (command[0] == "render") missing[4] = log + ".missing.png";
      const Args bad = {"--assist", "no/such/lib.so"};
      missing.insert(after ? missing.end() : missing.begin(), bad.begin(), bad.end());
      r = Run(missing);
      EXPECT_NE(r.status, 0);
      EXPECT_NE(r.err.find("no/such/lib.so"), npos) << r.err;
    }
  }
  for (const Args &args : {Args{"--version"}, Args{"--version", "bench"}}) {
    const Result r = Run(args);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(std::regex_match(r.out, std::regex("previewbokeh " PBTOOL_VERSION "\n"))) << r.out;
  }
}

// Options that the run would not use are refused, naming the option; the
// same options where they apply are taken.
TEST_F(OutputsTest, OptionsThatWouldBeIgnoredAreRefused) {
  WriteRawFrame("raw.nv21", 2);
  std::ofstream("at0.csv") << "0,10,10,6\n";
  std::ofstream("at1.csv") << "1,10,10\n";
  std::ofstream("nof.csv") << "0,10,10\n";
  fs::create_directories("maps");
  fs::copy_file(kDisp, "maps/a.png");
  // The demo's map as a disparity-frame file (header + samples).
  const Image map = ReadImage(kDisp, 1);
  const std::vector<uint8_t> frame =
      BuildDisparityFrame({MakeHeader({map.width, map.height}, 2000, 0.5, 0), map});
  std::ofstream("map.dfr", std::ios::binary).write(reinterpret_cast<const char *>(frame.data()), frame.size());
  const struct {
    Args args;
    int status;
    std::string said;
  } cases[] = {
      {RenderArgs(kIn, kDisp, "a.png", {"--focus", "5,5", "--focus-track", "nof.csv"}), 2, "--focus: not used: 'nof.csv' line 1"},
      {RenderArgs(kIn, kDisp, "b.png", {"--fnumber", "9", "--focus-track", "at0.csv"}), 2, "--fnumber: not used: 'at0.csv' line 1"},
      {RenderArgs("raw.nv21", kDisp, "c.nv21", {"--size", "320x240", "--start", "1", "--focus", "5,5", "--focus-track", "at1.csv"}), 2, "--focus: not used"},
      {RenderArgs(kIn, kDisp, "d.png", {"--jpeg-quality", "50"}), 2, "--jpeg-quality: not used: no .jpg output"},
      {RenderArgs("raw.nv21", kDisp, "e.nv12", {"--size", "320x240", "--range", "full"}), 2, "--range: not used"},
      {RenderArgs(kIn, kDisp, "f.png", {"--disparity-size", "80x60"}), 2, "--disparity-size: only for a raw disparity map, not for the image"},
      {RenderArgs(kIn, "maps", "g.png", {"--disparity-size", "80x60"}), 2, "--disparity-size: only for a raw disparity map, not for the directory"},
      {RenderArgs(kIn, "map.dfr", "h.png", {"--scale-num", "100"}), 2, "--scale-num: not used: 'map.dfr' is a disparity-frame file"},
      {RenderArgs(kIn, "map.dfr", "i.png", {"--ref-width", "80"}), 2, "--ref-width: not used"},
      {RenderArgs(kIn, kDisp, "j.png", {"--ratio", "0"}), 2, "--ratio: 0 is not one of 1, 2, 4, 6, 8"},
      {{"replay", "nowhere", "--ratio", "0"}, 2, "--ratio: 0 is not one of"},
      {{"demo", "--size", "64x48", "--out", "k", "--ratio", "1"}, 2, "--ratio: 1 is the full-resolution rendering"},
      {{"bench", "--size", "64x48", "--frames", "1", "--force"}, 2, "--force: not used"},
      // Where they apply.
      {RenderArgs("raw.nv21", kDisp, "l.nv21", {"--size", "320x240", "--focus", "5,5", "--focus-track", "at1.csv", "--fnumber", "9"}), 0, ""},
      {RenderArgs(kIn, kDisp, "m.png", {"--fnumber", "9", "--focus-track", "nof.csv"}), 0, ""},
      {RenderArgs(kIn, kDisp, "n.png", {"--jpeg-quality", "50", "--weights-out", "n.jpg"}), 0, ""},
      {RenderArgs(kIn, kDisp, "o.nv21", {"--range", "full"}), 0, ""},
      {RenderArgs(kIn, "map.dfr", "p.png"), 0, ""},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.args));
    const Result r = Run(c.args);
    EXPECT_EQ(r.status, c.status) << r.err;
    EXPECT_NE(r.err.find(c.said), npos) << r.err;
    EXPECT_EQ(Lines(r.err), c.status != 0 ? 1 : 0) << r.err;
  }
}

}  // namespace
