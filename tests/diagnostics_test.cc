// Host platform layer (log line format, properties from the environment) and the frame dumps switched on by properties.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "platform/log.h"
#include "platform/property.h"
#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "support/assist.h"
#include "support/frames.h"
#include "support/logs.h"

namespace {

TEST(HostLog, OneLinePerCallWithPriorityLetter) {
  const struct {
    int priority;
    const char *message;
    const char *expected;
  } cases[] = {
      {3, "debug line\n", "D/PreviewBokeh: debug line\n"},
      {4, "no newline", "I/PreviewBokeh: no newline\n"},
      {6, "", "E/PreviewBokeh: \n"},
  };
  for (const auto &c : cases) {
    testing::internal::CaptureStderr();
    pb::Log(c.priority, "%s", c.message);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.expected);
  }
  testing::internal::CaptureStderr();
  pb::Log(3, "%d-%s-%.3f\n", 42, std::string(600, 'x').c_str(), 1.5);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "D/PreviewBokeh: 42-" + std::string(600, 'x') + "-1.500\n");
}

TEST(HostProperties, EnvironmentSeedsAndStoreOverrides) {
  pb::hooks::ResetProperties();
  setenv("PERSIST_VENDOR_CAM_PB_TEST_X", "from-env", 1);
  char value[pb::kPropValueMax];
  EXPECT_EQ(pb::GetProperty("persist.vendor.cam.pb_test-x", value), 8);
  EXPECT_STREQ(value, "from-env");
  EXPECT_EQ(pb::GetProperty("persist.vendor.cam.pb_unset", value), 0);
  EXPECT_STREQ(value, "");
  EXPECT_EQ(pb::SetProperty("persist.vendor.cam.pb_test-x", "set"), 0);
  pb::GetProperty("persist.vendor.cam.pb_test-x", value);
  EXPECT_STREQ(value, "set");
  EXPECT_NE(pb::SetProperty("a.b", std::string(pb::kPropValueMax, 'v').c_str()), 0);
  pb::hooks::ResetProperties();
  pb::GetProperty("persist.vendor.cam.pb_test-x", value);
  EXPECT_STREQ(value, "from-env");
  unsetenv("PERSIST_VENDOR_CAM_PB_TEST_X");
}

class Dumps : public ::testing::Test {
 protected:
  static constexpr int kWidth = 64, kHeight = 32;

  void SetUp() override {
    pbtest::Assist();
    pb::hooks::ResetProperties();
    char tmpl[] = "/tmp/pb_dumps_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = std::string(tmpl) + "/";
    BokehInitParams p{};
    p.width = kWidth;
    p.height = kHeight;
    ASSERT_EQ(iBokehInit(&handle_, &p), 0);
  }
  void TearDown() override {
    iBokehDeinit(handle_);
    for (const auto &f : Files()) std::remove((dir_ + f.first).c_str());
    rmdir(dir_.c_str());
    pb::hooks::ResetProperties();
  }

  // Blurs one frame; returns the destination.
  std::vector<uint8_t> BlurFrame() {
    pbtest::GraphicFrame src(kWidth, kHeight), dst(kWidth, kHeight);
    src_ = pbtest::RandomBytes(src.size(), 5);
    std::memcpy(src.data(), src_.data(), src.size());
    weights_ = pbtest::RandomWeights(kWidth * kHeight, 6, 1024);
    BokehFrameParams fp{};
    fp.F_number = 1;
    fp.WeightMap = weights_.data();
    EXPECT_EQ(iBokehCreateWeightMap(handle_, &fp), 0);
    EXPECT_EQ(iBokehBlurImage(handle_, src.buffer(), dst.buffer()), 0);
    return std::vector<uint8_t>(dst.data(), dst.data() + dst.size());
  }

  // Files in the dump folder: name -> contents.
  std::map<std::string, std::vector<uint8_t>> Files() const {
    std::map<std::string, std::vector<uint8_t>> files;
    DIR *d = opendir(dir_.c_str());
    if (!d) return files;
    while (dirent *e = readdir(d)) {
      if (e->d_name[0] == '.') continue;
      std::ifstream in(dir_ + e->d_name, std::ios::binary);
      files[e->d_name] = std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
    }
    closedir(d);
    return files;
  }

  std::string dir_;
  void *handle_ = nullptr;
  std::vector<uint8_t> src_;
  std::vector<uint16_t> weights_;
};

TEST_F(Dumps, WrittenOnlyWhenSaveIsYes) {
  pb::SetProperty("persist.vendor.cam.prebokeh_path", dir_.c_str());
  for (const char *save : {"", "no", "YES", "yes ", "1"}) {
    pb::SetProperty("persist.vendor.cam.prebokeh_save", save);
    BlurFrame();
    EXPECT_TRUE(Files().empty()) << "save=" << save;
  }
  pb::SetProperty("persist.vendor.cam.prebokeh_save", "yes");
  const auto out = BlurFrame();
  const auto files = Files();
  ASSERT_EQ(files.size(), 3u);
  std::string stamp;
  for (const auto &[name, bytes] : files) {
    std::smatch m;
    ASSERT_TRUE(std::regex_match(name, m, std::regex(R"((imagein|weightin|imageout)_64x32_(\d{14})\.img)")))
        << name;
    if (stamp.empty()) stamp = m[2];
    EXPECT_EQ(m[2], stamp) << "one timestamp per frame";
  }
  EXPECT_EQ(files.at("imagein_64x32_" + stamp + ".img"), src_);
  const auto &w = files.at("weightin_64x32_" + stamp + ".img");
  ASSERT_EQ(w.size(), weights_.size() * 2);
  EXPECT_EQ(std::memcmp(w.data(), weights_.data(), w.size()), 0);
  EXPECT_EQ(files.at("imageout_64x32_" + stamp + ".img"), out);
}

TEST_F(Dumps, UnwritableFolderIsLoggedAndTheFrameProceeds) {
  pb::SetProperty("persist.vendor.cam.prebokeh_save", "yes");
  const std::string missing = dir_ + "missing/";
  pb::SetProperty("persist.vendor.cam.prebokeh_path", missing.c_str());
  const auto expected = BlurFrame();  // reference output
  pbtest::LogCapture capture;
  EXPECT_EQ(BlurFrame(), expected);
  int failures = 0;
  for (const auto &l : capture.Texts()) {
    failures += std::regex_match(
        l, std::regex("fopen " + missing + "(imagein|weightin|imageout)_64x32_\\d{14}\\.img fail! errno=2\n"));
  }
  EXPECT_EQ(failures, 3);
}

}  // namespace
