#include "util/ZeroedMemory.h"

#include <sys/mman.h>

#include <array>

#include "util/NeverDestroyed.h"
#include "util/Semaphore.h"

namespace util {
namespace {

// The blocks of a buffer of the default size.
constexpr size_t kKeptSize = 32768;
constexpr size_t kMostKept = 64;

// Addresses without memory behind them, for the next stream. Mapping and unmapping 64 blocks took a
// fifth of the processor time of an open and a close.
class KeptMappings : public Semaphore {
 public:
  // Returns null if none is kept.
  void* take() EXCLUDES(this) {
    const Lock lock(*this);
    return count_ == 0 ? nullptr : kept_[--count_];
  }

  // Returns false if the mapping is left to the caller.
  bool keep(void* memory) EXCLUDES(this) {
    if (isFull()) return false;
    // Drops the contents. Fails for pages that the process has locked into memory.
    if (madvise(memory, kKeptSize, MADV_DONTNEED) != 0) return false;
    const Lock lock(*this);
    if (count_ == kMostKept) return false;
    kept_[count_++] = memory;
    return true;
  }

 private:
  bool isFull() const EXCLUDES(this) {
    const Lock lock(*this);
    return count_ == kMostKept;
  }

  std::array<void*, kMostKept> kept_ GUARDED_BY(this) = {};
  size_t count_ GUARDED_BY(this) = 0;
};

KeptMappings& keptMappings() {
  static NeverDestroyed<KeptMappings> instance;
  return instance.get();
}

}  // namespace

void* mapZeroed(size_t size) {
  void* memory = size == kKeptSize ? keptMappings().take() : nullptr;
  if (memory != nullptr) return memory;
  memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return memory == MAP_FAILED ? nullptr : memory;
}

void unmapZeroed(void* memory, size_t size) {
  if (size == kKeptSize && keptMappings().keep(memory)) return;
  munmap(memory, size);
}

}  // namespace util
