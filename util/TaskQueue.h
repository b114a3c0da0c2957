#ifndef FLUVIAFS_UTIL_TASKQUEUE_H_
#define FLUVIAFS_UTIL_TASKQUEUE_H_

#include <list>

#include "util/Semaphore.h"

namespace util {

// Reason for which a task's callback is called.
enum TEngineEvent_E {
  TENGINE_EXECUTE = 0,   // the task runs on a worker
  TENGINE_CANCELLED = 1  // the task was withdrawn before a worker took it; its only call
};

using TaskCallback = void (*)(void* arg, TEngineEvent_E event);

// One job: a callback, its argument, and a tag that identifies who queued it.
class Task {
 public:
  Task(TaskCallback callback, void* arg, void* sender);
  virtual ~Task();

  TaskCallback callback;
  void* arg;     // not owned
  void* sender;  // compared, never dereferenced
};

// Space for at most one task, allocated before it is needed.
using PreparedTask = std::list<Task*>;

// First-in-first-out queue of tasks, with a free list of task objects.
//
// Threads:   any. Callbacks are never called with the queue's lock held, so they may queue and
//            withdraw tasks themselves.
// Ownership: owns every Task; none is deleted while the process lives.
// Waking:    each task wakes one idle worker, which then pops a task. Each worker waits on a
//            condition of its own, because a condition with several waiters may lose a signal
//            (glibc 2.27 to 2.40), and a broadcast would wake five workers without a task. Every
//            task is also broadcast on the queue's own condition, for other waiters there.
// Invariant: while a worker is idle, at least as many woken workers are about to pop as tasks are
//            pending.
class TaskQueue : public Semaphore {
 public:
  TaskQueue();
  ~TaskQueue() override;

  // Appends a task, wakes an idle worker and broadcasts. Returns the status of the unlock, 0 on
  // success.
  int putTask(TaskCallback callback, void* arg, void* sender) EXCLUDES(this);
  // Reserves a task for putPrepared, unless one is reserved already. Throws std::bad_alloc.
  void prepare(PreparedTask* prepared) EXCLUDES(this);
  // Like putTask, with the reserved task; allocates nothing. prepared must not be empty; it is
  // empty afterwards.
  int putPrepared(PreparedTask* prepared, TaskCallback callback, void* arg, void* sender)
      EXCLUDES(this);
  // Returns a reserved task that was not needed to the free list.
  void giveBack(PreparedTask* prepared) EXCLUDES(this);
  // Takes the oldest task, waiting for one. finished (may be null) is free for reuse from now on.
  // Returns null only after setExiting(), when nothing is pending.
  Task* popTask(Task* finished) EXCLUDES(this);
  // Withdraws the oldest pending task whose argument is arg and calls it with TENGINE_CANCELLED on
  // this thread. Returns false if there is none, also if it runs or ran.
  bool cancel(void* arg) EXCLUDES(this);
  // Withdraws every pending task of that sender, oldest first, and calls each with
  // TENGINE_CANCELLED on this thread. Returns their number.
  int cancelAll(void* sender) EXCLUDES(this);
  // Withdraws every pending task without a callback. Returns their number.
  int cancelAll() EXCLUDES(this);
  // Lets popTask return null once nothing is pending.
  void setExiting() EXCLUDES(this);

  // Predicates of the withdrawals: compare with tmpObject. Require the queue's lock.
  static bool isTaskOfArg(Task* task);
  static bool isTaskOfSender(Task* task);

 private:
  // Where a worker waits for a task. It leaves the idle list when it is chosen to be woken, and
  // returns to the free list after that wake-up. So it is woken once per wait.
  class Place {
   public:
    void call() EXCLUDES(own);
    void waitForCall() EXCLUDES(own);

    Place* next = nullptr;  // in the list that it is in; guarded by the queue's lock

   private:
    Semaphore own;
    bool called GUARDED_BY(own) = false;
  };
  // More than the engine has workers. A worker that finds no place waits for the broadcast.
  static constexpr int kPlaces = 8;

  // Removes the worker that began to wait last from the idle list, to be woken. Null if none is
  // idle.
  Place* takeIdle() REQUIRES(this);
  // Unlocks until this thread is woken. Allocates nothing.
  void waitForTask() REQUIRES(this);
  // Calls each task of the list with TENGINE_CANCELLED and frees it for reuse.
  void callCancelled(const std::list<Task*>& withdrawn) EXCLUDES(this);

  std::list<Task*> pending GUARDED_BY(this);
  std::list<Task*> running GUARDED_BY(this);
  std::list<Task*> freeTasks GUARDED_BY(this);
  bool exiting GUARDED_BY(this);
  // Members, not objects of the waiting threads: a waker may touch a place after its worker has
  // left.
  Place places[kPlaces];
  Place* free GUARDED_BY(this);
  Place* idle GUARDED_BY(this);  // the one that began to wait last comes first

  // What the predicates compare with. One for all queues, guarded by the lock of the queue that
  // searches: the process has one queue.
  static void* tmpObject;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_TASKQUEUE_H_
