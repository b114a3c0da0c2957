#include "util/ThreadObject.h"

#include "util/Log.h"
#include "util/PausePoint.h"

namespace util {

ThreadObject::ThreadObject(void* (*function)(void*))
    : threadFunction(function), threadArg(nullptr), thread(), wakeRequested(false) {}

ThreadObject::~ThreadObject() {
  stop(true);
  FLUVIA_LOG(0, "1");
}

bool ThreadObject::start(void* arg) {
  Lock lock(*this);
  threadArg = arg;
  if (alive) {
    FLUVIA_LOG(0, "error, has already started");
    notifyAll(0);
    return false;
  }
  if (forceClose) {
    FLUVIA_LOG(0, "The thread has been froced to destroyed yet, start failed %d",
               createResult.get());
    notifyAll(0);
    return false;
  }
  if (sleeping) {
    FLUVIA_LOG(0, "Tend to wake up or restart thread, sleep:%d, alive:%d", sleeping.get(),
               alive.get());
    forceClose = false;
    alive = true;
    wakeRequested = true;
    notifyAll(0);
    return true;
  }
  if (created) {
    FLUVIA_LOG(0, "re-alive a thread before it is going to sleep");
    alive = true;
    notifyAll(0);
    return true;
  }
  return create();
}

// Creates the thread, whose first run begins at once.
bool ThreadObject::create() {
  createResult = pthread_create(&thread, nullptr, runner, this);
  // Also after a failure. Intentional: a later start() then takes the branch above.
  created = true;
  FLUVIA_PAUSE_POINT("ThreadObject::start created");
  if (createResult != 0) {
    FLUVIA_LOG_AS("start", 0, "create failed%d", createResult.get());
    notifyAll(0);
    return false;
  }
  FLUVIA_LOG_AS("start", 0, "create thread %d", createResult.get());
  alive = true;
  notifyAll(0);
  return true;
}

void ThreadObject::stop(bool force) {
  Lock lock(*this);
  if (!alive) {
    FLUVIA_LOG(0, "1");
    if (forceClose) {
      FLUVIA_LOG(0, "have already stopped");
      if (force) waitUntilGone();
      return;
    }
    if (!force) {
      FLUVIA_LOG(0, "have already paused");
      return;
    }
    if (!created) {
      FLUVIA_LOG(0, "hasn't ever started");
      return;
    }
  }
  alive = false;
  forceClose = force;
  if (forceClose) {
    wakeRequested = true;
    while (threadExists()) {
      FLUVIA_LOG(0, "wait for thread object to be destroyed");
      notifyAll(0);
      wait(0);
    }
  }
  FLUVIA_LOG(0, "stop OK");
}

void ThreadObject::waitUntilGone() {
  while (threadExists()) {
    notifyAll(0);
    wait(0);
  }
}

bool ThreadObject::needExit() {
  Lock lock(*this);
  return !alive;
}

void ThreadObject::haveDestoryed() {
  sleeping = false;
  created = false;
}

bool ThreadObject::park() {
  haveSleeped();
  wakeRequested = false;
  FLUVIA_LOG_AS("runner", 0, "thread begin to sleep");
  while (!wakeRequested) wait(0);
  wakeRequested = false;
  haveWakeup();
  FLUVIA_LOG_AS("runner", 0, "thread woken up");
  if (forceClose) {
    haveDestoryed();
    notifyAll(0);
    return false;
  }
  FLUVIA_LOG_AS("runner", 0, "thread continues next loop");
  return true;
}

void* runner(void* object) {
  ThreadObject* self = static_cast<ThreadObject*>(object);
  for (bool running = true; running;) {
    FLUVIA_PAUSE_POINT("runner before run");
    self->syncBegin();
    self->haveGone();
    void* arg = self->threadArg;
    self->syncEnd();
    self->threadFunction(arg);
    Lock lock(*self);
    self->notifyAll(0);
    if (self->forceClose) {
      self->haveDestoryed();
      running = false;
    } else if (!self->alive) {
      running = self->park();
    } else {
      FLUVIA_LOG(0, "thread continues next loop 1");
    }
  }
  // The object may have been destroyed by now: do not access it any more.
  FLUVIA_LOG(0, "destroy thread");
  pthread_detach(pthread_self());
  FLUVIA_LOG(0, "attached end ");
  return nullptr;
}

}  // namespace util
