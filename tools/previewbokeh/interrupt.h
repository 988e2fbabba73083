// Ctrl-C (SIGINT) and SIGTERM during a sequence: the handler only records
// the request; the frame loop stops after the frame in progress.
#ifndef PREVIEWBOKEH_TOOL_INTERRUPT_H_
#define PREVIEWBOKEH_TOOL_INTERRUPT_H_

namespace pbtool {

// Exit status of a run stopped by SIGINT or SIGTERM (128 + SIGINT, as shells report it).
constexpr int kExitInterrupted = 130;

// Installs the handlers while it lives and restores the previous ones after.
class InterruptScope {
 public:
  InterruptScope();
  ~InterruptScope();
  InterruptScope(const InterruptScope &) = delete;
  InterruptScope &operator=(const InterruptScope &) = delete;

  // True once SIGINT or SIGTERM arrived.
  static bool Requested();
};

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_INTERRUPT_H_
