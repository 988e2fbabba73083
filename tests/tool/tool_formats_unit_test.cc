// Unit tests of the frame formats: raw layouts with padding against hand-built
// frames, y4m headers and stream indexing, the colour range, whole-file output,
// the frame comparison of replay and sizes in file names.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "cli.h"
#include "compare.h"
#include "errors.h"
#include "frame_sink.h"
#include "image_io.h"
#include "tool_unit_support.h"
#include "y4m.h"
#include "yuv.h"

namespace fs = std::filesystem;
using namespace pbtool;
using namespace pbtool_unit;

namespace {

// Sample values that tell every position of a frame up to 16 wide apart.
uint8_t LumaAt(int x, int y) { return static_cast<uint8_t>(10 + x + 16 * y); }
uint8_t UAt(int i, int j) { return static_cast<uint8_t>(150 + i + 8 * j); }
uint8_t VAt(int i, int j) { return static_cast<uint8_t>(200 + i + 8 * j); }

// The library's layout of those samples: rows packed, V before U.
YuvFrame PackedNV21(int w, int h) {
  YuvFrame f(Size{w, h});
  std::vector<uint8_t> &d = f.data;
  size_t k = 0;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) d[k++] = LumaAt(x, y);
  for (int j = 0; j < h / 2; ++j) {
    for (int i = 0; i < w / 2; ++i) {
      d[k++] = VAt(i, j);
      d[k++] = UAt(i, j);
    }
  }
  return f;
}

// The same samples in a raw layout, written position by position; every byte
// outside the picture holds `fill`.
std::vector<uint8_t> RawOf(YuvFormat format, int w, int h, int stride, int scanlines, uint8_t fill) {
  std::vector<uint8_t> raw(static_cast<size_t>(stride) * scanlines * 3 / 2, fill);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) raw[static_cast<size_t>(y) * stride + x] = LumaAt(x, y);
  const size_t chroma = static_cast<size_t>(stride) * scanlines;
  const size_t plane = static_cast<size_t>(stride / 2) * (scanlines / 2);
  for (int j = 0; j < h / 2; ++j) {
    for (int i = 0; i < w / 2; ++i) {
      const uint8_t u = UAt(i, j), v = VAt(i, j);
      const size_t pair = chroma + static_cast<size_t>(j) * stride + 2 * i;
      const size_t planar = chroma + static_cast<size_t>(j) * (stride / 2) + i;
      switch (format) {
        case YuvFormat::kNV21: raw[pair] = v; raw[pair + 1] = u; break;
        case YuvFormat::kNV12: raw[pair] = u; raw[pair + 1] = v; break;
        case YuvFormat::kI420: raw[planar] = u; raw[planar + plane] = v; break;
        case YuvFormat::kYV12: raw[planar] = v; raw[planar + plane] = u; break;
      }
    }
  }
  return raw;
}

TEST(RawLayouts, EveryFormatWithPaddingConvertsToAndFromPackedNV21) {
  const int w = 8, h = 6;
  const YuvFrame nv21 = PackedNV21(w, h);
  const struct { int stride, scanlines; } paddings[] = {{0, 0}, {12, 0}, {0, 10}, {20, 8}};
  for (YuvFormat format : {YuvFormat::kNV21, YuvFormat::kNV12, YuvFormat::kI420, YuvFormat::kYV12}) {
    for (const auto &p : paddings) {
      SCOPED_TRACE(::testing::Message() << FormatName(format) << " stride " << p.stride << " scanlines "
                                        << p.scanlines);
      const RawLayout l = ResolveLayout({format, p.stride, p.scanlines}, {w, h}, "--stride", "--scanlines");
      const int stride = p.stride ? p.stride : w, scanlines = p.scanlines ? p.scanlines : h;
      EXPECT_EQ(l.stride, stride);
      EXPECT_EQ(l.scanlines, scanlines);
      ASSERT_EQ(RawFrameBytes(l), static_cast<size_t>(stride) * scanlines * 3 / 2);
      // Padding bytes are ignored on input and written as zero on output.
      const std::vector<uint8_t> in = RawOf(format, w, h, stride, scanlines, 0xEE);
      EXPECT_EQ(RawToFrame(in.data(), {w, h}, l).data, nv21.data);
      EXPECT_EQ(FrameToRaw(nv21, l), RawOf(format, w, h, stride, scanlines, 0));
    }
  }
}

// BT.601: limited range puts black and white at 16 and 235, full range at 0
// and 255; grey chroma is 128 in both. Each range reads back its own values.
TEST(ColourRanges, BlackAndWhiteInBothRanges) {
  const struct {
    uint8_t grey;
    ColourRange range;
    int luma;
  } cases[] = {{0, ColourRange::kLimited, 16}, {255, ColourRange::kLimited, 235},
               {0, ColourRange::kFull, 0},     {255, ColourRange::kFull, 255}};
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << +c.grey << " " << RangeName(c.range));
    Image rgb(8, 8, 3);
    std::fill(rgb.pixels.begin(), rgb.pixels.end(), c.grey);
    for (YuvFormat order : {YuvFormat::kNV21, YuvFormat::kNV12}) {
      const YuvFrame f = RgbToYuv(rgb, order, c.range);
      for (int i = 0; i < 64; ++i) ASSERT_NEAR(f.data[i], c.luma, 1) << i;
      for (size_t i = 64; i < f.data.size(); ++i) ASSERT_NEAR(f.data[i], 128, 1) << i;
      const Image back = YuvToRgb(f, order, c.range);
      for (uint8_t v : back.pixels) ASSERT_NEAR(v, c.grey, 2);
    }
  }
  // Colour stays in its chroma slot with full range as with limited: red is high V.
  Image red(8, 8, 3);
  for (size_t i = 0; i < red.pixels.size(); i += 3) red.pixels[i] = 255;
  const YuvFrame f = RgbToYuv(red, YuvFormat::kNV21, ColourRange::kFull);
  EXPECT_GT(f.Chroma()[0], 200);  // V
  EXPECT_LT(f.Chroma()[1], 128);  // U
  const Image back = YuvToRgb(f, YuvFormat::kNV21, ColourRange::kFull);
  EXPECT_NEAR(back.pixels[0], 255, 3);
  EXPECT_NEAR(back.pixels[1], 0, 3);
}

TEST(Y4m, HeaderTags) {
  const Y4mHeader h = ParseY4mHeader("YUV4MPEG2 W320 H240 F25:1 It A1:1 C420mpeg2 XYSCSS=420", "a.y4m");
  EXPECT_EQ(h.size, (Size{320, 240}));
  EXPECT_EQ(h.fps_num, 25);
  EXPECT_EQ(h.fps_den, 1);
  EXPECT_EQ(h.interlace, "t");
  EXPECT_EQ(h.aspect, "1:1");
  EXPECT_EQ(h.chroma, "420mpeg2");
  EXPECT_EQ(h.extensions, std::vector<std::string>{"YSCSS=420"});
  EXPECT_EQ(FormatY4mHeader(h), "YUV4MPEG2 W320 H240 F25:1 It A1:1 C420mpeg2 XYSCSS=420\n");
  // Without F, I, A, C: 30 frames per second, progressive, unknown aspect, 420jpeg.
  const Y4mHeader d = ParseY4mHeader("YUV4MPEG2 H8 W16", "b.y4m");
  EXPECT_EQ(FormatY4mHeader(d), "YUV4MPEG2 W16 H8 F30:1 Ip A0:0 C420jpeg\n");
  for (const char *mode : {"420jpeg", "420paldv", "420mpeg2", "420"}) {
    EXPECT_EQ(ParseY4mHeader(std::string("YUV4MPEG2 W16 H8 C") + mode, "c.y4m").chroma, mode);
  }
}

TEST(Y4m, BadHeadersNameTheFileAndTheProblem) {
  const struct {
    const char *line, *problem;
  } cases[] = {
      {"YUV4MPEG W16 H8", "not a YUV4MPEG2 stream"},
      {"YUV4MPEG2 W16 H8 C444", "C444 is not supported"},
      {"YUV4MPEG2 W16 H8 Cmono", "Cmono is not supported"},
      {"YUV4MPEG2 H8", "no W tag"},
      {"YUV4MPEG2 W16", "no H tag"},
      {"YUV4MPEG2 W-16 H8", "not a width"},
      {"YUV4MPEG2 W16 H0", "not a height"},
      {"YUV4MPEG2 W16 H8 F30", "frame rate"},
      {"YUV4MPEG2 W16 H8 Ax", "pixel aspect"},
      {"YUV4MPEG2 W16 H8 Iq", "interlacing"},
      {"YUV4MPEG2 W16 H8 Z1", "unknown tag"},
      {"YUV4MPEG2 W15 H8", "odd"},
      {"YUV4MPEG2 W16 H4", "8..8192"},
  };
  for (const auto &c : cases) {
    const std::string message = InputErrorOf([&] { ParseY4mHeader(c.line, "clip.y4m"); });
    EXPECT_EQ(message.rfind("clip.y4m", 0), 0u) << c.line << ": " << message;
    EXPECT_NE(message.find(c.problem), std::string::npos) << c.line << ": " << message;
  }
}

class FilesTest : public InTempDir {
 protected:
  void Write(const std::string &name, const std::string &bytes) const {
    std::ofstream(Path(name), std::ios::binary) << bytes;
  }
  std::string Read(const std::string &name) const {
    std::ifstream f(Path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(f), {}};
  }
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto &e : fs::directory_iterator(dir_)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
};

TEST_F(FilesTest, Y4mStreamsIndexWholeFramesOnly) {
  const std::string head = "YUV4MPEG2 W8 H8 F25:1\n";
  const std::string frame(96, 'x');  // 8x8 4:2:0
  Write("good.y4m", head + "FRAME\n" + frame + "FRAME Ixyz\n" + frame);
  const Y4mIndex index = IndexY4m(Path("good.y4m"));
  EXPECT_EQ(index.header.fps_num, 25);
  const uint64_t first = head.size() + 6, second = first + 96 + 11;
  EXPECT_EQ(index.frame_offsets, (std::vector<uint64_t>{first, second}));

  const struct {
    const char *name;
    std::string bytes, problem;
  } cases[] = {
      {"short.y4m", head + "FRAME\n" + frame + "FRAME\n" + frame.substr(10), "frame 1 is cut short: 86 of 96 bytes"},
      {"junk.y4m", head + "FRAME\n" + frame + "JUNK\n", "frame 1 at byte"},
      {"glued.y4m", head + "FRAMES\n" + frame, "does not start with a FRAME line"},
  };
  for (const auto &c : cases) {
    Write(c.name, c.bytes);
    const std::string message = InputErrorOf([&] { IndexY4m(Path(c.name)); });
    EXPECT_NE(message.find(c.name), std::string::npos) << message;
    EXPECT_NE(message.find(c.problem), std::string::npos) << message;
  }
}

// Raw and y4m output appear under their name only at Finish, holding exactly
// the frames written; images are renamed one by one; Abort and an unfinished
// sink leave nothing behind.
TEST_F(FilesTest, SinkWritesWholeFilesOnly) {
  const YuvFrame a = PackedNV21(8, 8);
  YuvFrame b = a;
  for (auto &v : b.data) v = static_cast<uint8_t>(v + 1);
  {
    FrameSinkOptions o;
    o.input_format = YuvFormat::kI420;
    FrameSink sink(Path("out.yuv"), OutKind::kRaw, o);
    sink.Write(a, "a");
    sink.Write(b, "b");
    EXPECT_EQ(Names(), std::vector<std::string>{".out.yuv.partial"});
    sink.Finish();
  }
  // b is a with every byte one higher: so is its I420 layout.
  const std::vector<uint8_t> raw_a = RawOf(YuvFormat::kI420, 8, 8, 8, 8, 0);
  std::string expected(raw_a.begin(), raw_a.end());
  for (uint8_t v : raw_a) expected += static_cast<char>(v + 1);
  EXPECT_EQ(Read("out.yuv"), expected);

  {
    FrameSinkOptions o;
    o.y4m.fps_num = 24;
    FrameSink sink(Path("out.y4m"), OutKind::kY4m, o);
    sink.Write(a, "a");
    sink.Write(a, "b");
    sink.Finish();
  }
  const Y4mIndex index = IndexY4m(Path("out.y4m"));
  EXPECT_EQ(index.frame_offsets.size(), 2u);
  EXPECT_EQ(index.header.fps_num, 24);
  EXPECT_EQ(Read("out.y4m").substr(0, 36), "YUV4MPEG2 W8 H8 F24:1 Ip A0:0 C420jp");

  {
    FrameSink sink(Path("cut.nv12"), OutKind::kRaw, YuvFormat::kNV21);
    sink.Write(a, "a");
  }  // no Finish: as after an error
  {
    FrameSink sink(Path("aborted.y4m"), OutKind::kY4m, FrameSinkOptions{});
    sink.Write(a, "a");
    sink.Abort();
  }
  {
    FrameSink sink(Path("pngs"), OutKind::kDirectory, YuvFormat::kNV21);
    sink.Write(a, "f1");
    sink.Write(b, "f2");
  }
  EXPECT_EQ(Names(), (std::vector<std::string>{"out.y4m", "out.yuv", "pngs"}));
  std::vector<std::string> pngs;
  for (const auto &e : fs::directory_iterator(Path("pngs"))) pngs.push_back(e.path().filename().string());
  std::sort(pngs.begin(), pngs.end());
  EXPECT_EQ(pngs, (std::vector<std::string>{"f1.png", "f2.png"}));
  EXPECT_EQ(ReadImage(Path("pngs/f1.png"), 3).width, 8);

  FrameSinkOptions padded;
  padded.stride = 16;
  EXPECT_NE(InputErrorOf([&] { FrameSink(Path("x.png"), OutKind::kImage, padded); }).find("--out-stride"),
            std::string::npos);
}

// Hand-computed: one luma byte off by 10 and one chroma byte off by 3 in an
// 8x8 frame (64 luma, 32 chroma bytes). Luma MSE 100/64, chroma MSE 9/32,
// all 109/96; PSNR = 10 log10(255^2 / MSE).
TEST(Compare, CountsLargestDifferenceAndPsnr) {
  YuvFrame a(Size{8, 8}), b(Size{8, 8});
  for (size_t i = 0; i < a.data.size(); ++i) a.data[i] = b.data[i] = static_cast<uint8_t>(i * 7);
  FrameDiff same = CompareFrames(a, b);
  EXPECT_EQ(same.differing, 0u);
  EXPECT_EQ(same.max_diff, 0);
  EXPECT_TRUE(std::isinf(same.psnr) && std::isinf(same.psnr_luma) && std::isinf(same.psnr_chroma));

  b.data[5] = static_cast<uint8_t>(a.data[5] + 10);
  b.data[70] = static_cast<uint8_t>(a.data[70] - 3);
  const FrameDiff d = CompareFrames(a, b);
  EXPECT_EQ(d.bytes, 96u);
  EXPECT_EQ(d.differing, 2u);
  EXPECT_EQ(d.max_diff, 10);
  EXPECT_NEAR(d.psnr_luma, 46.19260, 1e-4);
  EXPECT_NEAR(d.psnr_chroma, 53.63988, 1e-4);
  EXPECT_NEAR(d.psnr, 47.57925, 1e-4);

  // Luma only, amplified and clamped: 10 x 16 = 160; 20 x 16 clamps to 255.
  b.data[9] = static_cast<uint8_t>(a.data[9] - 20);
  const Image diff = LumaDifferenceImage(a, b, 16);
  ASSERT_EQ(diff.pixels.size(), 64u);
  std::vector<uint8_t> expected(64, 0);
  expected[5] = 160;
  expected[9] = 255;
  EXPECT_EQ(diff.pixels, expected);
}

// The size a raw file's name gives; {0, 0} stands for none.
TEST(SizeInFileNameTest, FindsOneSizeTokenOrNone) {
  const struct {
    const char *path;
    Size size;
  } cases[] = {
      {"clip_1280x720.nv21", {1280, 720}},
      {"frame-1920x1080-nv12.yuv", {1920, 1080}},
      {"/data/640x480/walk_1280X720p.yuv", {1280, 720}},  // only the file name; 'X' and a 'p' after
      {"1280x720.yuv", {1280, 720}},
      {"same_320x240_320x240.nv21", {320, 240}},  // twice the same size is one size
      {"clip.nv21", {0, 0}},
      {"/data/640x480/clip.nv21", {0, 0}},
      {"a_160x120_320x240.nv21", {0, 0}},  // two sizes: ambiguous
      {"x264_take3.yuv", {0, 0}},
      {"reg_0x1F.yuv", {0, 0}},           // a hex number, not a size
      {"v1280x720.yuv", {0, 0}},          // glued to a word
      {"clip_1280x7200000.yuv", {0, 0}},  // more than five digits
      {"clip_1280x720x3.yuv", {1280, 720}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.path);
    const std::optional<Size> got = SizeInFileName(c.path);
    EXPECT_EQ(got.has_value(), c.size.width != 0);
    if (got) {
      EXPECT_EQ(got->width, c.size.width);
      EXPECT_EQ(got->height, c.size.height);
    }
  }
}

}  // namespace
