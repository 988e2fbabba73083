// The viewer's rendering state, independent of HTTP: query parameters are
// checked here, rendered through the library's handles (one weight engine and
// one bokeh handle per ratio, made on first use), and encoded for the page.
#ifndef PREVIEWBOKEH_TOOL_VIEW_SESSION_H_
#define PREVIEWBOKEH_TOOL_VIEW_SESSION_H_

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli.h"
#include "view_source.h"

namespace pbtool {

// Query parameters as the HTTP layer hands them over (a name may repeat).
using Params = std::multimap<std::string, std::string>;

// A request the session refuses: `status` is the HTTP status to answer with
// (400 bad parameter, 404 nothing there, 409 superseded by a newer live request).
class RequestError : public std::runtime_error {
 public:
  RequestError(int status, std::string parameter, const std::string &message)
      : std::runtime_error(message), status_(status), parameter_(std::move(parameter)) {}
  int status() const { return status_; }
  const std::string &parameter() const { return parameter_; }  // "" when none

 private:
  int status_;
  std::string parameter_;
};

// The ratios the page offers.
constexpr std::array<int, 5> kViewRatios = {1, 2, 4, 6, 8};

// What parameter checking needs to know about the source.
struct SourceFacts {
  Size size;
  int frames = 1;
  bool focus_applies = true;  // false for recorded weights
  std::array<std::string, kViewRatios.size()> ratio_problems;  // "" = allowed
};

enum class ImageFormat { kPng, kJpeg };

struct RenderParams {
  Point focus;
  int f_number = 0;
  int ratio = 1;
  int frame = 0;
  bool live = false;  // an interactive request: may be dropped for a newer one
  ImageFormat format = ImageFormat::kPng;
};

// Which parameters an endpoint takes.
enum class Endpoint { kRender, kWeights, kFrameOnly };

// Checks the query of an endpoint: x, y (frame pixels; not needed when focus
// does not apply) and f (1..20) are required for render and weights; ratio
// (default 1), frame (default 0), live (0/1), format (png/jpeg, render only)
// are optional; for kFrameOnly only frame is taken. Unknown or repeated
// names, non-integers and out-of-range values throw RequestError(400) naming
// the parameter.
RenderParams ParseParams(const Params &query, const SourceFacts &facts, Endpoint endpoint);

// Latest wins: of the live calls waiting for the same lock, only the one that
// arrived last runs; the others return without running. Calls that are not
// live always run.
class LatestWins {
 public:
  template <typename Fn>
  bool Run(bool live, std::mutex &lock, Fn &&fn) {
    const uint64_t ticket = live ? ++latest_ : 0;
    if (live) ++entered_;
    std::lock_guard<std::mutex> guard(lock);
    if (live && ticket != latest_.load()) return false;
    fn();
    return true;
  }
  uint64_t entered() const { return entered_.load(); }  // live calls so far

 private:
  std::atomic<uint64_t> latest_{0};
  std::atomic<uint64_t> entered_{0};
};

// An encoded answer.
struct Reply {
  std::string content_type;
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
};

// Stage timings of one render, in milliseconds.
struct RenderTiming {
  double weights_ms = 0;      // weight_async_process (0 with recorded weights)
  double set_weights_ms = 0;  // iBokehCreateWeightMap
  double blur_ms = 0;         // iBokehBlurImage
  double encode_ms = 0;       // YUV -> RGB and image encoding
  double total_ms = 0;        // the whole request in the session
};

class WeightEngine;
class BokehRenderer;

class ViewSession {
 public:
  // initial_focus / initial_f: what the page starts with.
  ViewSession(std::unique_ptr<ViewSource> source, Point initial_focus, int initial_f);
  ~ViewSession();

  const SourceFacts &facts() const { return facts_; }

  Reply Render(const Params &query);     // the blurred frame
  Reply Weights(const Params &query);    // the colour-mapped weight map
  Reply Input(const Params &query);      // the input frame
  Reply Disparity(const Params &query);  // the disparity map (grey, its own size)
  nlohmann::json Info();

 private:
  struct Handles;
  Handles &HandlesFor(int ratio);
  std::shared_ptr<const ViewFrame> FrameAt(int i);
  // Weights for `p` into `weights`; the handle's lock is held.
  void ComputeWeights(Handles &h, const ViewFrame &frame, const RenderParams &p,
                      std::vector<uint16_t> *weights, double *ms);

  std::unique_ptr<ViewSource> source_;
  SourceFacts facts_;
  Point initial_focus_;
  int initial_f_;
  std::array<std::unique_ptr<Handles>, kViewRatios.size()> handles_;
  std::mutex create_mutex_;  // the ratio property is process-wide while a handle is made
  LatestWins render_latest_, weights_latest_;
  std::mutex timing_mutex_;
  RenderTiming last_{};
  int renders_ = 0;
};

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_VIEW_SESSION_H_
