#include "view_session.h"

#include <algorithm>
#include <charconv>
#include <set>

#include "errors.h"
#include "image_io.h"
#include "pipeline.h"
#include "visual.h"

namespace pbtool {
namespace {

// zlib level of the PNGs sent to the page: fast, a little larger.
constexpr int kPngLevel = 1;
constexpr int kJpegQuality = 90;

RequestError Bad(const std::string &parameter, const std::string &message) {
  return RequestError(400, parameter, parameter + ": " + message);
}

// The one value of `name`, or nullptr when absent.
const std::string *Value(const Params &query, const std::string &name) {
  const auto range = query.equal_range(name);
  if (range.first == range.second) return nullptr;
  if (std::next(range.first) != range.second) throw Bad(name, "given more than once");
  return &range.first->second;
}

int Integer(const Params &query, const std::string &name, bool required, int fallback, int lo, int hi) {
  const std::string *text = Value(query, name);
  if (!text) {
    if (required) throw Bad(name, "required");
    return fallback;
  }
  int value = 0;
  const char *end = text->data() + text->size();
  const auto result = std::from_chars(text->data(), end, value);
  if (text->empty() || result.ec == std::errc::invalid_argument || result.ptr != end) {
    throw Bad(name, "'" + *text + "' is not an integer");
  }
  if (result.ec == std::errc::result_out_of_range || value < lo || value > hi) {
    throw Bad(name, *text + " is outside " + std::to_string(lo) + ".." + std::to_string(hi));
  }
  return value;
}

size_t RatioIndex(int ratio) {
  return static_cast<size_t>(std::find(kViewRatios.begin(), kViewRatios.end(), ratio) - kViewRatios.begin());
}

std::string Ms(double ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", ms);
  return text;
}

std::string ToBody(const std::vector<uint8_t> &bytes) { return std::string(bytes.begin(), bytes.end()); }

Reply PngReply(const Image &image) { return {"image/png", ToBody(EncodePng(image, kPngLevel)), {}}; }

}  // namespace

RenderParams ParseParams(const Params &query, const SourceFacts &facts, Endpoint endpoint) {
  static const std::set<std::string> kRenderNames = {"x", "y", "f", "ratio", "frame", "live", "format"};
  static const std::set<std::string> kWeightNames = {"x", "y", "f", "ratio", "frame", "live"};
  static const std::set<std::string> kFrameNames = {"frame"};
  const std::set<std::string> &names =
      endpoint == Endpoint::kRender ? kRenderNames : endpoint == Endpoint::kWeights ? kWeightNames : kFrameNames;
  for (const auto &entry : query) {
    if (!names.count(entry.first)) throw Bad(entry.first, "unknown parameter");
  }
  RenderParams p;
  p.frame = Integer(query, "frame", false, 0, 0, facts.frames - 1);
  if (endpoint == Endpoint::kFrameOnly) return p;

  const bool need_focus = facts.focus_applies;
  p.focus.x = Integer(query, "x", need_focus, 0, 0, facts.size.width - 1);
  p.focus.y = Integer(query, "y", need_focus, 0, 0, facts.size.height - 1);
  p.f_number = Integer(query, "f", true, 0, 1, 20);
  p.ratio = Integer(query, "ratio", false, 1, 1, 8);
  const size_t index = RatioIndex(p.ratio);
  if (index == kViewRatios.size()) throw Bad("ratio", std::to_string(p.ratio) + " is not one of 1, 2, 4, 6, 8");
  if (!facts.ratio_problems[index].empty()) throw Bad("ratio", facts.ratio_problems[index]);
  p.live = Integer(query, "live", false, 0, 0, 1) == 1;
  if (endpoint == Endpoint::kRender) {
    if (const std::string *format = Value(query, "format")) {
      if (*format == "png") {
        p.format = ImageFormat::kPng;
      } else if (*format == "jpeg" || *format == "jpg") {
        p.format = ImageFormat::kJpeg;
      } else {
        throw Bad("format", "'" + *format + "' is not png or jpeg");
      }
    }
  }
  return p;
}

// ---------------------------------------------------------------------------

struct ViewSession::Handles {
  int ratio = 1;
  std::mutex mutex;  // one render at a time on these handles
  std::unique_ptr<WeightEngine> engine;
  std::unique_ptr<BokehRenderer> renderer;
  std::vector<uint16_t> weights;
  YuvFrame out;
};

ViewSession::ViewSession(std::unique_ptr<ViewSource> source, Point initial_focus, int initial_f)
    : source_(std::move(source)), initial_focus_(initial_focus), initial_f_(initial_f) {
  facts_.size = source_->size();
  facts_.frames = source_->count();
  facts_.focus_applies = source_->kind() != SourceKind::kDumps;
  for (size_t i = 0; i < kViewRatios.size(); ++i) {
    facts_.ratio_problems[i] = RatioSizeProblem(facts_.size, kViewRatios[i]);
    handles_[i] = std::make_unique<Handles>();
    handles_[i]->ratio = kViewRatios[i];
  }
}

ViewSession::~ViewSession() = default;

ViewSession::Handles &ViewSession::HandlesFor(int ratio) { return *handles_[RatioIndex(ratio)]; }

std::shared_ptr<const ViewFrame> ViewSession::FrameAt(int i) { return source_->Frame(i); }

void ViewSession::ComputeWeights(Handles &h, const ViewFrame &frame, const RenderParams &p,
                                 std::vector<uint16_t> *weights, double *ms) {
  *ms = 0;
  if (source_->kind() == SourceKind::kDumps) {
    *weights = frame.weights;
    return;
  }
  if (!h.engine) {
    std::lock_guard<std::mutex> lock(create_mutex_);
    h.engine = std::make_unique<WeightEngine>(facts_.size, source_->disparity_size());
  }
  const double t = NowMs();
  h.engine->Compute(frame.disparity_frame, p.f_number, p.focus, weights);
  *ms = NowMs() - t;
}

Reply ViewSession::Render(const Params &query) {
  const double start = NowMs();
  const RenderParams p = ParseParams(query, facts_, Endpoint::kRender);
  const std::shared_ptr<const ViewFrame> frame = FrameAt(p.frame);
  Handles &h = HandlesFor(p.ratio);
  RenderTiming timing;
  YuvFrame out;
  const bool ran = render_latest_.Run(p.live, h.mutex, [&] {
    ComputeWeights(h, *frame, p, &h.weights, &timing.weights_ms);
    if (!h.renderer) {
      std::lock_guard<std::mutex> lock(create_mutex_);
      h.renderer = std::make_unique<BokehRenderer>(facts_.size, h.ratio);
    }
    BokehRenderer::Timing stages;
    h.renderer->Render(frame->yuv, h.weights, p.f_number, p.focus, &out, &stages);
    timing.set_weights_ms = stages.set_weights_ms;
    timing.blur_ms = stages.blur_ms;
  });
  if (!ran) throw RequestError(409, "live", "superseded by a newer request");

  const double t = NowMs();
  const Image rgb = YuvToRgb(out, source_->format());
  Reply reply;
  if (p.format == ImageFormat::kJpeg) {
    reply = {"image/jpeg", ToBody(EncodeJpeg(rgb, kJpegQuality)), {}};
  } else {
    reply = PngReply(rgb);
  }
  timing.encode_ms = NowMs() - t;
  timing.total_ms = NowMs() - start;
  reply.headers = {{"X-Weights-Ms", Ms(timing.weights_ms)},
                   {"X-Set-Weights-Ms", Ms(timing.set_weights_ms)},
                   {"X-Blur-Ms", Ms(timing.blur_ms)},
                   {"X-Encode-Ms", Ms(timing.encode_ms)},
                   {"X-Render-Ms", Ms(timing.total_ms)}};
  std::lock_guard<std::mutex> lock(timing_mutex_);
  last_ = timing;
  ++renders_;
  return reply;
}

Reply ViewSession::Weights(const Params &query) {
  const RenderParams p = ParseParams(query, facts_, Endpoint::kWeights);
  const std::shared_ptr<const ViewFrame> frame = FrameAt(p.frame);
  Handles &h = HandlesFor(p.ratio);
  std::vector<uint16_t> weights;
  double ms = 0;
  const bool ran = weights_latest_.Run(p.live, h.mutex, [&] { ComputeWeights(h, *frame, p, &weights, &ms); });
  if (!ran) throw RequestError(409, "live", "superseded by a newer request");
  Reply reply = PngReply(ColourMapWeights(weights.data(), facts_.size));
  reply.headers = {{"X-Weights-Ms", Ms(ms)}};
  return reply;
}

Reply ViewSession::Input(const Params &query) {
  const RenderParams p = ParseParams(query, facts_, Endpoint::kFrameOnly);
  return PngReply(YuvToRgb(FrameAt(p.frame)->yuv, source_->format()));
}

Reply ViewSession::Disparity(const Params &query) {
  const RenderParams p = ParseParams(query, facts_, Endpoint::kFrameOnly);
  if (source_->kind() == SourceKind::kDumps) {
    throw RequestError(404, "", "recorded dumps hold weights, no disparity map");
  }
  return PngReply(FrameAt(p.frame)->disparity.samples);
}

nlohmann::json ViewSession::Info() {
  using nlohmann::json;
  json ratios = json::array();
  for (size_t i = 0; i < kViewRatios.size(); ++i) {
    json r = {{"ratio", kViewRatios[i]}, {"allowed", facts_.ratio_problems[i].empty()}};
    if (!facts_.ratio_problems[i].empty()) r["reason"] = facts_.ratio_problems[i];
    ratios.push_back(r);
  }
  json names = json::array();
  for (int i = 0; i < facts_.frames; ++i) names.push_back(source_->Name(i));
  const bool dumps = source_->kind() == SourceKind::kDumps;
  json info = {
      {"source", SourceKindName(source_->kind())},
      {"description", source_->description()},
      {"width", facts_.size.width},
      {"height", facts_.size.height},
      {"frames", facts_.frames},
      {"names", names},
      {"ratios", ratios},
      {"focus_applies", facts_.focus_applies},
      {"aperture_applies", true},  // with recorded weights F_number still sets the blur level
      {"weights_recorded", dumps},
      {"has_disparity", !dumps},
      {"focus", {{"x", initial_focus_.x}, {"y", initial_focus_.y}}},
      {"f", initial_f_},
  };
  if (!dumps) {
    info["disparity"] = {{"width", source_->disparity_size().width}, {"height", source_->disparity_size().height}};
  }
  std::lock_guard<std::mutex> lock(timing_mutex_);
  info["renders"] = renders_;
  if (renders_ > 0) {
    info["last"] = {{"weights_ms", last_.weights_ms}, {"set_weights_ms", last_.set_weights_ms},
                    {"blur_ms", last_.blur_ms},       {"encode_ms", last_.encode_ms},
                    {"total_ms", last_.total_ms}};
  }
  return info;
}

}  // namespace pbtool
