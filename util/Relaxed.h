#ifndef FLUVIAFS_UTIL_RELAXED_H_
#define FLUVIAFS_UTIL_RELAXED_H_

#include <atomic>

namespace util {

// A plain word that several threads read and write without a lock.
//
// Threads:   every operation is one relaxed atomic access: a value is never torn (64-bit words
//            would be on ARMv7), but no other access is ordered. Where order matters, use a lock.
// Ownership: none.
template <typename T>
class Relaxed {
 public:
  constexpr Relaxed() noexcept : value_(T()) {}
  constexpr Relaxed(T value) noexcept : value_(value) {}  // NOLINT(google-explicit-constructor)
  Relaxed(const Relaxed&) = delete;
  Relaxed& operator=(const Relaxed&) = delete;

  operator T() const noexcept {  // NOLINT(google-explicit-constructor)
    return value_.load(std::memory_order_relaxed);
  }
  T get() const noexcept { return value_.load(std::memory_order_relaxed); }
  T operator=(T value) noexcept {  // NOLINT(misc-unconventional-assign-operator)
    value_.store(value, std::memory_order_relaxed);
    return value;
  }
  // Adds n and returns the new value.
  T operator+=(T n) noexcept { return value_.fetch_add(n, std::memory_order_relaxed) + n; }
  T operator-=(T n) noexcept { return value_.fetch_sub(n, std::memory_order_relaxed) - n; }
  T operator++() noexcept { return *this += T(1); }
  T operator--() noexcept { return *this -= T(1); }
  // Stores desired if the value still equals expected. Returns true if it did.
  bool replace(T expected, T desired) noexcept {
    return value_.compare_exchange_strong(expected, desired, std::memory_order_relaxed);
  }

 private:
  static_assert(std::atomic<T>::is_always_lock_free, "no lock of libatomic's stands behind a flag");
  std::atomic<T> value_;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_RELAXED_H_
