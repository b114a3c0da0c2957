#ifndef FLUVIAFS_TESTS_WEBS_TESTRESOLVER_H_
#define FLUVIAFS_TESTS_WEBS_TESTRESOLVER_H_

#include <atomic>

// The name resolver of a program that contains this: libcurl's look-ups come here. Names that end
// in
// ".test" are 127.0.0.1.
namespace test_resolver {

// While held no look-up ends, each for five seconds at most; then it has failed.
extern std::atomic<bool> held;
// How many were begun and are over, of all names.
extern std::atomic<int> begun;
extern std::atomic<int> over;

}  // namespace test_resolver

#endif  // FLUVIAFS_TESTS_WEBS_TESTRESOLVER_H_
