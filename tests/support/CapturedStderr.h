#ifndef FLUVIAFS_TESTS_SUPPORT_CAPTUREDSTDERR_H_
#define FLUVIAFS_TESTS_SUPPORT_CAPTUREDSTDERR_H_

#include <string>
#include <vector>

namespace support {

// Redirects standard error to a file and sets the log level during its life; its end restores both.
class CapturedStderr {
 public:
  explicit CapturedStderr(int logLevel);
  ~CapturedStderr();
  CapturedStderr(const CapturedStderr&) = delete;
  CapturedStderr& operator=(const CapturedStderr&) = delete;

  // Everything written so far.
  std::string text() const;
  // Messages of the library's log lines so far, as "function: message"; without a function's name,
  // the messages of all functions.
  std::vector<std::string> messages(const std::string& function = "") const;
  // The messages of the calling thread: no other thread adds one while they are compared.
  std::vector<std::string> ownMessages() const;
  // True if such a "function: message" was logged.
  bool has(const std::string& line) const;
  // Returns how often it was logged.
  int count(const std::string& line) const;

 private:
  // thread: only that thread's lines; 0 for every thread's.
  std::vector<std::string> messagesOf(const std::string& function, long thread) const;

  int saved;
  int file;
  int savedLevel;
};

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_CAPTUREDSTDERR_H_
