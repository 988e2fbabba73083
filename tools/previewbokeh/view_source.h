// What the viewer shows: the demo scene, frames with disparity maps (the
// inputs of render), or recorded dumps; frames loaded on demand and cached.
#ifndef PREVIEWBOKEH_TOOL_VIEW_SOURCE_H_
#define PREVIEWBOKEH_TOOL_VIEW_SOURCE_H_

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "cli.h"
#include "disparity.h"
#include "inputs.h"
#include "yuv.h"

namespace pbtool {

enum class SourceKind { kDemo, kFiles, kDumps };
const char *SourceKindName(SourceKind kind);

// One frame ready to render: the picture and either a disparity map (for the
// weight engine) or weights recorded by the library.
struct ViewFrame {
  YuvFrame yuv;
  DisparityMap disparity;                // kDemo, kFiles
  std::vector<uint8_t> disparity_frame;  // header + samples, for the weight engine
  std::vector<uint16_t> weights;         // kDumps: as recorded
};

class ViewSource {
 public:
  virtual ~ViewSource() = default;

  SourceKind kind() const { return kind_; }
  Size size() const { return size_; }
  int count() const { return count_; }
  YuvFormat format() const { return format_; }  // chroma order for display
  Size disparity_size() const { return disparity_size_; }  // 0x0 for dumps
  Point default_focus() const { return default_focus_; }
  const std::string &description() const { return description_; }
  virtual std::string Name(int i) const = 0;

  // Frame i (0 <= i < count()); a few recent frames stay cached. Thread-safe.
  std::shared_ptr<const ViewFrame> Frame(int i);

 protected:
  virtual ViewFrame Load(int i) = 0;  // called with the lock held

  SourceKind kind_ = SourceKind::kDemo;
  Size size_;
  int count_ = 0;
  YuvFormat format_ = YuvFormat::kNV21;
  Size disparity_size_;
  Point default_focus_;
  std::string description_;

 private:
  std::mutex mutex_;
  std::list<std::pair<int, std::shared_ptr<const ViewFrame>>> cache_;  // most recent first
};

// The demo scene at `size`, focused on its subject.
std::unique_ptr<ViewSource> MakeDemoSource(Size size);

// render's inputs: --image (file, raw sequence or directory) with --disparity
// (one map, or a directory with one map per frame). Everything is checked here.
struct FileInputs {
  std::string image, raw_size, raw_format;
  DisparityOptions disparity;
};
std::unique_ptr<ViewSource> MakeFileSource(const FileInputs &inputs);

// imagein + weightin dumps of a directory (those of the first frame's size;
// `skipped` counts the others).
std::unique_ptr<ViewSource> MakeDumpSource(const std::string &dir, int *skipped);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_VIEW_SOURCE_H_
