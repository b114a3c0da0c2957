#include "util/BufferBlockPoolManager.h"

#include <algorithm>
#include <memory>
#include <new>

#include "util/Log.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace util {

namespace {

// The 32-bit product of block size and count, widened afterwards. Unsigned, so that it wraps:
// signed overflow is undefined.
long long product32(int blockSize, int count) {
  return static_cast<int>(static_cast<unsigned int>(blockSize) * static_cast<unsigned int>(count));
}

// LeakSanitizer does not report a pool that has left the list: the object stays, since some thread
// may still have its address. A line in tests/lsan.supp would make every process of the tests
// search its debug information for the names of the stack, which takes longer than most tests.
void allowLeak([[maybe_unused]] const BufferBlockPool* pool) {
#ifdef __SANITIZE_ADDRESS__
  __lsan_ignore_object(pool);
#endif
}

}  // namespace

NeverDestroyed<BufferBlockPoolManager> BufferBlockPoolManager::_INS_;

BufferBlockPoolManager::BufferBlockPoolManager() = default;

BufferBlockPoolManager::~BufferBlockPoolManager() = default;

BufferBlockPoolManager* BufferBlockPoolManager::getInstance() { return &_INS_.get(); }

BufferBlockPool* BufferBlockPoolManager::claimPool(int blockSize) {
  FLUVIA_LOG(3, "claimPool 1");
  BufferBlockPool* pool = nullptr;
  {
    Lock lock(*this);
    FLUVIA_LOG(3, "claimPool 2");
    const auto it = std::find_if(
        poolList.begin(), poolList.end(),
        [blockSize](const BufferBlockPool* listed) { return listed->getBlockSize() == blockSize; });
    if (it != poolList.end()) {
      pool = *it;
      FLUVIA_LOG(3, "claimPool 3");
    } else {
      try {
        std::unique_ptr<BufferBlockPool> made(new BufferBlockPool(blockSize));
        poolList.push_back(made.get());
        pool = made.release();
      } catch (const std::bad_alloc&) {
        return nullptr;
      }
      FLUVIA_LOG(-4, "BufferBlockPoolManager(%p), create pool(%p)", static_cast<void*>(this),
                 static_cast<void*>(pool));
    }
    pool->referenced();
  }
  FLUVIA_LOG(3, "claimPool 4");
  return pool;
}

void BufferBlockPoolManager::declaimPool(BufferBlockPool* pool) {
  FLUVIA_LOG(-4, "declaimPool, pool->dereferencount() = %d", pool->dereferencount());
  {
    Lock lock(*this);
    pool->dereferenced();
    if (pool->dereferencount() == 0) {
      pool->release();
      const auto it = std::find(poolList.begin(), poolList.end(), pool);
      if (it != poolList.end()) {
        FLUVIA_LOG(-4, "BufferBlockPoolManager(%p), delete pool(%p) from poollist",
                   static_cast<void*>(this), static_cast<void*>(pool));
        poolList.erase(it);
        allowLeak(pool);
      }
      FLUVIA_LOG(-4, "BufferBlockPoolManager(%p), release pool(%p) memory, delete block : %d",
                 static_cast<void*>(this), static_cast<void*>(pool), pool->gethasblockremove());
    }
  }
  FLUVIA_LOG(3, "declaimPool2");
}

long long BufferBlockPoolManager::getTotalMemorySize() {
  Lock lock(*this);
  long long sum = 0;
  for (const BufferBlockPool* pool : poolList) {
    sum += product32(pool->getBlockSize(), pool->getTotalBlockNumber());
  }
  return sum;
}

long long BufferBlockPoolManager::getFreeMemorySize() {
  Lock lock(*this);
  long long sum = 0;
  for (const BufferBlockPool* pool : poolList) {
    sum += product32(pool->getBlockSize(), pool->getFreeBlockNumber());
  }
  return sum;
}

}  // namespace util
