// Unit tests of the command-line tool's own code: image files, colour
// conversion, disparity frames, the weight colour ramp, timing statistics and
// dump names. Option handling, input loading, chroma-order swapping and the
// demo scene are exercised through the process tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "console.h"
#include "disparity.h"
#include "dumps.h"
#include "errors.h"
#include "image_io.h"
#include "tool_unit_support.h"
#include "visual.h"
#include "yuv.h"

namespace fs = std::filesystem;
using namespace pbtool;
using namespace pbtool_unit;

namespace {

Image Noise(int w, int h, int channels, unsigned seed) {
  Image img(w, h, channels);
  for (auto &p : img.pixels) p = static_cast<uint8_t>((seed = seed * 1103515245u + 12345u) >> 16);
  return img;
}

Image Solid(int w, int h, const uint8_t rgb[3]) {
  Image img(w, h, 3);
  for (size_t i = 0; i < img.pixels.size(); ++i) img.pixels[i] = rgb[i % 3];
  return img;
}

// PNG is lossless for grey and colour; JPEG keeps smooth content within a few
// levels; a grey PNG read as colour repeats the grey in every channel.
TEST_F(InTempDir, ImageFilesRoundTrip) {
  auto path = [&](const std::string &name) { return Path(name); };
  for (const char *ext : {".png", ".jpg"}) {
    for (int channels : {1, 3}) {
      SCOPED_TRACE(std::string(ext) + " " + std::to_string(channels));
      const bool png = ext[1] == 'p';
      Image img = Noise(png ? 17 : 32, png ? 5 : 24, channels, 7u + channels);
      for (int y = 0; !png && y < img.height; ++y) {
        for (int x = 0; x < img.width * channels; ++x) {
          img.Row(y)[x] = static_cast<uint8_t>(40 + 4 * (x / channels) + 2 * y + 10 * (x % channels));
        }
      }
      WriteImage(path(std::string("a") + ext), img);
      const Image back = ReadImage(path(std::string("a") + ext), channels);
      ASSERT_EQ(back.width, img.width);
      ASSERT_EQ(back.pixels.size(), img.pixels.size());
      int worst = 0;
      for (size_t i = 0; i < img.pixels.size(); ++i) worst = std::max(worst, std::abs(back.pixels[i] - img.pixels[i]));
      EXPECT_LE(worst, png ? 0 : 6);
    }
  }
  const Image grey = Noise(9, 4, 1, 3);
  WritePng(path("g.png"), grey);
  const Image rgb = ReadImage(path("g.png"), 3);
  for (size_t i = 0; i < grey.pixels.size(); ++i) {
    EXPECT_EQ(rgb.pixels[3 * i], grey.pixels[i]);
    EXPECT_EQ(rgb.pixels[3 * i + 2], grey.pixels[i]);
  }

  // A PNG cut inside its data (the cut inside its header and the other bad
  // files are run by the table of messages).
  const std::vector<uint8_t> png = ReadFileBytes(path("a.png"));
  WriteFileBytes(path("truncated.png"), png.data(), png.size() / 2);
  const std::string message = InputErrorOf([&] { ReadImage(path("truncated.png"), 3); });
  EXPECT_NE(message.find("truncated.png: damaged PNG"), std::string::npos) << message;
  EXPECT_NE(InputErrorOf([&] { WritePng(path("no/such/dir/a.png"), grey); }), "");
}

// Solid colours survive the round trip in both chroma orders. Red is high in
// V (Cr): NV21 stores V first, NV12 U first. Grey has neutral chroma throughout.
TEST(Yuv, SolidColoursRoundTripInEitherChromaOrder) {
  const uint8_t colours[][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {128, 128, 128}, {250, 200, 30}, {0, 0, 0}};
  for (YuvFormat format : {YuvFormat::kNV21, YuvFormat::kNV12}) {
    for (const auto &c : colours) {
      SCOPED_TRACE(::testing::Message() << FormatName(format) << " " << +c[0] << "," << +c[1] << "," << +c[2]);
      const Image back = YuvToRgb(RgbToYuv(Solid(16, 8, c), format), format);
      for (int k = 0; k < 3; ++k) EXPECT_NEAR(back.pixels[k], c[k], 6);
    }
    const YuvFrame red = RgbToYuv(Solid(8, 8, colours[0]), format);
    const int v = format == YuvFormat::kNV21 ? 0 : 1;
    EXPECT_GT(red.Chroma()[v], 200);
    EXPECT_LT(red.Chroma()[1 - v], 128);
  }
  const YuvFrame grey = RgbToYuv(Solid(8, 8, colours[3]), YuvFormat::kNV21);
  EXPECT_EQ(std::count(grey.data.begin() + 64, grey.data.end(), 128), 32);
}

TEST(DisparityFrames, HeaderFieldsSitAtTheirByteOffsets) {
  DisparityMap map;
  map.header = {0x11223344, -2, 0x0506, 3, 2};
  map.samples = Image(3, 2, 1);
  map.samples.pixels = {1, 2, 3, 4, 5, 6};
  const std::vector<uint8_t> frame = BuildDisparityFrame(map);
  std::vector<uint8_t> expected(68, 0);
  const uint8_t fields[][2] = {{16, 0x44}, {17, 0x33}, {18, 0x22}, {19, 0x11}, {20, 0xFE}, {21, 0xFF},
                               {22, 0xFF}, {23, 0xFF}, {60, 0x06}, {61, 0x05}, {64, 3},    {66, 2}};
  for (const auto &f : fields) expected[f[0]] = f[1];
  expected.insert(expected.end(), {1, 2, 3, 4, 5, 6});
  EXPECT_EQ(frame, expected);
  // Parsing reads every field back from the same offsets.
  EXPECT_EQ(BuildDisparityFrame(ParseDisparityFrame(frame, "f")), frame);

  std::vector<uint8_t> longer = frame, shorter(frame.begin(), frame.end() - 1), zero_width = frame;
  longer.push_back(0);
  zero_width[64] = 0;
  for (const auto *bytes : {&longer, &shorter, &zero_width}) {
    EXPECT_NE(InputErrorOf([&] { ParseDisparityFrame(*bytes, "map.bin"); }).find("map.bin"), std::string::npos);
  }
}

TEST(DisparityFrames, Q19Conversion) {
  const struct {
    double value;
    int32_t q19;
  } cases[] = {{1.0, 524288}, {0.5, 262144}, {-0.5, -262144}, {2000.0, 1048576000}, {0.0, 0}, {4095.0, 2146959360}};
  for (const auto &c : cases) EXPECT_EQ(ToQ19(c.value, "--scale-num"), c.q19) << c.value;
  for (double bad : {4096.0, -4096.5, 1e300}) {
    EXPECT_NE(InputErrorOf([&] { ToQ19(bad, "--scale-num"); }).find("--scale-num"), std::string::npos);
  }
}

TEST(Pictures, WeightColourRampEndsAndClamps) {
  const uint16_t weights[] = {0, 512, 1024, 5000};
  EXPECT_EQ(ColourMapWeights(weights, {4, 1}).pixels,
            (std::vector<uint8_t>{68, 1, 84, 33, 145, 140, 253, 231, 37, 253, 231, 37}));
}

TEST(Statistics, PercentilesByNearestRank) {
  std::vector<double> hundred, twenty;
  for (int i = 100; i >= 1; --i) hundred.push_back(i);
  for (int i = 1; i <= 20; ++i) twenty.push_back(i);
  const struct {
    std::vector<double> samples;
    double min, median, p95, mean;
  } cases[] = {{{5}, 5, 5, 5, 5},        {{4, 1, 3, 2}, 1, 2.5, 4, 2.5}, {{9, 1, 5}, 1, 5, 9, 5},
               {hundred, 1, 50.5, 95, 50.5}, {twenty, 1, 10.5, 19, 10.5}};
  for (const auto &c : cases) {
    const TimingStats s = Summarise(c.samples);
    EXPECT_EQ(s.count, static_cast<int>(c.samples.size()));
    EXPECT_DOUBLE_EQ(s.min_ms, c.min);
    EXPECT_DOUBLE_EQ(s.median_ms, c.median);
    EXPECT_DOUBLE_EQ(s.p95_ms, c.p95);
    EXPECT_DOUBLE_EQ(s.mean_ms, c.mean);
    EXPECT_DOUBLE_EQ(s.fps, 1000.0 / c.mean);
  }
  EXPECT_EQ(Summarise({}).count, 0);
}

TEST(Dumps, FileNames) {
  const struct {
    const char *file, *name;
    int w, h;
    const char *stamp;
  } cases[] = {
      {"imagein_1920x1080_20210719112539.img", "imagein", 1920, 1080, "20210719112539"},
      {"weight_in_64x48_1.img", "weight_in", 64, 48, "1"},
      {"imageout_8x8_.img", "imageout", 8, 8, ""},
  };
  DumpName n;
  for (const auto &c : cases) {
    ASSERT_TRUE(ParseDumpName(c.file, &n)) << c.file;
    EXPECT_EQ(n.name, c.name);
    EXPECT_EQ(n.size, (Size{c.w, c.h}));
    EXPECT_EQ(n.stamp, c.stamp);
  }
  for (const char *bad : {"imagein_1920x1080.img", "imagein_axb_1.img", "imagein_10x10_1.raw", "_10x10_1.img"}) {
    EXPECT_FALSE(ParseDumpName(bad, &n)) << bad;
  }
}

}  // namespace
