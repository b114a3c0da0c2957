#ifndef FLUVIAFS_TESTS_SUPPORT_CAPTUREDSTDERR_H_
#define FLUVIAFS_TESTS_SUPPORT_CAPTUREDSTDERR_H_

#include <string>
#include <vector>

namespace support {

// Sends standard error into a file for its life and sets the log level; puts both back at its end.
class CapturedStderr {
 public:
  explicit CapturedStderr(int logLevel);
  ~CapturedStderr();
  CapturedStderr(const CapturedStderr&) = delete;
  CapturedStderr& operator=(const CapturedStderr&) = delete;

  // Everything written so far.
  std::string text() const;
  // Messages of the library's log lines so far, as "function: message"; without a function's name,
  // those of all functions.
  std::vector<std::string> messages(const std::string& function = "") const;
  // Those of the calling thread: nobody else writes another one while they are compared.
  std::vector<std::string> ownMessages() const;
  // Whether such a "function: message" was logged.
  bool has(const std::string& line) const;
  // How often it was.
  int count(const std::string& line) const;

 private:
  // thread: only that one's lines; 0 for every thread's.
  std::vector<std::string> messagesOf(const std::string& function, long thread) const;

  int saved;
  int file;
  int savedLevel;
};

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_CAPTUREDSTDERR_H_
