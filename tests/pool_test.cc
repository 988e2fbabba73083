// The worker pool through its operations: threads that could not be started
// or joined, their log lines and statuses, FIFO order through the job slots,
// completion counting, the inline fallback when every slot is taken, and
// shutdown with jobs still queued.
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
#include <vector>

#include "platform/test_hooks.h"
#include "pool/thread_pool.h"
#include "pool/thread_pool_internal.h"

namespace pb {
namespace {

ThreadPool *const kUntouched = reinterpret_cast<ThreadPool *>(uintptr_t{0x5a5a});

// Disarms the injected failures and the shutdown hook however a test ends.
struct HookGuard {
  ~HookGuard() {
    hooks::FailThreadCreate(0, 0);
    hooks::FailThreadJoin(0, 0);
    hooks::OnPoolShutdown(nullptr, nullptr);
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

// Jobs that record the order and thread they ran on. The pool counts them as
// completed once they return.
struct Recorder {
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
  std::lock_guard<std::mutex> lock(job->recorder->mu);
  job->recorder->order.push_back(job->id);
  job->recorder->threads.push_back(pthread_self());
  return nullptr;
}

// Holds every job that enters it until opened.
struct Gate {
  std::promise<void> opener;
  std::shared_future<void> open = opener.get_future().share();
  std::atomic<int> entered{0};
  void Open() { opener.set_value(); }
  void WaitEntered(int n) const {
    while (entered.load() < n) sched_yield();
  }
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

  constexpr int kJobs = 40;
  ThreadPool *pool = kUntouched;
  hooks::StartLogCapture();
  ASSERT_EQ(PoolCreate(&pool, c.threads, kJobs), c.create_result);
  EXPECT_EQ(CapturedTexts(), expected_log);
  EXPECT_NE(pool, kUntouched);  // set even when the pool was freed again
  if (c.create_result != 0) return;

  Recorder recorder;
  std::vector<RecordJob> jobs(kJobs);
  PoolResetCompletion(pool);
  hooks::StartLogCapture();
  for (int i = 0; i < kJobs; ++i) {
    jobs[i] = {&recorder, i};
    ASSERT_EQ(PoolAddJob(pool, Record, &jobs[i]), 0);
  }
  PoolWaitCompletion(pool, kJobs);
  EXPECT_EQ(CapturedTexts(), std::vector<std::string>{}) << "enough slots: nothing runs inline";
  std::vector<int> order = recorder.order, queued(kJobs);
  if (!c.single_runner) std::sort(order.begin(), order.end());
  std::iota(queued.begin(), queued.end(), 0);
  EXPECT_EQ(order, queued);
  for (pthread_t thread : recorder.threads) EXPECT_FALSE(pthread_equal(thread, pthread_self()));

  // A failed join is logged for started threads only; the thread id's format
  // is not the subject here.
  std::vector<std::string> expected_prefixes;
  for (int32_t i = 0; i < c.threads; ++i) {
    if ((c.join_fail & ~c.create_fail) >> i & 1u) {
      expected_prefixes.push_back(std::string("pthread_join fail: ") + std::strerror(ESRCH) +
                                  " , i:" + std::to_string(i) + " , threadid:");
    }
  }
  hooks::StartLogCapture();
  EXPECT_EQ(PoolDestroy(pool), c.destroy_result);
  const std::vector<std::string> log = CapturedTexts();
  ASSERT_EQ(log.size(), expected_prefixes.size());
  for (size_t i = 0; i < log.size(); ++i) {
    EXPECT_EQ(log[i].rfind(expected_prefixes[i], 0), 0u) << log[i];
    EXPECT_EQ(log[i].back(), '\n') << log[i];
  }
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

TEST(PoolDestroy, DropsQueuedJobsWithoutRunningThem) {
  HookGuard guard;
  for (int32_t threads : {1, 2, 4}) {
    ThreadPool *pool = nullptr;
    ASSERT_EQ(PoolCreate(&pool, threads, 8), 0);
    Gate gate;
    for (int32_t i = 0; i < threads; ++i) PoolAddJob(pool, Hold, &gate);
    gate.WaitEntered(threads);
    Recorder recorder;
    std::vector<RecordJob> queued(6, RecordJob{&recorder, 0});
    for (RecordJob &job : queued) PoolAddJob(pool, Record, &job);

    // The workers are let go only once destroy has told them to stop.
    hooks::OnPoolShutdown([](void *g) { static_cast<Gate *>(g)->Open(); }, &gate);
    EXPECT_EQ(PoolDestroy(pool), 0) << threads;
    hooks::OnPoolShutdown(nullptr, nullptr);
    EXPECT_TRUE(recorder.order.empty()) << threads;
  }
}

class PoolSlots : public testing::TestWithParam<int32_t> {};

// One worker, held while the slots are filled: every slot takes a job, the
// next one runs at once on the caller's thread, and the queued ones then run
// in order. Several rounds move the queue's start around the ring of slots.
TEST_P(PoolSlots, FullSlotsRunTheJobInlineAndQueuedJobsKeepTheirOrder) {
  const int32_t slots = GetParam();
  ThreadPool *pool = nullptr;
  ASSERT_EQ(PoolCreate(&pool, 1, slots), 0);
  Recorder recorder;
  std::vector<RecordJob> jobs;
  constexpr int kRounds = 4;
  jobs.reserve(static_cast<size_t>(kRounds) * (slots + 1));
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    recorder.order.clear();
    recorder.threads.clear();
    PoolResetCompletion(pool);
    Gate gate;
    ASSERT_EQ(PoolAddJob(pool, Hold, &gate), 0);
    gate.WaitEntered(1);  // the worker has taken the job out of its slot
    for (int i = 0; i < slots; ++i) {
      jobs.push_back({&recorder, i});
      ASSERT_EQ(PoolAddJob(pool, Record, &jobs.back()), 0);
    }
    jobs.push_back({&recorder, slots});
    hooks::StartLogCapture();
    ASSERT_EQ(PoolAddJob(pool, Record, &jobs.back()), 0);
    EXPECT_EQ(CapturedTexts(), std::vector<std::string>{
                                   "pool job slots full, running the job on the caller's thread\n"});
    {
      std::lock_guard<std::mutex> lock(recorder.mu);
      ASSERT_EQ(recorder.order, std::vector<int>{slots});  // ran before add job returned
      EXPECT_TRUE(pthread_equal(recorder.threads[0], pthread_self()));
    }
    gate.Open();
    PoolWaitCompletion(pool, slots + 2);  // the held job, the queued ones, the inline one
    std::vector<int> expected(slots + 1);
    std::iota(expected.begin() + 1, expected.end(), 0);
    expected[0] = slots;
    EXPECT_EQ(recorder.order, expected);
    for (int i = 1; i <= slots; ++i) EXPECT_FALSE(pthread_equal(recorder.threads[i], pthread_self()));
  }
  EXPECT_EQ(PoolDestroy(pool), 0);
}

INSTANTIATE_TEST_SUITE_P(Counts, PoolSlots, testing::Values(1, 3, 4));

// Refused calls log a line each and change nothing: no allocation, the
// out-pointer of a refused create untouched.
TEST(PoolGuards, BadArgumentsAreRefused) {
  ThreadPool *pool = nullptr, *refused = kUntouched;
  ASSERT_EQ(PoolCreate(&pool, 1, 4), 0);
  const long allocations = hooks::AllocationCount();
  hooks::StartLogCapture();
  for (int32_t n : {-1, INT32_MIN, kMaxPoolThreads + 1, INT32_MAX}) {
    EXPECT_EQ(PoolCreate(&refused, n, 4), -1) << n;
  }
  for (int32_t slots : {-1, INT32_MIN, kMaxPoolJobSlots + 1, INT32_MAX}) {
    EXPECT_EQ(PoolCreate(&refused, 1, slots), -1) << slots;
  }
  EXPECT_EQ(PoolDestroy(nullptr), -1);
  EXPECT_EQ(PoolCreate(nullptr, 2, 4), -1);
  EXPECT_EQ(PoolAddJob(nullptr, Record, nullptr), -1);
  EXPECT_EQ(PoolAddJob(pool, nullptr, nullptr), -1);
  PoolResetCompletion(nullptr);
  PoolWaitCompletion(nullptr, 4);
  EXPECT_EQ(CapturedTexts().size(), 14u);
  EXPECT_EQ(refused, kUntouched);
  EXPECT_EQ(hooks::AllocationCount(), allocations);
  EXPECT_EQ(PoolDestroy(pool), 0);
}

}  // namespace
}  // namespace pb
