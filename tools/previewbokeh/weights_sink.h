// --weights-out: the weight map of every frame, colour-mapped as images or
// as raw 16-bit little-endian samples.
#ifndef PREVIEWBOKEH_TOOL_WEIGHTS_SINK_H_
#define PREVIEWBOKEH_TOOL_WEIGHTS_SINK_H_

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"

namespace pbtool {

enum class WeightsKind {
  kImage,      // one .png/.jpg (single frame)
  kRaw,        // .w16/.raw: all frames, W x H 16-bit little-endian samples each
  kDirectory,  // one colour PNG per frame, named like the frame
};

// Kind of a --weights-out path; throws InputError when it does not suit a
// single frame / a sequence.
WeightsKind ClassifyWeightsOut(const std::string &path, bool sequence);

// The file a frame's weights go to ("" for raw: all frames share the file).
std::string WeightsFileFor(const std::string &path, WeightsKind kind, const std::string &frame_name);

class WeightsSink {
 public:
  WeightsSink(const std::string &path, WeightsKind kind, Size size, int jpeg_quality);
  ~WeightsSink();
  WeightsSink(const WeightsSink &) = delete;
  WeightsSink &operator=(const WeightsSink &) = delete;

  void Write(const std::vector<uint16_t> &weights, const std::string &frame_name);
  void Finish();

 private:
  std::string path_;
  WeightsKind kind_;
  Size size_;
  int jpeg_quality_;
  std::FILE *raw_ = nullptr;
};

// Little-endian bytes of 16-bit samples.
std::vector<uint8_t> WeightsToLittleEndian(const std::vector<uint16_t> &weights);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_WEIGHTS_SINK_H_
