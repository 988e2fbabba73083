#include "console.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "errors.h"

namespace pbtool {
namespace {

std::FILE *g_tool_err = nullptr;
std::string g_created_log;  // the --library-log file when this run created it

}  // namespace

void RedirectLibraryLog(const std::string &target) {
  if (target == "-" || g_tool_err) return;
  if (!target.empty() && access(target.c_str(), F_OK) != 0) g_created_log = target;
  const int fd = target.empty() ? open("/dev/null", O_WRONLY | O_CLOEXEC)
                                : open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw InputError("--library-log: cannot open '" + target + "': " + std::strerror(errno));
  const int saved = dup(STDERR_FILENO);
  std::FILE *stream = saved >= 0 ? fdopen(saved, "w") : nullptr;
  if (!stream) {
    close(fd);
    if (saved >= 0) close(saved);
    return;  // keep everything on stderr
  }
  std::fflush(stderr);
  dup2(fd, STDERR_FILENO);
  close(fd);
  setvbuf(stream, nullptr, _IOLBF, 0);
  g_tool_err = stream;
}

void RemoveEmptyLibraryLog() {
  if (g_created_log.empty()) return;
  struct stat st {};
  std::fflush(stderr);
  if (stat(g_created_log.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_size == 0) {
    unlink(g_created_log.c_str());
  }
  g_created_log.clear();
}

std::FILE *ToolErr() { return g_tool_err ? g_tool_err : stderr; }

void Warn(const std::string &message) { std::fprintf(ToolErr(), "previewbokeh: warning: %s\n", message.c_str()); }

void Note(const std::string &message) { std::fprintf(ToolErr(), "previewbokeh: %s\n", message.c_str()); }

Progress::Progress(const std::string &label, int total)
    : label_(label), total_(total), enabled_(total > 1 && isatty(fileno(ToolErr())) == 1) {}

Progress::~Progress() { Finish(); }

void Progress::Finish() {
  if (enabled_ && last_width_ >= 0) std::fputc('\n', ToolErr());
  last_width_ = -1;
  enabled_ = false;
}

void Progress::Update(int done) {
  if (!enabled_) return;
  constexpr int kBar = 40;
  const int filled = total_ > 0 ? std::min(kBar, done * kBar / total_) : kBar;
  if (filled == last_width_ && done != total_) return;
  last_width_ = filled;
  std::string bar(static_cast<size_t>(filled), '#');
  bar.append(static_cast<size_t>(kBar - filled), '.');
  std::fprintf(ToolErr(), "\r%s [%s] %d/%d", label_.c_str(), bar.c_str(), done, total_);
  std::fflush(ToolErr());
}

TimingStats Summarise(std::vector<double> samples) {
  TimingStats s;
  s.count = static_cast<int>(samples.size());
  if (samples.empty()) return s;
  std::sort(samples.begin(), samples.end());
  const size_t n = samples.size();
  s.min_ms = samples.front();
  s.median_ms = n % 2 ? samples[n / 2] : (samples[n / 2 - 1] + samples[n / 2]) / 2.0;
  const size_t rank = static_cast<size_t>(std::ceil(0.95 * static_cast<double>(n)));
  s.p95_ms = samples[std::max<size_t>(rank, 1) - 1];
  double sum = 0;
  for (double v : samples) sum += v;
  s.mean_ms = sum / static_cast<double>(n);
  s.fps = s.mean_ms > 0 ? 1000.0 / s.mean_ms : 0.0;
  return s;
}

std::string FormatStats(const std::string &label, const TimingStats &s) {
  char line[256];
  std::snprintf(line, sizeof line, "%-12s min %8.3f  median %8.3f  p95 %8.3f ms  (%.1f fps)",
                label.c_str(), s.min_ms, s.median_ms, s.p95_ms, s.fps);
  return line;
}

}  // namespace pbtool
