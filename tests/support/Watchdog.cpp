#include "tests/support/Watchdog.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace support {

double patience(double seconds) {
  const char* text = getenv("FLUVIA_PATIENCE");
  return text != nullptr ? seconds * strtod(text, nullptr) : seconds;
}

std::chrono::milliseconds patienceOf(int seconds) {
  return std::chrono::milliseconds(static_cast<long long>(1000 * patience(seconds)));
}

Watchdog::Watchdog(int seconds, std::function<std::string()> description)
    : limit(static_cast<int>(patience(seconds))),
      describe(std::move(description)),
      since(std::chrono::steady_clock::now()),
      thread(&Watchdog::watch, this) {}

Watchdog::~Watchdog() {
  {
    std::lock_guard<std::mutex> guard(lock);
    ended = true;
    changed.notify_all();
  }
  thread.join();
}

void Watchdog::at(const std::string& now) {
  std::lock_guard<std::mutex> guard(lock);
  step = now;
  since = std::chrono::steady_clock::now();
}

void Watchdog::watch() {
  std::unique_lock<std::mutex> guard(lock);
  while (!ended) {
    if (std::chrono::steady_clock::now() - since > limit) {
      // Standard error may be captured or discarded.
      printf("no progress for %d s at: %s\n%s\n", static_cast<int>(limit.count()), step.c_str(),
             describe().c_str());
      fflush(stdout);
      abort();
    }
    changed.wait_until(guard, since + limit + std::chrono::milliseconds(1));
  }
}

bool eventually(const std::function<bool()>& condition, int seconds) {
  const auto until = std::chrono::steady_clock::now() + patienceOf(seconds);
  std::mutex mutex;
  std::condition_variable never;
  std::unique_lock<std::mutex> guard(mutex);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > until) return false;
    never.wait_for(guard, std::chrono::milliseconds(1));
  }
  return true;
}

unsigned int seedOr(unsigned int given) {
  const char* text = getenv("FLUVIA_SEED");
  return text != nullptr ? static_cast<unsigned int>(strtoul(text, nullptr, 10)) : given;
}

unsigned int printedSeed() {
  const unsigned int seed = seedOr(std::random_device()());
  printf("FLUVIA_SEED=%u\n", seed);
  fflush(stdout);
  return seed;
}

int scaled(int count) {
  const char* text = getenv("FLUVIA_MODEL_FACTOR");
  const double factor = text != nullptr ? strtod(text, nullptr) : 1;
  return std::max(1, static_cast<int>(count * factor));
}

}  // namespace support
