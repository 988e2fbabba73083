// Fixed pool of POSIX worker threads with a FIFO job queue, plus a completion
// counter (own lock and condition) on which the frame driver waits until every
// strip task of a frame has finished. The two locks are never held together.
#ifndef PREVIEWBOKEH_POOL_THREAD_POOL_H_
#define PREVIEWBOKEH_POOL_THREAD_POOL_H_

#include <pthread.h>

#include <cstdint>

namespace pb {

constexpr int kMaxPoolThreads = 4;

struct PoolJob {
  void *(*routine)(void *);
  void *arg;
  PoolJob *next;
};

struct ThreadPool;

struct PoolThreadArg {
  int64_t index;
  ThreadPool *pool;
};

struct ThreadPool {
  pthread_mutex_t queue_lock;  // job queue, queued count, shutdown
  pthread_cond_t queue_ready;
  pthread_mutex_t pro_lock;  // completion counter
  pthread_cond_t pro_ready;
  PoolJob *queue_head;
  int32_t shutdown;
  pthread_t *threadid;
  int32_t *thread_creatflag;
  int32_t thread_count;
  int32_t queued_count;
  int32_t completed;
  PoolThreadArg thread_args[kMaxPoolThreads];
};

// Creates a pool of n threads (1..kMaxPoolThreads); *pool is set as soon as
// the object exists. Returns 0 when at least one thread started, else -1
// (the object is then freed and *pool must not be used). A count outside
// 0..kMaxPoolThreads is refused with -1 before anything is allocated.
int PoolCreate(ThreadPool **pool, int32_t n);

// Queues a job. If its record cannot be allocated the job runs at once on the
// caller's thread. 0, or -1 (nothing queued) for a null pool or routine.
int PoolAddJob(ThreadPool *pool, void *(*routine)(void *), void *arg);

// Stops the threads (jobs still queued are freed unrun), joins them and frees
// the pool. Returns -1 if already shut down or a join failed, else 0. Call it
// once per pool: afterwards the pointer is dangling.
int PoolDestroy(ThreadPool *pool);

void PoolResetCompletion(ThreadPool *pool);
void PoolSignalCompletion(ThreadPool *pool);
// Returns when the completion counter equals target.
void PoolWaitCompletion(ThreadPool *pool, int32_t target);

}  // namespace pb

#endif  // PREVIEWBOKEH_POOL_THREAD_POOL_H_
