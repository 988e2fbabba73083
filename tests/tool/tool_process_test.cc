// End-to-end tests of the previewbokeh tool, run as a process through the
// library: the demo's pictures, render of the same frame from different
// inputs, replay of the library's own dumps, bench, and the handling of bad input.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "disparity.h"
#include "image_io.h"
#include "scene.h"
#include "tool_process_support.h"

using namespace pbtool;
using namespace pbtool_process;

namespace {

TEST_F(ToolTest, DemoWritesItsPicturesAndBlursOnlyTheBackground) {
  const int panels = fs::exists("demo/output-r4.png") ? 4 : 3, gap = 2;
  const struct {
    const char *file;
    int w, h, channels;
  } files[] = {{"input.png", 320, 240, 3}, {"disparity.png", 80, 60, 1}, {"weights.png", 320, 240, 3},
               {"output.png", 320, 240, 3}, {"comparison.png", panels * 320 + (panels - 1) * gap, 240, 3}};
  for (const auto &f : files) {
    const Image img = ReadImage(std::string("demo/") + f.file, f.channels);
    EXPECT_EQ(img.width, f.w) << f.file;
    EXPECT_EQ(img.height, f.h) << f.file;
  }

  const Image in = ReadImage(kIn, 3), out = ReadImage("demo/output.png", 3);
  const Image weights = ReadImage("demo/weights.png", 3);
  const SceneLayout l = MakeSceneLayout({320, 240});
  ASSERT_EQ(in.pixels.size(), out.pixels.size());
  // Inside the subject, well away from its outline, nothing changes.
  const int r = l.subject_radius / 2;
  ASSERT_GE(r, 18);  // over 1000 pixels checked
  for (int dy = -r; dy <= r; ++dy) {
    for (int dx = -r; dx <= r; ++dx) {
      const int x = l.subject_centre.x + dx, y = l.subject_centre.y + dy;
      ASSERT_TRUE(dx * dx + dy * dy > r * r || SamePixel(out, in, x, y)) << x << "," << y;
    }
  }
  // The focus point has weight 0 (the ramp's first colour).
  const uint8_t *focus = weights.Row(l.focus.y) + 3 * l.focus.x;
  EXPECT_EQ(std::vector<uint8_t>(focus, focus + 3), (std::vector<uint8_t>{68, 1, 84}));

  // Most of the far wall's textured pixels change, and the texture's contrast drops.
  const Rect &bg = l.far_background;
  int changed = 0, total = 0;
  long in_contrast = 0, out_contrast = 0;
  for (int y = bg.y0; y < bg.y1; ++y) {
    for (int x = bg.x0; x + 1 < bg.x1; ++x, ++total) {
      changed += !SamePixel(out, in, x, y);
      in_contrast += std::abs(in.Row(y)[3 * x + 3] - in.Row(y)[3 * x]);
      out_contrast += std::abs(out.Row(y)[3 * x + 3] - out.Row(y)[3 * x]);
    }
  }
  EXPECT_GT(changed, total * 3 / 4);
  EXPECT_LT(out_contrast * 2, in_contrast);
}

TEST_F(ToolTest, RenderAgreesAcrossInputForms) {
  // F_number 20 turns the blur off: "in.nv21" is the tool's NV21 of the PNG.
  Render(kIn, kDisp, "in.nv21", {"--fnumber", "20"});
  Render(kIn, kDisp, "ref.nv21");
  const std::string in = Slurp("in.nv21"), ref = Slurp("ref.nv21");
  ASSERT_EQ(in.size(), 320u * 240u * 3u / 2u);
  EXPECT_NE(ref, in);  // it did blur

  // Raw output in NV12 order holds the same samples with each chroma pair
  // swapped; both orders read back (order from the extension) to one picture.
  Render(kIn, kDisp, "ref.nv12");
  std::string swapped = ref;
  for (size_t i = 320 * 240; i < swapped.size(); i += 2) std::swap(swapped[i], swapped[i + 1]);
  EXPECT_EQ(Slurp("ref.nv12"), swapped);
  for (const std::string raw : {"ref.nv12", "ref.nv21"}) {
    Render(raw, kDisp, raw + ".png", {"--size", "320x240", "--fnumber", "20"});
  }
  const std::vector<uint8_t> ref_png = ReadImage("ref.nv21.png", 3).pixels;
  EXPECT_EQ(ReadImage("ref.nv12.png", 3).pixels, ref_png);

  // The disparity as a raw map and as a disparity-frame file with the default header.
  const Image d = ReadImage(kDisp, 1);
  WriteFileBytes("d.raw", d.pixels.data(), d.pixels.size());
  const std::vector<uint8_t> frame = BuildDisparityFrame(
      {MakeHeader({d.width, d.height}, kDefaultScaleNumerator, kDefaultScaleDenominator, 0), d});
  WriteFileBytes("d.bin", frame.data(), frame.size());
  Render(kIn, "d.raw", "c.nv21", {"--disparity-size", "80x60"});
  Render(kIn, "d.bin", "e.nv21");
  EXPECT_EQ(Slurp("c.nv21"), ref);
  EXPECT_EQ(Slurp("e.nv21"), ref);

  // A three-frame raw sequence gives three copies of the single-frame result.
  std::ofstream("seq.yuv", std::ios::binary) << in << in << in;
  const Result r = Render("seq.yuv", kDisp, "seq_out.yuv", {"--size", "320x240"});
  EXPECT_NE(r.out.find("3 frames"), npos) << r.out;
  EXPECT_NE(r.out.find("frames per second"), npos) << r.out;
  EXPECT_EQ(Slurp("seq_out.yuv"), ref + ref + ref);

  // A directory of images into a directory of PNGs, one per input.
  fs::create_directory("frames");
  fs::copy_file(kIn, "frames/f1.png");
  fs::copy_file(kIn, "frames/f2.png");
  Render("frames", kDisp, "outdir");
  EXPECT_EQ(ReadImage("outdir/f1.png", 3).pixels, ref_png);
  EXPECT_EQ(ReadImage("outdir/f2.png", 3).pixels, ref_png);
}

TEST_F(ToolTest, FocusPointChoosesWhatStaysSharp) {
  // Focus on the far wall: the wall now stays sharp and the subject blurs.
  // "sharp.png" is the same pipeline with the blur off (F_number 20).
  const SceneLayout l = MakeSceneLayout({320, 240});
  const Rect &bg = l.far_background;
  const int cy = (bg.y0 + bg.y1) / 2;
  Render(kIn, kDisp, "sharp.png", {"--fnumber", "20"});
  Render(kIn, kDisp, "wall.png", {"--focus", std::to_string((bg.x0 + bg.x1) / 2) + "," + std::to_string(cy)});
  const Image in = ReadImage("sharp.png", 3), out = ReadImage("wall.png", 3);
  for (int x = bg.x0 + 8; x < bg.x1 - 8; ++x) ASSERT_TRUE(SamePixel(out, in, x, cy)) << x;
  int changed = 0;
  for (int x = l.subject_centre.x - 10; x < l.subject_centre.x + 10; ++x) {
    changed += !SamePixel(out, in, x, l.subject_centre.y);
  }
  EXPECT_GT(changed, 10);
}

TEST_F(ToolTest, ReplayOfTheLibrarysDumpsIsIdentical) {
  fs::create_directory("dumps");
  Result r = Run(RenderArgs(kIn, kDisp, "x.png", {"--fnumber", "6"}),
                 "PERSIST_VENDOR_CAM_PREBOKEH_SAVE=yes PERSIST_VENDOR_CAM_PREBOKEH_PATH=dumps/");
  ASSERT_EQ(r.status, 0) << r.err;
  r = Run({"replay", "dumps", "--fnumber", "6", "--out", "replayed"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("1 frames replayed with F_number 6: 1 identical, 0 differ, 0 without imageout"), npos)
      << r.out;
  // Another aperture gives another frame, and replay says by how much; the
  // first results are replaced only with --force.
  r = Run({"replay", "dumps", "--fnumber", "1", "--out", "replayed", "--force"});
  ASSERT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.out.find("bytes differ"), npos) << r.out;
  EXPECT_NE(r.out.find("1 frames replayed with F_number 1: 0 identical, 1 differ"), npos) << r.out;
}

TEST_F(ToolTest, BenchReportsBothStagesAndTheLibraryLogGoesWhereAsked) {
  const Result r = Run({"--library-log", "lib.log", "bench", "--size", "64x48", "--frames", "5"});
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char *needle : {"weights", "blur", "median", "p95", "fps", "5 frames"}) {
    EXPECT_NE(r.out.find(needle), npos) << needle << "\n" << r.out;
  }
  const std::string log = Slurp("lib.log");
  EXPECT_NE(log.find("PreviewBokeh"), npos);
  EXPECT_NE(log.find("iBokehBlurImage"), npos);
  EXPECT_EQ(r.err.find("PreviewBokeh"), npos);
}

TEST_F(ToolTest, BadInputGivesOneMessageAndStatus2) {
  WriteFileBytes("notes.txt", "not an image", 12);
  WriteFileBytes("short.nv21", "abc", 3);
  WritePng("big.png", Image(400, 60, 1));
  WritePng("colour.png", Image(80, 60, 3));
  WritePng("odd.png", Image(321, 240, 3));
  fs::create_directory("empty");
  fs::create_directory("baddumps");
  WriteFileBytes("baddumps/imagein_16x8_1.img", std::string(192, 'a').data(), 192);
  WriteFileBytes("baddumps/weightin_16x8_1.img", "xx", 2);
  // A render of the demo's input and disparity into "o.png" with `extra` options.
  auto render = [](Args extra) { return RenderArgs(kIn, kDisp, "o.png", extra); };
  const struct {
    Args args;
    std::string needle;  // the file or option the message must name
    std::string problem;
  } cases[] = {
      {RenderArgs("missing.png", kDisp, "o.png"), "missing.png", "cannot open"},
      {RenderArgs(kIn, "missing_d.png", "o.png"), "missing_d.png", "cannot open"},
      {RenderArgs("notes.txt", kDisp, "o.png"), "notes.txt", "not a PNG or JPEG"},
      {RenderArgs(kIn, "big.png", "o.png"), "big.png", "larger than the frame"},
      {RenderArgs(kIn, "colour.png", "o.png"), "colour.png", "greyscale"},
      {RenderArgs("odd.png", kDisp, "o.png"), "odd.png", "odd"},
      {RenderArgs("short.nv21", kDisp, "o.png", {"--size", "320x240"}), "short.nv21", "whole number"},
      {RenderArgs("short.nv21", kDisp, "o.png"), "--size", "required"},
      {RenderArgs(kIn, kDisp, "o.bmp"), "--out", "extension"},
      {RenderArgs(kIn, "", "o.png"), "--disparity", "required"},
      {render({"--fnumber", "0"}), "--fnumber", "1..20"},   {render({"--fnumber", "abc"}), "--fnumber", "abc"},
      {render({"--focus", "320,10"}), "--focus", "outside"}, {render({"--ratio", "3"}), "--ratio", "not one of"},
      {{"demo", "--size", "321x240", "--out", "d2"}, "--size", "odd"},
      {{"demo", "--size", "big", "--out", "d2"}, "--size", "WxH"},
      {{"demo", "--bogus"}, "--bogus", ""},        {{"frobnicate"}, "frobnicate", ""},
      {{}, "subcommand", "required"},              {{"bench", "--frames", "0"}, "--frames", "outside"},
      {{"replay", "empty"}, "empty", "no pair"},   {{"replay", "missing_dir"}, "missing_dir", "not a directory"},
      {{"replay", "baddumps"}, "weightin_16x8_1.img", "expected 256"},
      {{"--assist", "nowhere.so", "bench"}, "--assist", "nowhere.so"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.args));
    const Result r = Run(c.args);
    EXPECT_EQ(r.status, 2) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_NE(r.err.find(c.needle), npos) << r.err;
    EXPECT_NE(r.err.find(c.problem), npos) << r.err;
    EXPECT_EQ(r.err.find("PreviewBokeh"), npos) << "library log leaked: " << r.err;
  }
}

TEST_F(ToolTest, AFailingLibraryCallGivesStatus1) {
  // A shared library without the assist entries: the graphic buffers cannot
  // be made, which the tool reports as a failure of the library chain.
  std::string lib;
  for (const char *c : {"/lib/x86_64-linux-gnu/libz.so.1", "/usr/lib/x86_64-linux-gnu/libz.so.1",
                        "/lib/aarch64-linux-gnu/libz.so.1", "/usr/lib/aarch64-linux-gnu/libz.so.1"}) {
    if (fs::exists(c)) lib = c;
  }
  if (lib.empty()) GTEST_SKIP() << "no libz to stand in for a broken assist library";
  const Result r = Run({"--assist", lib, "bench", "--size", "64x48", "--frames", "1"});
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.err.find("GraphicBuffer_new"), npos) << r.err;
}

}  // namespace
