#ifndef FLUVIAFS_TESTS_SUPPORT_PRIVATEDATA_H_
#define FLUVIAFS_TESTS_SUPPORT_PRIVATEDATA_H_

#include <functional>
#include <string>

namespace support {

struct ChildResult {
  int exitCode;       // -1 when a signal or the deadline ended it
  std::string error;  // its standard error
};

// Ends a child with that code, without anything that exit() does but to write down what was reached
// in a build that counts it.
[[noreturn]] void endChild(int code);

// Runs body in a child process, which is killed after that many seconds (of patience). The child
// ends by _exit(0) after the body, or with the exit code that the body chose.
ChildResult inChild(const std::function<void()>& body, int seconds = 60);

// The same, for a minute, in a mount namespace of its own, in which /data is an empty folder that
// can be written. The files of the machine are untouched.
ChildResult inPrivateData(const std::function<void()>& body);

// Writes a file in /data, with the folders it needs.
void writeData(const std::string& path, const std::string& text);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_PRIVATEDATA_H_
