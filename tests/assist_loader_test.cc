// Loading the assist library: a missing library or a missing entry makes
// iBokehInit fail with the loader's messages, tear the handle down and close
// the library once. Each case runs in a child process that preloads the copy
// of the library under test (same soname), so the library's own dlopen by
// name resolves to it.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>

#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "previewbokeh/camalg_assist.h"

namespace {

// Runs body() in a forked child; the child's exit status is the result.
int RunInChild(const std::function<int()> &body) {
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

// Initialises a handle with the assist library of `dir` preloaded. Exit codes:
// 0 = failed as expected, logging `message`; others name the first mismatch.
int InitWithAssist(const std::string &dir, const std::string &message) {
  if (!dlopen((dir + "/libvelkcamalgassist.so").c_str(), RTLD_NOW | RTLD_GLOBAL)) return 2;
  pb::hooks::StartLogCapture();
  BokehInitParams p{};
  p.width = 64;
  p.height = 32;
  void *h = nullptr;
  const int status = iBokehInit(&h, &p);
  const auto lines = pb::hooks::StopLogCapture();
  if (status != 1) return 3;
  if (p.SmoothWinSize != 11 || p.WindowRadius != 5) return 4;
  // The missing entry's message, then "error = <loader text>", then tear-down.
  for (size_t i = 0; i + 2 < lines.size(); ++i) {
    if (lines[i].text == message) {
      if (lines[i + 1].text.rfind("error = ", 0) != 0) return 5;
      if (lines[i + 1].text.back() == '\n') return 6;
      if (lines[i + 2].text.rfind("iBokehDeinit start", 0) != 0) return 7;
      return 0;
    }
  }
  return 8;
}

// The copy "-omitN" lacks the Nth entry.
TEST(AssistLoader, MissingEntriesFailInit) {
  const char *messages[] = {"fail to dlsym GraphicBuffer_new", "fail to dlsym GraphicBuffer_delete",
                            "fail to dlsym GraphicBuffer_lock", "fail to dlsym GraphicBuffer_unlock",
                            "fail to dlsym GraphicBuffer_getNativeBuffer"};
  for (int omit = 1; omit <= 5; ++omit) {
    const std::string dir = PB_ASSIST_DIR "-omit" + std::to_string(omit), message = messages[omit - 1];
    EXPECT_EQ(RunInChild([&] { return InitWithAssist(dir, message); }), 0) << message;
  }
}

// Without any copy loaded the dlopen search decides; when it finds nothing,
// loading logs the open failure and fails.
TEST(AssistLoader, MissingLibraryFailsInit) {
  const int result = RunInChild([] {
    if (dlopen("libvelkcamalgassist.so", RTLD_NOW | RTLD_NOLOAD)) return 9;  // already there
    if (void *probe = dlopen("libvelkcamalgassist.so", RTLD_LAZY)) {
      dlclose(probe);
      return 10;  // the search path provides one: nothing to test here
    }
    camalg_assist_lib_api_t api{};
    pb::hooks::StartLogCapture();
    const int status = velk_load_caa_api(&api);
    const auto lines = pb::hooks::StopLogCapture();
    if (status != 1 || lines.size() != 1) return 3;
    return lines[0].text.rfind("open CAMALG ASSIST API failed.error = ", 0) == 0 ? 0 : 4;
  });
  if (result == 10) GTEST_SKIP() << "an assist library is on the loader's search path";
  EXPECT_EQ(result, 0);
}

}  // namespace
