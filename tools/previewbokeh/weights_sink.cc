#include "weights_sink.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "errors.h"
#include "image_io.h"
#include "visual.h"

namespace fs = std::filesystem;

namespace pbtool {

WeightsKind ClassifyWeightsOut(const std::string &path, bool sequence) {
  const std::string ext = LowerExtension(path);
  if (ext == ".w16" || ext == ".raw") return WeightsKind::kRaw;
  if (ext == ".png" || ext == ".jpg" || ext == ".jpeg") {
    if (sequence) {
      throw InputError("--weights-out: '" + path +
                       "' is one image, but the input is a sequence: give a directory or a "
                       ".w16/.raw file");
    }
    return WeightsKind::kImage;
  }
  if (!sequence) {
    throw InputError("--weights-out: '" + path + "' has no known extension (.png, .jpg, .w16, .raw)");
  }
  return WeightsKind::kDirectory;
}

std::string WeightsFileFor(const std::string &path, WeightsKind kind, const std::string &frame_name) {
  if (kind == WeightsKind::kDirectory) return (fs::path(path) / (frame_name + ".png")).string();
  return kind == WeightsKind::kImage ? path : "";
}

std::vector<uint8_t> WeightsToLittleEndian(const std::vector<uint16_t> &weights) {
  std::vector<uint8_t> bytes(weights.size() * 2);
  for (size_t i = 0; i < weights.size(); ++i) {
    bytes[2 * i] = static_cast<uint8_t>(weights[i]);
    bytes[2 * i + 1] = static_cast<uint8_t>(weights[i] >> 8);
  }
  return bytes;
}

WeightsSink::WeightsSink(const std::string &path, WeightsKind kind, Size size, int jpeg_quality)
    : path_(path), kind_(kind), size_(size), jpeg_quality_(jpeg_quality) {
  if (kind == WeightsKind::kRaw) {
    raw_ = std::fopen(path.c_str(), "wb");
    if (!raw_) throw InputError("--weights-out: cannot create '" + path + "': " + std::strerror(errno));
  } else if (kind == WeightsKind::kDirectory) {
    std::error_code ec;
    fs::create_directories(path, ec);
    if (ec || !fs::is_directory(path)) {
      throw InputError("--weights-out: cannot create directory '" + path + "'");
    }
  }
}

WeightsSink::~WeightsSink() {
  if (raw_) std::fclose(raw_);
}

void WeightsSink::Write(const std::vector<uint16_t> &weights, const std::string &frame_name) {
  if (kind_ == WeightsKind::kRaw) {
    const std::vector<uint8_t> bytes = WeightsToLittleEndian(weights);
    if (std::fwrite(bytes.data(), 1, bytes.size(), raw_) != bytes.size()) {
      throw InputError("--weights-out: cannot write '" + path_ + "'");
    }
    return;
  }
  const std::string file = WeightsFileFor(path_, kind_, frame_name);
  WriteImage(file, ColourMapWeights(weights.data(), size_), jpeg_quality_);
}

void WeightsSink::Finish() {
  if (!raw_) return;
  const bool ok = std::fclose(raw_) == 0;
  raw_ = nullptr;
  if (!ok) throw InputError("--weights-out: cannot write '" + path_ + "'");
}

}  // namespace pbtool
