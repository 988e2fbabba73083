#include "interrupt.h"

#include <csignal>

namespace pbtool {
namespace {

volatile std::sig_atomic_t g_requested = 0;
struct sigaction g_old_int, g_old_term;

extern "C" void OnInterrupt(int) { g_requested = 1; }

}  // namespace

InterruptScope::InterruptScope() {
  g_requested = 0;
  struct sigaction sa {};
  sa.sa_handler = OnInterrupt;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_RESTART;  // file writes in progress complete
  sigaction(SIGINT, &sa, &g_old_int);
  sigaction(SIGTERM, &sa, &g_old_term);
}

InterruptScope::~InterruptScope() {
  sigaction(SIGINT, &g_old_int, nullptr);
  sigaction(SIGTERM, &g_old_term, nullptr);
}

bool InterruptScope::Requested() { return g_requested != 0; }

}  // namespace pbtool
