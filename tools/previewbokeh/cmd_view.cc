// view: a local web server with an interactive page that renders through the
// library on every change of focus, aperture, ratio or frame.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include <httplib.h>

#include "commands.h"
#include "errors.h"
#include "option_checks.h"
#include "output_plan.h"
#include "pipeline.h"
#include "view_server.h"
#include "view_session.h"
#include "view_source.h"

extern char **environ;

namespace pbtool {
namespace {

constexpr size_t kViewWorkers = 32;

std::unique_ptr<ViewSource> MakeSource(const ViewOptions &o) {
  const bool files = !o.image.empty() || !o.disparity.empty();
  if (!o.dumps.empty()) {
    if (files) throw InputError("--dumps: not together with --image/--disparity");
    if (!o.focus.empty()) throw InputError("--focus: recorded dumps carry their own weights");
    int skipped = 0;
    auto source = MakeDumpSource(o.dumps, &skipped);
    if (skipped > 0) {
      std::printf("previewbokeh view: %d dumps of other sizes than %s left out\n", skipped,
                  ToString(source->size()).c_str());
    }
    return source;
  }
  if (files) {
    FileInputs in;
    in.image = o.image;
    in.raw_size = o.size;
    in.raw_format = o.format;
    if (o.scale_num) CheckScaleFactor(*o.scale_num, "--scale-num");
    if (o.scale_den) CheckScaleFactor(*o.scale_den, "--scale-den");
    if (o.ref_width) CheckRefWidth(*o.ref_width, "--ref-width");
    in.disparity = {o.disparity, o.disparity_size, o.scale_num.value_or(0), o.scale_den.value_or(0),
                    o.ref_width.value_or(0)};
    return MakeFileSource(in);
  }
  if (!o.format.empty() || !o.disparity_size.empty() || o.scale_num || o.scale_den || o.ref_width) {
    throw InputError("--format/--disparity-size/--scale-num/--scale-den/--ref-width: only with "
                     "--image/--disparity");
  }
  return MakeDemoSource(ParseSize(o.size.empty() ? "1920x1080" : o.size, "--size"));
}

// Starts the desktop's browser on `url`; false when there is no opener.
bool OpenBrowser(const std::string &url) {
  const char *argv[] = {"xdg-open", url.c_str(), nullptr};
  pid_t pid = 0;
  if (posix_spawnp(&pid, "xdg-open", nullptr, nullptr, const_cast<char *const *>(argv), environ) != 0) {
    return false;
  }
  // Reap it in the background; its own status says nothing about the page.
  std::thread([pid] { waitpid(pid, nullptr, 0); }).detach();
  return true;
}

// The server library listens with a backlog of 5: a burst of connections
// (a page's parallel fetches, a script) then loses SYNs and waits a second for
// the retry. Listening again on the bound socket only widens the queue.
void WidenBacklog(int port) {
  std::error_code ec;
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd", ec)) {
    const int fd = std::atoi(entry.path().filename().c_str());
    int listening = 0;
    socklen_t length = sizeof listening;
    if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &length) != 0 || !listening) continue;
    sockaddr_storage address{};
    length = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) continue;
    const int bound = address.ss_family == AF_INET6 ? ntohs(reinterpret_cast<sockaddr_in6 *>(&address)->sin6_port)
                                                    : ntohs(reinterpret_cast<sockaddr_in *>(&address)->sin_port);
    if (bound == port) listen(fd, SOMAXCONN);
  }
}

}  // namespace

int RunView(const ViewOptions &o) {
  CheckFNumber(o.f_number, "--fnumber");
  if (o.port < 0 || o.port > 65535) throw InputError("--port: " + std::to_string(o.port) + " is outside 0..65535");
  // The viewer never writes files: no dumps from the library either. Its only
  // output is the library's log, checked against what it reads.
  unsetenv("PERSIST_VENDOR_CAM_PREBOKEH_SAVE");
  OutputPlan plan;
  for (const auto &[path, option] : {std::pair{o.image, "--image"}, std::pair{o.disparity, "--disparity"},
                                     std::pair{o.dumps, "--dumps"}}) {
    std::error_code ec;
    if (path.empty()) continue;
    if (std::filesystem::is_directory(path, ec)) {
      plan.AddInputDirectory(path, option);
    } else {
      plan.AddInputFile(path, option);
    }
  }
  CheckOutputsAndOpenLog(&plan, o.global, /*force=*/false);
  LoadAssist("");

  std::unique_ptr<ViewSource> source = MakeSource(o);
  const Size size = source->size();
  Point focus = source->default_focus();
  if (!o.focus.empty()) {
    focus = ParsePoint(o.focus, "--focus");
    if (focus.x >= size.width || focus.y >= size.height) {
      throw InputError("--focus: " + o.focus + " is outside the " + ToString(size) + " frame");
    }
  }
  ViewSession session(std::move(source), focus, o.f_number);

  // SIGINT and SIGTERM go to one watcher thread (blocked everywhere else,
  // including the server's and the library's threads, which inherit the mask).
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

  httplib::Server server;
  // A browser keeps up to six connections open per page, each holding a
  // worker while idle: enough workers for a few pages and scripts at once.
  server.new_task_queue = [] { return new httplib::ThreadPool(kViewWorkers); };
  InstallViewRoutes(&server, &session);
  // The server library's default also sets SO_REUSEPORT, which would let a
  // second viewer share the port silently; a port in use must be an error.
  server.set_socket_options([](socket_t sock) {
    int yes = 1;
    setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  int port = o.port;
  if (port == 0) {
    port = server.bind_to_any_port(o.host);
    if (port < 0) throw InputError("--host: cannot listen on " + o.host);
  } else if (!server.bind_to_port(o.host, port)) {
    throw InputError("--port: cannot listen on " + o.host + ":" + std::to_string(port) +
                     " (in use? --port 0 picks a free one)");
  }
  WidenBacklog(port);
  const bool v6 = o.host.find(':') != std::string::npos;
  const std::string url = "http://" + (v6 ? "[" + o.host + "]" : o.host) + ":" + std::to_string(port) + "/";

  std::atomic<int> received{0};
  std::atomic<bool> listen_done{false};
  std::thread watcher([&] {
    int caught = 0;
    sigwait(&stop_signals, &caught);
    received = caught;
    // A signal right after start-up may come before the server runs: stop()
    // only acts on a running server, so wait for it (or for its end).
    while (!server.is_running() && !listen_done) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    server.stop();
  });

  std::printf("previewbokeh view: %s\n", url.c_str());
  std::fflush(stdout);
  if (o.open && !OpenBrowser(url)) {
    std::fprintf(stderr, "previewbokeh view: no browser opener (xdg-open) found; open %s yourself\n", url.c_str());
  }
  server.listen_after_bind();
  listen_done = true;
  const int stopped_by = received;
  if (!stopped_by) pthread_kill(watcher.native_handle(), SIGTERM);  // wake the watcher
  watcher.join();
  if (!stopped_by) throw InputError("the server on " + url + " stopped unexpectedly");
  std::printf("previewbokeh view: stopped (%s)\n", stopped_by == SIGINT ? "SIGINT" : "SIGTERM");
  return kExitOk;
}

}  // namespace pbtool
