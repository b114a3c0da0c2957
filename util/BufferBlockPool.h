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
//            lock; the counters may be momentarily stale to a reader without it.
// Ownership: owns the idle blocks; a popped block belongs to its taker until it is pushed.
class BufferBlockPool : public Semaphore {
 public:
  // blockSize: capacity in bytes of every block.
  explicit BufferBlockPool(int blockSize);
  ~BufferBlockPool() override;

  // The longest idle block, or a new one. Null when there is no memory.
  BufferBlock* pop() EXCLUDES(this);
  // Gives a block back, emptied, with id and sequence number 0.
  void push(BufferBlock* block) EXCLUDES(this);
  // Frees the idle blocks when nobody refers to the pool. In every case the counters become 0 and
  // the list empty: blocks still held outside are forgotten, idle ones of a referenced pool are
  // dropped without being freed. That is wanted.
  void release() NO_THREAD_SAFETY_ANALYSIS;
  // Writes off n blocks that their owner freed itself. Returns true.
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
