#ifndef FLUVIAFS_UTIL_EXECUTOR_H_
#define FLUVIAFS_UTIL_EXECUTOR_H_

#include <pthread.h>

#include <string>

#include "util/Relaxed.h"
#include "util/TaskQueue.h"

namespace util {

// One worker of the thread engine: takes tasks from a queue and runs them.
//
// Threads:   execute() runs on the worker's own thread only.
// Ownership: the queue is not owned and outlives the worker's thread.
class Executor {
 public:
  Executor(TaskQueue* queue, const std::string& name);
  virtual ~Executor();
  Executor(const Executor&) = delete;
  Executor& operator=(const Executor&) = delete;

  // Thread entry: runs execute() of the executor given as argument. Returns null.
  static void* run(void* executor);
  // The worker loop; ends when popTask() returns null.
  void execute();

  pthread_t thread;

 private:
  TaskQueue* queue;
  Relaxed<bool> running;
  std::string name;
  Task* lastTask;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_EXECUTOR_H_
