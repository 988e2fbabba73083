// Fixed pool of POSIX worker threads with a FIFO job queue, plus a completion
// counter (own lock and condition) on which the frame driver waits until every
// strip task of a frame has finished. The two locks are never held together.
//
// The queue lives in a fixed set of job slots allocated with the pool, so
// queuing a job never allocates. A slot is taken when a job is queued and
// given back when a worker takes the job off the queue. After a job's routine
// returns, the pool itself counts it on the completion counter.
#ifndef PREVIEWBOKEH_POOL_THREAD_POOL_H_
#define PREVIEWBOKEH_POOL_THREAD_POOL_H_

#include <cstdint>

namespace pb {

constexpr int kMaxPoolThreads = 4;
// Upper bound of the job slots a pool may be created with.
constexpr int kMaxPoolJobSlots = 256;

struct ThreadPool;

// Creates a pool of n threads (1..kMaxPoolThreads) whose queue holds up to
// job_slots jobs (0..kMaxPoolJobSlots); *pool is set as soon as the object
// exists. Returns 0 when at least one thread started, else -1 (the object is
// then freed and *pool must not be used). A thread count outside
// 0..kMaxPoolThreads or a slot count outside 0..kMaxPoolJobSlots is refused
// with -1 before anything is allocated.
int PoolCreate(ThreadPool **pool, int32_t n, int32_t job_slots);

// Queues a job in a free slot. When every slot is taken the job runs at once
// on the caller's thread instead (the frame waits for every job it queued,
// so the job must run somewhere); it is counted as completed either way.
// 0, or -1 (nothing queued or run) for a null pool or routine.
int PoolAddJob(ThreadPool *pool, void *(*routine)(void *), void *arg);

// Stops the threads (jobs still queued are dropped unrun), joins them and
// frees the pool. Returns -1 if already shut down or a join failed, else 0.
// Call it once per pool: afterwards the pointer is dangling.
int PoolDestroy(ThreadPool *pool);

// Sets the completion counter to 0.
void PoolResetCompletion(ThreadPool *pool);
// Returns when the completion counter equals target.
void PoolWaitCompletion(ThreadPool *pool, int32_t target);

}  // namespace pb

#endif  // PREVIEWBOKEH_POOL_THREAD_POOL_H_
