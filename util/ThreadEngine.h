#ifndef FLUVIAFS_UTIL_THREADENGINE_H_
#define FLUVIAFS_UTIL_THREADENGINE_H_

#include <vector>

#include "util/Executor.h"
#include "util/NeverDestroyed.h"
#include "util/Relaxed.h"
#include "util/TaskQueue.h"

namespace util {

// Pool of six worker threads that run tasks in the order they were queued.
//
// Threads:   any. Up to six callbacks run at once, on workers, without any lock.
// Ownership: owns its workers. The process-wide instance is never destroyed; a destroyed engine
//            runs what is pending first and joins its workers.
class ThreadEngine {
 public:
  ThreadEngine();
  virtual ~ThreadEngine();
  ThreadEngine(const ThreadEngine&) = delete;
  ThreadEngine& operator=(const ThreadEngine&) = delete;

  // The process-wide engine. Does not start its workers.
  static ThreadEngine* getInstance();

  // Starts the workers and reads the log level file, once. If a thread cannot be created, this
  // stops silently; the workers started so far stay.
  void initialize() EXCLUDES(initLock);
  // Queue a task. Both append to the same queue; the first one also logs a trace line. May be
  // called before initialize(). Return the status of the unlock, 0 on success.
  int requestExecute(TaskCallback callback, void* arg, void* sender);
  int requestExecuteOrderly(TaskCallback callback, void* arg, void* sender);
  // requestExecute in two steps; only the first one allocates memory. See TaskQueue::prepare.
  void prepare(PreparedTask* prepared) { queue.prepare(prepared); }
  int requestPrepared(PreparedTask* prepared, TaskCallback callback, void* arg, void* sender);
  void giveBack(PreparedTask* prepared) { queue.giveBack(prepared); }
  // Number of workers that initialize() could start, 0 before it.
  int workerCount() const { return started; }
  // Withdraws the oldest pending task with that argument; see TaskQueue::cancel.
  bool cancel(void* arg);
  // Withdraws every pending task of that sender; see TaskQueue::cancelAll.
  int cancelAll(void* sender);

 private:
  TaskQueue queue;
  std::vector<Executor*> executors GUARDED_BY(initLock);
  bool initialized GUARDED_BY(initLock);
  Relaxed<int> started;  // written under initLock
  Semaphore initLock;

  static NeverDestroyed<ThreadEngine> _INS_;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_THREADENGINE_H_
