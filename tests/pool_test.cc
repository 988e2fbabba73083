// The worker pool: threads that could not be started or joined, their exact
// log lines and statuses, FIFO order, shutdown with jobs still queued.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <future>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "platform/test_hooks.h"
#include "pool/thread_pool.h"
#include "pool/thread_pool_internal.h"

namespace pb {
namespace {

ThreadPool *const kUntouched = reinterpret_cast<ThreadPool *>(uintptr_t{0x5a5a});

// Disarms the injected failures however a test ends.
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

// Jobs that record the order and thread they ran on, then count as completed.
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
  std::atomic<int> entered{0};
  std::shared_future<void> open;
};
void *Hold(void *arg) {
  auto *gate = static_cast<Gate *>(arg);
  gate->entered++;
  gate->open.wait();
  return nullptr;
}

struct PoolCase {
  const char *name;
  int32_t threads;
  uint32_t create_fail;  // threads whose creation fails (with `error`)
  int error;
  int create_result;
  bool single_runner;  // exactly one thread runs, so jobs run in queue order
  uint32_t join_fail;  // threads whose join fails (ESRCH); ignored for unstarted ones
  int destroy_result;
};

class PoolLifeCycle : public testing::TestWithParam<PoolCase> {};

TEST_P(PoolLifeCycle, StartsWhatItCanRunsEveryJobAndReportsJoins) {
  const PoolCase &c = GetParam();
  HookGuard guard;
  hooks::FailThreadCreate(c.create_fail, c.error);
  hooks::FailThreadJoin(c.join_fail, ESRCH);
  std::vector<std::string> expected_log;
  for (int32_t i = 0; i < c.threads; ++i) {
    if (c.create_fail >> i & 1u) {
      expected_log.push_back(std::string("can't create thread: ") + std::strerror(c.error) + "\n");
    }
  }
  if (c.create_result != 0) expected_log.push_back("all LTM thread create failed.\n");

  ThreadPool *pool = kUntouched;
  hooks::StartLogCapture();
  ASSERT_EQ(PoolCreate(&pool, c.threads), c.create_result);
  EXPECT_EQ(CapturedTexts(), expected_log);
  EXPECT_NE(pool, kUntouched);  // set even when the pool was freed again
  if (c.create_result != 0) return;

  for (int32_t i = 0; i < c.threads; ++i) {
    EXPECT_EQ(pool->thread_creatflag[i], (c.create_fail >> i & 1u) ? 0 : 1) << i;
  }
  constexpr int kJobs = 40;
  Recorder recorder{pool, {}, {}, {}};
  std::vector<RecordJob> jobs(kJobs);
  PoolResetCompletion(pool);
  for (int i = 0; i < kJobs; ++i) {
    jobs[i] = {&recorder, i};
    ASSERT_EQ(PoolAddJob(pool, Record, &jobs[i]), 0);
  }
  PoolWaitCompletion(pool, kJobs);
  std::vector<int> order = recorder.order, queued(kJobs);
  if (!c.single_runner) std::sort(order.begin(), order.end());
  std::iota(queued.begin(), queued.end(), 0);
  EXPECT_EQ(order, queued);

  expected_log.clear();
  for (int32_t i = 0; i < c.threads; ++i) {
    if ((c.join_fail & ~c.create_fail) >> i & 1u) {
      expected_log.push_back(
          std::string("pthread_join fail: ") + std::strerror(ESRCH) + " , i:" + std::to_string(i) +
          " , threadid:" + std::to_string(static_cast<int32_t>(pool->threadid[i])) + "\n");
    }
  }
  hooks::StartLogCapture();
  EXPECT_EQ(PoolDestroy(pool), c.destroy_result);
  EXPECT_EQ(CapturedTexts(), expected_log);
}

INSTANTIATE_TEST_SUITE_P(
    Threads, PoolLifeCycle,
    testing::Values(PoolCase{"one", 1, 0, 0, 0, true, 0, 0},
                    PoolCase{"two_both_joins_fail", 2, 0, 0, 0, false, 0b11, -1},
                    PoolCase{"first_of_two_fails", 2, 0b01, EAGAIN, 0, true, 0b01, 0},
                    PoolCase{"three_of_four_fail", 4, 0b1011, EAGAIN, 0, true, 0b0100, -1},
                    PoolCase{"one_of_four_fails", 4, 0b0100, EINVAL, 0, false, 0b0010, -1},
                    PoolCase{"both_fail", 2, 0b11, EAGAIN, -1, false, 0, 0},
                    PoolCase{"zero_threads", 0, 0, 0, -1, false, 0, 0}),
    [](const testing::TestParamInfo<PoolCase> &info) { return info.param.name; });

TEST(PoolDestroy, FreesQueuedJobsWithoutRunningThem) {
  for (int32_t threads : {1, 2, 4}) {
    ThreadPool *pool = nullptr;
    ASSERT_EQ(PoolCreate(&pool, threads), 0);
    std::promise<void> opener;
    Gate gate{{0}, opener.get_future().share()};
    for (int32_t i = 0; i < threads; ++i) PoolAddJob(pool, Hold, &gate);
    while (gate.entered < threads) sched_yield();
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
    opener.set_value();
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
  EXPECT_EQ(CapturedTexts(),
            std::vector<std::string>{"can't alloc pool job, running it on the caller's thread\n"});
  ASSERT_EQ(recorder.order, std::vector<int>{0});  // ran before add job returned
  EXPECT_TRUE(pthread_equal(recorder.threads[0], pthread_self()));
  EXPECT_EQ(PoolAddJob(pool, Record, &jobs[1]), 0);
  PoolWaitCompletion(pool, 2);
  EXPECT_FALSE(pthread_equal(recorder.threads[1], pthread_self()));
  EXPECT_EQ(PoolDestroy(pool), 0);
}

// Refused calls log a line each and change nothing: no allocation, the
// out-pointer of a refused create untouched, no second destroy.
TEST(PoolGuards, BadArgumentsAndRepeatedDestroyAreRefused) {
  ThreadPool down{};  // arrays null: a destroy that went further would crash
  down.shutdown = 1;
  EXPECT_EQ(PoolDestroy(&down), -1);
  ThreadPool *pool = nullptr, *refused = kUntouched;
  ASSERT_EQ(PoolCreate(&pool, 1), 0);
  const long allocations = hooks::AllocationCount();
  hooks::StartLogCapture();
  for (int32_t n : {-1, INT32_MIN, kMaxPoolThreads + 1, INT32_MAX}) {
    EXPECT_EQ(PoolCreate(&refused, n), -1) << n;
  }
  EXPECT_EQ(PoolDestroy(nullptr), -1);
  EXPECT_EQ(PoolCreate(nullptr, 2), -1);
  EXPECT_EQ(PoolAddJob(nullptr, Record, nullptr), -1);
  EXPECT_EQ(PoolAddJob(pool, nullptr, nullptr), -1);
  PoolResetCompletion(nullptr);
  PoolSignalCompletion(nullptr);
  PoolWaitCompletion(nullptr, 4);
  EXPECT_EQ(CapturedTexts().size(), 11u);
  EXPECT_EQ(refused, kUntouched);
  EXPECT_EQ(hooks::AllocationCount(), allocations);
  EXPECT_EQ(PoolDestroy(pool), 0);
}

}  // namespace
}  // namespace pb
