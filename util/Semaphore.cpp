#include "util/Semaphore.h"

#include <time.h>
#include <unistd.h>

namespace util {

Semaphore::Semaphore() {
  pthread_mutex_init(&mutex_, nullptr);
  pthread_cond_init(&condition_, nullptr);
}

Semaphore::~Semaphore() {
  pthread_cond_destroy(&condition_);
  pthread_mutex_destroy(&mutex_);
}

void Semaphore::syncBegin() const NO_THREAD_SAFETY_ANALYSIS { pthread_mutex_lock(&mutex_); }

int Semaphore::syncEnd() const NO_THREAD_SAFETY_ANALYSIS { return pthread_mutex_unlock(&mutex_); }

void Semaphore::wait(int /*unused*/) const { pthread_cond_wait(&condition_, &mutex_); }

bool Semaphore::waitFor(int milliseconds) const {
  struct timespec until;
  clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_sec += milliseconds / 1000;
  until.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000L;
  if (until.tv_nsec >= 1000000000L) {
    until.tv_nsec -= 1000000000L;
    until.tv_sec += 1;
  }
  return pthread_cond_clockwait(&condition_, &mutex_, CLOCK_MONOTONIC, &until) == 0;
}

void Semaphore::notify(int /*unused*/) const { pthread_cond_signal(&condition_); }

void Semaphore::notifyAll(int /*unused*/) const { pthread_cond_broadcast(&condition_); }

void delay(int milliseconds) {
  if (milliseconds >= 1000) sleep(static_cast<unsigned int>(milliseconds / 1000));
}

}  // namespace util
