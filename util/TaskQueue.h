#ifndef FLUVIAFS_UTIL_TASKQUEUE_H_
#define FLUVIAFS_UTIL_TASKQUEUE_H_

#include <list>

#include "util/Semaphore.h"

namespace util {

// What a task's callback is told.
enum TEngineEvent_E {
  TENGINE_EXECUTE = 0,   // the task runs on a worker
  TENGINE_CANCELLED = 1  // the task was withdrawn before a worker took it; its only call
};

using TaskCallback = void (*)(void* arg, TEngineEvent_E event);

// One job: a callback, its argument, and a tag of who queued it.
class Task {
 public:
  Task(TaskCallback callback, void* arg, void* sender);
  virtual ~Task();

  TaskCallback callback;
  void* arg;     // not owned
  void* sender;  // compared, never dereferenced
};

// Room for at most one task, got before it is needed.
using PreparedTask = std::list<Task*>;

// First-in-first-out queue of tasks, with the task objects that are free for reuse.
//
// Threads:   any. Callbacks are never called with the queue's lock held, so they may queue and
//            withdraw tasks themselves.
// Ownership: owns every Task; none is deleted while the process lives.
// Waking:    each task calls one idle worker, which then looks for itself. A worker waits on a
//            condition of its own, because a condition with several waiters may lose a signal
//            (glibc 2.27 to 2.40), and a broadcast wakes five workers that find nothing. Every
//            task is also broadcast on the queue's own condition, for whoever else waits there.
// Invariant: while a worker is idle, at least as many called ones are on their way to look as
//            tasks are pending.
class TaskQueue : public Semaphore {
 public:
  TaskQueue();
  ~TaskQueue() override;

  // Appends a task, calls an idle worker and broadcasts. Returns the status of the unlock, 0 on
  // success.
  int putTask(TaskCallback callback, void* arg, void* sender) EXCLUDES(this);
  // Puts a task aside for putPrepared, unless one is there already. Throws std::bad_alloc.
  void prepare(PreparedTask* prepared) EXCLUDES(this);
  // putTask with the task that was put aside; needs no memory. prepared must not be empty, and is
  // afterwards.
  int putPrepared(PreparedTask* prepared, TaskCallback callback, void* arg, void* sender)
      EXCLUDES(this);
  // Takes a task back that was put aside and not needed.
  void giveBack(PreparedTask* prepared) EXCLUDES(this);
  // Takes the oldest task, waiting for one; finished (may be null) is free for reuse from now on.
  // Returns null only after setExiting(), when nothing is pending.
  Task* popTask(Task* finished) EXCLUDES(this);
  // Withdraws the oldest pending task whose argument is arg and calls it with TENGINE_CANCELLED on
  // this thread. False when there is none, also when it runs or ran.
  bool cancel(void* arg) EXCLUDES(this);
  // Withdraws every pending task of that sender, oldest first, each called with TENGINE_CANCELLED
  // on this thread. Returns how many.
  int cancelAll(void* sender) EXCLUDES(this);
  // Withdraws every pending task without calling anyone. Returns how many.
  int cancelAll() EXCLUDES(this);
  // Lets popTask return null once nothing is pending.
  void setExiting() EXCLUDES(this);

  // Predicates of the withdrawals: compare with tmpObject, under the queue's lock.
  static bool isTaskOfArg(Task* task);
  static bool isTaskOfSender(Task* task);

 private:
  // Where a worker waits for a task. It leaves the idle places when it is taken to be called, and
  // comes back to the free ones after that call, so it is called once for each wait.
  class Place {
   public:
    void call() EXCLUDES(own);
    void waitForCall() EXCLUDES(own);

    Place* next = nullptr;  // in the list it is in, under the queue's lock

   private:
    Semaphore own;
    bool called GUARDED_BY(own) = false;
  };
  // More than the engine has workers. Whoever finds no place waits for the broadcast.
  static constexpr int kPlaces = 8;

  // Takes the worker that began to wait last off the idle ones, to be called. Null without one.
  Place* takeIdle() REQUIRES(this);
  // Gives the lock back until this thread is called. Needs no memory.
  void waitForTask() REQUIRES(this);
  // Calls each task of the list with TENGINE_CANCELLED and frees it for reuse.
  void callCancelled(const std::list<Task*>& withdrawn) EXCLUDES(this);

  std::list<Task*> pending GUARDED_BY(this);
  std::list<Task*> running GUARDED_BY(this);
  std::list<Task*> freeTasks GUARDED_BY(this);
  bool exiting GUARDED_BY(this);
  // Members, not objects of the waiting threads: who calls one may touch it after its worker left.
  Place places[kPlaces];
  Place* free GUARDED_BY(this);
  Place* idle GUARDED_BY(this);  // who began to wait last comes first

  // What the predicates look for. One for all queues, guarded by the lock of the queue that
  // searches: the process has one queue.
  static void* tmpObject;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_TASKQUEUE_H_
