#ifndef FLUVIAFS_TESTS_FUZZ_FUZZTARGET_H_
#define FLUVIAFS_TESTS_FUZZ_FUZZTARGET_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// Every target defines this; libFuzzer or the replay program calls it for each input. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Ends the process with a report if a property does not hold.
#define FUZZ_CHECK(condition)                                                        \
  do {                                                                               \
    if (!(condition)) {                                                              \
      std::fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                  \
    }                                                                                \
  } while (false)

#endif  // FLUVIAFS_TESTS_FUZZ_FUZZTARGET_H_
