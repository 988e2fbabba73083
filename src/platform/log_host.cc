#include <cstdio>
#include <cstring>
#include <string>

#include "platform/log.h"

namespace pb {

void PlatformLogWrite(int priority, const char *message) {
  static const char kLetters[] = "??VDIWEF";
  const char letter = (priority >= 2 && priority <= 7) ? kLetters[priority] : '?';
  size_t len = std::strlen(message);
  if (len > 0 && message[len - 1] == '\n') --len;  // one trailing newline only
  std::string line;
  line.reserve(len + 18);
  line += letter;
  line += "/PreviewBokeh: ";
  line.append(message, len);
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);  // one write per line
}

}  // namespace pb
