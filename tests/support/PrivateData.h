#ifndef FLUVIAFS_TESTS_SUPPORT_PRIVATEDATA_H_
#define FLUVIAFS_TESTS_SUPPORT_PRIVATEDATA_H_

#include <functional>
#include <string>

namespace support {

struct ChildResult {
  int exitCode;       // -1 if a signal or the deadline ended it
  std::string error;  // its standard error
};

// Ends a child with that code, without the work of exit(), but writes the counters of a build that
// counts coverage.
[[noreturn]] void endChild(int code);

// Runs body in a child process, which is killed after that many seconds (of patience). The child
// ends with _exit(0) after the body, or with the exit code of the body.
ChildResult inChild(const std::function<void()>& body, int seconds = 60);

// The same, for a minute, in a mount namespace of its own, in which /data is an empty writable
// folder. The machine's files do not change.
ChildResult inPrivateData(const std::function<void()>& body);

// Writes a file in /data, and makes its folders.
void writeData(const std::string& path, const std::string& text);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_PRIVATEDATA_H_
