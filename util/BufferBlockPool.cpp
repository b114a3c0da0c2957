#include "util/BufferBlockPool.h"

#include <new>

namespace util {

BufferBlockPool::BufferBlockPool(int size) : hasBlockRemove(true), blockSize(size) {}

BufferBlockPool::~BufferBlockPool() = default;

BufferBlock* BufferBlockPool::pop() {
  Lock lock(*this);
  if (!freeBlocks.empty()) {
    BufferBlock* block = freeBlocks.front();
    freeBlocks.pop_front();
    --freeBlockNumber;
    return block;
  }
  try {
    BufferBlock* block = new BufferBlock(static_cast<unsigned int>(blockSize), 0);
    ++totalBlockNumber;
    return block;
  } catch (const std::bad_alloc&) {
    return nullptr;  // the caller then releases the whole queue
  }
}

void BufferBlockPool::push(BufferBlock* block) {
  Lock lock(*this);
  block->setId(0);
  block->setBeginningSeqNum(0, true);
  try {
    freeBlocks.push_back(block);
  } catch (const std::bad_alloc&) {
    // No memory for a list node. The caller is often a destructor, which must not fail.
    delete block;
    --totalBlockNumber;
    return;
  }
  ++freeBlockNumber;
}

void BufferBlockPool::release() {
  if (referenceCount == 0 && freeBlockNumber != 0) {
    hasBlockRemove = false;
    for (BufferBlock*& block : freeBlocks) {
      if (block == nullptr) continue;
      delete block;
      hasBlockRemove = true;
      block = nullptr;
    }
  }
  totalBlockNumber = 0;
  freeBlockNumber = 0;
  freeBlocks.clear();
}

bool BufferBlockPool::reduceblocksize(int n) {
  totalBlockNumber -= n;
  return true;
}

}  // namespace util
