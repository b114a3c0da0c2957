#ifndef FLUVIAFS_TESTS_ORDEAL_SOAK_FULLPOOL_H_
#define FLUVIAFS_TESTS_ORDEAL_SOAK_FULLPOOL_H_

#include <string>
#include <vector>

namespace soak {

// Keeps the library's pool of blocks as large as it gets.
//
// While anything is open the pool keeps what was in use at one time, up to 32 MiB. How many buffers
// random players have open together at most is luck, and would be taken for growth.
//
// Threads: one.
class FullPool {
 public:
  // server: the beginning of the URLs of kBuffers films, "/fill0" and so on.
  explicit FullPool(const std::string& server) : server_(server) {}
  ~FullPool() { release(); }
  FullPool(const FullPool&) = delete;
  FullPool& operator=(const FullPool&) = delete;

  // Fills that many buffers at once and closes all but one, which keeps the pool. Empty, or what
  // went wrong.
  std::string fill();
  // Closes that one.
  void release();

  // One less than the 16 of 2 MiB above which a buffer that is closed is freed.
  static constexpr int kBuffers = 15;

 private:
  std::string server_;
  std::vector<int> handles_;
};

}  // namespace soak

#endif  // FLUVIAFS_TESTS_ORDEAL_SOAK_FULLPOOL_H_
