#ifndef FLUVIAFS_TESTS_WEBS_TESTRESOLVER_H_
#define FLUVIAFS_TESTS_WEBS_TESTRESOLVER_H_

#include <atomic>

// The name resolver of a program that contains this: it replaces libcurl's lookups. Names that end
// in ".test" are 127.0.0.1.
namespace test_resolver {

// While held no lookup ends. Each waits for at most five seconds and then fails.
extern std::atomic<bool> held;
// The number of lookups that were begun and that are over, of all names.
extern std::atomic<int> begun;
extern std::atomic<int> over;

}  // namespace test_resolver

#endif  // FLUVIAFS_TESTS_WEBS_TESTRESOLVER_H_
