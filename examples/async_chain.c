/*
 * Copies a file or URL to standard output with asynchronous reads:
 *
 *   async_chain SRC >COPY
 *
 * Outstanding requests begin at the same position, so each one is issued from the callback of the
 * previous one.
 */
#include <fluviafs.h>
#include <pthread.h>
#include <stdio.h>

struct copy {
  int handle;
  char buffer[65536];
  pthread_mutex_t lock;
  pthread_cond_t changed;
  int over;   /* guarded by lock */
  int failed; /* guarded by lock; valid once over */
};

static void finish(struct copy* copy, int failed) {
  pthread_mutex_lock(&copy->lock);
  copy->over = 1;
  copy->failed = failed;
  pthread_cond_signal(&copy->changed);
  pthread_mutex_unlock(&copy->lock);
}

static void ask(struct copy* copy);

/* On a thread of the library. The position has moved past the bytes that were read. */
static void arrived(int request, void* user_data, int status, int bytes) {
  struct copy* copy = user_data;
  (void)request;
  if (status == FVFR_ASYNC_END_OF_FILE) {
    finish(copy, 0);
  } else if (status != FVFR_ASYNC_DONE ||
             fwrite(copy->buffer, 1, (size_t)bytes, stdout) != (size_t)bytes) {
    finish(copy, 1);
  } else {
    ask(copy);
  }
}

static void ask(struct copy* copy) {
  int request = 0;
  if (x_fluvia_file_read_async(copy->handle, copy->buffer, sizeof copy->buffer, arrived, copy,
                               &request) != FVFR_OK) {
    finish(copy, 1);
  }
}

int main(int argc, char** argv) {
  static struct copy copy = {0, {0}, PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0, 0};

  if (argc != 2) {
    fprintf(stderr, "usage: async_chain SRC\n");
    return 2;
  }
  if (x_fluvia_file_open(argv[1], &copy.handle) != FVFR_OK) {
    fprintf(stderr, "%s: not an absolute path or an http(s) URL\n", argv[1]);
    return 1;
  }
  ask(&copy);
  pthread_mutex_lock(&copy.lock);
  while (!copy.over) {
    pthread_cond_wait(&copy.changed, &copy.lock);
  }
  pthread_mutex_unlock(&copy.lock);

  /* Waits for the last callback to return: after that the library does not use copy any more. */
  x_fluvia_file_close(copy.handle);
  if (copy.failed || fflush(stdout) != 0) {
    fprintf(stderr, "%s: gave up\n", argv[1]);
    return 1;
  }
  return 0;
}
