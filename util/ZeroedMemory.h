#ifndef FLUVIAFS_UTIL_ZEROEDMEMORY_H_
#define FLUVIAFS_UTIL_ZEROEDMEMORY_H_

#include <cstddef>
#include <cstdlib>
#include <new>
#include <type_traits>

// AddressSanitizer checks the heap, not mappings.
#ifdef __has_feature
#if __has_feature(address_sanitizer)
#define FLUVIA_ZEROED_HEAP 1
#endif
#endif
#ifdef __SANITIZE_ADDRESS__
#define FLUVIA_ZEROED_HEAP 1
#endif

namespace util {

// Maps size bytes of zeros, or returns null. A page takes memory once it is written.
//
// Threads: any.
void* mapZeroed(size_t size);
// Returns the memory of mapZeroed() to the kernel. The addresses of 64 mappings of 32 KiB, a buffer
// of the default size, are kept for later calls of mapZeroed(), without memory.
void unmapZeroed(void* memory, size_t size);

// Allocator of large containers whose elements begin as zero bytes. The kernel zeroes each page
// when it is first written, not when the container is made. Most of the time to open a stream with
// a buffer of 2 MiB was spent writing zeros into it.
//
// Threads: any. Errors: allocate throws std::bad_alloc.
template <typename T>
class ZeroedMemory {
 public:
  static_assert(std::is_integral<T>::value, "zero bytes are only a value of integers");
  using value_type = T;

  ZeroedMemory() = default;
  template <typename U>
  explicit ZeroedMemory(const ZeroedMemory<U>& /*other*/) {}

  T* allocate(size_t count) {
#ifdef FLUVIA_ZEROED_HEAP
    void* memory = calloc(count, sizeof(T));
#else
    void* memory = mapZeroed(count * sizeof(T));
#endif
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<T*>(memory);
  }
  void deallocate(T* memory, size_t count) {
#ifdef FLUVIA_ZEROED_HEAP
    static_cast<void>(count);
    free(memory);
#else
    unmapZeroed(memory, count * sizeof(T));
#endif
  }

  // Value initialisation: the memory is already zero. Anything else is constructed as usual.
  template <typename U>
  void construct(U* /*element*/) {}

  friend bool operator==(const ZeroedMemory& /*a*/, const ZeroedMemory& /*b*/) { return true; }
  friend bool operator!=(const ZeroedMemory& /*a*/, const ZeroedMemory& /*b*/) { return false; }
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_ZEROEDMEMORY_H_
