#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

#include "platform/property.h"
#include "platform/test_hooks.h"

namespace pb {
namespace {

std::mutex g_mutex;
std::map<std::string, std::string> *g_store = nullptr;  // values set in-process

std::string EnvName(const char *name) {
  std::string env;
  for (const char *p = name; *p; ++p) {
    const unsigned char c = static_cast<unsigned char>(*p);
    env += std::isalnum(c) ? static_cast<char>(std::toupper(c)) : '_';
  }
  return env;
}

int CopyValue(const char *from, char *value) {
  const size_t n = std::min(std::strlen(from), static_cast<size_t>(kPropValueMax - 1));
  std::memcpy(value, from, n);
  value[n] = '\0';
  return static_cast<int>(n);
}

}  // namespace

int GetProperty(const char *name, char *value) {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_store) {
      auto it = g_store->find(name);
      if (it != g_store->end()) return CopyValue(it->second.c_str(), value);
    }
  }
  const char *env = std::getenv(EnvName(name).c_str());
  return CopyValue(env ? env : "", value);
}

int SetProperty(const char *name, const char *value) {
  if (std::strlen(value) >= static_cast<size_t>(kPropValueMax)) return -1;
  std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_store) g_store = new std::map<std::string, std::string>();
  (*g_store)[name] = value;
  return 0;
}

namespace hooks {
void ResetProperties() {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_store) g_store->clear();
}
}  // namespace hooks

}  // namespace pb
