#include "pool/thread_pool.h"

#include <pthread.h>

#include <atomic>
#include <cstring>

#include "platform/alloc.h"
#include "platform/log.h"
#include "pool/thread_pool_internal.h"

namespace pb {

// A queued job. Its slot is free again as soon as a worker has taken it.
struct PoolJob {
  void *(*routine)(void *);
  void *arg;
};

struct PoolThreadArg {
  int64_t index;
  ThreadPool *pool;
};

// One allocation holds the record and, right behind it, its job slots.
struct ThreadPool {
  pthread_mutex_t queue_lock;  // job slots, queue head, queued count, shutdown
  pthread_cond_t queue_ready;
  pthread_mutex_t pro_lock;  // completion counter
  pthread_cond_t pro_ready;
  PoolJob *slots;  // ring of slot_count slots; the queue starts at queue_head
  int32_t slot_count;
  int32_t queue_head;
  int32_t shutdown;
  pthread_t *threadid;
  int32_t *thread_creatflag;
  int32_t thread_count;
  int32_t queued_count;
  int32_t completed;
  PoolThreadArg thread_args[kMaxPoolThreads];
};

namespace {

std::atomic<uint32_t> g_create_fail_mask{0};
std::atomic<int> g_create_fail_error{0};
std::atomic<uint32_t> g_join_fail_mask{0};
std::atomic<int> g_join_fail_error{0};
std::atomic<void (*)(void *)> g_shutdown_fn{nullptr};
std::atomic<void *> g_shutdown_arg{nullptr};

// Error injected by a test for thread `index`, or 0.
int InjectedError(const std::atomic<uint32_t> &mask, const std::atomic<int> &error,
                  int32_t index) {
  return (mask.load() >> index) & 1u ? error.load() : 0;
}

void *Worker(void *arg);

int CreateThread(pthread_t *id, int32_t index, void *arg) {
  const int injected = InjectedError(g_create_fail_mask, g_create_fail_error, index);
  if (injected != 0) return injected;
  return pthread_create(id, nullptr, Worker, arg);
}

int JoinThread(pthread_t id, int32_t index) {
  const int rc = pthread_join(id, nullptr);
  if (rc != 0) return rc;
  return InjectedError(g_join_fail_mask, g_join_fail_error, index);
}

// strerror_r comes in a GNU form (returns the text) and an XSI form (fills the
// buffer and returns a status); these overloads accept either.
[[maybe_unused]] const char *ErrorText(const char *result, const char * /*buffer*/) { return result; }
[[maybe_unused]] const char *ErrorText(int result, const char *buffer) {
  return result == 0 ? buffer : "Unknown error";
}

struct ErrorString {
  char buffer[128];
  const char *text;
  explicit ErrorString(int error)
      : buffer(), text(ErrorText(strerror_r(error, buffer, sizeof buffer), buffer)) {}
};

void DestroySync(ThreadPool *p) {
  pthread_mutex_destroy(&p->queue_lock);
  pthread_cond_destroy(&p->queue_ready);
  pthread_mutex_destroy(&p->pro_lock);
  pthread_cond_destroy(&p->pro_ready);
}

// Counts one finished job and wakes the waiter.
void SignalCompletion(ThreadPool *pool) {
  pthread_mutex_lock(&pool->pro_lock);
  pool->completed++;
  pthread_mutex_unlock(&pool->pro_lock);
  pthread_cond_signal(&pool->pro_ready);
}

// The routine of every pool thread; arg is the thread's PoolThreadArg.
void *Worker(void *arg) {
  ThreadPool *pool = static_cast<PoolThreadArg *>(arg)->pool;
  pthread_mutex_lock(&pool->queue_lock);
  for (;;) {
    while (pool->queued_count == 0) {
      if (pool->shutdown) {
        pthread_mutex_unlock(&pool->queue_lock);
        return nullptr;
      }
      pthread_cond_wait(&pool->queue_ready, &pool->queue_lock);
    }
    // Shutdown wins over queued work: what is still queued is dropped.
    if (pool->shutdown) {
      pthread_mutex_unlock(&pool->queue_lock);
      return nullptr;
    }
    // Copy the job out so that its slot is free while the routine runs.
    const PoolJob job = pool->slots[pool->queue_head];
    pool->queue_head = pool->queue_head + 1 == pool->slot_count ? 0 : pool->queue_head + 1;
    pool->queued_count--;
    pthread_mutex_unlock(&pool->queue_lock);

    job.routine(job.arg);
    SignalCompletion(pool);

    pthread_mutex_lock(&pool->queue_lock);
  }
}

}  // namespace

int PoolCreate(ThreadPool **pool, int32_t n, int32_t job_slots) {
  if (pool == nullptr) {
    PB_LOGD("pool create: null pool pointer\n");
    return -1;
  }
  if (n < 0 || n > kMaxPoolThreads) {
    PB_LOGD("pool create: thread count %d outside 0..%d\n", n, kMaxPoolThreads);
    return -1;
  }
  if (job_slots < 0 || job_slots > kMaxPoolJobSlots) {
    PB_LOGD("pool create: job slots %d outside 0..%d\n", job_slots, kMaxPoolJobSlots);
    return -1;
  }

  // sizeof(ThreadPool) is a multiple of its alignment, which is at least
  // PoolJob's, so the slots behind the record are aligned.
  static_assert(alignof(ThreadPool) >= alignof(PoolJob), "slots follow the record");
  const size_t bytes = sizeof(ThreadPool) + sizeof(PoolJob) * static_cast<size_t>(job_slots);
  ThreadPool *p = static_cast<ThreadPool *>(Malloc(bytes));
  if (p == nullptr) {
    PB_LOGD("can't alloc thread pool\n");
    return -1;
  }
  *pool = p;
  std::memset(static_cast<void *>(p), 0, bytes);

  // Objects initialised before a failing one are left as they are.
  int err = pthread_mutex_init(&p->queue_lock, nullptr);
  if (err != 0) {
    PB_LOGD("can't init pool->queue_lock err:%d\n", err);
    Free(p);
    return -1;
  }
  err = pthread_cond_init(&p->queue_ready, nullptr);
  if (err != 0) {
    PB_LOGD("can't init pool->queue_ready err:%d\n", err);
    Free(p);
    return -1;
  }
  err = pthread_mutex_init(&p->pro_lock, nullptr);
  if (err != 0) {
    PB_LOGD("can't init pool->pro_lock err:%d\n", err);
    Free(p);
    return -1;
  }
  err = pthread_cond_init(&p->pro_ready, nullptr);
  if (err != 0) {
    PB_LOGD("can't init pool->pro_ready err:%d\n", err);
    Free(p);
    return -1;
  }

  p->slots = reinterpret_cast<PoolJob *>(p + 1);
  p->slot_count = job_slots;
  p->queue_head = 0;
  p->thread_count = n;
  p->queued_count = 0;
  p->shutdown = 0;

  // At least one entry each, so that n = 0 does not depend on what a
  // zero-byte allocation returns.
  const size_t entries = n > 0 ? static_cast<size_t>(n) : 1;
  p->threadid = static_cast<pthread_t *>(Calloc(entries, sizeof(pthread_t)));
  if (p->threadid == nullptr) PB_LOGD("can't malloc threadid\n");
  p->thread_creatflag = static_cast<int32_t *>(Calloc(entries, sizeof(int32_t)));
  if (p->thread_creatflag == nullptr) PB_LOGD("can't malloc thread_creatflag\n");
  if (p->threadid == nullptr || p->thread_creatflag == nullptr) {
    Free(p->threadid);
    Free(p->thread_creatflag);
    DestroySync(p);
    Free(p);
    return -1;
  }

  int32_t failures = 0;
  for (int32_t i = 0; i < n; ++i) {
    p->thread_args[i].index = i;
    p->thread_args[i].pool = p;
    err = CreateThread(&p->threadid[i], i, &p->thread_args[i]);
    if (err != 0) {
      const ErrorString text(err);
      PB_LOGD("can't create thread: %s\n", text.text);
      p->thread_creatflag[i] = 0;
      failures++;
    } else {
      p->thread_creatflag[i] = 1;
    }
  }
  if (failures != n) return 0;

  // No thread is running, so nothing else can touch the object.
  PB_LOGD("all LTM thread create failed.\n");
  Free(p->threadid);
  Free(p->thread_creatflag);
  DestroySync(p);
  Free(p);
  return -1;
}

int PoolAddJob(ThreadPool *pool, void *(*routine)(void *), void *arg) {
  if (pool == nullptr || routine == nullptr) {
    PB_LOGD("pool add job: null %s\n", pool == nullptr ? "pool" : "routine");
    return -1;
  }
  pthread_mutex_lock(&pool->queue_lock);
  if (pool->queued_count == pool->slot_count) {
    pthread_mutex_unlock(&pool->queue_lock);
    // The frame waits for every job it queued, so the job must run somewhere.
    PB_LOGD("pool job slots full, running the job on the caller's thread\n");
    routine(arg);
    SignalCompletion(pool);
    return 0;
  }
  int32_t tail = pool->queue_head + pool->queued_count;
  if (tail >= pool->slot_count) tail -= pool->slot_count;
  pool->slots[tail] = PoolJob{routine, arg};
  pool->queued_count++;
  pthread_mutex_unlock(&pool->queue_lock);
  pthread_cond_signal(&pool->queue_ready);
  return 0;
}

// The handle destroys its pool once; the shutdown test only catches a second
// call on an object that is still allocated (after a successful destroy the
// pointer is dangling and must not be passed again).
int PoolDestroy(ThreadPool *pool) {
  if (pool == nullptr) {
    PB_LOGD("pool destroy: null pool\n");
    return -1;
  }
  if (pool->shutdown) return -1;

  pthread_mutex_lock(&pool->queue_lock);
  pool->shutdown = 1;
  pthread_mutex_unlock(&pool->queue_lock);
  pthread_cond_broadcast(&pool->queue_ready);
  if (void (*fn)(void *) = g_shutdown_fn.load()) fn(g_shutdown_arg.load());

  int result = 0;
  for (int32_t i = 0; i < pool->thread_count; ++i) {
    if (pool->thread_creatflag[i] != 1) continue;
    const int err = JoinThread(pool->threadid[i], i);
    if (err != 0) {
      const ErrorString text(err);
      PB_LOGD("pthread_join fail: %s , i:%d , threadid:%d\n", text.text, i,
              static_cast<int32_t>(static_cast<uint64_t>(pool->threadid[i])));
      result = -1;
    }
  }

  // Jobs still in their slots go with the record.
  Free(pool->threadid);
  Free(pool->thread_creatflag);
  DestroySync(pool);
  Free(pool);
  return result;
}

void PoolResetCompletion(ThreadPool *pool) {
  if (pool == nullptr) {
    PB_LOGD("pool reset completion: null pool\n");
    return;
  }
  pthread_mutex_lock(&pool->pro_lock);
  pool->completed = 0;
  pthread_mutex_unlock(&pool->pro_lock);
}

void PoolWaitCompletion(ThreadPool *pool, int32_t target) {
  if (pool == nullptr) {
    PB_LOGD("pool wait completion: null pool\n");
    return;
  }
  pthread_mutex_lock(&pool->pro_lock);
  while (pool->completed != target) pthread_cond_wait(&pool->pro_ready, &pool->pro_lock);
  pthread_mutex_unlock(&pool->pro_lock);
}

namespace hooks {

void FailThreadCreate(uint32_t index_mask, int error) {
  g_create_fail_error.store(error);
  g_create_fail_mask.store(index_mask);
}

void FailThreadJoin(uint32_t index_mask, int error) {
  g_join_fail_error.store(error);
  g_join_fail_mask.store(index_mask);
}

void OnPoolShutdown(void (*fn)(void *), void *arg) {
  g_shutdown_arg.store(arg);
  g_shutdown_fn.store(fn);
}

}  // namespace hooks
}  // namespace pb
