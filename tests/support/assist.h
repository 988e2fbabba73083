// Access to the host assist library from tests, and graphic-buffer frames.
#ifndef PREVIEWBOKEH_TESTS_SUPPORT_ASSIST_H_
#define PREVIEWBOKEH_TESTS_SUPPORT_ASSIST_H_

#include <cstddef>
#include <cstdint>

#include "host_assist_client.h"

namespace pbtest {

using pbassist::Assist;
using pbassist::HostAssist;

// A YUV 4:2:0 semi-planar frame in a host graphic buffer.
class GraphicFrame {
 public:
  GraphicFrame(int width, int height);
  ~GraphicFrame();
  GraphicFrame(const GraphicFrame &) = delete;
  GraphicFrame &operator=(const GraphicFrame &) = delete;

  void *buffer() const { return buffer_; }
  uint8_t *data() const;
  size_t size() const { return size_; }

 private:
  void *buffer_;
  size_t size_;
};

}  // namespace pbtest

#endif  // PREVIEWBOKEH_TESTS_SUPPORT_ASSIST_H_
