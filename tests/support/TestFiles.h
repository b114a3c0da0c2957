#ifndef FLUVIAFS_TESTS_SUPPORT_TESTFILES_H_
#define FLUVIAFS_TESTS_SUPPORT_TESTFILES_H_

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace support {

// A separate folder for a test; its end removes it with its contents.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  // Makes a file of size bytes of the test pattern from offset base on; returns its path.
  std::string makePattern(const std::string& name, long long size,
                          unsigned long long base = 0) const;
  // Makes a file of that size without blocks; returns its path.
  std::string makeSparse(const std::string& name, long long size) const;
  std::string makeText(const std::string& name, const std::string& text) const;

 private:
  std::string path_;
};

// Collects the completions of asynchronous reads.
class Completions {
 public:
  struct Call {
    int id;
    int status;
    int bytes;
  };

  // The callback of the C API; userData is the Completions.
  static void completed(int id, void* userData, int status, int bytes);

  // Waits until that many calls have come. Returns false after seconds (of patience).
  bool waitFor(size_t count, int seconds = 20);
  std::vector<Call> calls() const;
  size_t count() const;

 private:
  mutable std::mutex lock;
  std::condition_variable changed;
  std::vector<Call> made;
};

// Threads and open descriptors of this process.
int threadCount();
int descriptorCount();

// Makes a thread, and returns once it is no longer listed. A sanitizer's own thread starts with the
// first thread: after this, threads can be counted.
void makeFirstThread();

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_TESTFILES_H_
