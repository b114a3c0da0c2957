/* To be preloaded: pread(2), with 64-bit offsets, returns a changed byte at the file offset in
   BENT_OFFSET. */
#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>

typedef ssize_t (*pread_function)(int, void*, size_t, off_t);

ssize_t pread64(int file, void* buffer, size_t size, off_t offset);

__attribute__((visibility("default"))) ssize_t pread64(int file, void* buffer, size_t size,
                                                       off_t offset) {
  const char* bent = getenv("BENT_OFFSET");
  const long long at = bent != NULL ? atoll(bent) : -1;
  pread_function real = NULL;
  /* The standard has no conversion from void* to a function. */
  void* found = dlsym(RTLD_NEXT, "pread64");
  ssize_t got = 0;
  memcpy(&real, &found, sizeof real);
  got = real(file, buffer, size, offset);
  if (got > 0 && at >= offset && at < offset + got) {
    ((char*)buffer)[at - offset] ^= 1;
  }
  return got;
}
