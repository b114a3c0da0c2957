#ifndef FLUVIAFS_UTIL_NEVERDESTROYED_H_
#define FLUVIAFS_UTIL_NEVERDESTROYED_H_

#include <new>
#include <utility>

namespace util {

// Storage for a process-wide object that is built at load and never destroyed.
//
// Threads of the library outlive main(): destroying a lock or a condition that they wait on would
// hang or crash exit(). The memory stays reachable, so leak checkers do not report it.
template <typename T>
class NeverDestroyed {
 public:
  template <typename... Args>
  explicit NeverDestroyed(Args&&... args) {
    ::new (static_cast<void*>(storage_)) T(std::forward<Args>(args)...);
  }
  NeverDestroyed(const NeverDestroyed&) = delete;
  NeverDestroyed& operator=(const NeverDestroyed&) = delete;

  T& get() { return *std::launder(reinterpret_cast<T*>(storage_)); }
  T* operator->() { return &get(); }
  T& operator*() { return get(); }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_NEVERDESTROYED_H_
