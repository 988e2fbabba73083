// End-to-end tests of the frame formats: raw layouts with padding, y4m
// streams, the colour range, and replay's comparison with the recording.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "image_io.h"
#include "tool_process_support.h"

using namespace pbtool;
using namespace pbtool_process;

namespace {

// Packed NV21 bytes of a kW x kH frame laid out as `format` with `stride` and
// `scanlines`, position by position; padding bytes hold `fill`.
std::string ToLayout(const std::string &nv21, const std::string &format, int stride, int scanlines,
                     char fill) {
  std::string raw(static_cast<size_t>(stride) * scanlines * 3 / 2, fill);
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) raw[static_cast<size_t>(y) * stride + x] = nv21[static_cast<size_t>(y) * kW + x];
  }
  const size_t in_chroma = static_cast<size_t>(kW) * kH, out_chroma = static_cast<size_t>(stride) * scanlines;
  const size_t plane = static_cast<size_t>(stride / 2) * (scanlines / 2);
  for (int j = 0; j < kH / 2; ++j) {
    for (int i = 0; i < kW / 2; ++i) {
      const char v = nv21[in_chroma + static_cast<size_t>(j) * kW + 2 * i];
      const char u = nv21[in_chroma + static_cast<size_t>(j) * kW + 2 * i + 1];
      const size_t pair = out_chroma + static_cast<size_t>(j) * stride + 2 * i;
      const size_t planar = out_chroma + static_cast<size_t>(j) * (stride / 2) + i;
      if (format == "nv21") raw[pair] = v, raw[pair + 1] = u;
      if (format == "nv12") raw[pair] = u, raw[pair + 1] = v;
      if (format == "i420") raw[planar] = u, raw[planar + plane] = v;
      if (format == "yv12") raw[planar] = v, raw[planar + plane] = u;
    }
  }
  return raw;
}

std::string I420(const std::string &nv21) { return ToLayout(nv21, "i420", kW, kH, 0); }

class FormatsTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    if (HasFatalFailure()) return;
    // F_number 20 turns the blur off: "in.nv21" is the tool's NV21 of the demo input.
    Render(kIn, kDisp, "in.nv21", {"--fnumber", "20"});
    Render(kIn, kDisp, "ref.nv21");
    in_ = Slurp("in.nv21");
    ref_ = Slurp("ref.nv21");
    ASSERT_EQ(in_.size(), kW * kH * 3u / 2u);
    ASSERT_NE(in_, ref_);
  }
  std::string in_, ref_;
};

TEST_F(FormatsTest, EveryRawLayoutGivesTheBlurOfPackedNV21) {
  const struct { int stride, scanlines; } paddings[] = {{kW, kH}, {336, 256}};
  for (const std::string format : {"i420", "yv12", "nv12", "nv21"}) {
    for (const auto &p : paddings) {
      SCOPED_TRACE(format + " " + std::to_string(p.stride) + "x" + std::to_string(p.scanlines));
      const std::string tag = format + "_" + std::to_string(p.stride);
      const Args layout = {"--stride", std::to_string(p.stride), "--scanlines", std::to_string(p.scanlines)};
      const std::string input = "in_" + tag + "." + format;
      std::ofstream(input, std::ios::binary) << ToLayout(in_, format, p.stride, p.scanlines, '\x55');
      Args args = layout;
      args.insert(args.end(), {"--size", "320x240"});
      Render(input, kDisp, "out_" + tag + ".nv21", args);
      EXPECT_EQ(Slurp("out_" + tag + ".nv21"), ref_);

      // The same layout written, padding zero.
      const std::string output = "o_" + tag + "." + format;
      Render(kIn, kDisp, output, {"--out-stride", layout[1], "--out-scanlines", layout[3]});
      EXPECT_EQ(Slurp(output), ToLayout(ref_, format, p.stride, p.scanlines, 0));
    }
  }
  // .yuv takes --format; raw output keeps the input's format by default.
  std::ofstream("in.yuv", std::ios::binary) << ToLayout(in_, "yv12", kW, kH, 0);
  Render("in.yuv", kDisp, "same.yuv", {"--size", "320x240", "--format", "YV12"});
  EXPECT_EQ(Slurp("same.yuv"), ToLayout(ref_, "yv12", kW, kH, 0));
}

TEST_F(FormatsTest, Y4mRoundTrip) {
  const std::string head = "YUV4MPEG2 W320 H240 F25:1 Ip A1:1 C420mpeg2 XCOLORRANGE=LIMITED\n";
  std::ofstream("in.y4m", std::ios::binary) << head << "FRAME\n" << I420(in_) << "FRAME Ixyz\n" << I420(in_);
  Render("in.y4m", kDisp, "out.y4m");
  // The header's values carry over; each frame is a FRAME line and the I420 planes.
  EXPECT_EQ(Slurp("out.y4m"), head + "FRAME\n" + I420(ref_) + "FRAME\n" + I420(ref_));
  // The output reads back as it was written.
  Render("out.y4m", kDisp, "again.y4m", {"--fnumber", "20"});
  EXPECT_EQ(Slurp("again.y4m"), Slurp("out.y4m"));
  Render("in.y4m", kDisp, "out.nv21");
  EXPECT_EQ(Slurp("out.nv21"), ref_ + ref_);
  // Raw output of y4m input is I420 unless the extension says otherwise.
  Render("in.y4m", kDisp, "out.yuv");
  EXPECT_EQ(Slurp("out.yuv"), I420(ref_) + I420(ref_));
  // Other inputs give 30 frames per second, progressive, unknown aspect, 420jpeg.
  Render(kIn, kDisp, "png.y4m");
  EXPECT_EQ(Slurp("png.y4m"), "YUV4MPEG2 W320 H240 F30:1 Ip A0:0 C420jpeg\nFRAME\n" + I420(ref_));
}

// Limited range maps white to luma 235, full range to 255; reading luma 235
// back gives white with limited range and 235 with full range.
TEST_F(FormatsTest, RangeOfTheRgbConversion) {
  Image white(kW, kH, 3);
  std::fill(white.pixels.begin(), white.pixels.end(), 255);
  WritePng("white.png", white);
  const struct { const char *range; int luma, grey; } cases[] = {{"limited", 235, 255}, {"full", 255, 235}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.range);
    const std::string yuv = std::string("white_") + c.range + ".nv21";
    Render("white.png", kDisp, yuv, {"--fnumber", "20", "--range", c.range});
    const std::string bytes = Slurp(yuv);
    ASSERT_EQ(bytes.size(), in_.size());
    EXPECT_EQ(std::count(bytes.begin(), bytes.begin() + kW * kH, static_cast<char>(c.luma)), kW * kH);
    const std::string png = std::string("back_") + c.range + ".png";
    Render("white_limited.nv21", kDisp, png, {"--size", "320x240", "--fnumber", "20", "--range", c.range});
    const Image back = ReadImage(png, 3);
    EXPECT_EQ(std::count(back.pixels.begin(), back.pixels.end(), c.grey), kW * kH * 3);
  }
}

TEST_F(FormatsTest, ReplayMatchesItsRecordingAndReportsAChangedOne) {
  fs::create_directory("dumps");
  Result r = Run(RenderArgs(kIn, kDisp, "x.png", {"--fnumber", "6"}),
                 "PERSIST_VENDOR_CAM_PREBOKEH_SAVE=yes PERSIST_VENDOR_CAM_PREBOKEH_PATH=dumps/");
  ASSERT_EQ(r.status, 0) << r.err;
  r = Run({"replay", "dumps", "--fnumber", "6", "--out", "same"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("1 frames replayed with F_number 6: 1 identical, 0 differ, 0 without imageout"), npos)
      << r.out;
  std::string imageout;
  for (const auto &e : fs::directory_iterator("dumps")) {
    if (e.path().filename().string().rfind("imageout_", 0) == 0) imageout = e.path().string();
  }
  ASSERT_FALSE(imageout.empty());
  const std::string stamp_tag = fs::path(imageout).stem().string().substr(std::string("imageout_").size());
  // One luma byte (x 40, y 3) off by 64.
  std::string bytes = Slurp(imageout);
  bytes[3 * kW + 40] = static_cast<char>(bytes[3 * kW + 40] ^ 0x40);
  std::ofstream(imageout, std::ios::binary) << bytes;

  r = Run({"replay", "dumps", "--fnumber", "6", "--out", "replayed", "--json", "r.json", "--diff-png", "diffs"});
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.out.find("1 of 115200 bytes differ, largest difference 64"), npos) << r.out;
  EXPECT_NE(r.out.find("0 identical, 1 differ, 0 without imageout: the replay does NOT match"), npos) << r.out;

  // PSNR by its definition: 10 log10(255^2 / MSE), one squared error of 64^2.
  const nlohmann::json report = nlohmann::json::parse(Slurp("r.json"));
  const nlohmann::json &f = report["frames"].at(0);
  EXPECT_EQ(f["differing_bytes"], 1);
  EXPECT_EQ(f["max_diff"], 64);
  EXPECT_EQ(f["identical"], false);
  EXPECT_NEAR(f["psnr"].get<double>(), 62.62173, 1e-4);
  EXPECT_NEAR(f["psnr_luma"].get<double>(), 60.86082, 1e-4);
  EXPECT_TRUE(f["psnr_chroma"].is_null());
  EXPECT_GT(f["blur_ms"].get<double>(), 0.0);
  EXPECT_EQ(report["summary"]["differ"], 1);
  EXPECT_EQ(report["fnumber"], 6);

  // The difference picture: 64 x 16 clamps to 255 at the changed pixel, 0 elsewhere.
  const Image diff = ReadImage("diffs/diff_" + stamp_tag + ".png", 1);
  ASSERT_EQ(diff.pixels.size(), static_cast<size_t>(kW * kH));
  EXPECT_EQ(diff.pixels[3 * kW + 40], 255);
  EXPECT_EQ(std::count(diff.pixels.begin(), diff.pixels.end(), 0), kW * kH - 1);
}

}  // namespace
