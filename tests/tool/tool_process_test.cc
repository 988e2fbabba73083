// End-to-end tests of the previewbokeh tool, run as a process through the
// library: the demo's pictures, render of the same frame from different
// inputs, bench, and a library call that fails.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
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

  // The raw result read back as a picture: what a PNG output must hold.
  Render("ref.nv21", kDisp, "ref.png", {"--size", "320x240", "--fnumber", "20"});
  const std::vector<uint8_t> ref_png = ReadImage("ref.png", 3).pixels;
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
