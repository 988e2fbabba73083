#include "image_io.h"

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <new>

#include <png.h>
// jpeglib.h needs FILE and size_t declared first.
#include <jpeglib.h>

#include "cli.h"
#include "errors.h"

namespace pbtool {

std::vector<uint8_t> ReadFileBytes(const std::string &path) {
  std::FILE *f = std::fopen(path.c_str(), "rb");
  if (!f) throw InputError(path + ": cannot open: " + std::strerror(errno));
  std::vector<uint8_t> bytes;
  uint8_t chunk[1 << 16];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes.insert(bytes.end(), chunk, chunk + n);
  const bool failed = std::ferror(f) != 0;
  const int err = errno;
  std::fclose(f);
  if (failed) throw InputError(path + ": cannot read: " + std::strerror(err));
  return bytes;
}

void WriteFileBytes(const std::string &path, const void *data, size_t bytes) {
  std::FILE *f = std::fopen(path.c_str(), "wb");
  if (!f) throw InputError(path + ": cannot create: " + std::strerror(errno));
  const size_t written = std::fwrite(data, 1, bytes, f);
  const int err = errno;
  if (std::fclose(f) != 0 || written != bytes) {
    throw InputError(path + ": cannot write: " + std::strerror(err));
  }
}

bool LooksLikePng(const std::vector<uint8_t> &bytes) {
  return bytes.size() >= 8 && png_sig_cmp(bytes.data(), 0, 8) == 0;
}

bool LooksLikeJpeg(const std::vector<uint8_t> &bytes) {
  return bytes.size() >= 3 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[2] == 0xFF;
}

namespace {

void CheckDecodedSize(int width, int height, const std::string &name) {
  if (width <= 0 || height <= 0 || width > kMaxFrameSide || height > kMaxFrameSide) {
    throw InputError(name + ": image size " + std::to_string(width) + "x" +
                     std::to_string(height) + " is outside 1.." + std::to_string(kMaxFrameSide) +
                     " pixels per side");
  }
}

Image DecodePng(const std::vector<uint8_t> &bytes, int channels, const std::string &name) {
  png_image png;
  std::memset(&png, 0, sizeof png);
  png.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_memory(&png, bytes.data(), bytes.size())) {
    throw InputError(name + ": not a readable PNG (" + png.message + ")");
  }
  if (channels == 1) {
    if (png.format & PNG_FORMAT_FLAG_COLOR) {
      png_image_free(&png);
      throw InputError(name + ": colour PNG; a disparity map must be 8-bit greyscale");
    }
    if (png.format & PNG_FORMAT_FLAG_LINEAR) {
      png_image_free(&png);
      throw InputError(name + ": 16-bit PNG; a disparity map must be 8-bit greyscale");
    }
  }
  const int width = static_cast<int>(png.width);
  const int height = static_cast<int>(png.height);
  try {
    CheckDecodedSize(width, height, name);
  } catch (...) {
    png_image_free(&png);
    throw;
  }
  png.format = channels == 1 ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB;
  Image image(width, height, channels);
  if (!png_image_finish_read(&png, nullptr, image.pixels.data(), 0, nullptr)) {
    const std::string message = png.message;
    png_image_free(&png);
    throw InputError(name + ": damaged PNG (" + message + ")");
  }
  return image;
}

// libjpeg reports fatal errors through error_exit, which must not return:
// it jumps back to the decode call with the formatted message.
struct JpegError {
  jpeg_error_mgr mgr;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
  char warning[JMSG_LENGTH_MAX];  // the first corrupt-data warning, if any
};

void JpegErrorExit(j_common_ptr cinfo) {
  auto *err = reinterpret_cast<JpegError *>(cinfo->err);
  (*cinfo->err->format_message)(cinfo, err->message);
  std::longjmp(err->jump, 1);
}

// Warnings (level -1) mean corrupt or truncated data; keep the first so the
// decode can be refused instead of returning a partly grey picture.
void JpegWarning(j_common_ptr cinfo, int level) {
  auto *err = reinterpret_cast<JpegError *>(cinfo->err);
  if (level >= 0) return;
  if (err->mgr.num_warnings++ == 0) (*cinfo->err->format_message)(cinfo, err->warning);
}

// Sends the decoder's errors and warnings to `err` (setjmp stays with the caller).
void UseJpegError(jpeg_decompress_struct *cinfo, JpegError *err) {
  cinfo->err = jpeg_std_error(&err->mgr);
  err->mgr.error_exit = JpegErrorExit;
  err->mgr.emit_message = JpegWarning;
  err->message[0] = '\0';
  err->warning[0] = '\0';
}

// Only trivially destructible locals live between setjmp and the libjpeg calls
// that may jump back; the image buffer is sized before setjmp.
bool DecodeJpegInto(const std::vector<uint8_t> &bytes, int channels, Image *image,
                    std::string *error) {
  jpeg_decompress_struct cinfo;
  JpegError err;
  UseJpegError(&cinfo, &err);
  if (setjmp(err.jump)) {
    jpeg_destroy_decompress(&cinfo);
    *error = err.message;
    return false;
  }
  jpeg_create_decompress(&cinfo);
  jpeg_mem_src(&cinfo, bytes.data(), static_cast<unsigned long>(bytes.size()));
  jpeg_read_header(&cinfo, TRUE);
  if (channels == 1 && cinfo.jpeg_color_space != JCS_GRAYSCALE) {
    jpeg_destroy_decompress(&cinfo);
    *error = "colour JPEG; a disparity map must be 8-bit greyscale";
    return false;
  }
  cinfo.out_color_space = channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
  const int width = static_cast<int>(cinfo.image_width);
  const int height = static_cast<int>(cinfo.image_height);
  if (width <= 0 || height <= 0 || width > kMaxFrameSide || height > kMaxFrameSide) {
    jpeg_destroy_decompress(&cinfo);
    *error = "image size " + std::to_string(width) + "x" + std::to_string(height) +
             " is outside 1.." + std::to_string(kMaxFrameSide) + " pixels per side";
    return false;
  }
  image->width = width;
  image->height = height;
  image->channels = channels;
  image->pixels.assign(static_cast<size_t>(width) * height * channels, 0);
  jpeg_start_decompress(&cinfo);
  while (cinfo.output_scanline < cinfo.output_height) {
    JSAMPROW row = image->Row(static_cast<int>(cinfo.output_scanline));
    jpeg_read_scanlines(&cinfo, &row, 1);
  }
  jpeg_finish_decompress(&cinfo);
  jpeg_destroy_decompress(&cinfo);
  if (err.mgr.num_warnings > 0) {
    *error = err.warning;
    return false;
  }
  return true;
}

// Reads the JPEG header only; same error handling as DecodeJpegInto.
bool ReadJpegSize(const std::vector<uint8_t> &bytes, int *width, int *height, std::string *error) {
  jpeg_decompress_struct cinfo;
  JpegError err;
  UseJpegError(&cinfo, &err);
  if (setjmp(err.jump)) {
    jpeg_destroy_decompress(&cinfo);
    *error = err.message;
    return false;
  }
  jpeg_create_decompress(&cinfo);
  jpeg_mem_src(&cinfo, bytes.data(), static_cast<unsigned long>(bytes.size()));
  jpeg_read_header(&cinfo, TRUE);
  *width = static_cast<int>(cinfo.image_width);
  *height = static_cast<int>(cinfo.image_height);
  jpeg_destroy_decompress(&cinfo);
  return true;
}

}  // namespace

void ReadImageSize(const std::string &path, int *width, int *height) {
  const std::vector<uint8_t> bytes = ReadFileBytes(path);
  if (LooksLikePng(bytes)) {
    png_image png;
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&png, bytes.data(), bytes.size())) {
      throw InputError(path + ": not a readable PNG (" + png.message + ")");
    }
    *width = static_cast<int>(png.width);
    *height = static_cast<int>(png.height);
    png_image_free(&png);
    return;
  }
  if (LooksLikeJpeg(bytes)) {
    std::string error;
    if (!ReadJpegSize(bytes, width, height, &error)) {
      throw InputError(path + ": cannot decode JPEG (" + error + ")");
    }
    return;
  }
  throw InputError(path + ": not a PNG or JPEG image");
}

Image DecodeImage(const std::vector<uint8_t> &bytes, int channels, const std::string &name) {
  if (LooksLikePng(bytes)) return DecodePng(bytes, channels, name);
  if (LooksLikeJpeg(bytes)) {
    Image image;
    std::string error;
    if (!DecodeJpegInto(bytes, channels, &image, &error)) {
      throw InputError(name + ": cannot decode JPEG (" + error + ")");
    }
    return image;
  }
  throw InputError(name + ": not a PNG or JPEG image");
}

Image ReadImage(const std::string &path, int channels) {
  return DecodeImage(ReadFileBytes(path), channels, path);
}

void WritePng(const std::string &path, const Image &image) {
  png_image png;
  std::memset(&png, 0, sizeof png);
  png.version = PNG_IMAGE_VERSION;
  png.width = static_cast<png_uint_32>(image.width);
  png.height = static_cast<png_uint_32>(image.height);
  png.format = image.channels == 1 ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB;
  png.flags = PNG_IMAGE_FLAG_FAST;
  if (!png_image_write_to_file(&png, path.c_str(), 0, image.pixels.data(), 0, nullptr)) {
    throw InputError(path + ": cannot write PNG (" + png.message + ")");
  }
}

void WriteJpeg(const std::string &path, const Image &image, int quality) {
  std::vector<uint8_t> bytes;
  try {
    bytes = EncodeJpeg(image, quality);
  } catch (const InputError &e) {
    throw InputError(path + ": " + e.what());
  }
  WriteFileBytes(path, bytes.data(), bytes.size());
}

void WriteImage(const std::string &path, const Image &image, int jpeg_quality) {
  const std::string ext = LowerExtension(path);
  if (ext == ".png") {
    WritePng(path, image);
  } else if (ext == ".jpg" || ext == ".jpeg") {
    WriteJpeg(path, image, jpeg_quality);
  } else {
    throw InputError(path + ": unknown image extension '" + ext + "' (use .png or .jpg)");
  }
}

}  // namespace pbtool

namespace pbtool {
namespace {

void AppendPngBytes(png_structp png, png_bytep data, png_size_t length) {
  auto *out = static_cast<std::vector<uint8_t> *>(png_get_io_ptr(png));
  out->insert(out->end(), data, data + length);
}

void FlushPngBytes(png_structp) {}

// The same rule as for decoding: between setjmp and the libjpeg calls only
// trivially destructible locals; the result pointer lives in `err`.
struct JpegMemoryError {
  jpeg_error_mgr mgr;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
  unsigned char *out = nullptr;
  unsigned long out_size = 0;
};

void JpegMemoryErrorExit(j_common_ptr cinfo) {
  auto *err = reinterpret_cast<JpegMemoryError *>(cinfo->err);
  (*cinfo->err->format_message)(cinfo, err->message);
  std::longjmp(err->jump, 1);
}

bool EncodeJpegMemory(const Image &image, int quality, JpegMemoryError *err) {
  jpeg_compress_struct cinfo;
  cinfo.err = jpeg_std_error(&err->mgr);
  err->mgr.error_exit = JpegMemoryErrorExit;
  err->message[0] = '\0';
  if (setjmp(err->jump)) {
    jpeg_destroy_compress(&cinfo);
    return false;
  }
  jpeg_create_compress(&cinfo);
  jpeg_mem_dest(&cinfo, &err->out, &err->out_size);
  cinfo.image_width = static_cast<JDIMENSION>(image.width);
  cinfo.image_height = static_cast<JDIMENSION>(image.height);
  cinfo.input_components = image.channels;
  cinfo.in_color_space = image.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&cinfo);
  jpeg_set_quality(&cinfo, quality, TRUE);
  jpeg_start_compress(&cinfo, TRUE);
  while (cinfo.next_scanline < cinfo.image_height) {
    JSAMPROW row = const_cast<uint8_t *>(image.Row(static_cast<int>(cinfo.next_scanline)));
    jpeg_write_scanlines(&cinfo, &row, 1);
  }
  jpeg_finish_compress(&cinfo);
  jpeg_destroy_compress(&cinfo);
  return true;
}

}  // namespace

std::vector<uint8_t> EncodePng(const Image &image, int level) {
  std::vector<uint8_t> out;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  if (!png) throw std::bad_alloc();
  png_infop info = png_create_info_struct(png);
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    throw std::bad_alloc();
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    throw InputError("cannot encode a " + std::to_string(image.width) + "x" +
                     std::to_string(image.height) + " PNG");
  }
  png_set_write_fn(png, &out, AppendPngBytes, FlushPngBytes);
  png_set_compression_level(png, level < 0 ? 0 : level > 9 ? 9 : level);
  if (level <= 1) png_set_filter(png, PNG_FILTER_TYPE_BASE, level == 0 ? PNG_FILTER_NONE : PNG_FILTER_SUB);
  png_set_IHDR(png, info, static_cast<png_uint_32>(image.width), static_cast<png_uint_32>(image.height), 8,
               image.channels == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_BASE, PNG_FILTER_TYPE_BASE);
  png_write_info(png, info);
  for (int y = 0; y < image.height; ++y) png_write_row(png, const_cast<uint8_t *>(image.Row(y)));
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return out;
}

std::vector<uint8_t> EncodeJpeg(const Image &image, int quality) {
  JpegMemoryError err;
  const bool ok = EncodeJpegMemory(image, quality, &err);
  std::vector<uint8_t> out;
  if (ok) out.assign(err.out, err.out + err.out_size);
  std::free(err.out);
  if (!ok) throw InputError(std::string("cannot encode JPEG (") + err.message + ")");
  return out;
}

}  // namespace pbtool
