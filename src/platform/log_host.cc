#include <cstdio>
#include <cstring>

#include "platform/log.h"

namespace pb {

void PlatformLogWrite(int priority, const char *message) {
  static const char kLetters[] = "??VDIWEF";
  static const char kTag[] = "/PreviewBokeh: ";
  constexpr size_t kTagLength = sizeof kTag - 1;
  const char letter = (priority >= 2 && priority <= 7) ? kLetters[priority] : '?';
  size_t len = std::strlen(message);
  if (len > 0 && message[len - 1] == '\n') --len;  // one trailing newline only

  // The line is assembled on the stack and written at once, so that lines of
  // concurrent callers do not interleave.
  char line[1024];
  if (1 + kTagLength + len + 1 <= sizeof line) {
    line[0] = letter;
    std::memcpy(line + 1, kTag, kTagLength);
    std::memcpy(line + 1 + kTagLength, message, len);
    line[1 + kTagLength + len] = '\n';
    std::fwrite(line, 1, 1 + kTagLength + len + 1, stderr);
    return;
  }
  // A longer line is written in pieces under the stream's lock, which keeps
  // other writers of the stream from cutting in.
  flockfile(stderr);
  std::fputc(letter, stderr);
  std::fwrite(kTag, 1, kTagLength, stderr);
  std::fwrite(message, 1, len, stderr);
  std::fputc('\n', stderr);
  funlockfile(stderr);
}

}  // namespace pb
