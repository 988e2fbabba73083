// Host stand-in for the platform's camera-algorithm assist library. A graphic
// buffer is a host allocation with a small header; lock returns its pixels.
// Lock and unlock calls are recorded per buffer so tests can check the order.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

#define PB_ASSIST_EXPORT extern "C" __attribute__((visibility("default")))

// Test builds may export one entry under another name (1..5 in table order),
// so that the loader finds it missing.
#if defined(PB_ASSIST_OMIT) && PB_ASSIST_OMIT == 1
#define GraphicBuffer_new Omitted_GraphicBuffer_new
#elif defined(PB_ASSIST_OMIT) && PB_ASSIST_OMIT == 2
#define GraphicBuffer_delete Omitted_GraphicBuffer_delete
#elif defined(PB_ASSIST_OMIT) && PB_ASSIST_OMIT == 3
#define GraphicBufferPointer_lock Omitted_GraphicBufferPointer_lock
#elif defined(PB_ASSIST_OMIT) && PB_ASSIST_OMIT == 4
#define GraphicBufferPointer_unlock Omitted_GraphicBufferPointer_unlock
#elif defined(PB_ASSIST_OMIT) && PB_ASSIST_OMIT == 5
#define GraphicBuffer_getPointer Omitted_GraphicBuffer_getPointer
#endif

namespace {

constexpr uint32_t kMagic = 0x47427566;  // "GBuf"

struct HostGraphicBuffer {
  uint32_t magic;
  uint32_t width;
  uint32_t height;
  uint32_t size;
  int32_t lock_count;
  uint8_t *pixels;
};

std::mutex g_mutex;

HostGraphicBuffer *Get(void *buffer) {
  auto *b = static_cast<HostGraphicBuffer *>(buffer);
  return (b && b->magic == kMagic) ? b : nullptr;
}

// The most recent lock ('L') and unlock ('U') calls of the process, oldest first.
struct Event {
  char kind;
  void *buffer;
};
constexpr int kMaxEvents = 256;
Event g_events[kMaxEvents];
int g_event_count = 0;

void Record(HostGraphicBuffer *b, char kind) {
  if (g_event_count == kMaxEvents) {
    std::memmove(g_events, g_events + 1, sizeof(Event) * (kMaxEvents - 1));
    --g_event_count;
  }
  g_events[g_event_count++] = {kind, b};
}

}  // namespace

PB_ASSIST_EXPORT void *GraphicBuffer_new(uint32_t width, uint32_t height, uint32_t size) {
  auto *b = static_cast<HostGraphicBuffer *>(std::calloc(1, sizeof(HostGraphicBuffer)));
  if (!b) return nullptr;
  b->pixels = static_cast<uint8_t *>(std::calloc(size ? size : 1, 1));
  if (!b->pixels) {
    std::free(b);
    return nullptr;
  }
  b->magic = kMagic;
  b->width = width;
  b->height = height;
  b->size = size;
  return b;
}

PB_ASSIST_EXPORT void GraphicBuffer_delete(void *buffer) {
  HostGraphicBuffer *b = Get(buffer);
  if (!b) return;
  b->magic = 0;
  std::free(b->pixels);
  std::free(b);
}

PB_ASSIST_EXPORT void *GraphicBufferPointer_lock(void *buffer) {
  HostGraphicBuffer *b = Get(buffer);
  if (!b) return nullptr;
  std::lock_guard<std::mutex> lock(g_mutex);
  ++b->lock_count;
  Record(b, 'L');
  return b->pixels;
}

PB_ASSIST_EXPORT int GraphicBufferPointer_unlock(void *buffer) {
  HostGraphicBuffer *b = Get(buffer);
  if (!b) return -1;
  std::lock_guard<std::mutex> lock(g_mutex);
  if (b->lock_count == 0) return -1;
  --b->lock_count;
  Record(b, 'U');
  return 0;
}

PB_ASSIST_EXPORT void *GraphicBuffer_getPointer(void *buffer) {
  HostGraphicBuffer *b = Get(buffer);
  return b ? b->pixels : nullptr;
}

// Host-only introspection for tests: the recorded lock/unlock calls, and the
// number of locks a buffer still holds.
PB_ASSIST_EXPORT int HostAssist_eventCount() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_event_count;
}

// Returns 'L' or 'U' for event i (0 = oldest) and its buffer; 0 when out of range.
PB_ASSIST_EXPORT char HostAssist_event(int i, void **buffer) {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (i < 0 || i >= g_event_count) return 0;
  if (buffer) *buffer = g_events[i].buffer;
  return g_events[i].kind;
}

PB_ASSIST_EXPORT void HostAssist_clearEvents() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_event_count = 0;
}

PB_ASSIST_EXPORT int HostGraphicBuffer_lockCount(void *buffer) {
  HostGraphicBuffer *b = Get(buffer);
  return b ? b->lock_count : -1;
}
