#include "support/assist.h"

#include <cstdlib>

namespace pbtest {

GraphicFrame::GraphicFrame(int width, int height)
    : buffer_(nullptr), size_(static_cast<size_t>(width) * height * 3 / 2) {
  buffer_ = Assist().create(static_cast<uint32_t>(width), static_cast<uint32_t>(height),
                            static_cast<uint32_t>(size_));
  if (!buffer_) std::abort();
}

GraphicFrame::~GraphicFrame() { Assist().destroy(buffer_); }

uint8_t *GraphicFrame::data() const { return static_cast<uint8_t *>(Assist().pointer(buffer_)); }

}  // namespace pbtest
