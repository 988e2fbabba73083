// End-to-end tests of the previewbokeh tool, run as a process through the
// library: the demo's pictures, render of the same frame from different
// inputs, replay of the library's own dumps, and the handling of bad input.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cli.h"
#include "disparity.h"
#include "image_io.h"
#include "scene.h"

namespace fs = std::filesystem;
using namespace pbtool;

namespace {

struct Result {
  int status = -1;
  std::string out, err;
};

std::string Quote(const std::string &s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

std::string Slurp(const std::string &path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

int CountLines(const std::string &text) {
  int n = 0;
  for (char c : text) n += c == '\n';
  return n;
}

class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "pbtool_run_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  std::string Path(const std::string &name) const { return (fs::path(dir_) / name).string(); }

  // Runs the tool with `args`; `env` is prepended as VAR=value words.
  Result Run(const std::vector<std::string> &args, const std::string &env = "") {
    std::string cmd = "env -u PERSIST_VENDOR_CAM_PREBOKEH_SAVE -u PERSIST_VENDOR_CAM_PREBOKEH_RATIO " +
                      env + " " + PBTOOL_EMULATOR + " " + Quote(PBTOOL_BINARY);
    for (const std::string &a : args) cmd += " " + Quote(a);
    cmd += " >" + Quote(Path("stdout.txt")) + " 2>" + Quote(Path("stderr.txt")) + " </dev/null";
    const int raw = std::system(cmd.c_str());
    Result r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.out = Slurp(Path("stdout.txt"));
    r.err = Slurp(Path("stderr.txt"));
    return r;
  }

  // The demo at a small size into "demo/" (once per test that needs it).
  void RunDemo() {
    const Result r = Run({"demo", "--size", "320x240", "--out", Path("demo")});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
  }

  std::string dir_;
};

// ---------------------------------------------------------------------------
// demo

TEST_F(ToolTest, DemoWritesItsPicturesAtTheRightSizes) {
  RunDemo();
  const bool reduced = fs::exists(Path("demo/output-r4.png"));
  const int panels = reduced ? 4 : 3, gap = 2;
  const struct {
    const char *file;
    int w, h, channels;
  } files[] = {
      {"input.png", 320, 240, 3},   {"disparity.png", 80, 60, 1}, {"weights.png", 320, 240, 3},
      {"output.png", 320, 240, 3},  {"comparison.png", panels * 320 + (panels - 1) * gap, 240, 3},
  };
  for (const auto &f : files) {
    SCOPED_TRACE(f.file);
    const Image img = ReadImage(Path(std::string("demo/") + f.file), f.channels);
    EXPECT_EQ(img.width, f.w);
    EXPECT_EQ(img.height, f.h);
  }
}

TEST_F(ToolTest, DemoKeepsTheSubjectSharpAndBlursTheFarBackground) {
  RunDemo();
  const Image in = ReadImage(Path("demo/input.png"), 3);
  const Image out = ReadImage(Path("demo/output.png"), 3);
  const Image weights = ReadImage(Path("demo/weights.png"), 3);
  const SceneLayout l = MakeSceneLayout({320, 240});
  ASSERT_EQ(in.pixels.size(), out.pixels.size());

  // Inside the subject, well away from its outline, nothing changes.
  const int r = l.subject_radius / 2;
  int inside = 0;
  for (int y = l.subject_centre.y - r; y <= l.subject_centre.y + r; ++y) {
    for (int x = l.subject_centre.x - r; x <= l.subject_centre.x + r; ++x) {
      const int dx = x - l.subject_centre.x, dy = y - l.subject_centre.y;
      if (dx * dx + dy * dy > r * r) continue;
      ++inside;
      for (int c = 0; c < 3; ++c) {
        ASSERT_EQ(out.Row(y)[3 * x + c], in.Row(y)[3 * x + c]) << x << "," << y;
      }
    }
  }
  EXPECT_GT(inside, 1000);
  // The focus point has weight 0 (the ramp's first colour).
  EXPECT_EQ(weights.Row(l.focus.y)[3 * l.focus.x], 68);
  EXPECT_EQ(weights.Row(l.focus.y)[3 * l.focus.x + 1], 1);

  // Most of the far wall's textured pixels change, and the texture's
  // contrast drops.
  const Rect &bg = l.far_background;
  int changed = 0, total = 0;
  long in_contrast = 0, out_contrast = 0;
  for (int y = bg.y0; y < bg.y1; ++y) {
    for (int x = bg.x0; x + 1 < bg.x1; ++x, ++total) {
      changed += std::memcmp(out.Row(y) + 3 * x, in.Row(y) + 3 * x, 3) != 0;
      in_contrast += std::abs(in.Row(y)[3 * x + 3] - in.Row(y)[3 * x]);
      out_contrast += std::abs(out.Row(y)[3 * x + 3] - out.Row(y)[3 * x]);
    }
  }
  EXPECT_GT(changed, total * 3 / 4);
  EXPECT_LT(out_contrast * 2, in_contrast);
}

// ---------------------------------------------------------------------------
// render

TEST_F(ToolTest, RenderAgreesAcrossInputForms) {
  RunDemo();
  const std::string image = Path("demo/input.png"), disparity = Path("demo/disparity.png");
  // F_number 20 turns the blur off: the output is the tool's NV21 of the PNG.
  Result r = Run({"render", "--image", image, "--disparity", disparity, "--fnumber", "20", "--out", Path("in.nv21")});
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_EQ(fs::file_size(Path("in.nv21")), 320u * 240u * 3u / 2u);

  r = Run({"render", "--image", image, "--disparity", disparity, "--out", Path("from_png.nv21")});
  ASSERT_EQ(r.status, 0) << r.err;
  r = Run({"render", "--image", Path("in.nv21"), "--size", "320x240", "--disparity", disparity, "--out",
           Path("from_raw.nv21")});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string from_png = Slurp(Path("from_png.nv21"));
  EXPECT_EQ(from_png, Slurp(Path("from_raw.nv21")));
  EXPECT_NE(from_png, Slurp(Path("in.nv21")));  // it did blur

  // Raw output in NV12 order holds the same samples with each chroma pair swapped,
  // and reads back (order from the extension) to the same picture.
  r = Run({"render", "--image", image, "--disparity", disparity, "--out", Path("from_png.nv12")});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string nv12 = Slurp(Path("from_png.nv12"));
  ASSERT_EQ(nv12.size(), from_png.size());
  const size_t luma = 320 * 240;
  EXPECT_EQ(nv12.compare(0, luma, from_png, 0, luma), 0);
  for (size_t i = luma; i < nv12.size(); i += 2) {
    ASSERT_EQ(nv12[i], from_png[i + 1]) << i;
    ASSERT_EQ(nv12[i + 1], from_png[i]) << i;
  }
  ASSERT_EQ(Run({"render", "--image", Path("from_png.nv12"), "--size", "320x240", "--disparity", disparity,
                 "--fnumber", "20", "--out", Path("nv12.png")}).status, 0);
  ASSERT_EQ(Run({"render", "--image", Path("from_png.nv21"), "--size", "320x240", "--disparity", disparity,
                 "--fnumber", "20", "--out", Path("nv21.png")}).status, 0);
  EXPECT_EQ(ReadImage(Path("nv12.png"), 3).pixels, ReadImage(Path("nv21.png"), 3).pixels);

  // The disparity as a raw map and as a disparity-frame file with the default header.
  const Image d = ReadImage(disparity, 1);
  WriteFileBytes(Path("d.raw"), d.pixels.data(), d.pixels.size());
  DisparityMap map{MakeHeader({d.width, d.height}, kDefaultScaleNumerator, kDefaultScaleDenominator, 0), d};
  const std::vector<uint8_t> frame = BuildDisparityFrame(map);
  WriteFileBytes(Path("d.bin"), frame.data(), frame.size());
  ASSERT_EQ(Run({"render", "--image", image, "--disparity", Path("d.raw"), "--disparity-size", "80x60",
                 "--out", Path("c.nv21")}).status, 0);
  ASSERT_EQ(Run({"render", "--image", image, "--disparity", Path("d.bin"), "--out", Path("e.nv21")}).status, 0);
  EXPECT_EQ(Slurp(Path("c.nv21")), from_png);
  EXPECT_EQ(Slurp(Path("e.nv21")), from_png);

  // A three-frame raw sequence gives three copies of the single-frame result.
  {
    std::ofstream seq(Path("seq.yuv"), std::ios::binary);
    const std::string one = Slurp(Path("in.nv21"));
    for (int i = 0; i < 3; ++i) seq << one;
  }
  r = Run({"render", "--image", Path("seq.yuv"), "--size", "320x240", "--disparity", disparity, "--out",
           Path("seq_out.yuv")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("3 frames"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("frames per second"), std::string::npos) << r.out;
  EXPECT_EQ(Slurp(Path("seq_out.yuv")), from_png + from_png + from_png);

  // A directory of images into a directory of PNGs, one per input.
  fs::create_directory(Path("frames"));
  fs::copy_file(image, Path("frames/f1.png"));
  fs::copy_file(image, Path("frames/f2.png"));
  ASSERT_EQ(Run({"render", "--image", Path("frames"), "--disparity", disparity, "--out", Path("outdir")}).status, 0);
  EXPECT_EQ(ReadImage(Path("outdir/f2.png"), 3).pixels, ReadImage(Path("outdir/f1.png"), 3).pixels);
  ASSERT_EQ(Run({"render", "--image", Path("from_png.nv21"), "--size", "320x240", "--disparity", disparity,
                 "--fnumber", "20", "--out", Path("blurred.png")}).status, 0);
  EXPECT_EQ(ReadImage(Path("outdir/f1.png"), 3).pixels, ReadImage(Path("blurred.png"), 3).pixels);
}

TEST_F(ToolTest, FocusPointChoosesWhatStaysSharp) {
  RunDemo();
  const SceneLayout l = MakeSceneLayout({320, 240});
  const std::string disparity = Path("demo/disparity.png");
  // Focus on the far wall: the wall now stays sharp and the subject blurs.
  // "sharp.png" is the same pipeline with the blur off (F_number 20).
  const std::string wall = std::to_string((l.far_background.x0 + l.far_background.x1) / 2) + "," +
                           std::to_string((l.far_background.y0 + l.far_background.y1) / 2);
  ASSERT_EQ(Run({"render", "--image", Path("demo/input.png"), "--disparity", disparity, "--fnumber", "20",
                 "--out", Path("sharp.png")}).status, 0);
  ASSERT_EQ(Run({"render", "--image", Path("demo/input.png"), "--disparity", disparity, "--focus", wall,
                 "--out", Path("wall.png")}).status, 0);
  const Image in = ReadImage(Path("sharp.png"), 3), out = ReadImage(Path("wall.png"), 3);
  const int cy = (l.far_background.y0 + l.far_background.y1) / 2;
  for (int x = l.far_background.x0 + 8; x < l.far_background.x1 - 8; ++x) {
    ASSERT_EQ(std::memcmp(out.Row(cy) + 3 * x, in.Row(cy) + 3 * x, 3), 0) << x;
  }
  int changed = 0;
  for (int x = l.subject_centre.x - 10; x < l.subject_centre.x + 10; ++x) {
    changed += std::memcmp(out.Row(l.subject_centre.y) + 3 * x, in.Row(l.subject_centre.y) + 3 * x, 3) != 0;
  }
  EXPECT_GT(changed, 10);
}

// ---------------------------------------------------------------------------
// replay

TEST_F(ToolTest, ReplayOfTheLibrarysDumpsIsIdentical) {
  RunDemo();
  fs::create_directory(Path("dumps"));
  const std::string env = "PERSIST_VENDOR_CAM_PREBOKEH_SAVE=yes PERSIST_VENDOR_CAM_PREBOKEH_PATH=" +
                          Quote(Path("dumps") + "/");
  Result r = Run({"render", "--image", Path("demo/input.png"), "--disparity", Path("demo/disparity.png"),
                  "--fnumber", "6", "--out", Path("x.png")}, env);
  ASSERT_EQ(r.status, 0) << r.err;
  int imagein = 0;
  for (const auto &e : fs::directory_iterator(Path("dumps"))) {
    imagein += e.path().filename().string().rfind("imagein_320x240_", 0) == 0;
  }
  ASSERT_EQ(imagein, 1) << "the library wrote no imagein dump";

  r = Run({"replay", Path("dumps"), "--fnumber", "6", "--out", Path("replayed")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("identical"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("1 identical, 0 differ"), std::string::npos) << r.out;

  // Another aperture gives another frame, and replay says by how much.
  r = Run({"replay", Path("dumps"), "--fnumber", "1", "--out", Path("replayed")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("bytes differ"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("0 identical, 1 differ"), std::string::npos) << r.out;
}

// ---------------------------------------------------------------------------
// bench

TEST_F(ToolTest, BenchReportsBothStages) {
  const Result r = Run({"bench", "--size", "64x48", "--frames", "5"});
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char *needle : {"weights", "blur", "median", "p95", "fps", "5 frames"}) {
    EXPECT_NE(r.out.find(needle), std::string::npos) << needle << "\n" << r.out;
  }
}

// ---------------------------------------------------------------------------
// bad input

TEST_F(ToolTest, BadInputGivesOneMessageAndStatus2) {
  RunDemo();
  const std::string image = Path("demo/input.png"), disparity = Path("demo/disparity.png");
  WriteFileBytes(Path("notes.txt"), "not an image", 12);
  WriteFileBytes(Path("short.nv21"), "abc", 3);
  WritePng(Path("big.png"), Image(400, 60, 1));
  WritePng(Path("colour.png"), Image(80, 60, 3));
  WritePng(Path("odd.png"), Image(321, 240, 3));
  fs::create_directory(Path("empty"));
  fs::create_directory(Path("baddumps"));
  WriteFileBytes(Path("baddumps/imagein_16x8_1.img"), std::string(192, 'a').data(), 192);
  WriteFileBytes(Path("baddumps/weightin_16x8_1.img"), "xx", 2);

  // A render of the demo's inputs with `extra` options, image and disparity
  // replaced when given.
  auto render = [&](std::vector<std::string> extra, const std::string &img = "", const std::string &disp = "") {
    std::vector<std::string> args = {"render", "--image", img.empty() ? image : Path(img)};
    if (disp != "-") args.insert(args.end(), {"--disparity", disp.empty() ? disparity : Path(disp)});
    args.insert(args.end(), extra.begin(), extra.end());
    if (std::find(extra.begin(), extra.end(), "--out") == extra.end()) args.insert(args.end(), {"--out", Path("o.png")});
    return args;
  };
  const struct {
    std::vector<std::string> args;
    std::string needle;  // the file or option the message must name
    std::string problem;
  } cases[] = {
      {render({}, "missing.png"), "missing.png", "cannot open"},
      {render({}, "", "missing_d.png"), "missing_d.png", "cannot open"},
      {render({}, "notes.txt"), "notes.txt", "not a PNG or JPEG"},
      {render({}, "", "big.png"), "big.png", "larger than the frame"},
      {render({}, "", "colour.png"), "colour.png", "greyscale"},
      {render({}, "odd.png"), "image", "odd"},
      {render({"--size", "320x240"}, "short.nv21"), "short.nv21", "whole number"},
      {render({}, "short.nv21"), "--size", "required"},
      {render({"--out", Path("o.bmp")}), "--out", "extension"},
      {render({"--fnumber", "0"}), "--fnumber", "1..20"},
      {render({"--fnumber", "abc"}), "--fnumber", "abc"},
      {render({"--focus", "320,10"}), "--focus", "outside"},
      {render({"--ratio", "3"}), "--ratio", "not one of"},
      {render({}, "", "-"), "--disparity", "required"},
      {{"demo", "--size", "321x240", "--out", Path("d2")}, "--size", "odd"},
      {{"demo", "--size", "big", "--out", Path("d2")}, "--size", "WxH"},
      {{"demo", "--bogus"}, "--bogus", ""},
      {{"frobnicate"}, "frobnicate", ""},
      {{}, "subcommand", "required"},
      {{"bench", "--frames", "0"}, "--frames", "outside"},
      {{"replay", Path("empty")}, "empty", "no pair"},
      {{"replay", Path("missing_dir")}, "missing_dir", "not a directory"},
      {{"replay", Path("baddumps")}, "weightin_16x8_1.img", "expected 256"},
      {{"--assist", Path("nowhere.so"), "bench"}, "--assist", "nowhere.so"},
  };
  for (const auto &c : cases) {
    std::string line;
    for (const auto &a : c.args) line += a + " ";
    SCOPED_TRACE(line);
    const Result r = Run(c.args);
    EXPECT_EQ(r.status, 2) << r.err;
    EXPECT_EQ(CountLines(r.err), 1) << r.err;
    EXPECT_NE(r.err.find(c.needle), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(c.problem), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("PreviewBokeh"), std::string::npos) << "library log leaked: " << r.err;
  }
}

TEST_F(ToolTest, AFailingLibraryCallGivesStatus1) {
  // A shared library without the assist entries: the graphic buffers cannot
  // be made, which the tool reports as a failure of the library chain.
  const char *candidates[] = {"/lib/x86_64-linux-gnu/libz.so.1", "/usr/lib/x86_64-linux-gnu/libz.so.1",
                              "/lib/aarch64-linux-gnu/libz.so.1", "/usr/lib/aarch64-linux-gnu/libz.so.1"};
  std::string lib;
  for (const char *c : candidates) {
    if (fs::exists(c)) lib = c;
  }
  if (lib.empty()) GTEST_SKIP() << "no libz to stand in for a broken assist library";
  const Result r = Run({"--assist", lib, "bench", "--size", "64x48", "--frames", "1"});
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.err.find("GraphicBuffer_new"), std::string::npos) << r.err;
}

TEST_F(ToolTest, LibraryLogGoesWhereAsked) {
  const Result r = Run({"--library-log", Path("lib.log"), "bench", "--size", "64x48", "--frames", "2"});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string log = Slurp(Path("lib.log"));
  EXPECT_NE(log.find("PreviewBokeh"), std::string::npos);
  EXPECT_NE(log.find("iBokehBlurImage"), std::string::npos);
  EXPECT_EQ(r.err.find("PreviewBokeh"), std::string::npos);
}

}  // namespace
