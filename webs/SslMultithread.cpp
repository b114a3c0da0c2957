#include "webs/SslMultithread.h"

#include <openssl/crypto.h>
#include <pthread.h>

#include <cstdlib>

#include "util/NeverDestroyed.h"
#include "util/Semaphore.h"

namespace {

util::NeverDestroyed<util::Semaphore> arrayLock;
pthread_mutex_t* mutexes = nullptr;

// A macro that is 1 with the crypto library's current interface.
int lockCount() {
  const int count = CRYPTO_num_locks();
  return count > 0 ? count : 1;
}

}  // namespace

int cd_ssl_multithread_setup() {
  util::Lock lock(arrayLock.get());
  if (mutexes != nullptr) return 0;
  const int count = lockCount();
  auto* array =
      static_cast<pthread_mutex_t*>(malloc(static_cast<size_t>(count) * sizeof(pthread_mutex_t)));
  if (array == nullptr) return -2;
  for (int i = 0; i < count; ++i) pthread_mutex_init(&array[i], nullptr);
  mutexes = array;
  return 0;
}

int cd_ssl_multithread_cleanup() {
  util::Lock lock(arrayLock.get());
  if (mutexes == nullptr) return 0;
  const int count = lockCount();
  for (int i = 0; i < count; ++i) pthread_mutex_destroy(&mutexes[i]);
  free(mutexes);
  mutexes = nullptr;
  return 0;
}
