#ifndef FLUVIAFS_TESTS_TORTURE_SCENARIO_H_
#define FLUVIAFS_TESTS_TORTURE_SCENARIO_H_

#include <string>

// The use of the library while something below it fails.
namespace torture {

// Resource of the test pattern. Threads: none of its own.
struct Resource {
  std::string url;
  long long size;  // bytes
  // A local file that cannot be reopened delivers neither bytes nor an end: its reads wait until
  // they are aborted, which happens after three seconds.
  bool impatient = false;
};

// How strictly the results are judged.
enum class Judge {
  kMayFail,  // any code of the interface; delivered bytes are right, each call returns
  kMustPass  // everything succeeds
};

// Opens, reads, seeks, asks, reads asynchronously, aborts, closes. Only the calls themselves can be
// made to fail. Returns an empty text, or what was wrong.
// Adds to *fileless each opening that gave no shared file: what its producer has opened then stays
// open for good.
std::string useLibrary(const Resource& resource, Judge judge, int* fileless);

// The same with two handles of the resource that read at the same time, near and far, one of them
// asynchronously too. It is closed while the other one reads.
std::string useLibraryTwice(const Resource& resource, Judge judge, int* fileless);

}  // namespace torture

#endif  // FLUVIAFS_TESTS_TORTURE_SCENARIO_H_
