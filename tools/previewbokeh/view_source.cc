#include "view_source.h"

#include <filesystem>

#include "dumps.h"
#include "errors.h"
#include "image_io.h"
#include "scene.h"

namespace fs = std::filesystem;

namespace pbtool {
namespace {

constexpr size_t kCachedFrames = 4;

class DemoSource : public ViewSource {
 public:
  explicit DemoSource(Size size) {
    CheckFrameSize(size, "--size");
    const Scene scene = MakeDemoScene(size);
    frame_.yuv = RgbToYuv(scene.rgb, YuvFormat::kNV21);
    frame_.disparity = scene.disparity;
    frame_.disparity_frame = BuildDisparityFrame(scene.disparity);
    kind_ = SourceKind::kDemo;
    size_ = size;
    count_ = 1;
    disparity_size_ = scene.layout.disparity;
    default_focus_ = scene.layout.focus;
    description_ = "demo scene " + ToString(size);
  }
  std::string Name(int) const override { return "demo"; }

 protected:
  ViewFrame Load(int) override { return frame_; }

 private:
  ViewFrame frame_;
};

class FileSource : public ViewSource {
 public:
  explicit FileSource(const FileInputs &in) : inputs_(in) {
    Reopen();
    kind_ = SourceKind::kFiles;
    size_ = frames_->size();
    count_ = frames_->count();
    format_ = frames_->format();
    maps_ = std::make_unique<DisparityMaps>(in.disparity, count_);
    const DisparityMap first = maps_->Load(0);
    CheckDisparityFits(first, size_, maps_->File(0));
    disparity_size_ = {first.samples.width, first.samples.height};
    default_focus_ = {size_.width / 2, size_.height / 2};
    description_ = in.image + " (" + ToString(size_) + ", " + std::to_string(count_) +
                   (count_ == 1 ? " frame" : " frames") + ") with " + in.disparity.path;
  }
  std::string Name(int i) const override { return frames_->Name(i); }

 protected:
  ViewFrame Load(int i) override {
    // Raw sequences read forward only: start again for an earlier frame.
    if (frames_->is_raw() && i < next_) Reopen();
    if (frames_->is_raw()) {
      while (next_ < i) frames_->Read(next_++);
      ++next_;
    }
    ViewFrame frame;
    frame.yuv = frames_->Read(i);
    frame.disparity = maps_->Load(i, &disparity_size_);
    frame.disparity_frame = BuildDisparityFrame(frame.disparity);
    return frame;
  }

 private:
  void Reopen() {
    frames_.reset();
    frames_ = std::make_unique<FrameSource>(inputs_.image, inputs_.raw_size, inputs_.raw_format);
    next_ = 0;
  }

  FileInputs inputs_;
  std::unique_ptr<FrameSource> frames_;
  int next_ = 0;  // next frame a raw source reads
  std::unique_ptr<DisparityMaps> maps_;
};

class DumpSource : public ViewSource {
 public:
  DumpSource(const std::string &dir, int *skipped) {
    *skipped = 0;
    for (const auto &entry : FindDumps(dir)) {
      const DumpSet &set = entry.second;
      if (set.imagein.empty() || set.weightin.empty()) continue;
      if (!sets_.empty() && set.size != sets_[0].size) {
        ++*skipped;
        continue;
      }
      CheckFrameSize(set.size, set.imagein);
      sets_.push_back(set);
    }
    if (sets_.empty()) {
      throw InputError("--dumps: no pair of imagein_<W>x<H>_<stamp>.img and weightin dumps in '" + dir + "'");
    }
    kind_ = SourceKind::kDumps;
    size_ = sets_[0].size;
    count_ = static_cast<int>(sets_.size());
    default_focus_ = {size_.width / 2, size_.height / 2};
    description_ = "dumps in " + dir + " (" + ToString(size_) + ", " + std::to_string(count_) +
                   (count_ == 1 ? " frame)" : " frames)");
  }
  std::string Name(int i) const override {
    const DumpSet &set = sets_[static_cast<size_t>(i)];
    return ToString(set.size) + "_" + set.stamp;
  }

 protected:
  ViewFrame Load(int i) override {
    const DumpSet &set = sets_[static_cast<size_t>(i)];
    ViewFrame frame;
    frame.yuv = YuvFrame(size_);
    frame.yuv.data = ReadDumpBytes(set.imagein, YuvFrame::FrameBytes(size_));
    frame.weights = ReadDumpWeights(set.weightin, size_);
    return frame;
  }

 private:
  std::vector<DumpSet> sets_;
};

}  // namespace

const char *SourceKindName(SourceKind kind) {
  switch (kind) {
    case SourceKind::kDemo: return "demo";
    case SourceKind::kFiles: return "files";
    case SourceKind::kDumps: return "dumps";
  }
  return "?";
}

std::shared_ptr<const ViewFrame> ViewSource::Frame(int i) {
  if (i < 0 || i >= count_) throw std::out_of_range("frame index");
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto it = cache_.begin(); it != cache_.end(); ++it) {
    if (it->first == i) {
      cache_.splice(cache_.begin(), cache_, it);
      return cache_.front().second;
    }
  }
  auto frame = std::make_shared<const ViewFrame>(Load(i));
  cache_.emplace_front(i, frame);
  if (cache_.size() > kCachedFrames) cache_.pop_back();
  return frame;
}

std::unique_ptr<ViewSource> MakeDemoSource(Size size) { return std::make_unique<DemoSource>(size); }

std::unique_ptr<ViewSource> MakeFileSource(const FileInputs &inputs) {
  if (inputs.image.empty()) throw InputError("--image: required with --disparity");
  if (inputs.disparity.path.empty()) throw InputError("--disparity: required with --image");
  return std::make_unique<FileSource>(inputs);
}

std::unique_ptr<ViewSource> MakeDumpSource(const std::string &dir, int *skipped) {
  return std::make_unique<DumpSource>(dir, skipped);
}

}  // namespace pbtool
