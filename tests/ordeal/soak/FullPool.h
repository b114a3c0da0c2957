#ifndef FLUVIAFS_TESTS_ORDEAL_SOAK_FULLPOOL_H_
#define FLUVIAFS_TESTS_ORDEAL_SOAK_FULLPOOL_H_

#include <string>
#include <vector>

namespace soak {

// Keeps the library's pool of blocks at its largest size.
//
// While anything is open the pool keeps the blocks that were once in use together, up to 32 MiB.
// How many buffers random players have open together at most is random, and would look like growth.
//
// Threads: one.
class FullPool {
 public:
  // server: the prefix of the URLs of kBuffers films, "/fill0" and so on.
  explicit FullPool(const std::string& server) : server_(server) {}
  ~FullPool() { release(); }
  FullPool(const FullPool&) = delete;
  FullPool& operator=(const FullPool&) = delete;

  // Fills that many buffers at once and closes all but one, which keeps the pool. Returns an empty
  // string, or the error.
  std::string fill();
  // Closes that last buffer.
  void release();

  // One less than 16 buffers of 2 MiB; above that, a closed buffer is freed.
  static constexpr int kBuffers = 15;

 private:
  std::string server_;
  std::vector<int> handles_;
};

}  // namespace soak

#endif  // FLUVIAFS_TESTS_ORDEAL_SOAK_FULLPOOL_H_
