#ifndef FLUVIAFS_UTIL_BUFFERBLOCKPOOL_H_
#define FLUVIAFS_UTIL_BUFFERBLOCKPOOL_H_

#include <list>

#include "util/BufferBlock.h"
#include "util/Relaxed.h"
#include "util/Semaphore.h"

namespace util {

// Idle blocks of one size, shared by every queue that uses that size.
//
// Threads:   pop and push from any thread; release and the reference count under the manager's
//            lock; a reader without that lock may see stale counters.
// Ownership: owns the idle blocks; a popped block belongs to the caller of pop until it is pushed.
class BufferBlockPool : public Semaphore {
 public:
  // blockSize: capacity in bytes of every block.
  explicit BufferBlockPool(int blockSize);
  ~BufferBlockPool() override;

  // Returns the block that has been idle longest, or a new one. Null if memory runs out.
  BufferBlock* pop() EXCLUDES(this);
  // Returns a block to the pool: emptied, with id and sequence number 0.
  void push(BufferBlock* block) EXCLUDES(this);
  // Frees the idle blocks if the pool has no reference. In every case the counters become 0 and the
  // list empty: popped blocks are forgotten, and idle blocks of a referenced pool are dropped
  // without being freed. This is intentional.
  void release() NO_THREAD_SAFETY_ANALYSIS;
  // Subtracts n blocks, which their owner freed itself, from the counters. Returns true.
  bool reduceblocksize(int n);

  int getBlockSize() const { return blockSize; }
  int getTotalBlockNumber() const { return totalBlockNumber; }
  int getFreeBlockNumber() const { return freeBlockNumber; }
  void referenced() { ++referenceCount; }
  void dereferenced() { --referenceCount; }
  int dereferencount() const { return referenceCount; }
  bool gethasblockremove() const { return hasBlockRemove; }

 private:
  Relaxed<bool> hasBlockRemove;
  int blockSize;
  Relaxed<int> totalBlockNumber;
  Relaxed<int> freeBlockNumber;
  Relaxed<int> referenceCount;
  std::list<BufferBlock*> freeBlocks GUARDED_BY(this);
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_BUFFERBLOCKPOOL_H_
