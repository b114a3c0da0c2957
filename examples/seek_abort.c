/*
 * What a player does when the viewer seeks around: seeks, reads, and cancels requests.
 *
 *   seek_abort SRC
 *
 * Reads the last bytes, the middle and the beginning of SRC, then issues a read and aborts it.
 */
#include <fluviafs.h>
#include <pthread.h>
#include <stdio.h>

struct request {
  pthread_mutex_t lock;
  pthread_cond_t changed;
  int calls;     /* guarded by lock */
  int status;    /* guarded by lock; of the first call */
  char data[64]; /* in use by the library until a callback came or close returned */
};

/* An abort may call back twice, so the request must live until close has returned. */
static void answered(int id, void* user_data, int status, int bytes) {
  struct request* request = user_data;
  (void)id;
  (void)bytes;
  pthread_mutex_lock(&request->lock);
  if (request->calls++ == 0) {
    request->status = status;
  }
  pthread_cond_signal(&request->changed);
  pthread_mutex_unlock(&request->lock);
}

static int read_at(int handle, long long offset) {
  char bytes[16];
  unsigned int got = 0;
  long long now = 0;
  int result = x_fluvia_file_seek(handle, offset, &now);
  if (result != FVFR_OK) {
    return result;
  }
  result = x_fluvia_file_read(handle, bytes, sizeof bytes, &got);
  if (result == FVFR_OK || result == FVFR_END_OF_FILE) {
    printf("%u bytes at %lld\n", got, now);
    return FVFR_OK;
  }
  return result;
}

static int ask_and_abort(int handle, struct request* request) {
  int id = 0;
  int result =
      x_fluvia_file_read_async(handle, request->data, sizeof request->data, answered, request, &id);
  if (result != FVFR_OK) {
    return result;
  }
  result = x_fluvia_file_read_abort(handle, id);
  if (result != FVFR_OK) {
    return result;
  }
  /* Aborted or, if the read was faster than the abort, done: the callback comes in both cases. */
  pthread_mutex_lock(&request->lock);
  while (request->calls == 0) {
    pthread_cond_wait(&request->changed, &request->lock);
  }
  printf("request %d %s\n", id, request->status == FVFR_ASYNC_CANCELLED ? "aborted" : "done");
  pthread_mutex_unlock(&request->lock);
  return FVFR_OK;
}

int main(int argc, char** argv) {
  static struct request request = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0, 0, {0}};
  long long size = 0;
  int handle = 0;
  int result = FVFR_OK;

  if (argc != 2) {
    fprintf(stderr, "usage: seek_abort SRC\n");
    return 2;
  }
  if (x_fluvia_file_open(argv[1], &handle) != FVFR_OK) {
    fprintf(stderr, "%s: not an absolute path or an http(s) URL\n", argv[1]);
    return 1;
  }
  size = x_fluvia_file_size(handle);
  if (size <= 0 || size == FVFR_UNKNOWN_SIZE) {
    fprintf(stderr, "%s: empty, missing or without a known size\n", argv[1]);
    x_fluvia_file_close(handle);
    return 1;
  }
  result = read_at(handle, size > 16 ? size - 16 : 0);
  if (result == FVFR_OK) {
    result = read_at(handle, size / 2);
  }
  if (result == FVFR_OK) {
    result = read_at(handle, 0);
  }
  if (result == FVFR_OK) {
    result = ask_and_abort(handle, &request);
  }
  x_fluvia_file_close(handle);
  if (result != FVFR_OK) {
    fprintf(stderr, "%s: gave up, result %d\n", argv[1], result);
    return 1;
  }
  return 0;
}
