#include "SourceThreads.h"

#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

namespace {

// Longer than the segments of adaptive streams: the thread is kept from one source to the next.
constexpr std::chrono::seconds kPatience(15);

}  // namespace

SourceThreads& SourceThreads::instance() {
  static SourceThreads* const threads = new SourceThreads();
  return *threads;
}

bool SourceThreads::run(std::function<void()> work) {
  const std::lock_guard<std::mutex> guard(lock_);
  given_.push_back(std::move(work));
  if (given_.size() <= idle_) {
    changed_.notify_one();
    return true;
  }
  try {
    std::thread([this] { serve(); }).detach();
  } catch (const std::system_error&) {
    given_.pop_back();
    return false;
  }
  return true;
}

void SourceThreads::serve() {
  std::unique_lock<std::mutex> held(lock_);
  for (;;) {
    if (given_.empty() && idle_ >= kKept) return;
    ++idle_;
    const bool more = changed_.wait_for(held, kPatience, [this] { return !given_.empty(); });
    --idle_;
    if (!more) return;
    {
      const std::function<void()> work = std::move(given_.front());
      given_.pop_front();
      held.unlock();
      work();
    }
    held.lock();
  }
}
