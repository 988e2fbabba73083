// Reading and writing images (PNG, JPEG) and whole files.
#ifndef PREVIEWBOKEH_TOOL_IMAGE_IO_H_
#define PREVIEWBOKEH_TOOL_IMAGE_IO_H_

#include <cstdint>
#include <string>
#include <vector>

namespace pbtool {

// 8-bit interleaved pixels, rows packed: 1 channel (grey) or 3 (R, G, B).
struct Image {
  int width = 0;
  int height = 0;
  int channels = 0;
  std::vector<uint8_t> pixels;

  Image() = default;
  Image(int w, int h, int c)
      : width(w), height(h), channels(c), pixels(static_cast<size_t>(w) * h * c) {}
  uint8_t *Row(int y) { return pixels.data() + static_cast<size_t>(y) * width * channels; }
  const uint8_t *Row(int y) const {
    return pixels.data() + static_cast<size_t>(y) * width * channels;
  }
};

// Whole-file I/O; errors throw InputError naming the file.
std::vector<uint8_t> ReadFileBytes(const std::string &path);
void WriteFileBytes(const std::string &path, const void *data, size_t bytes);

bool LooksLikePng(const std::vector<uint8_t> &bytes);
bool LooksLikeJpeg(const std::vector<uint8_t> &bytes);

// Decodes PNG or JPEG data (by signature). channels = 3 gives RGB (grey input
// is expanded); channels = 1 gives grey and rejects colour input, so a depth
// map is never silently mixed from colour channels. `name` is used in errors.
Image DecodeImage(const std::vector<uint8_t> &bytes, int channels, const std::string &name);

// ReadFileBytes + DecodeImage.
Image ReadImage(const std::string &path, int channels);

// Width and height of a PNG or JPEG file from its header, without decoding
// the pixels; throws InputError naming the file when it is neither.
void ReadImageSize(const std::string &path, int *width, int *height);

// JPEG quality of written .jpg files unless --jpeg-quality says otherwise.
constexpr int kDefaultJpegQuality = 90;

// Writes by extension: ".png", ".jpg"/".jpeg". Grey or RGB.
void WriteImage(const std::string &path, const Image &image, int jpeg_quality = kDefaultJpegQuality);
void WritePng(const std::string &path, const Image &image);
void WriteJpeg(const std::string &path, const Image &image, int quality);

// Encodes into memory. `level` is the zlib level 0..9; level 1 uses only the
// cheap Sub filter and level 0 none, for pictures sent while someone waits.
std::vector<uint8_t> EncodePng(const Image &image, int level);
std::vector<uint8_t> EncodeJpeg(const Image &image, int quality);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_IMAGE_IO_H_
