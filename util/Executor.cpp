#include "util/Executor.h"

#include "util/Log.h"

namespace util {

Executor::Executor(TaskQueue* taskQueue, const std::string& workerName)
    : thread(), queue(taskQueue), running(true), name(workerName), lastTask(nullptr) {}

Executor::~Executor() = default;

void* Executor::run(void* executor) {
  static_cast<Executor*>(executor)->execute();
  return nullptr;
}

void Executor::execute() {
  while (running) {
    FLUVIA_LOG(1, "%s begin to popTask", name.c_str());
    Task* task = queue->popTask(lastTask);
    if (task == nullptr) break;
    FLUVIA_LOG(1, "%s begin to perform", name.c_str());
    task->callback(task->arg, TENGINE_EXECUTE);
    lastTask = task;
  }
  running = false;
}

}  // namespace util
