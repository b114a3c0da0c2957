#include "util/TaskQueue.h"

#include <algorithm>
#include <memory>

#include "util/Log.h"

namespace util {

void* TaskQueue::tmpObject = nullptr;

Task::Task(TaskCallback taskCallback, void* taskArg, void* taskSender)
    : callback(taskCallback), arg(taskArg), sender(taskSender) {}

Task::~Task() = default;

void TaskQueue::Place::call() {
  {
    Lock lock(own);
    called = true;
  }
  own.notifyAll(0);
}

void TaskQueue::Place::waitForCall() {
  Lock lock(own);
  while (!called) own.wait(0);
  called = false;
}

TaskQueue::TaskQueue() : exiting(false), free(nullptr), idle(nullptr) {
  for (Place& place : places) {
    place.next = free;
    free = &place;
  }
}

TaskQueue::~TaskQueue() = default;

int TaskQueue::putTask(TaskCallback callback, void* arg, void* sender) {
  PreparedTask prepared;
  prepare(&prepared);
  return putPrepared(&prepared, callback, arg, sender);
}

void TaskQueue::prepare(PreparedTask* prepared) {
  if (!prepared->empty()) return;
  Lock lock(*this);
  if (freeTasks.empty()) {
    std::unique_ptr<Task> made(new Task(nullptr, nullptr, nullptr));
    prepared->push_back(made.get());
    static_cast<void>(made.release());
  } else {
    prepared->splice(prepared->end(), freeTasks, freeTasks.begin());
  }
}

int TaskQueue::putPrepared(PreparedTask* prepared, TaskCallback callback, void* arg, void* sender) {
  Task* task = prepared->front();
  task->callback = callback;
  task->arg = arg;
  task->sender = sender;
  Lock lock(*this);
  pending.splice(pending.end(), *prepared);
  Place* called = takeIdle();
  notifyAll(0);
  const int status = lock.release();
  // The woken worker finds the lock free.
  if (called != nullptr) called->call();
  return status;
}

TaskQueue::Place* TaskQueue::takeIdle() {
  Place* place = idle;
  if (place != nullptr) idle = place->next;
  return place;
}

void TaskQueue::waitForTask() {
  Place* place = free;
  if (place == nullptr) {
    wait(0);
    return;
  }
  free = place->next;
  place->next = idle;
  idle = place;
  syncEnd();
  place->waitForCall();
  syncBegin();
  place->next = free;
  free = place;
}

void TaskQueue::giveBack(PreparedTask* prepared) {
  Lock lock(*this);
  freeTasks.splice(freeTasks.end(), *prepared);
}

Task* TaskQueue::popTask(Task* finished) {
  Lock lock(*this);
  if (finished != nullptr) {
    // Splices, so that a worker never needs to allocate.
    for (auto it = running.begin(); it != running.end();) {
      const auto next = std::next(it);
      if (*it == finished) freeTasks.splice(freeTasks.end(), running, it);
      it = next;
    }
  }
  while (pending.empty()) {
    if (exiting) return nullptr;
    FLUVIA_LOG(1, "thread engine waiting for task");
    waitForTask();
  }
  Task* task = pending.front();
  running.splice(running.end(), pending, pending.begin());
  FLUVIA_LOG(1, "thread engine has got a task");
  return task;
}

bool TaskQueue::cancel(void* arg) {
  std::list<Task*> withdrawn;
  {
    Lock lock(*this);
    tmpObject = arg;
    const auto it = std::find_if(pending.begin(), pending.end(), isTaskOfArg);
    if (it == pending.end()) return false;
    withdrawn.splice(withdrawn.end(), pending, it);
  }
  callCancelled(withdrawn);
  Lock lock(*this);
  freeTasks.splice(freeTasks.end(), withdrawn);
  return true;
}

int TaskQueue::cancelAll(void* sender) {
  std::list<Task*> withdrawn;
  {
    Lock lock(*this);
    tmpObject = sender;
    for (auto it = std::find_if(pending.begin(), pending.end(), isTaskOfSender);
         it != pending.end();) {
      const auto next = std::next(it);
      withdrawn.splice(withdrawn.end(), pending, it);
      it = std::find_if(next, pending.end(), isTaskOfSender);
    }
  }
  callCancelled(withdrawn);
  const int count = static_cast<int>(withdrawn.size());
  Lock lock(*this);
  freeTasks.splice(freeTasks.end(), withdrawn);
  return count;
}

int TaskQueue::cancelAll() {
  Lock lock(*this);
  const int count = static_cast<int>(pending.size());
  freeTasks.splice(freeTasks.end(), pending);
  return count;
}

void TaskQueue::setExiting() {
  Lock lock(*this);
  exiting = true;
  while (Place* place = takeIdle()) place->call();
  notifyAll(0);
}

void TaskQueue::callCancelled(const std::list<Task*>& withdrawn) {
  for (Task* task : withdrawn) task->callback(task->arg, TENGINE_CANCELLED);
}

bool TaskQueue::isTaskOfArg(Task* task) { return task->arg == tmpObject; }

bool TaskQueue::isTaskOfSender(Task* task) { return task->sender == tmpObject; }

}  // namespace util
