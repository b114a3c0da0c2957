#ifndef FLUVIAFS_UTIL_BUFFERBLOCKPOOLMANAGER_H_
#define FLUVIAFS_UTIL_BUFFERBLOCKPOOLMANAGER_H_

#include <list>

#include "util/BufferBlockPool.h"
#include "util/NeverDestroyed.h"

namespace util {

// One pool of blocks for each block size in use, counted by reference.
//
// Threads:   any. Only one lock is held at a time: a pool's or the manager's.
// Ownership: owns the listed pools. A pool that leaves the list is deliberately not destroyed.
class BufferBlockPoolManager : public Semaphore {
 public:
  BufferBlockPoolManager();
  ~BufferBlockPoolManager() override;

  static BufferBlockPoolManager* getInstance();

  // Returns the pool for exactly that block size in bytes and adds one reference to it. The first
  // call creates the pool. Null if memory runs out.
  BufferBlockPool* claimPool(int blockSize) EXCLUDES(this);
  // Drops one reference. The last one frees the pool's idle blocks and unlists the pool.
  void declaimPool(BufferBlockPool* pool) EXCLUDES(this);
  // Sums over the listed pools in bytes; each pool's product is formed in 32 bits.
  long long getTotalMemorySize() EXCLUDES(this);
  long long getFreeMemorySize() EXCLUDES(this);

 private:
  std::list<BufferBlockPool*> poolList GUARDED_BY(this);

  static NeverDestroyed<BufferBlockPoolManager> _INS_;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_BUFFERBLOCKPOOLMANAGER_H_
