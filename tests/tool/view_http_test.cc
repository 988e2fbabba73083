// The viewer's HTTP interface, end to end: the built tool started as a
// process on a free port, asked over HTTP, stopped by a signal.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>

#include <httplib.h>
#include <nlohmann/json.hpp>

#include "scene.h"
#include "tool_process_support.h"
#include "yuv.h"

namespace {

using namespace pbtool;
using namespace pbtool_process;
using nlohmann::json;

// `previewbokeh view --port 0 ...` as a child process writing view.out and
// view.err in the working directory; view.out's first line gives the address.
class ViewProcess {
 public:
  explicit ViewProcess(Args args) {
    args.insert(args.begin(), {"view", "--port", "0"});
    const std::string cmd = "exec " + Command(args) + " >view.out 2>view.err </dev/null";
    fs::remove("view.out");  // no address of an earlier server
    pid_ = fork();
    if (pid_ == 0) {
      execl("/bin/sh", "sh", "-c", cmd.c_str(), static_cast<char *>(nullptr));
      _exit(127);
    }
    // Up to 60 s: sanitizer builds start slowly.
    for (int i = 0; i < 600 && port_ == 0 && Running(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      const std::string out = Slurp("view.out");
      const size_t at = out.find("http://"), end = out.find('\n', at == npos ? 0 : at);
      if (at == npos || end == npos) continue;
      url_ = out.substr(at, end - at);
      port_ = std::atoi(url_.c_str() + url_.rfind(':') + 1);
    }
  }
  ~ViewProcess() {
    if (Running()) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }

  bool ok() const { return port_ > 0; }
  const std::string &url() const { return url_; }
  std::unique_ptr<httplib::Client> Client() const {
    auto client = std::make_unique<httplib::Client>("127.0.0.1", port_);
    client->set_read_timeout(60, 0);
    return client;
  }
  bool Running() {
    if (pid_ > 0 && status_ == kRunning && waitpid(pid_, &raw_, WNOHANG) == pid_) status_ = kExited;
    return pid_ > 0 && status_ == kRunning;
  }
  // Sends `signal`; the exit status, -1 when not a normal exit within 30 s.
  int Stop(int signal) {
    kill(pid_, signal);
    for (int i = 0; i < 600 && Running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return !Running() && WIFEXITED(raw_) ? WEXITSTATUS(raw_) : -1;
  }
  static std::string Output() { return Slurp("view.out") + Slurp("view.err"); }

 private:
  enum { kRunning, kExited };
  pid_t pid_ = -1;
  int raw_ = 0, status_ = kRunning, port_ = 0;
  std::string url_;
};

Image Png(const std::string &body, int channels = 3) {
  return DecodeImage(std::vector<uint8_t>(body.begin(), body.end()), channels, "reply");
}

json Info(const ViewProcess &server) {
  const auto res = server.Client()->Get("/info");
  return res && res->status == 200 ? json::parse(res->body, nullptr, false) : json();
}

// One server on the demo scene (320x240) for the tests that only ask questions.
class ViewDemoTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = (fs::temp_directory_path() / "pbview_demo_XXXXXX").string();
    ASSERT_NE(mkdtemp(dir_.data()), nullptr);
    fs::current_path(dir_);
    server_ = new ViewProcess({"--size", "320x240"});
  }
  static void TearDownTestSuite() {
    // After everything above it still stops cleanly (a sanitizer build
    // reports what it found in the exit status).
    if (server_->ok()) {
      EXPECT_EQ(server_->Stop(SIGTERM), 0) << ViewProcess::Output();
    }
    delete server_;
    std::error_code ec;
    fs::current_path(fs::temp_directory_path(), ec);
    fs::remove_all(dir_, ec);
  }
  void SetUp() override { ASSERT_TRUE(server_->ok()) << ViewProcess::Output(); }

  // A GET that must answer 200 with `type`.
  static std::string Fetch(const std::string &path, const std::string &type = "image/png") {
    const auto res = server_->Client()->Get(path.c_str());
    EXPECT_TRUE(res && res->status == 200) << path << ": " << (res ? res->body : "no answer");
    if (!res) return {};
    EXPECT_EQ(res->get_header_value("Content-Type").rfind(type, 0), 0u) << path;
    return res->body;
  }
  static std::string At(const char *path, Point p, const std::string &rest) {
    return std::string(path) + "?x=" + std::to_string(p.x) + "&y=" + std::to_string(p.y) + rest;
  }

  static inline std::string dir_;
  static inline ViewProcess *server_ = nullptr;
};

TEST_F(ViewDemoTest, ServesThePageOnAFreePort) {
  EXPECT_EQ(server_->url().rfind("http://127.0.0.1:", 0), 0u) << server_->url();
  const std::string page = Fetch("/", "text/html");
  EXPECT_NE(page.find("<!DOCTYPE html>"), npos);
  // Everything comes from the server itself: no outside address in the page.
  EXPECT_EQ(page.find("http://"), npos);
  EXPECT_EQ(page.find("https://"), npos);
}

TEST_F(ViewDemoTest, FocusOnSubjectAndOnBackgroundGiveDifferentFrames) {
  const SceneLayout l = MakeSceneLayout({kW, kH});
  const Image subject = Png(Fetch(At("/render", l.focus, "&f=2")));
  const Image far = Png(Fetch(At("/render", {l.far_background.x0 + 2, l.far_background.y0 + 2}, "&f=2")));
  ASSERT_EQ(subject.width, kW);
  ASSERT_EQ(subject.height, kH);
  ASSERT_EQ(far.pixels.size(), subject.pixels.size());
  EXPECT_NE(subject.pixels, far.pixels);
  // Focused on the subject, its centre stays as the input has it.
  const Image input = Png(Fetch("/input"));
  for (int dx = -4; dx < 4; ++dx) EXPECT_TRUE(SamePixel(input, subject, l.subject_centre.x + dx, l.subject_centre.y));
}

TEST_F(ViewDemoTest, FNumber20GivesTheInputBackAtEveryRatio) {
  const Image input = Png(Fetch("/input?frame=0"));
  for (int ratio : {1, 2, 4}) {
    EXPECT_EQ(Png(Fetch("/render?x=10&y=10&f=20&ratio=" + std::to_string(ratio))).pixels, input.pixels) << ratio;
  }
  EXPECT_NE(Png(Fetch("/render?x=10&y=10&f=4")).pixels, input.pixels);
}

TEST_F(ViewDemoTest, BadParametersAnswer400NamingTheParameter) {
  const struct {
    const char *path, *parameter, *message;
  } cases[] = {
      {"/render?y=5&f=4", "x", "required"},
      {"/render?x=5&y=5", "f", "required"},
      {"/render?x=abc&y=5&f=4", "x", "not an integer"},
      {"/render?x=1.5&y=5&f=4", "x", "not an integer"},
      {"/render?x=&y=5&f=4", "x", "not an integer"},
      {"/render?x=5&y=5&f=+4", "f", "not an integer"},
      {"/render?x=-1&y=5&f=4", "x", "outside 0..319"},
      {"/render?x=320&y=5&f=4", "x", "outside 0..319"},
      {"/render?x=5&y=240&f=4", "y", "outside 0..239"},
      {"/render?x=5&y=5&f=0", "f", "outside 1..20"},
      {"/render?x=5&y=5&f=99999999999999", "f", "outside 1..20"},
      {"/render?x=5&y=5&f=4&ratio=3", "ratio", "not one of"},
      {"/render?x=5&y=5&f=4&ratio=6", "ratio", "multiple of 12"},  // the size rules it out
      {"/render?x=5&y=5&f=4&frame=1", "frame", "outside 0..0"},
      {"/render?x=5&x=6&y=5&f=4", "x", "more than once"},
      {"/render?x=5&y=5&f=4&zoom=2", "zoom", "unknown parameter"},
      {"/render?x=5&y=5&f=4&format=gif", "format", "not png or jpeg"},
      {"/render?x=5&y=5&f=4&live=2", "live", "outside 0..1"},
      {"/weights?x=5&y=5&f=4&format=jpeg", "format", "unknown parameter"},
      {"/input?x=1", "x", "unknown parameter"},
      {"/disparity?frame=x", "frame", "not an integer"},
  };
  auto client = server_->Client();
  for (const auto &c : cases) {
    const auto res = client->Get(c.path);
    ASSERT_TRUE(res) << c.path;
    EXPECT_EQ(res->status, 400) << c.path;
    EXPECT_EQ(res->get_header_value("Content-Type"), "application/json") << c.path;
    const json body = json::parse(res->body, nullptr, false);
    EXPECT_EQ(body.value("parameter", ""), c.parameter) << c.path << ": " << res->body;
    const std::string error = body.value("error", "");
    EXPECT_EQ(error.rfind(std::string(c.parameter) + ": ", 0), 0u) << c.path << ": " << res->body;
    EXPECT_NE(error.find(c.message), npos) << c.path << ": " << res->body;
  }
}

TEST_F(ViewDemoTest, UnknownPathsAnswer404) {
  auto client = server_->Client();
  for (const char *path : {"/nope", "/render/x", "/info.json", "/index.html"}) {
    const auto res = client->Get(path);
    ASSERT_TRUE(res) << path;
    EXPECT_EQ(res->status, 404) << path;
    EXPECT_NE(json::parse(res->body, nullptr, false).value("error", "").find(path), npos) << res->body;
  }
}

TEST_F(ViewDemoTest, SixteenConcurrentRequestsAllAnswer) {
  std::vector<std::thread> threads;
  std::vector<int> status(16, 0);
  std::vector<std::string> bodies(16);
  for (size_t i = 0; i < 16; ++i) {
    threads.emplace_back([&, i] {
      const std::string rest = "&f=" + std::to_string(i + 1) + "&ratio=" + (i % 2 ? "2" : "1");
      const auto res = server_->Client()->Get(At(i % 4 == 3 ? "/weights" : "/render", {int(10 * i), 20}, rest));
      if (res) status[i] = res->status, bodies[i] = res->body;
    });
  }
  for (auto &t : threads) t.join();
  for (size_t i = 0; i < 16; ++i) {
    ASSERT_EQ(status[i], 200) << i << ": " << bodies[i];
    EXPECT_EQ(Png(bodies[i]).width, kW) << i;
  }
  EXPECT_TRUE(server_->Running());
  EXPECT_GE(Info(*server_).value("renders", 0), 12);
}

// Servers on other inputs, each test in a fresh directory holding the demo.
using ViewInputsTest = ToolTest;

TEST_F(ViewInputsTest, InfoMatchesASequenceAndItsFramesStep) {
  // Three plain grey frames of 360x240 and one disparity map.
  fs::create_directory("frames");
  const uint8_t shades[3] = {40, 120, 200};
  for (int i = 0; i < 3; ++i) {
    Image frame(360, 240, 3);
    std::fill(frame.pixels.begin(), frame.pixels.end(), shades[i]);
    WritePng("frames/f" + std::to_string(i) + ".png", frame);
  }
  WritePng("depth.png", Image(90, 60, 1));
  ViewProcess server({"--image", "frames", "--disparity", "depth.png", "--fnumber", "7"});
  ASSERT_TRUE(server.ok()) << ViewProcess::Output();
  const json info = Info(server);
  EXPECT_EQ(info.value("source", ""), "files");
  EXPECT_EQ(info.value("width", 0), 360);
  EXPECT_EQ(info.value("height", 0), 240);
  EXPECT_EQ(info.value("frames", 0), 3);
  EXPECT_EQ(info["names"], json({"f0", "f1", "f2"}));
  EXPECT_EQ(info["disparity"], json({{"width", 90}, {"height", 60}}));
  EXPECT_EQ(info["focus"], json({{"x", 180}, {"y", 120}}));
  EXPECT_EQ(info.value("f", 0), 7);
  // The size rule by hand for 360x240: width a multiple of 2 x ratio, height
  // a multiple of 4 and of the ratio and at least 16 x ratio; 8 fails (240/8).
  ASSERT_EQ(info["ratios"].size(), 5u);
  for (const json &r : info["ratios"]) {
    const bool allowed = r.value("ratio", 0) != 8;
    EXPECT_EQ(r.value("allowed", !allowed), allowed) << r;
    EXPECT_EQ(r.contains("reason"), !allowed) << r;
  }
  // Each frame is its own picture (grey survives NV21 exactly), in any order.
  auto client = server.Client();
  for (int i : {2, 0, 1}) {
    const auto res = client->Get(("/input?frame=" + std::to_string(i)).c_str());
    ASSERT_TRUE(res && res->status == 200) << i;
    EXPECT_EQ(Png(res->body).Row(100)[30], shades[i]) << i;
  }
}

TEST_F(ViewInputsTest, RecordedDumpsRenderAsRecorded) {
  fs::create_directory("dumps");
  ASSERT_EQ(Run(RenderArgs(kIn, kDisp, "x.png", {"--fnumber", "6"}),
                "PERSIST_VENDOR_CAM_PREBOKEH_SAVE=yes PERSIST_VENDOR_CAM_PREBOKEH_PATH=dumps/")
                .status,
            0);
  std::string imageout;
  for (const auto &e : fs::directory_iterator("dumps")) {
    if (e.path().filename().string().rfind("imageout_", 0) == 0) imageout = e.path().string();
  }
  ASSERT_FALSE(imageout.empty());

  ViewProcess server({"--dumps", "dumps"});
  ASSERT_TRUE(server.ok()) << ViewProcess::Output();
  const json info = Info(server);
  EXPECT_EQ(info.value("source", ""), "dumps");
  EXPECT_FALSE(info.value("focus_applies", true));
  EXPECT_FALSE(info.value("has_disparity", true));
  // Without a focus point, at the recorded aperture: the recorded output.
  auto client = server.Client();
  const auto res = client->Get("/render?f=6");
  ASSERT_TRUE(res && res->status == 200) << (res ? res->body : "no answer");
  YuvFrame recorded({kW, kH});
  const std::string raw = Slurp(imageout);
  ASSERT_EQ(raw.size(), recorded.data.size());
  recorded.data.assign(raw.begin(), raw.end());
  EXPECT_EQ(Png(res->body).pixels, YuvToRgb(recorded, YuvFormat::kNV21).pixels);
  const auto disparity = client->Get("/disparity");
  ASSERT_TRUE(disparity);
  EXPECT_EQ(disparity->status, 404);
}

TEST_F(ViewInputsTest, StopsCleanlyOnSigintAndSigterm) {
  for (const auto &[sig, name] : {std::pair{SIGINT, "SIGINT"}, std::pair{SIGTERM, "SIGTERM"}}) {
    ViewProcess server({"--size", "64x48"});
    ASSERT_TRUE(server.ok()) << ViewProcess::Output();
    const auto res = server.Client()->Get("/render?x=1&y=1&f=4");
    ASSERT_TRUE(res && res->status == 200) << name;
    EXPECT_EQ(server.Stop(sig), 0) << name << "\n" << ViewProcess::Output();
    EXPECT_NE(Slurp("view.out").find(std::string("stopped (") + name + ")"), npos) << ViewProcess::Output();
  }
  // A signal straight after start-up stops it too.
  ViewProcess early({"--size", "64x48"});
  ASSERT_TRUE(early.ok());
  EXPECT_EQ(early.Stop(SIGINT), 0) << ViewProcess::Output();
}

TEST_F(ViewInputsTest, BadStartupOptionsExitWithStatus2) {
  ViewProcess first({"--size", "64x48"});
  ASSERT_TRUE(first.ok()) << ViewProcess::Output();
  const std::string busy = std::to_string(std::atoi(first.url().c_str() + first.url().rfind(':') + 1));
  const struct {
    Args args;
    const char *message;
  } cases[] = {
      {{"view", "--port", busy, "--size", "64x48"}, "cannot listen"},
      {{"view", "--port", "0", "--image", "missing.png", "--disparity", kDisp}, "missing.png"},
      {{"view", "--port", "0", "--image", kIn}, "--disparity"},
      {{"view", "--port", "0", "--dumps", "nowhere"}, "nowhere"},
      {{"view", "--port", "70000"}, "--port"},
      {{"view", "--port", "0", "--fnumber", "0"}, "--fnumber"},
      {{"view", "--port", "0", "--size", "64x48", "--focus", "64,0"}, "--focus"},
  };
  for (const auto &c : cases) {
    const Result r = Run(c.args);
    EXPECT_EQ(r.status, 2) << c.message << ": " << r.err;
    EXPECT_NE(r.err.find(c.message), npos) << r.err;
  }
  EXPECT_EQ(first.Stop(SIGINT), 0);
}

}  // namespace
