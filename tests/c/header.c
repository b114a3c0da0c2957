/* Compiled, never run: the public header needs no other header, may be included twice, and every
   function of its two families can be taken the address of with the type that callers rely on. */
#include <fluviafs.h>

#define FAMILY(prefix)                                                                      \
  int (*prefix##Open)(const char*, int*) = prefix##_fluvia_file_open;                       \
  int (*prefix##OpenX)(const char*, int*, int) = prefix##_fluvia_file_open_x;               \
  int (*prefix##Close)(int) = prefix##_fluvia_file_close;                                   \
  int (*prefix##Volatile)(int) = prefix##_fluvia_file_volatile;                             \
  int (*prefix##Read)(int, char*, unsigned int, unsigned int*) = prefix##_fluvia_file_read; \
  int (*prefix##ReadAsync)(int, char*, unsigned int, void (*)(int, void*, int, int), void*, \
                           int*) = prefix##_fluvia_file_read_async;                         \
  int (*prefix##ReadAbort)(int, int) = prefix##_fluvia_file_read_abort;                     \
  int (*prefix##Seek)(int, long long, long long*) = prefix##_fluvia_file_seek;              \
  long long (*prefix##Offset)(int) = prefix##_fluvia_file_offset;                           \
  long long (*prefix##Size)(int) = prefix##_fluvia_file_size;                               \
  int (*prefix##BufferSize)(int) = prefix##_fluvia_file_bufferSize;                         \
  int (*prefix##BufferedSize)(int) = prefix##_fluvia_file_bufferedSize;                     \
  int (*prefix##DumpBuffer)(void*, void*) = prefix##_fluvia_file_dump_buffer;               \
  void (*prefix##DisableLog)(void) = prefix##_fluvia_file_disable_log;                      \
  void (*prefix##SetLogLevel)(int) = prefix##_fluvia_file_set_log_level;                    \
  int (*prefix##GetLogLevel)(void) = prefix##_fluvia_file_get_log_level

FAMILY(x);
FAMILY(c);

/* An array of negative size stops the compilation when a value that callers have compiled in moves.
 */
#define SAME(name, constant, value) typedef char name[(constant) == (value) ? 1 : -1]
SAME(okIs0, FVFR_OK, 0);
SAME(notAppliedIsMinus1, FVFR_NOT_APPLIED, -1);
SAME(failedIsMinus4, FVFR_FAILED, -4);
SAME(timeoutIsMinus6, FVFR_TIMEOUT, -6);
SAME(seekRefusedIsMinus12, FVFR_SEEK_REFUSED, -12);
SAME(endOfFileIsMinus13, FVFR_END_OF_FILE, -13);
SAME(notAvailableIsMinus17, FVFR_NOT_AVAILABLE, -17);
SAME(notFoundIsMinus21, FVFR_NOT_FOUND, -21);
SAME(asyncFailedIsMinus1, FVFR_ASYNC_FAILED, -1);
SAME(asyncDoneIs1, FVFR_ASYNC_DONE, 1);
SAME(asyncCancelledIs3, FVFR_ASYNC_CANCELLED, 3);
SAME(asyncEndOfFileIs4, FVFR_ASYNC_END_OF_FILE, 4);
SAME(unknownSizeIs60Bits, FVFR_UNKNOWN_SIZE, 1152921504606846975LL);
