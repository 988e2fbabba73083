// Hooks for tests, reachable through the internal static library only (the
// shared library exports none of them).
#ifndef PREVIEWBOKEH_PLATFORM_TEST_HOOKS_H_
#define PREVIEWBOKEH_PLATFORM_TEST_HOOKS_H_

#include <string>
#include <vector>

namespace pb {
namespace hooks {

// Makes the nth library allocation from now on fail (1 = the next one).
// 0 disarms. The failure happens once.
void FailAllocation(long nth);

// Library allocations attempted since the process started (failed ones included).
long AllocationCount();

// Library allocations that succeeded and have not been freed yet.
long LiveAllocationCount();

struct LogLine {
  int priority;
  std::string text;  // formatted message as logged, trailing newline included
};

// While capturing, log lines are recorded instead of written to the platform log.
void StartLogCapture();
// Ends capturing and returns what was recorded.
std::vector<LogLine> StopLogCapture();

// Clears the in-process property store of the host build (no effect on Android).
void ResetProperties();

}  // namespace hooks
}  // namespace pb

#endif  // PREVIEWBOKEH_PLATFORM_TEST_HOOKS_H_
