#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "platform/property.h"
#include "platform/test_hooks.h"

namespace pb {
namespace {

// Longest property name whose environment variable is looked up; longer
// names read as unset unless set in-process.
constexpr size_t kMaxEnvName = 255;

std::mutex g_mutex;
// Values set in-process. The transparent comparator lets a lookup compare the
// keys with the caller's C string instead of building a std::string.
std::map<std::string, std::string, std::less<>> *g_store = nullptr;

// Writes the environment variable name of a property into env[kMaxEnvName + 1]:
// NAME upper-cased, every other character than a letter or digit turned into
// '_'. False when the name is too long.
bool EnvName(const char *name, char *env) {
  size_t n = 0;
  for (const char *p = name; *p; ++p, ++n) {
    if (n == kMaxEnvName) return false;
    const unsigned char c = static_cast<unsigned char>(*p);
    env[n] = std::isalnum(c) ? static_cast<char>(std::toupper(c)) : '_';
  }
  env[n] = '\0';
  return true;
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
  char env_name[kMaxEnvName + 1];
  const char *env = EnvName(name, env_name) ? std::getenv(env_name) : nullptr;
  return CopyValue(env ? env : "", value);
}

int SetProperty(const char *name, const char *value) {
  if (std::strlen(value) >= static_cast<size_t>(kPropValueMax)) return -1;
  std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_store) g_store = new std::map<std::string, std::string, std::less<>>();
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
