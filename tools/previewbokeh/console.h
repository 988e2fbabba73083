// Where output goes: the tool's own messages, the library's log lines, the
// progress bar; and timing statistics.
#ifndef PREVIEWBOKEH_TOOL_CONSOLE_H_
#define PREVIEWBOKEH_TOOL_CONSOLE_H_

#include <cstdio>
#include <string>
#include <vector>

namespace pbtool {

// The library logs every call to stderr on a host. Keeps the tool's messages
// on the original stderr and sends the library's lines to `target`: "" drops
// them, "-" leaves them on stderr, anything else is a file to write them to.
void RedirectLibraryLog(const std::string &target);

// Removes the --library-log file when this run created it and nothing was
// written to it (a run that failed before the library logged anything).
void RemoveEmptyLibraryLog();

// The tool's own error/progress stream (the original stderr).
std::FILE *ToolErr();

// "previewbokeh: warning: <message>" on the tool's stderr.
void Warn(const std::string &message);
// "previewbokeh: <message>" on the tool's stderr.
void Note(const std::string &message);

// A one-line progress bar on the tool's stderr, drawn only on a terminal.
class Progress {
 public:
  Progress(const std::string &label, int total);
  ~Progress();
  void Update(int done);
  // Ends the bar's line; call before printing results.
  void Finish();

 private:
  std::string label_;
  int total_;
  bool enabled_;
  int last_width_ = -1;
};

struct TimingStats {
  int count = 0;
  double min_ms = 0, median_ms = 0, p95_ms = 0, mean_ms = 0;
  double fps = 0;  // 1000 / mean
};

// Nearest-rank percentiles of the samples (milliseconds); the median of an
// even count is the mean of the two middle samples.
TimingStats Summarise(std::vector<double> samples_ms);

// "weights      min 1.234  median 1.300  p95 1.500 ms  (769.2 fps)"
std::string FormatStats(const std::string &label, const TimingStats &s);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_CONSOLE_H_
