// Unit tests of the command-line tool's own code: option values, image files,
// colour conversion, disparity frames, the demo scene, pictures, statistics
// and dump names.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "cli.h"
#include "console.h"
#include "disparity.h"
#include "dumps.h"
#include "errors.h"
#include "image_io.h"
#include "inputs.h"
#include "scene.h"
#include "visual.h"
#include "yuv.h"

namespace fs = std::filesystem;
using namespace pbtool;

namespace {

// A fresh directory under the system temp dir, removed at the end.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (fs::temp_directory_path() / "pbtool_unit_XXXXXX").string();
    path_ = mkdtemp(pattern.data()) ? pattern : "";
  }
  ~TempDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  std::string operator/(const std::string &name) const { return (fs::path(path_) / name).string(); }
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

// Runs `fn` and returns the InputError message ("" when none was thrown).
std::string InputErrorOf(const std::function<void()> &fn) {
  try {
    fn();
  } catch (const InputError &e) {
    return e.what();
  }
  return "";
}

Image Noise(int w, int h, int channels, unsigned seed) {
  Image img(w, h, channels);
  for (auto &p : img.pixels) {
    seed = seed * 1103515245u + 12345u;
    p = static_cast<uint8_t>(seed >> 16);
  }
  return img;
}

Image Solid(int w, int h, uint8_t r, uint8_t g, uint8_t b) {
  Image img(w, h, 3);
  for (size_t i = 0; i < img.pixels.size(); i += 3) {
    img.pixels[i] = r;
    img.pixels[i + 1] = g;
    img.pixels[i + 2] = b;
  }
  return img;
}

// ---------------------------------------------------------------------------
// Option values

struct SizeCase {
  const char *text;
  bool ok;
  int w, h;
};

TEST(OptionValues, ParseSize) {
  const SizeCase cases[] = {
      {"1920x1080", true, 1920, 1080}, {"320X240", true, 320, 240}, {"8*8", true, 8, 8},
      {"1920", false, 0, 0},           {"x1080", false, 0, 0},      {"1920x", false, 0, 0},
      {"-2x4", false, 0, 0},           {"2x-4", false, 0, 0},       {"0x4", false, 0, 0},
      {"4x0", false, 0, 0},            {"12ax4", false, 0, 0},      {" 4x4", false, 0, 0},
      {"9999999999x4", false, 0, 0},   {"", false, 0, 0},
  };
  for (const SizeCase &c : cases) {
    SCOPED_TRACE(c.text);
    if (c.ok) {
      const Size s = ParseSize(c.text, "--size");
      EXPECT_EQ(s.width, c.w);
      EXPECT_EQ(s.height, c.h);
    } else {
      const std::string message = InputErrorOf([&] { ParseSize(c.text, "--size"); });
      EXPECT_NE(message.find("--size"), std::string::npos) << message;
    }
  }
}

TEST(OptionValues, ParsePoint) {
  struct Case {
    const char *text;
    bool ok;
    int x, y;
  };
  const Case cases[] = {
      {"960,540", true, 960, 540}, {"0,0", true, 0, 0}, {"1,", false, 0, 0}, {",1", false, 0, 0},
      {"-1,3", false, 0, 0},       {"1;2", false, 0, 0}, {"a,b", false, 0, 0},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.text);
    if (c.ok) {
      const Point p = ParsePoint(c.text, "--focus");
      EXPECT_EQ(p.x, c.x);
      EXPECT_EQ(p.y, c.y);
    } else {
      EXPECT_NE(InputErrorOf([&] { ParsePoint(c.text, "--focus"); }).find("--focus"),
                std::string::npos);
    }
  }
}

TEST(OptionValues, FrameSizeLimits) {
  const struct {
    Size size;
    const char *problem;  // nullptr = accepted
  } cases[] = {
      {{1920, 1080}, nullptr}, {{8, 8}, nullptr},       {{8192, 8192}, nullptr},
      {{321, 240}, "odd"},     {{320, 241}, "odd"},     {{6, 8}, "outside"},
      {{8, 6}, "outside"},     {{8194, 8}, "outside"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(ToString(c.size));
    const std::string message = InputErrorOf([&] { CheckFrameSize(c.size, "--size"); });
    if (!c.problem) {
      EXPECT_EQ(message, "");
    } else {
      EXPECT_NE(message.find(c.problem), std::string::npos) << message;
      EXPECT_NE(message.find("--size"), std::string::npos) << message;
    }
  }
}

// ---------------------------------------------------------------------------
// Image files

TEST(ImageFiles, PngIsLosslessForGreyAndRgb) {
  TempDir dir;
  for (int channels : {1, 3}) {
    for (Size s : {Size{1, 1}, Size{17, 5}, Size{64, 48}}) {
      SCOPED_TRACE(std::to_string(channels) + " channels " + ToString(s));
      const Image img = Noise(s.width, s.height, channels, 7u + channels);
      WritePng(dir / "a.png", img);
      const Image back = ReadImage(dir / "a.png", channels);
      EXPECT_EQ(back.width, s.width);
      EXPECT_EQ(back.height, s.height);
      EXPECT_EQ(back.pixels, img.pixels);
    }
  }
}

TEST(ImageFiles, GreyPngExpandsToRgb) {
  TempDir dir;
  const Image grey = Noise(9, 4, 1, 3);
  WritePng(dir / "g.png", grey);
  const Image rgb = ReadImage(dir / "g.png", 3);
  ASSERT_EQ(rgb.channels, 3);
  for (size_t i = 0; i < grey.pixels.size(); ++i) {
    EXPECT_EQ(rgb.pixels[3 * i], grey.pixels[i]);
    EXPECT_EQ(rgb.pixels[3 * i + 2], grey.pixels[i]);
  }
}

TEST(ImageFiles, JpegRoundTripStaysClose) {
  TempDir dir;
  for (int channels : {1, 3}) {
    SCOPED_TRACE(channels);
    // Smooth content: JPEG at quality 95 keeps it within a few levels.
    Image img(32, 24, channels);
    for (int y = 0; y < img.height; ++y) {
      for (int x = 0; x < img.width; ++x) {
        for (int c = 0; c < channels; ++c) img.Row(y)[x * channels + c] = static_cast<uint8_t>(40 + 4 * x + 2 * y + 10 * c);
      }
    }
    WriteImage(dir / "a.jpg", img);
    const Image back = ReadImage(dir / "a.jpg", channels);
    ASSERT_EQ(back.pixels.size(), img.pixels.size());
    int worst = 0;
    for (size_t i = 0; i < img.pixels.size(); ++i) worst = std::max(worst, std::abs(back.pixels[i] - img.pixels[i]));
    EXPECT_LE(worst, 6);
  }
}

TEST(ImageFiles, BadFilesNameTheFileAndTheProblem) {
  TempDir dir;
  WritePng(dir / "colour.png", Solid(4, 4, 200, 10, 10));
  WriteImage(dir / "colour.jpg", Solid(16, 16, 200, 10, 10));
  const std::vector<uint8_t> png = ReadFileBytes(dir / "colour.png");
  WriteFileBytes(dir / "truncated.png", png.data(), png.size() / 2);
  WriteImage(dir / "noise.jpg", Noise(64, 64, 3, 9));
  const std::vector<uint8_t> jpg = ReadFileBytes(dir / "noise.jpg");
  WriteFileBytes(dir / "truncated.jpg", jpg.data(), jpg.size() / 2);
  WriteFileBytes(dir / "text.png", "hello", 5);
  WriteFileBytes(dir / "empty.png", "", 0);
  const struct {
    std::string file;
    int channels;
    const char *problem;
  } cases[] = {
      {"missing.png", 3, "cannot open"}, {"colour.png", 1, "greyscale"},
      {"colour.jpg", 1, "greyscale"},    {"truncated.png", 3, "PNG"},
      {"truncated.jpg", 3, "JPEG"},
      {"text.png", 3, "not a PNG or JPEG"}, {"empty.png", 3, "not a PNG or JPEG"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.file);
    const std::string message = InputErrorOf([&] { ReadImage(dir / c.file, c.channels); });
    EXPECT_NE(message.find(c.file), std::string::npos) << message;
    EXPECT_NE(message.find(c.problem), std::string::npos) << message;
  }
}

TEST(ImageFiles, UnknownOutputExtensionIsRejected) {
  TempDir dir;
  EXPECT_NE(InputErrorOf([&] { WriteImage(dir / "a.bmp", Solid(2, 2, 1, 2, 3)); }).find(".bmp"),
            std::string::npos);
  EXPECT_NE(InputErrorOf([&] { WritePng(dir / "no/such/dir/a.png", Solid(2, 2, 1, 2, 3)); }), "");
}

// ---------------------------------------------------------------------------
// YUV conversion

TEST(Yuv, SolidColoursSurviveTheRoundTrip) {
  const struct {
    uint8_t r, g, b;
  } colours[] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {128, 128, 128}, {250, 200, 30}, {0, 0, 0}};
  for (YuvFormat format : {YuvFormat::kNV21, YuvFormat::kNV12}) {
    for (const auto &c : colours) {
      SCOPED_TRACE(std::string(FormatName(format)) + " " + std::to_string(c.r) + "," +
                   std::to_string(c.g) + "," + std::to_string(c.b));
      const Image back = YuvToRgb(RgbToYuv(Solid(16, 8, c.r, c.g, c.b), format), format);
      EXPECT_NEAR(back.pixels[0], c.r, 6);
      EXPECT_NEAR(back.pixels[1], c.g, 6);
      EXPECT_NEAR(back.pixels[2], c.b, 6);
    }
  }
}

TEST(Yuv, Nv12AndNv21DifferOnlyInChromaOrder) {
  const Image img = Noise(24, 10, 3, 11);
  const YuvFrame nv21 = RgbToYuv(img, YuvFormat::kNV21);
  const YuvFrame nv12 = RgbToYuv(img, YuvFormat::kNV12);
  ASSERT_EQ(nv21.data.size(), 24u * 10u * 3u / 2u);
  const size_t luma = 24 * 10;
  EXPECT_TRUE(std::equal(nv21.data.begin(), nv21.data.begin() + luma, nv12.data.begin()));
  for (size_t i = luma; i < nv21.data.size(); i += 2) {
    EXPECT_EQ(nv21.data[i], nv12.data[i + 1]);
    EXPECT_EQ(nv21.data[i + 1], nv12.data[i]);
  }
  // Red is high in V (Cr): NV21 stores V first.
  const YuvFrame red = RgbToYuv(Solid(8, 8, 255, 0, 0), YuvFormat::kNV21);
  EXPECT_GT(red.Chroma()[0], 200);
  EXPECT_LT(red.Chroma()[1], 128);
}

TEST(Yuv, SwapChromaOrderTurnsNv21IntoNv12) {
  const Image img = Noise(16, 10, 3, 23);
  YuvFrame f = RgbToYuv(img, YuvFormat::kNV21);
  SwapChromaOrder(&f);
  EXPECT_EQ(f.data, RgbToYuv(img, YuvFormat::kNV12).data);
}

TEST(Yuv, GreyHasNeutralChroma) {
  const YuvFrame f = RgbToYuv(Solid(8, 8, 90, 90, 90), YuvFormat::kNV21);
  for (size_t i = 64; i < f.data.size(); ++i) EXPECT_EQ(f.data[i], 128);
}

TEST(Yuv, OddImageSizeIsRejected) {
  EXPECT_NE(InputErrorOf([] { RgbToYuv(Solid(9, 8, 0, 0, 0), YuvFormat::kNV21); }).find("odd"),
            std::string::npos);
}

TEST(Yuv, FormatNamesAndExtensions) {
  EXPECT_EQ(ParseYuvFormat("NV12", "--format"), YuvFormat::kNV12);
  EXPECT_EQ(ParseYuvFormat("nv21", "--format"), YuvFormat::kNV21);
  EXPECT_NE(InputErrorOf([] { ParseYuvFormat("i420", "--format"); }).find("--format"), std::string::npos);
  EXPECT_EQ(FormatFromExtension("a.NV12", YuvFormat::kNV21), YuvFormat::kNV12);
  EXPECT_EQ(FormatFromExtension("a.yuv", YuvFormat::kNV12), YuvFormat::kNV12);
}

// ---------------------------------------------------------------------------
// Disparity frames

TEST(DisparityFrames, HeaderFieldsSitAtTheirByteOffsets) {
  DisparityMap map;
  map.header.scale_numerator_q19 = 0x11223344;
  map.header.scale_denominator_q19 = -2;
  map.header.ref_width = 0x0506;
  map.header.width = 3;
  map.header.height = 2;
  map.samples = Image(3, 2, 1);
  map.samples.pixels = {1, 2, 3, 4, 5, 6};
  const std::vector<uint8_t> frame = BuildDisparityFrame(map);
  ASSERT_EQ(frame.size(), 68u + 6u);
  std::vector<uint8_t> expected(68, 0);
  const uint8_t fields[][3] = {{16, 0x44, 0}, {17, 0x33, 0}, {18, 0x22, 0}, {19, 0x11, 0},
                               {20, 0xFE, 0}, {21, 0xFF, 0}, {22, 0xFF, 0}, {23, 0xFF, 0},
                               {60, 0x06, 0}, {61, 0x05, 0}, {64, 3, 0},    {66, 2, 0}};
  for (const auto &f : fields) expected[f[0]] = f[1];
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), frame.begin()));
  EXPECT_EQ(std::vector<uint8_t>(frame.begin() + 68, frame.end()), map.samples.pixels);

  const DisparityMap back = ParseDisparityFrame(frame, "f");
  EXPECT_EQ(back.header.scale_numerator_q19, 0x11223344);
  EXPECT_EQ(back.header.scale_denominator_q19, -2);
  EXPECT_EQ(back.header.ref_width, 0x0506);
  EXPECT_EQ(back.samples.pixels, map.samples.pixels);
}

TEST(DisparityFrames, MalformedFilesAreRejected) {
  DisparityMap map;
  map.header = MakeHeader({4, 3}, 1.0, 1.0, 0);
  map.samples = Image(4, 3, 1);
  std::vector<uint8_t> good = BuildDisparityFrame(map);
  std::vector<uint8_t> longer = good;
  longer.push_back(0);
  std::vector<uint8_t> shorter(good.begin(), good.end() - 1);
  std::vector<uint8_t> zero_width = good;
  zero_width[64] = 0;
  std::vector<uint8_t> tiny(10, 0);
  for (const auto *bytes : {&longer, &shorter, &zero_width, &tiny}) {
    EXPECT_NE(InputErrorOf([&] { ParseDisparityFrame(*bytes, "map.bin"); }).find("map.bin"),
              std::string::npos);
  }
  EXPECT_EQ(InputErrorOf([&] { ParseDisparityFrame(good, "map.bin"); }), "");
}

TEST(DisparityFrames, Q19Conversion) {
  const struct {
    double value;
    int32_t q19;
  } cases[] = {{1.0, 524288}, {0.5, 262144}, {-0.5, -262144}, {2000.0, 1048576000}, {0.0, 0},
               {4095.0, 2146959360}};
  for (const auto &c : cases) EXPECT_EQ(ToQ19(c.value, "--scale-num"), c.q19) << c.value;
  for (double bad : {4096.0, -4096.5, 1e300}) {
    EXPECT_NE(InputErrorOf([&] { ToQ19(bad, "--scale-num"); }).find("--scale-num"), std::string::npos);
  }
}

TEST(DisparityFrames, HeaderDefaultsAndChecks) {
  const DisparityHeader h = MakeHeader({80, 60}, kDefaultScaleNumerator, kDefaultScaleDenominator, 0);
  EXPECT_EQ(h.ref_width, 80);
  EXPECT_EQ(h.width, 80);
  EXPECT_EQ(h.height, 60);
  EXPECT_EQ(MakeHeader({80, 60}, 1, 1, 640).ref_width, 640);
  EXPECT_NE(InputErrorOf([] { MakeHeader({8, 8}, 1, 0, 0); }).find("--scale-den"), std::string::npos);
  EXPECT_NE(InputErrorOf([] { MakeHeader({8, 8}, 1, 1e-9, 0); }).find("--scale-den"), std::string::npos);
  EXPECT_NE(InputErrorOf([] { MakeHeader({8, 8}, 1, 1, 70000); }).find("--ref-width"), std::string::npos);
}

TEST(DisparityFrames, LoadingByKind) {
  TempDir dir;
  const Image grey = Noise(20, 10, 1, 5);
  WritePng(dir / "d.png", grey);
  WriteFileBytes(dir / "d.raw", grey.pixels.data(), grey.pixels.size());
  DisparityMap own;
  own.header = MakeHeader({20, 10}, 3.0, 1.5, 100);
  own.samples = grey;
  const std::vector<uint8_t> frame = BuildDisparityFrame(own);
  WriteFileBytes(dir / "d.bin", frame.data(), frame.size());

  DisparityOptions o;
  const DisparityMap from_png = LoadDisparity(dir / "d.png", o);
  EXPECT_EQ(from_png.samples.pixels, grey.pixels);
  EXPECT_EQ(from_png.header.scale_numerator_q19, 2000 * 524288);
  EXPECT_EQ(from_png.header.scale_denominator_q19, 524288 / 2);
  EXPECT_EQ(from_png.header.ref_width, 20);

  o.raw_size = "20x10";
  o.scale_num = 10;
  const DisparityMap from_raw = LoadDisparity(dir / "d.raw", o);
  EXPECT_EQ(from_raw.samples.pixels, grey.pixels);
  EXPECT_EQ(from_raw.header.scale_numerator_q19, 10 * 524288);

  o.raw_size = "10x10";
  EXPECT_NE(InputErrorOf([&] { LoadDisparity(dir / "d.raw", o); }).find("--disparity-size"),
            std::string::npos);

  // A disparity-frame file keeps its own header whatever the options say.
  o = DisparityOptions();
  o.scale_num = 10;
  const DisparityMap from_bin = LoadDisparity(dir / "d.bin", o);
  EXPECT_EQ(from_bin.header.scale_numerator_q19, 3 * 524288);
  EXPECT_EQ(from_bin.header.ref_width, 100);
  EXPECT_EQ(from_bin.samples.pixels, grey.pixels);

  EXPECT_EQ(InputErrorOf([&] { CheckDisparityFits(from_png, {20, 10}, "d.png"); }), "");
  EXPECT_NE(InputErrorOf([&] { CheckDisparityFits(from_png, {18, 40}, "d.png"); }).find("larger"),
            std::string::npos);
  EXPECT_NE(InputErrorOf([&] { CheckDisparityFits(from_png, {40, 8}, "d.png"); }).find("larger"),
            std::string::npos);
}

// ---------------------------------------------------------------------------
// Frame inputs

TEST(FrameInputs, RawSequencesAndDirectories) {
  TempDir dir;
  const Size s{16, 8};
  std::vector<uint8_t> three(YuvFrame::FrameBytes(s) * 3);
  for (size_t i = 0; i < three.size(); ++i) three[i] = static_cast<uint8_t>(i * 7);
  WriteFileBytes(dir / "seq.nv12", three.data(), three.size());
  FrameSource raw(dir / "seq.nv12", "16x8", "");
  EXPECT_EQ(raw.count(), 3);
  EXPECT_TRUE(raw.is_sequence());
  EXPECT_EQ(raw.format(), YuvFormat::kNV12);
  raw.Read(0);
  const YuvFrame second = raw.Read(1);
  EXPECT_TRUE(std::equal(second.data.begin(), second.data.end(), three.begin() + YuvFrame::FrameBytes(s)));

  WriteFileBytes(dir / "part.yuv", three.data(), three.size() - 1);
  const struct {
    std::function<void()> fn;
    const char *needle;
  } bad[] = {
      {[&] { FrameSource f(dir / "part.yuv", "16x8", ""); }, "whole number"},
      {[&] { FrameSource f(dir / "seq.nv12", "", ""); }, "--size"},
      {[&] { FrameSource f(dir / "seq.nv12", "15x8", ""); }, "odd"},
      {[&] { FrameSource f(dir / "seq.nv12", "16x8", "yv12"); }, "--format"},
      {[&] { FrameSource f(dir / "frame.png", "16x8", ""); }, "only for raw"},
  };
  for (const auto &b : bad) EXPECT_NE(InputErrorOf(b.fn).find(b.needle), std::string::npos) << b.needle;

  fs::create_directory(dir / "frames");
  WritePng(dir / "frames/b.png", Solid(16, 8, 1, 2, 3));
  WritePng(dir / "frames/a.png", Solid(16, 8, 1, 2, 3));
  WritePng(dir / "frames/c.png", Solid(18, 8, 1, 2, 3));
  WriteFileBytes(dir / "frames/notes.txt", "x", 1);
  FrameSource images(dir / "frames", "", "");
  EXPECT_EQ(images.count(), 3);
  EXPECT_EQ(images.Name(0), "a");
  EXPECT_EQ(images.Name(1), "b");
  images.Read(0);
  images.Read(1);
  EXPECT_NE(InputErrorOf([&] { images.Read(2); }).find("c.png"), std::string::npos);

  fs::create_directory(dir / "none");
  EXPECT_NE(InputErrorOf([&] { FrameSource f(dir / "none", "", ""); }).find("no .png"), std::string::npos);
}

// ---------------------------------------------------------------------------
// Demo scene

class DemoScene : public ::testing::TestWithParam<Size> {};

TEST_P(DemoScene, LayersSitWhereTheLayoutSays) {
  const Size size = GetParam();
  const Scene scene = MakeDemoScene(size);
  const SceneLayout &l = scene.layout;
  ASSERT_EQ(scene.rgb.width, size.width);
  ASSERT_EQ(scene.rgb.height, size.height);
  EXPECT_EQ(l.disparity.width, std::max(1, size.width / 4));
  EXPECT_EQ(l.disparity.height, std::max(1, size.height / 4));
  ASSERT_EQ(scene.disparity.samples.width, l.disparity.width);

  auto disparity_at = [&](int x, int y) {  // frame pixel -> disparity sample
    return scene.disparity.samples.Row(y * l.disparity.height / size.height)[x * l.disparity.width / size.width];
  };
  EXPECT_EQ(disparity_at(l.focus.x, l.focus.y), kSceneSubjectDisparity);
  EXPECT_EQ(disparity_at((l.midground.x0 + l.midground.x1) / 2, (l.midground.y0 + l.midground.y1) / 2),
            kSceneMidgroundDisparity);
  // The far-background patch is plain far wall, clear of the subject and the pillar.
  const Rect &bg = l.far_background;
  ASSERT_LT(bg.x0, bg.x1);
  ASSERT_LT(bg.y0, bg.y1);
  for (int y = bg.y0; y < bg.y1; ++y) {
    for (int x = bg.x0; x < bg.x1; ++x) {
      const int dx = x - l.subject_centre.x, dy = y - l.subject_centre.y;
      ASSERT_GT(dx * dx + dy * dy, l.subject_radius * l.subject_radius) << x << "," << y;
      ASSERT_FALSE(l.midground.Contains(x, y)) << x << "," << y;
      ASSERT_LT(y, l.horizon_y);
    }
  }
  EXPECT_EQ(disparity_at((bg.x0 + bg.x1) / 2, (bg.y0 + bg.y1) / 2), kSceneBackgroundDisparity);
  // Disparity grows towards the bottom on the floor.
  EXPECT_GT(scene.disparity.samples.Row(l.disparity.height - 1)[l.disparity.width - 1],
            kSceneBackgroundDisparity);
}

TEST_P(DemoScene, SubjectAndBackgroundAreTextured) {
  // Blurring has to show: both regions hold fine detail, not flat colour.
  const Scene scene = MakeDemoScene(GetParam());
  const SceneLayout &l = scene.layout;
  auto distinct_neighbours = [&](int x0, int y0, int x1, int y1) {
    int changes = 0, total = 0;
    for (int y = y0; y < y1; ++y) {
      for (int x = x0; x + 1 < x1; ++x, ++total) changes += scene.rgb.Row(y)[3 * x] != scene.rgb.Row(y)[3 * x + 3];
    }
    return total ? static_cast<double>(changes) / total : 0.0;
  };
  const int r = l.subject_radius / 2;
  EXPECT_GT(distinct_neighbours(l.focus.x - r, l.focus.y - r, l.focus.x + r, l.focus.y + r), 0.3);
  const Rect &bg = l.far_background;
  EXPECT_GT(distinct_neighbours(bg.x0, bg.y0, bg.x1, bg.y1), 0.3);
}

TEST_P(DemoScene, IsDeterministic) {
  const Scene a = MakeDemoScene(GetParam()), b = MakeDemoScene(GetParam());
  EXPECT_EQ(a.rgb.pixels, b.rgb.pixels);
  EXPECT_EQ(a.disparity.samples.pixels, b.disparity.samples.pixels);
}

INSTANTIATE_TEST_SUITE_P(Sizes, DemoScene,
                         ::testing::Values(Size{320, 240}, Size{1920, 1080}, Size{64, 48}, Size{96, 400}),
                         [](const ::testing::TestParamInfo<Size> &info) { return ToString(info.param); });

// ---------------------------------------------------------------------------
// Pictures

TEST(Pictures, WeightColourRampEndsAndClamps) {
  const uint16_t weights[] = {0, 512, 1024, 5000};
  const Image img = ColourMapWeights(weights, {4, 1});
  const uint8_t expected[][3] = {{68, 1, 84}, {33, 145, 140}, {253, 231, 37}, {253, 231, 37}};
  for (int i = 0; i < 4; ++i) {
    for (int c = 0; c < 3; ++c) EXPECT_EQ(img.pixels[3 * i + c], expected[i][c]) << i << "/" << c;
  }
  // Brightness (green) grows with the weight all along the ramp.
  std::vector<uint16_t> ramp(1025);
  for (int i = 0; i <= 1024; ++i) ramp[i] = static_cast<uint16_t>(i);
  const Image r = ColourMapWeights(ramp.data(), {1025, 1});
  for (int i = 1; i <= 1024; ++i) EXPECT_GE(r.pixels[3 * i + 1], r.pixels[3 * (i - 1) + 1]) << i;
}

TEST(Pictures, SideBySidePlacesPanelsWithGaps) {
  const Image a = Solid(3, 2, 10, 20, 30), b = Solid(5, 2, 40, 50, 60);
  const Image out = SideBySide({&a, &b}, 2);
  ASSERT_EQ(out.width, 3 + 2 + 5);
  ASSERT_EQ(out.height, 2);
  EXPECT_EQ(out.Row(1)[3 * 2], 10);
  EXPECT_EQ(out.Row(1)[3 * 3], 255);  // gap
  EXPECT_EQ(out.Row(1)[3 * 4 + 1], 255);
  EXPECT_EQ(out.Row(0)[3 * 5 + 2], 60);
  EXPECT_EQ(out.Row(1)[3 * 9], 40);
  const Image tall = Solid(2, 3, 0, 0, 0);
  EXPECT_THROW(SideBySide({&a, &tall}, 1), std::logic_error);
}

TEST(Pictures, ScaleToWidthKeepsAspectAndColour) {
  const Image img = Solid(400, 100, 12, 34, 56);
  const Image small = ScaleToWidth(img, 100);
  EXPECT_EQ(small.width, 100);
  EXPECT_EQ(small.height, 25);
  for (size_t i = 0; i < small.pixels.size(); i += 3) {
    ASSERT_EQ(small.pixels[i], 12);
    ASSERT_EQ(small.pixels[i + 1], 34);
    ASSERT_EQ(small.pixels[i + 2], 56);
  }
  EXPECT_EQ(ScaleToWidth(img, 0).width, 400);
  EXPECT_EQ(ScaleToWidth(img, 800).width, 400);
}

// ---------------------------------------------------------------------------
// Statistics

TEST(Statistics, PercentilesByNearestRank) {
  const struct {
    std::vector<double> samples;
    double min, median, p95, mean;
  } cases[] = {
      {{5}, 5, 5, 5, 5},
      {{4, 1, 3, 2}, 1, 2.5, 4, 2.5},
      {{9, 1, 5}, 1, 5, 9, 5},
  };
  for (const auto &c : cases) {
    const TimingStats s = Summarise(c.samples);
    EXPECT_EQ(s.count, static_cast<int>(c.samples.size()));
    EXPECT_DOUBLE_EQ(s.min_ms, c.min);
    EXPECT_DOUBLE_EQ(s.median_ms, c.median);
    EXPECT_DOUBLE_EQ(s.p95_ms, c.p95);
    EXPECT_DOUBLE_EQ(s.mean_ms, c.mean);
    EXPECT_DOUBLE_EQ(s.fps, 1000.0 / c.mean);
  }
  std::vector<double> hundred;
  for (int i = 100; i >= 1; --i) hundred.push_back(i);
  EXPECT_DOUBLE_EQ(Summarise(hundred).p95_ms, 95);
  std::vector<double> twenty;
  for (int i = 1; i <= 20; ++i) twenty.push_back(i);
  EXPECT_DOUBLE_EQ(Summarise(twenty).p95_ms, 19);
  EXPECT_EQ(Summarise({}).count, 0);
}

// ---------------------------------------------------------------------------
// Dumps

TEST(Dumps, FileNames) {
  const struct {
    const char *file;
    bool ok;
    const char *name;
    int w, h;
    const char *stamp;
  } cases[] = {
      {"imagein_1920x1080_20210719112539.img", true, "imagein", 1920, 1080, "20210719112539"},
      {"weight_in_64x48_1.img", true, "weight_in", 64, 48, "1"},
      {"imageout_8x8_.img", true, "imageout", 8, 8, ""},
      {"imagein_1920x1080.img", false, "", 0, 0, ""},
      {"imagein_axb_1.img", false, "", 0, 0, ""},
      {"imagein_10x10_1.raw", false, "", 0, 0, ""},
      {"_10x10_1.img", false, "", 0, 0, ""},
      {".img", false, "", 0, 0, ""},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.file);
    DumpName n;
    ASSERT_EQ(ParseDumpName(c.file, &n), c.ok);
    if (!c.ok) continue;
    EXPECT_EQ(n.name, c.name);
    EXPECT_EQ(n.size.width, c.w);
    EXPECT_EQ(n.size.height, c.h);
    EXPECT_EQ(n.stamp, c.stamp);
  }
}

TEST(Dumps, GroupedBySizeAndStamp) {
  TempDir dir;
  for (const char *f : {"imagein_16x8_100.img", "weightin_16x8_100.img", "imageout_16x8_100.img",
                        "imagein_16x8_101.img", "weightin_32x8_101.img", "readme.txt"}) {
    WriteFileBytes(dir / f, "x", 1);
  }
  const auto sets = FindDumps(dir.path());
  const auto a = sets.find({16, 8, "100"});
  ASSERT_NE(a, sets.end());
  EXPECT_FALSE(a->second.imagein.empty());
  EXPECT_FALSE(a->second.weightin.empty());
  EXPECT_FALSE(a->second.imageout.empty());
  const auto b = sets.find({16, 8, "101"});
  ASSERT_NE(b, sets.end());
  EXPECT_TRUE(b->second.weightin.empty());  // its weightin has another size
  EXPECT_NE(InputErrorOf([&] { FindDumps(dir / "missing"); }).find("not a directory"), std::string::npos);
}

}  // namespace
