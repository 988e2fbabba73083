// Host platform layer (log line format, properties from the environment) and the frame dumps switched on by properties.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
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
#include "support/bokeh.h"
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
  // Past the formatting buffer, and past the line buffer of the host writer.
  for (size_t length : {600, 998, 999, 2000}) {
    testing::internal::CaptureStderr();
    pb::Log(3, "%d-%s-%.3f\n", 42, std::string(length, 'x').c_str(), 1.5);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "D/PreviewBokeh: 42-" + std::string(length, 'x') + "-1.500\n")
        << length;
  }
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

  // Names of up to 255 characters have an environment variable; longer ones
  // only an in-process value.
  for (size_t length : {255, 256}) {
    const std::string name = "p." + std::string(length - 2, 'q');
    const std::string env = "P_" + std::string(length - 2, 'Q');
    setenv(env.c_str(), "long", 1);
    EXPECT_EQ(pb::GetProperty(name.c_str(), value), length <= 255 ? 4 : 0) << length;
    EXPECT_EQ(pb::SetProperty(name.c_str(), "set"), 0);
    EXPECT_EQ(pb::GetProperty(name.c_str(), value), 3) << length;
    unsetenv(env.c_str());
  }
  pb::hooks::ResetProperties();
}

class Dumps : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/pb_dumps_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = std::string(tmpl) + "/";
    ASSERT_EQ(bokeh_.status, 0);
  }
  void TearDown() override {
    std::filesystem::remove_all(dir_);
    pb::hooks::ResetProperties();
  }

  // Blurs one frame; returns the destination.
  std::vector<uint8_t> BlurFrame() { return bokeh_.Blur(src_, weights_, 1, false); }

  // Files in the dump folder: name -> contents.
  std::map<std::string, std::vector<uint8_t>> Files() const {
    std::map<std::string, std::vector<uint8_t>> files;
    for (const auto &e : std::filesystem::directory_iterator(dir_)) {
      std::ifstream in(e.path(), std::ios::binary);
      files[e.path().filename().string()].assign(std::istreambuf_iterator<char>(in), {});
    }
    return files;
  }

  std::string dir_;
  pbtest::Bokeh bokeh_{64, 32};
  const std::vector<uint8_t> src_ = pbtest::RandomBytes(64 * 32 * 3 / 2, 5);
  const std::vector<uint16_t> weights_ = pbtest::RandomWeights(64 * 32, 6, 1024);
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
  auto files = Files();
  ASSERT_EQ(files.size(), 3u);
  // One timestamp for the frame's three dumps; "imagein" sorts first.
  std::smatch m;
  const std::string first = files.begin()->first;
  ASSERT_TRUE(std::regex_match(first, m, std::regex(R"(imagein(_64x32_\d{14}\.img))"))) << first;
  std::vector<uint8_t> weight_bytes(weights_.size() * 2);
  std::memcpy(weight_bytes.data(), weights_.data(), weight_bytes.size());
  EXPECT_EQ(files["imagein" + m.str(1)], src_);
  EXPECT_EQ(files["weightin" + m.str(1)], weight_bytes);
  EXPECT_EQ(files["imageout" + m.str(1)], out);
}

TEST_F(Dumps, UnwritableFolderIsLoggedAndTheFrameProceeds) {
  const std::string missing = dir_ + "missing/";
  pb::SetProperty("persist.vendor.cam.prebokeh_path", missing.c_str());
  const auto expected = BlurFrame();  // with dumps off
  pb::SetProperty("persist.vendor.cam.prebokeh_save", "yes");
  pbtest::LogCapture capture;
  EXPECT_EQ(BlurFrame(), expected);
  const std::regex failure("fopen " + missing + "(imagein|weightin|imageout)_64x32_\\d{14}\\.img fail! errno=2\n");
  const auto texts = capture.Texts();
  auto is_failure = [&](const std::string &l) { return std::regex_match(l, failure); };
  EXPECT_EQ(std::count_if(texts.begin(), texts.end(), is_failure), 3);
}

}  // namespace
