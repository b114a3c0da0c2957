// The program whose instructions bench/hot/check counts: 1024 blocks through the queue, in by
// chunks of 16 KiB and out by reads of 32 KiB, of 4 KiB and of 256 bytes in turn. Only
// fluviaHotPath() is counted; the bytes are compared outside of it.
#include <cstdio>

#include "bench/common/OneThreadQueue.h"

extern "C" __attribute__((noinline)) bool fluviaHotPath(bench::OneThreadQueue* queue,
                                                        unsigned int read) {
  return queue->pass(16384, read);
}

int main() {
  constexpr unsigned int kReads[] = {32768, 4096, 256};
  bench::OneThreadQueue queue;
  if (!queue.start()) {
    fputs("the queue did not start\n", stderr);
    return 1;
  }
  for (int i = 0; i < 1024; ++i) {
    if (!fluviaHotPath(&queue, kReads[i % 3]) || !queue.rightBlock()) {
      fprintf(stderr, "block %d did not pass\n", i);
      return 1;
    }
  }
  return 0;
}
