// Every subcommand as a process: refused runs write nothing (outputs checked
// against inputs and each other, the library log included, and input checked
// through its last frame first), results replaced only with --force, raw
// sizes from file names, and the tool's own options on either side of the
// subcommand.
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

// Each refused run exits 2 with one line naming what is wrong and leaves
// every file as it was: no output, directory or library log created, nothing
// truncated. The messages themselves are checked against the table of
// messages; these cases are the ones where something could have been written.
TEST_F(OutputsTest, RefusedRunsWriteNothing) {
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
  for (const char *dir : {"frames", "stems", "mixed"}) fs::create_directories(dir);
  fs::copy_file(kIn, "frames/a.png");
  fs::copy_file(kIn, "frames/b.png");
  fs::copy_file(kIn, "stems/a.png");
  WriteJpeg("stems/a.jpg", ReadImage(kIn, 3), 90);
  fs::copy_file(kIn, "taken.png");
  // A second frame of another size, found after the first could have been written.
  fs::copy_file(kIn, "mixed/a.png");
  WritePng("mixed/b.png", Image(160, 120, 3));
  WritePng("tiny.png", Image(6, 6, 3));
  std::ofstream("c.i420", std::ios::binary) << std::string(1000, 'a');
  std::ofstream("cut.y4m", std::ios::binary) << "YUV4MPEG2 W320 H240\nFRAME\n"
                                             << std::string(kW * kH * 3 / 2, 'a') << "FRAME\nabc";
  WriteRawFrames("raw.nv21", 2);
  std::ofstream("at1.csv") << "1,10,10\n";
  // The demo's map as a disparity-frame file (header + samples).
  const Image map = ReadImage(kDisp, 1);
  const std::vector<uint8_t> frame = BuildDisparityFrame({MakeHeader({map.width, map.height}, 2000, 0.5, 0), map});
  std::ofstream("map.dfr", std::ios::binary).write(reinterpret_cast<const char *>(frame.data()), frame.size());
  const Args log = {"--library-log", "new.log"};
  auto logged = [&](Args args) {
    args.insert(args.begin(), log.begin(), log.end());
    return args;
  };
  const std::string raw = "320x240";
  const struct {
    const char *name;
    Args args;
    std::vector<std::string> named;
  } cases[] = {
      // render: outputs against inputs and each other.
      {"same stem", RenderArgs("stems", kDisp, "out"), {"stems/a.jpg", "stems/a.png", "out/a.png"}},
      {"output is the input", RenderArgs(kIn, kDisp, kIn), {kIn, "is the input"}},
      {"output is the disparity", RenderArgs(kIn, kDisp, "./demo/../demo/disparity.png"), {"./demo/../demo/disparity.png", kDisp}},
      {"output dir is the input dir", RenderArgs("frames", kDisp, "frames/"), {"'frames/'", "'frames'"}},
      {"output dir inside the input dir", RenderArgs("frames", kDisp, "frames/blurred"), {"frames/blurred", "inside"}},
      {"out is weights-out", RenderArgs(kIn, kDisp, "o.png", {"--weights-out", "o.png"}), {"--weights-out", "--out", "'o.png'"}},
      {"json is the library log", {"--library-log", "t.json", "render", "--image", kIn, "--disparity", kDisp, "--out", "o.png", "--json", "t.json"}, {"--json", "--library-log"}},
      {"weights dir is out dir", RenderArgs("frames", kDisp, "res", {"--weights-out", "res"}), {"res/a.png"}},
      {"existing output", RenderArgs(kIn, kDisp, "taken.png"), {"'taken.png'", "--force"}},
      {"forced output is still not an input", RenderArgs(kIn, kDisp, kIn, {"--force"}), {kIn, "is the input"}},
      // render: input checked through its last frame before the first is written.
      {"mixed sizes", logged(RenderArgs("mixed", kDisp, "new/out")), {"mixed/b.png", "160x120", "320x240"}},
      {"mixed sizes with weights", logged(RenderArgs("mixed", kDisp, "made", {"--weights-out", "w"})), {"mixed/b.png"}},
      {"raw size mismatch", logged(RenderArgs("c.i420", kDisp, "o.nv21", {"--size", raw})),
       {"c.i420", "1000 bytes", "320x240 i420 frames", "115200 bytes each"}},
      {"raw size mismatch with stride", RenderArgs("c.i420", kDisp, "o.nv21", {"--size", raw, "--stride", "336"}),
       {"stride 336 and scanlines 240", "120960 bytes each"}},
      {"y4m cut in its second frame", logged(RenderArgs("cut.y4m", kDisp, "o.y4m")), {"cut.y4m", "frame 1 is cut short: 3 of 115200"}},
      {"--size for y4m", RenderArgs("cut.y4m", kDisp, "o.y4m", {"--size", raw}), {"--size", "y4m"}},
      {"image below the size rule", RenderArgs("tiny.png", kDisp, "t.png"), {"tiny.png: size 6x6 is outside 8..8192"}},
      {"count past the end from start", RenderArgs("raw.nv21", kDisp, "c.nv21", {"--size", raw, "--start", "1", "--count", "2"}),
       {"--count: 2 is outside 1..1"}},
      {"fnumber out of range", logged(RenderArgs(kIn, kDisp, "o.png", {"--fnumber", "0"})), {"--fnumber"}},
      // Options the run would not use.
      {"focus set by the track's first rendered frame",
       RenderArgs("raw.nv21", kDisp, "c.nv21", {"--size", raw, "--start", "1", "--focus", "5,5", "--focus-track", "at1.csv"}),
       {"--focus: not used"}},
      {"scale of a disparity-frame file", RenderArgs(kIn, "map.dfr", "h.png", {"--scale-num", "100"}),
       {"--scale-num: not used: 'map.dfr' is a disparity-frame file"}},
      {"ref width of a disparity-frame file", RenderArgs(kIn, "map.dfr", "i.png", {"--ref-width", "80"}), {"--ref-width: not used"}},
      // replay, bench and demo.
      {"replay ratio 0", {"replay", "dumps", "--out", "r0", "--ratio", "0"}, {"--ratio: 0 is not one of"}},
      {"replay json over a dump", {"replay", "dumps", "--out", "r1", "--json", imagein_}, {"--json", imagein_, "is the input"}},
      {"replay log over a dump", {"--library-log", imagein_, "replay", "dumps", "--out", "r2"}, {"--library-log", "is the input"}},
      {"replay results exist", {"--library-log", "old.log", "replay", "dumps", "--out", "done"}, {"done/replayout_", "--force"}},
      {"replay in the dump directory twice", {"replay", "dumps", "--out", "dumps"}, {"dumps/replayout_", "--force"}},
      {"replay json is a result", {"replay", "dumps", "--out", "done", "--force", "--json",
                                   "done/" + fs::directory_iterator("done")->path().filename().string()},
       {"--json", "also written by --out"}},
      {"replay out is a file", {"replay", "dumps", "--out", "afile"}, {"'afile' exists and is not a directory"}},
      {"replay diffs into a file", {"replay", "dumps", "--out", "r3", "--diff-png", "afile"}, {"--diff-png", "afile"}},
      {"bench ratio out of reach", logged({"bench", "--size", "64x48", "--frames", "1", "--ratio", "4"}), {"--ratio: ratio 4 needs"}},
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
  // --force replaces an existing output that is not an input.
  const Result forced = Run(RenderArgs(kIn, kDisp, "taken.png", {"--force"}));
  EXPECT_EQ(forced.status, 0) << forced.err;
  EXPECT_NE(Slurp("taken.png"), Slurp(kIn));
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

// A raw file's name that carries a size gives the size; --size may repeat
// it, and must be given when the name holds two sizes.
TEST_F(OutputsTest, RawSizeFromTheFileName) {
  const struct {
    const char *file;
    Args extra;
    const char *note;
  } cases[] = {
      {"clip_320x240.nv21", {}, "--size 320x240 from the name of 'clip_320x240.nv21'"},
      {"frame-320x240-nv21.yuv", {}, "--size 320x240 from the name"},
      {"clip_320x240.nv21", {"--size", "320x240"}, ""},
      {"a_160x120_320x240.nv21", {"--size", "320x240"}, ""},
  };
  WriteRawFrames("plain.nv21");
  ASSERT_EQ(Run(RenderArgs("plain.nv21", kDisp, "ref.nv21", {"--size", "320x240"})).status, 0);
  int n = 0;
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(c.file) + " " + ::testing::PrintToString(c.extra));
    if (!fs::exists(c.file)) WriteRawFrames(c.file);
    const std::string out = "o" + std::to_string(n++) + ".nv21";
    const Result r = Run(RenderArgs(c.file, kDisp, out, c.extra));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find(c.note), npos) << r.err;
    EXPECT_TRUE(Slurp(out) == Slurp("ref.nv21"));
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
      const Result r = Run(args);
      ASSERT_EQ(r.status, 0) << r.err;
      const std::string lines = Slurp(log);
      EXPECT_NE(lines.find("PreviewBokeh"), npos) << lines;
      EXPECT_NE(lines.find("iBokehBlurImage"), npos) << lines;
      EXPECT_EQ(r.err.find("iBokehBlurImage"), npos) << "library lines on stderr: " << r.err;
    }
  }
  for (const Args &args : {Args{"--version"}, Args{"--version", "bench"}}) {
    const Result r = Run(args);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(std::regex_match(r.out, std::regex("previewbokeh " PBTOOL_VERSION "\n"))) << r.out;
  }
}

// Options that are refused where the run would not use them are taken where
// it does.
TEST_F(OutputsTest, OptionsAreTakenWhereTheyApply) {
  WriteRawFrames("raw.nv21", 2);
  std::ofstream("at1.csv") << "1,10,10\n";
  std::ofstream("nof.csv") << "0,10,10\n";
  const Args cases[] = {
      RenderArgs("raw.nv21", kDisp, "l.nv21", {"--size", "320x240", "--focus", "5,5", "--focus-track", "at1.csv", "--fnumber", "9"}),
      RenderArgs(kIn, kDisp, "m.png", {"--fnumber", "9", "--focus-track", "nof.csv"}),
      RenderArgs(kIn, kDisp, "n.png", {"--jpeg-quality", "50", "--weights-out", "n.jpg"}),
      RenderArgs(kIn, kDisp, "o.nv21", {"--range", "full"}),
  };
  for (const Args &args : cases) {
    SCOPED_TRACE(::testing::PrintToString(args));
    const Result r = Run(args);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
  }
}

}  // namespace
