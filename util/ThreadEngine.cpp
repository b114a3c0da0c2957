#include "util/ThreadEngine.h"

#include <cstdio>
#include <memory>

#include "util/Log.h"

namespace util {

namespace {
// At most five run asynchronous reads, so that one is always left for restarting streams.
constexpr int kWorkers = 6;
}  // namespace

NeverDestroyed<ThreadEngine> ThreadEngine::_INS_;

ThreadEngine::ThreadEngine() : initialized(false) {}

ThreadEngine::~ThreadEngine() {
  Lock lock(initLock);
  if (initialized) {
    queue.setExiting();
    for (Executor* executor : executors) pthread_join(executor->thread, nullptr);
    for (Executor* executor : executors) delete executor;
    executors.clear();
  }
  FLUVIA_LOG(1, "1");
}

ThreadEngine* ThreadEngine::getInstance() { return &_INS_.get(); }

void ThreadEngine::initialize() {
  Lock lock(initLock);
  if (initialized) return;
  // Allocates first: if that fails, nothing was started and the next call retries.
  executors.reserve(kWorkers);
  std::unique_ptr<Executor> made[kWorkers];
  for (int i = 0; i < kWorkers; ++i) {
    char name[32];
    snprintf(name, sizeof name, "ThreadEngine %d", i);
    made[i].reset(new Executor(&queue, name));
  }
  initialized = true;
  for (int i = 0; i < kWorkers; ++i) {
    FLUVIA_LOG(1, "1");
    // The missing workers are never started later. Intentional.
    if (pthread_create(&made[i]->thread, nullptr, Executor::run, made[i].get()) != 0) return;
    FLUVIA_LOG(1, "creat thread %d OK", i);
    executors.push_back(made[i].release());
    started = i + 1;
  }
  detectLoglevel();
  FLUVIA_LOG(1, "end to init");
}

int ThreadEngine::requestExecute(TaskCallback callback, void* arg, void* sender) {
  FLUVIA_LOG(1, "1");
  return queue.putTask(callback, arg, sender);
}

int ThreadEngine::requestPrepared(PreparedTask* prepared, TaskCallback callback, void* arg,
                                  void* sender) {
  FLUVIA_LOG_AS("requestExecute", 1, "1");
  return queue.putPrepared(prepared, callback, arg, sender);
}

int ThreadEngine::requestExecuteOrderly(TaskCallback callback, void* arg, void* sender) {
  return queue.putTask(callback, arg, sender);
}

bool ThreadEngine::cancel(void* arg) { return queue.cancel(arg); }

int ThreadEngine::cancelAll(void* sender) { return queue.cancelAll(sender); }

}  // namespace util
