#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <numeric>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "platform/test_hooks.h"
#include "pool/thread_pool.h"
#include "pool/thread_pool_internal.h"

namespace pb {
namespace {

ThreadPool *const kUntouched = reinterpret_cast<ThreadPool *>(uintptr_t{0x5a5a});

// Disarms the injected thread failures however a test ends.
struct HookGuard {
  ~HookGuard() {
    hooks::FailThreadCreate(0, 0);
    hooks::FailThreadJoin(0, 0);
    hooks::FailAllocation(0);
  }
};

std::vector<std::string> CapturedTexts() {
  std::vector<std::string> texts;
  for (const hooks::LogLine &line : hooks::StopLogCapture()) {
    EXPECT_EQ(line.priority, 3) << line.text;
    texts.push_back(line.text);
  }
  return texts;
}

std::string CreateFailure(int error) {
  return std::string("can't create thread: ") + std::strerror(error) + "\n";
}

// Jobs that record the order in which they ran, then count as completed.
struct Recorder {
  ThreadPool *pool;
  std::mutex mu;
  std::vector<int> order;
  std::vector<pthread_t> threads;
};
struct RecordJob {
  Recorder *recorder;
  int id;
};
void *Record(void *arg) {
  auto *job = static_cast<RecordJob *>(arg);
  {
    std::lock_guard<std::mutex> lock(job->recorder->mu);
    job->recorder->order.push_back(job->id);
    job->recorder->threads.push_back(pthread_self());
  }
  PoolSignalCompletion(job->recorder->pool);
  return nullptr;
}

// Holds every job that enters it until opened.
struct Gate {
  std::mutex mu;
  std::condition_variable cv;
  int entered = 0;
  bool open = false;
};
void *Hold(void *arg) {
  auto *gate = static_cast<Gate *>(arg);
  std::unique_lock<std::mutex> lock(gate->mu);
  gate->entered++;
  gate->cv.notify_all();
  gate->cv.wait(lock, [gate] { return gate->open; });
  return nullptr;
}

struct CreateCase {
  const char *name;
  int32_t threads;
  uint32_t fail_mask;  // threads whose creation fails
  int error;
  int result;
  bool single_runner;  // exactly one thread runs, so jobs run in queue order
};

void PrintTo(const CreateCase &c, std::ostream *os) { *os << c.name; }

class PoolCreateTest : public testing::TestWithParam<CreateCase> {};

TEST_P(PoolCreateTest, StartsWhatItCanAndRunsEveryJob) {
  const CreateCase &c = GetParam();
  HookGuard guard;
  hooks::FailThreadCreate(c.fail_mask, c.error);
  std::vector<std::string> expected_log;
  for (int32_t i = 0; i < c.threads; ++i)
    if (c.fail_mask >> i & 1u) expected_log.push_back(CreateFailure(c.error));
  if (c.result != 0) expected_log.push_back("all LTM thread create failed.\n");

  ThreadPool *pool = kUntouched;
  hooks::StartLogCapture();
  ASSERT_EQ(PoolCreate(&pool, c.threads), c.result);
  EXPECT_EQ(CapturedTexts(), expected_log);
  EXPECT_NE(pool, kUntouched);  // set even when the pool was freed again
  if (c.result != 0) return;

  for (int32_t i = 0; i < c.threads; ++i)
    EXPECT_EQ(pool->thread_creatflag[i], (c.fail_mask >> i & 1u) ? 0 : 1) << i;
  constexpr int kJobs = 40;
  Recorder recorder{pool, {}, {}, {}};
  std::vector<RecordJob> jobs(kJobs);
  PoolResetCompletion(pool);
  for (int i = 0; i < kJobs; ++i) {
    jobs[i] = {&recorder, i};
    ASSERT_EQ(PoolAddJob(pool, Record, &jobs[i]), 0);
  }
  PoolWaitCompletion(pool, kJobs);
  std::vector<int> order = recorder.order;
  if (!c.single_runner) std::sort(order.begin(), order.end());
  std::vector<int> queued(kJobs);
  std::iota(queued.begin(), queued.end(), 0);
  EXPECT_EQ(order, queued);
  hooks::StartLogCapture();
  EXPECT_EQ(PoolDestroy(pool), 0);
  EXPECT_TRUE(CapturedTexts().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Threads, PoolCreateTest,
    testing::Values(CreateCase{"one", 1, 0, 0, 0, true},
                    CreateCase{"two", 2, 0, 0, 0, false},
                    CreateCase{"first_of_two_fails", 2, 0b01, EAGAIN, 0, true},
                    CreateCase{"three_of_four_fail", 4, 0b1011, EAGAIN, 0, true},
                    CreateCase{"one_of_four_fails", 4, 0b0100, EINVAL, 0, false},
                    CreateCase{"both_fail", 2, 0b11, EAGAIN, -1, false},
                    CreateCase{"zero_threads", 0, 0, 0, -1, false}),
    [](const testing::TestParamInfo<CreateCase> &info) { return info.param.name; });

TEST(PoolCreate, RefusesCountsOutsideTheArgumentRoomWithoutAllocating) {
  for (int32_t n : {-1, INT32_MIN, kMaxPoolThreads + 1, INT32_MAX}) {
    ThreadPool *pool = kUntouched;
    const long allocations = hooks::AllocationCount();
    hooks::StartLogCapture();
    EXPECT_EQ(PoolCreate(&pool, n), -1) << n;
    EXPECT_EQ(CapturedTexts().size(), 1u) << n;
    EXPECT_EQ(pool, kUntouched) << n;
    EXPECT_EQ(hooks::AllocationCount(), allocations) << n;
  }
}

TEST(PoolDestroy, ReportsJoinFailuresOfStartedThreadsOnly) {
  const struct {
    uint32_t create_fail, join_fail;
    int result;
  } cases[] = {{0, 0b10, -1}, {0, 0b11, -1}, {0b01, 0b01, 0}, {0b01, 0b10, -1}};
  HookGuard guard;
  for (const auto &c : cases) {
    hooks::FailThreadCreate(c.create_fail, EAGAIN);
    hooks::FailThreadJoin(c.join_fail, ESRCH);
    hooks::StartLogCapture();
    ThreadPool *pool = nullptr;
    ASSERT_EQ(PoolCreate(&pool, 2), 0);
    CapturedTexts();
    std::vector<std::string> expected;
    for (int i = 0; i < 2; ++i) {
      if ((c.join_fail & ~c.create_fail) >> i & 1u) {
        expected.push_back(std::string("pthread_join fail: ") + std::strerror(ESRCH) +
                           " , i:" + std::to_string(i) + " , threadid:" +
                           std::to_string(static_cast<int32_t>(pool->threadid[i])) + "\n");
      }
    }
    hooks::StartLogCapture();
    EXPECT_EQ(PoolDestroy(pool), c.result);
    EXPECT_EQ(CapturedTexts(), expected);
  }
}

TEST(PoolDestroy, FreesQueuedJobsWithoutRunningThem) {
  for (int32_t threads : {1, 2, 4}) {
    ThreadPool *pool = nullptr;
    ASSERT_EQ(PoolCreate(&pool, threads), 0);
    Gate gate;
    for (int32_t i = 0; i < threads; ++i) PoolAddJob(pool, Hold, &gate);
    {
      std::unique_lock<std::mutex> lock(gate.mu);
      gate.cv.wait(lock, [&] { return gate.entered == threads; });
    }
    Recorder recorder{pool, {}, {}, {}};
    std::vector<RecordJob> queued(6, RecordJob{&recorder, 0});
    for (RecordJob &job : queued) PoolAddJob(pool, Record, &job);

    int result = 1;
    std::thread destroyer([&] { result = PoolDestroy(pool); });
    // Destroy cannot finish (nor free the pool) while the workers are held.
    for (bool down = false; !down; sched_yield()) {
      pthread_mutex_lock(&pool->queue_lock);
      down = pool->shutdown == 1;
      pthread_mutex_unlock(&pool->queue_lock);
    }
    {
      std::lock_guard<std::mutex> lock(gate.mu);
      gate.open = true;
    }
    gate.cv.notify_all();
    destroyer.join();
    EXPECT_EQ(result, 0) << threads;
    EXPECT_TRUE(recorder.order.empty()) << threads;
  }
}

TEST(PoolAddJob, RunsTheJobInlineWhenItsRecordCannotBeAllocated) {
  HookGuard guard;
  ThreadPool *pool = nullptr;
  ASSERT_EQ(PoolCreate(&pool, 1), 0);
  Recorder recorder{pool, {}, {}, {}};
  RecordJob jobs[2] = {{&recorder, 0}, {&recorder, 1}};
  PoolResetCompletion(pool);
  hooks::StartLogCapture();
  hooks::FailAllocation(1);
  EXPECT_EQ(PoolAddJob(pool, Record, &jobs[0]), 0);
  EXPECT_EQ(CapturedTexts().size(), 1u);
  ASSERT_EQ(recorder.order, std::vector<int>{0});  // ran before add job returned
  EXPECT_TRUE(pthread_equal(recorder.threads[0], pthread_self()));
  EXPECT_EQ(PoolAddJob(pool, Record, &jobs[1]), 0);
  PoolWaitCompletion(pool, 2);
  EXPECT_FALSE(pthread_equal(recorder.threads[1], pthread_self()));
  EXPECT_EQ(PoolDestroy(pool), 0);
}

TEST(PoolGuards, NullArgumentsAndRepeatedDestroyAreRefused) {
  ThreadPool down{};  // arrays null: a destroy that went further would crash
  down.shutdown = 1;
  EXPECT_EQ(PoolDestroy(&down), -1);
  ThreadPool *pool = nullptr;
  ASSERT_EQ(PoolCreate(&pool, 1), 0);
  hooks::StartLogCapture();
  EXPECT_EQ(PoolDestroy(nullptr), -1);
  EXPECT_EQ(PoolCreate(nullptr, 2), -1);
  EXPECT_EQ(PoolAddJob(nullptr, Record, nullptr), -1);
  EXPECT_EQ(PoolAddJob(pool, nullptr, nullptr), -1);
  PoolResetCompletion(nullptr);
  PoolSignalCompletion(nullptr);
  PoolWaitCompletion(nullptr, 4);
  EXPECT_EQ(CapturedTexts().size(), 7u);
  EXPECT_EQ(PoolDestroy(pool), 0);
}

}  // namespace
}  // namespace pb
