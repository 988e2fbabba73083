// The viewer's HTTP interface, end to end: the built tool started as a
// process on a free port, asked over HTTP, stopped by a signal.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>
#include <nlohmann/json.hpp>

#include "image_io.h"
#include "scene.h"
#include "yuv.h"

namespace fs = std::filesystem;
using namespace pbtool;
using nlohmann::json;
using Args = std::vector<std::string>;

namespace {

constexpr auto npos = std::string::npos;

std::string Slurp(const std::string &path) {
  std::ifstream f(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(f), {}};
}

// Runs the tool to completion (for the files the tests need).
int RunTool(const std::string &args, const std::string &env = "") {
  const std::string cmd = "env -u PERSIST_VENDOR_CAM_PREBOKEH_SAVE -u PERSIST_VENDOR_CAM_PREBOKEH_RATIO " + env +
                          " " + PBTOOL_EMULATOR + " '" + PBTOOL_BINARY + "' " + args + " >/dev/null 2>tool.err";
  const int raw = std::system(cmd.c_str());
  return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

// `previewbokeh view --port 0 ...` as a child process; its first line of
// output gives the address.
class ViewProcess {
 public:
  explicit ViewProcess(const Args &args) {
    int out[2];
    if (pipe(out) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(out[1], 1);
      const int err = open("view.err", O_WRONLY | O_CREAT | O_TRUNC, 0644);
      dup2(err, 2);
      close(out[0]);
      close(out[1]);
      unsetenv("PERSIST_VENDOR_CAM_PREBOKEH_RATIO");
      std::vector<std::string> words;
      std::string emulator = PBTOOL_EMULATOR;
      if (!emulator.empty()) words.push_back(emulator);
      words.push_back(PBTOOL_BINARY);
      words.push_back("view");
      words.push_back("--port");
      words.push_back("0");
      words.insert(words.end(), args.begin(), args.end());
      std::vector<char *> argv;
      for (std::string &w : words) argv.push_back(w.data());
      argv.push_back(nullptr);
      execv(argv[0], argv.data());
      _exit(127);
    }
    close(out[1]);
    out_ = out[0];
    // The address line, within 60 s (sanitizer builds start slowly).
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (output_.find('\n') == npos && std::chrono::steady_clock::now() < deadline) {
      if (!ReadSome(500)) break;
    }
    const size_t at = output_.find("http://");
    if (at == npos) return;
    const size_t end = output_.find('\n', at);
    url_ = output_.substr(at, end - at);
    const size_t colon = url_.rfind(':');
    host_ = url_.substr(7, colon - 7);
    port_ = std::atoi(url_.c_str() + colon + 1);
  }
  ~ViewProcess() {
    if (pid_ > 0 && !stopped_) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    if (out_ >= 0) close(out_);
  }

  bool ok() const { return port_ > 0; }
  const std::string &url() const { return url_; }
  const std::string &output() const { return output_; }
  std::unique_ptr<httplib::Client> Client() const {
    auto client = std::make_unique<httplib::Client>(host_, port_);
    client->set_read_timeout(60, 0);
    return client;
  }
  bool Running() {
    return pid_ > 0 && !stopped_ && waitpid(pid_, nullptr, WNOHANG) == 0;
  }

  // Sends `signal` and waits for the exit; returns the exit status (-1 when
  // it did not exit normally within 30 s).
  int Stop(int signal) {
    kill(pid_, signal);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    int raw = 0;
    while (waitpid(pid_, &raw, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) return -1;
      ReadSome(50);
    }
    stopped_ = true;
    while (ReadSome(0)) {
    }
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }

 private:
  bool ReadSome(int timeout_ms) {
    pollfd p{out_, POLLIN, 0};
    if (poll(&p, 1, timeout_ms) <= 0) return timeout_ms > 0;
    char buffer[4096];
    const ssize_t n = read(out_, buffer, sizeof buffer);
    if (n <= 0) return false;
    output_.append(buffer, static_cast<size_t>(n));
    return true;
  }

  pid_t pid_ = -1;
  int out_ = -1;
  bool stopped_ = false;
  std::string output_, url_, host_;
  int port_ = 0;
};

Image DecodePngBody(const std::string &body, const std::string &what) {
  return DecodeImage(std::vector<uint8_t>(body.begin(), body.end()), 3, what);
}

constexpr Size kDemo{320, 240};

// One server on the demo scene for the tests that only ask questions.
class ViewDemoTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = (fs::temp_directory_path() / "pbview_demo_XXXXXX").string();
    ASSERT_NE(mkdtemp(dir_.data()), nullptr);
    fs::current_path(dir_);
    server_ = new ViewProcess({"--size", "320x240"});
  }
  static void TearDownTestSuite() {
    // After everything above it still stops cleanly (and a sanitizer build
    // reports what it found on the way out, in the exit status).
    if (server_->ok()) {
      const int status = server_->Stop(SIGTERM);
      if (status != 0) ADD_FAILURE() << "exit status " << status << "\n" << Slurp(dir_ + "/view.err");
    }
    delete server_;
    server_ = nullptr;
    std::error_code ec;
    fs::current_path(fs::temp_directory_path(), ec);
    fs::remove_all(dir_, ec);
  }
  void SetUp() override { ASSERT_TRUE(server_->ok()) << server_->output() << Slurp(dir_ + "/view.err"); }

  // A GET that must answer 200 with `type`.
  static std::string Fetch(const std::string &path, const std::string &type = "image/png") {
    auto client = server_->Client();
    const auto res = client->Get(path.c_str());
    EXPECT_TRUE(res) << path;
    if (!res) return {};
    EXPECT_EQ(res->status, 200) << path << ": " << res->body;
    EXPECT_EQ(res->get_header_value("Content-Type").rfind(type, 0), 0u) << path;
    return res->body;
  }

  static std::string dir_;
  static ViewProcess *server_;
};
std::string ViewDemoTest::dir_;
ViewProcess *ViewDemoTest::server_ = nullptr;

TEST_F(ViewDemoTest, ServesThePageOnAFreePort) {
  EXPECT_NE(server_->url().find("http://127.0.0.1:"), npos) << server_->url();
  const std::string page = Fetch("/", "text/html");
  EXPECT_NE(page.find("<!DOCTYPE html>"), npos);
  // Everything comes from the server itself: no outside address in the page.
  EXPECT_EQ(page.find("https://"), npos);
  EXPECT_EQ(page.find("http://"), npos);
}

TEST_F(ViewDemoTest, FocusOnSubjectAndOnBackgroundGiveDifferentFrames) {
  const SceneLayout l = MakeSceneLayout(kDemo);
  const Image subject = DecodePngBody(
      Fetch("/render?x=" + std::to_string(l.focus.x) + "&y=" + std::to_string(l.focus.y) + "&f=2"), "subject");
  const Image far = DecodePngBody(Fetch("/render?x=" + std::to_string(l.far_background.x0 + 2) + "&y=" +
                                        std::to_string(l.far_background.y0 + 2) + "&f=2"),
                                  "background");
  ASSERT_EQ(subject.width, kDemo.width);
  ASSERT_EQ(subject.height, kDemo.height);
  ASSERT_EQ(far.pixels.size(), subject.pixels.size());
  EXPECT_NE(subject.pixels, far.pixels);
  // Focused on the subject, its centre stays as the input has it; focused on
  // the far wall, the subject blurs.
  const Image input = DecodePngBody(Fetch("/input"), "input");
  const uint8_t *in = input.Row(l.subject_centre.y), *near = subject.Row(l.subject_centre.y);
  EXPECT_EQ(std::vector<uint8_t>(in + 3 * (l.subject_centre.x - 4), in + 3 * (l.subject_centre.x + 4)),
            std::vector<uint8_t>(near + 3 * (l.subject_centre.x - 4), near + 3 * (l.subject_centre.x + 4)));
}

TEST_F(ViewDemoTest, FNumber20GivesTheInputBack) {
  const Image input = DecodePngBody(Fetch("/input?frame=0"), "input");
  for (int ratio : {1, 2, 4}) {
    const Image out = DecodePngBody(Fetch("/render?x=10&y=10&f=20&ratio=" + std::to_string(ratio)), "f20");
    EXPECT_EQ(out.pixels, input.pixels) << "ratio " << ratio;
  }
  const Image blurred = DecodePngBody(Fetch("/render?x=10&y=10&f=4"), "f4");
  EXPECT_NE(blurred.pixels, input.pixels);
  // The JPEG of the same frame decodes to the same size.
  const std::string jpeg = Fetch("/render?x=10&y=10&f=20&format=jpeg", "image/jpeg");
  const Image decoded = DecodeImage(std::vector<uint8_t>(jpeg.begin(), jpeg.end()), 3, "jpeg");
  EXPECT_EQ(decoded.width, kDemo.width);
  EXPECT_EQ(decoded.height, kDemo.height);
}

TEST_F(ViewDemoTest, WeightsAndDisparityPictures) {
  const SceneLayout l = MakeSceneLayout(kDemo);
  const Image weights = DecodePngBody(
      Fetch("/weights?x=" + std::to_string(l.focus.x) + "&y=" + std::to_string(l.focus.y) + "&f=4"), "weights");
  ASSERT_EQ(weights.width, kDemo.width);
  // Sharp at the focus, fully blurred on the far wall: different colours.
  const uint8_t *focus = weights.Row(l.focus.y) + 3 * l.focus.x;
  const uint8_t *far = weights.Row(l.far_background.y0 + 2) + 3 * (l.far_background.x0 + 2);
  EXPECT_NE(std::vector<uint8_t>(focus, focus + 3), std::vector<uint8_t>(far, far + 3));
  const std::string disparity = Fetch("/disparity");
  const Image map = DecodeImage(std::vector<uint8_t>(disparity.begin(), disparity.end()), 1, "disparity");
  EXPECT_EQ(map.width, l.disparity.width);
  EXPECT_EQ(map.height, l.disparity.height);
  EXPECT_EQ(map.Row(l.subject_centre.y / 4)[l.subject_centre.x / 4], kSceneSubjectDisparity);
}

TEST_F(ViewDemoTest, BadParametersAnswer400NamingTheParameter) {
  const struct {
    const char *path, *parameter;
  } cases[] = {
      {"/render?y=5&f=4", "x"},
      {"/render?x=5&f=4", "y"},
      {"/render?x=5&y=5", "f"},
      {"/render?x=abc&y=5&f=4", "x"},
      {"/render?x=1.5&y=5&f=4", "x"},
      {"/render?x=&y=5&f=4", "x"},
      {"/render?x=5&y=5&f=4x", "f"},
      {"/render?x=-1&y=5&f=4", "x"},
      {"/render?x=320&y=5&f=4", "x"},  // focus outside the frame
      {"/render?x=5&y=240&f=4", "y"},
      {"/render?x=5&y=5&f=0", "f"},
      {"/render?x=5&y=5&f=21", "f"},
      {"/render?x=5&y=5&f=99999999999999", "f"},
      {"/render?x=5&y=5&f=4&ratio=3", "ratio"},
      {"/render?x=5&y=5&f=4&ratio=6", "ratio"},  // 320 is no multiple of 12
      {"/render?x=5&y=5&f=4&frame=1", "frame"},
      {"/render?x=5&y=5&f=4&frame=-1", "frame"},
      {"/render?x=5&x=6&y=5&f=4", "x"},
      {"/render?x=5&y=5&f=4&zoom=2", "zoom"},
      {"/render?x=5&y=5&f=4&format=gif", "format"},
      {"/render?x=5&y=5&f=4&live=2", "live"},
      {"/weights?x=5&y=5", "f"},
      {"/weights?x=5&y=5&f=4&format=jpeg", "format"},
      {"/input?frame=1", "frame"},
      {"/input?x=1", "x"},
      {"/disparity?frame=x", "frame"},
  };
  auto client = ViewDemoTest::server_->Client();
  for (const auto &c : cases) {
    const auto res = client->Get(c.path);
    ASSERT_TRUE(res) << c.path;
    EXPECT_EQ(res->status, 400) << c.path;
    EXPECT_EQ(res->get_header_value("Content-Type"), "application/json") << c.path;
    const json body = json::parse(res->body, nullptr, false);
    ASSERT_TRUE(body.is_object()) << c.path << ": " << res->body;
    EXPECT_EQ(body.value("parameter", ""), c.parameter) << c.path;
    EXPECT_EQ(body.value("error", "").rfind(std::string(c.parameter) + ": ", 0), 0u) << c.path << ": " << res->body;
  }
  // The ratio the size rules out says why.
  const auto res = client->Get("/render?x=5&y=5&f=4&ratio=6");
  ASSERT_TRUE(res);
  EXPECT_NE(res->body.find("multiple of 12"), npos) << res->body;
}

TEST_F(ViewDemoTest, UnknownPathsAnswer404) {
  auto client = server_->Client();
  for (const char *path : {"/nope", "/render/x", "/info.json", "/index.html"}) {
    const auto res = client->Get(path);
    ASSERT_TRUE(res) << path;
    EXPECT_EQ(res->status, 404) << path;
    const json body = json::parse(res->body, nullptr, false);
    EXPECT_NE(body.value("error", "").find(path), npos) << res->body;
  }
}

TEST_F(ViewDemoTest, SixteenConcurrentRequestsAllAnswer) {
  std::vector<std::thread> threads;
  std::vector<int> status(16, 0);
  std::vector<std::string> bodies(16);
  for (int i = 0; i < 16; ++i) {
    threads.emplace_back([&, i] {
      auto client = server_->Client();
      const std::string path = i % 4 == 3 ? "/weights?x=" + std::to_string(10 * i) + "&y=20&f=" + std::to_string(i + 1)
                                          : "/render?x=" + std::to_string(10 * i) + "&y=20&f=" + std::to_string(i + 1) +
                                                "&ratio=" + std::to_string(i % 2 ? 2 : 1);
      const auto res = client->Get(path.c_str());
      if (res) {
        status[static_cast<size_t>(i)] = res->status;
        bodies[static_cast<size_t>(i)] = res->body;
      }
    });
  }
  for (auto &t : threads) t.join();
  for (int i = 0; i < 16; ++i) {
    EXPECT_EQ(status[static_cast<size_t>(i)], 200) << i;
    EXPECT_EQ(DecodePngBody(bodies[static_cast<size_t>(i)], "concurrent").width, kDemo.width) << i;
  }
  EXPECT_TRUE(server_->Running());
  const json info = json::parse(Fetch("/info", "application/json"));
  EXPECT_GE(info.value("renders", 0), 12);
}

TEST_F(ViewDemoTest, OfPilingLiveRequestsTheNewestIsRendered) {
  // Live requests sent together: each is rendered (200) or dropped for a
  // newer one (409); the newest waiting one always runs.
  std::vector<std::thread> threads;
  std::atomic<int> ok{0}, dropped{0}, other{0};
  for (int i = 0; i < 12; ++i) {
    threads.emplace_back([&, i] {
      auto client = server_->Client();
      const std::string path = "/render?x=50&y=50&live=1&f=" + std::to_string(i + 1);
      const auto res = client->Get(path.c_str());
      if (res && res->status == 200) {
        ++ok;
      } else if (res && res->status == 409 && json::parse(res->body).value("error", "").find("superseded") != npos) {
        ++dropped;
      } else {
        ++other;
      }
    });
  }
  for (auto &t : threads) t.join();
  EXPECT_GE(ok.load(), 1);
  EXPECT_EQ(ok + dropped, 12);
  EXPECT_EQ(other.load(), 0);
}

// Servers on other inputs, one per test, in a fresh directory.
class ViewInputsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = (fs::temp_directory_path() / "pbview_in_XXXXXX").string();
    ASSERT_NE(mkdtemp(dir_.data()), nullptr);
    fs::current_path(dir_);
  }
  void TearDown() override {
    std::error_code ec;
    fs::current_path(fs::temp_directory_path(), ec);
    fs::remove_all(dir_, ec);
  }
  static json Info(const ViewProcess &server) {
    const auto res = server.Client()->Get("/info");
    if (!res || res->status != 200) return json();
    return json::parse(res->body, nullptr, false);
  }
  std::string dir_;
};

TEST_F(ViewInputsTest, InfoMatchesASequenceAndItsFramesStep) {
  // Three frames of 360x240, plain colours; one disparity map.
  fs::create_directory("frames");
  const uint8_t shades[3] = {40, 120, 200};
  for (int i = 0; i < 3; ++i) {
    Image frame(360, 240, 3);
    std::fill(frame.pixels.begin(), frame.pixels.end(), shades[i]);
    WritePng("frames/f" + std::to_string(i) + ".png", frame);
  }
  Image map(90, 60, 1);
  std::fill(map.pixels.begin(), map.pixels.end(), 100);
  WritePng("depth.png", map);
  ViewProcess server({"--image", "frames", "--disparity", "depth.png", "--fnumber", "7"});
  ASSERT_TRUE(server.ok()) << server.output() << Slurp("view.err");
  const json info = Info(server);
  EXPECT_EQ(info.value("source", ""), "files");
  EXPECT_EQ(info.value("width", 0), 360);
  EXPECT_EQ(info.value("height", 0), 240);
  EXPECT_EQ(info.value("frames", 0), 3);
  EXPECT_EQ(info["names"], json({"f0", "f1", "f2"}));
  EXPECT_EQ(info["disparity"], json({{"width", 90}, {"height", 60}}));
  EXPECT_EQ(info["focus"], json({{"x", 180}, {"y", 120}}));
  EXPECT_EQ(info.value("f", 0), 7);
  EXPECT_TRUE(info.value("focus_applies", false));
  // The size rule, by hand for 360x240: width a multiple of 2 x ratio,
  // height a multiple of 4 and of the ratio and at least 16 x ratio.
  const struct {
    int ratio;
    bool allowed;
  } ratios[] = {{1, true}, {2, true}, {4, true}, {6, true}, {8, false}};
  ASSERT_EQ(info["ratios"].size(), 5u);
  for (size_t i = 0; i < 5; ++i) {
    const json &r = info["ratios"][i];
    EXPECT_EQ(r.value("ratio", 0), ratios[i].ratio);
    EXPECT_EQ(r.value("allowed", !ratios[i].allowed), ratios[i].allowed) << ratios[i].ratio;
    EXPECT_EQ(r.contains("reason"), !ratios[i].allowed) << ratios[i].ratio;
  }
  // Each frame's input is its own picture (grey survives NV21 exactly).
  auto client = server.Client();
  for (int i : {2, 0, 1}) {
    const auto res = client->Get(("/input?frame=" + std::to_string(i)).c_str());
    ASSERT_TRUE(res && res->status == 200) << i;
    const Image input = DecodePngBody(res->body, "input");
    EXPECT_EQ(input.Row(100)[30], shades[i]) << i;
  }
  const auto res = client->Get("/render?x=1&y=1&f=4&frame=3");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 400);
}

TEST_F(ViewInputsTest, RawSequenceFramesInAnyOrder) {
  // A raw NV21 file of four frames, each a constant luma.
  const Size size{64, 48};
  std::string bytes;
  for (int i = 0; i < 4; ++i) {
    std::string frame(YuvFrame::FrameBytes(size), static_cast<char>(128));
    std::fill(frame.begin(), frame.begin() + size.width * size.height, static_cast<char>(30 + 50 * i));
    bytes += frame;
  }
  WriteFileBytes("clip.nv21", bytes.data(), bytes.size());
  Image map(16, 12, 1);
  WritePng("depth.png", map);
  ViewProcess server({"--image", "clip.nv21", "--size", "64x48", "--disparity", "depth.png"});
  ASSERT_TRUE(server.ok()) << server.output() << Slurp("view.err");
  EXPECT_EQ(Info(server).value("frames", 0), 4);
  auto client = server.Client();
  std::vector<uint8_t> seen;
  for (int i : {3, 1, 2, 0, 3}) {  // backwards too: the raw file is read again
    const auto res = client->Get(("/render?x=1&y=1&f=20&frame=" + std::to_string(i)).c_str());
    ASSERT_TRUE(res && res->status == 200) << i;
    seen.push_back(DecodePngBody(res->body, "raw").Row(10)[3]);
  }
  // Grey by frame: luma 30 + 50 i with neutral chroma is (Y - 16) * 255 / 219
  // in studio-range BT.601 (within a rounding step).
  const int order[] = {3, 1, 2, 0, 3};
  for (size_t k = 0; k < seen.size(); ++k) {
    EXPECT_NEAR(seen[k], (30 + 50 * order[k] - 16) * 255.0 / 219.0, 1.5) << "frame " << order[k];
  }
}

TEST_F(ViewInputsTest, RecordedDumpsRenderAsRecorded) {
  ASSERT_EQ(RunTool("demo --size 320x240 --out demo"), 0) << Slurp("tool.err");
  fs::create_directory("dumps");
  ASSERT_EQ(RunTool("render --image demo/input.png --disparity demo/disparity.png --fnumber 6 --out x.png",
                    "PERSIST_VENDOR_CAM_PREBOKEH_SAVE=yes PERSIST_VENDOR_CAM_PREBOKEH_PATH=dumps/"),
            0)
      << Slurp("tool.err");
  std::string imageout;
  for (const auto &entry : fs::directory_iterator("dumps")) {
    if (entry.path().filename().string().rfind("imageout_", 0) == 0) imageout = entry.path().string();
  }
  ASSERT_FALSE(imageout.empty());
  const size_t files_before = std::distance(fs::directory_iterator("dumps"), fs::directory_iterator());

  ViewProcess server({"--dumps", "dumps"});
  ASSERT_TRUE(server.ok()) << server.output() << Slurp("view.err");
  const json info = Info(server);
  EXPECT_EQ(info.value("source", ""), "dumps");
  EXPECT_FALSE(info.value("focus_applies", true));
  EXPECT_TRUE(info.value("weights_recorded", false));
  EXPECT_FALSE(info.value("has_disparity", true));
  auto client = server.Client();
  // Without a focus point, at the recorded aperture: the recorded output.
  const auto res = client->Get("/render?f=6");
  ASSERT_TRUE(res && res->status == 200) << (res ? res->body : "no answer");
  YuvFrame recorded(kDemo);
  const std::string raw = Slurp(imageout);
  ASSERT_EQ(raw.size(), recorded.data.size());
  recorded.data.assign(raw.begin(), raw.end());
  EXPECT_EQ(DecodePngBody(res->body, "dump").pixels, YuvToRgb(recorded, YuvFormat::kNV21).pixels);
  const auto disparity = client->Get("/disparity");
  ASSERT_TRUE(disparity);
  EXPECT_EQ(disparity->status, 404);
  // Viewing never adds dumps of its own.
  EXPECT_EQ(server.Stop(SIGTERM), 0);
  EXPECT_EQ(static_cast<size_t>(std::distance(fs::directory_iterator("dumps"), fs::directory_iterator())),
            files_before);
}

TEST_F(ViewInputsTest, StopsCleanlyOnSigintAndSigterm) {
  const struct {
    int signal;
    const char *name;
  } cases[] = {{SIGINT, "SIGINT"}, {SIGTERM, "SIGTERM"}};
  for (const auto &c : cases) {
    ViewProcess server({"--size", "64x48"});
    ASSERT_TRUE(server.ok()) << server.output() << Slurp("view.err");
    const auto res = server.Client()->Get("/render?x=1&y=1&f=4");
    ASSERT_TRUE(res && res->status == 200) << c.name;
    EXPECT_EQ(server.Stop(c.signal), 0) << c.name << "\n" << server.output();
    EXPECT_NE(server.output().find(std::string("stopped (") + c.name + ")"), npos) << server.output();
  }
  // A signal at once after start-up stops it too.
  ViewProcess early({"--size", "64x48"});
  ASSERT_TRUE(early.ok());
  EXPECT_EQ(early.Stop(SIGINT), 0) << early.output();
}

TEST_F(ViewInputsTest, APortInUseIsRefused) {
  ViewProcess first({"--size", "64x48"});
  ASSERT_TRUE(first.ok()) << first.output();
  const std::string port = first.url().substr(first.url().rfind(':') + 1);
  EXPECT_EQ(RunTool("view --size 64x48 --port " + port.substr(0, port.size() - 1)), 2);
  EXPECT_NE(Slurp("tool.err").find("cannot listen"), npos) << Slurp("tool.err");
  EXPECT_EQ(first.Stop(SIGINT), 0);
}

TEST_F(ViewInputsTest, BadStartupOptionsExitWithStatus2) {
  Image map(16, 12, 1);
  WritePng("depth.png", map);
  const struct {
    const char *args, *message;
  } cases[] = {
      {"view --port 0 --image missing.png --disparity depth.png", "missing.png"},
      {"view --port 0 --image depth.png", "--disparity"},
      {"view --port 0 --dumps nowhere", "nowhere"},
      {"view --port 70000", "--port"},
      {"view --port 0 --fnumber 0", "--fnumber"},
      {"view --port 0 --size 64x48 --focus 64,0", "--focus"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(RunTool(c.args), 2) << c.args;
    EXPECT_NE(Slurp("tool.err").find(c.message), npos) << c.args << ": " << Slurp("tool.err");
  }
}

}  // namespace
