#include "platform/log.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "platform/test_hooks.h"

namespace pb {
namespace {

std::mutex g_capture_mutex;
bool g_capturing = false;
std::vector<hooks::LogLine> *g_captured = nullptr;

}  // namespace

void Log(int priority, const char *format, ...) {
  char stack[512];
  va_list args;
  va_start(args, format);
  va_list copy;
  va_copy(copy, args);
  const int n = std::vsnprintf(stack, sizeof stack, format, args);
  va_end(args);
  std::string heap;
  const char *text = stack;
  if (n >= static_cast<int>(sizeof stack)) {
    heap.resize(static_cast<size_t>(n) + 1);
    std::vsnprintf(&heap[0], heap.size(), format, copy);
    text = heap.c_str();
  }
  va_end(copy);
  if (n < 0) return;
  {
    std::lock_guard<std::mutex> lock(g_capture_mutex);
    if (g_capturing) {
      g_captured->push_back({priority, text});
      return;
    }
  }
  PlatformLogWrite(priority, text);
}

namespace hooks {

void StartLogCapture() {
  std::lock_guard<std::mutex> lock(g_capture_mutex);
  if (!g_captured) g_captured = new std::vector<LogLine>();
  g_captured->clear();
  g_capturing = true;
}

std::vector<LogLine> StopLogCapture() {
  std::lock_guard<std::mutex> lock(g_capture_mutex);
  g_capturing = false;
  std::vector<LogLine> out;
  if (g_captured) out.swap(*g_captured);
  return out;
}

}  // namespace hooks
}  // namespace pb
