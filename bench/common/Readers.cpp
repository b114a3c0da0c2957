#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/common/Workloads.h"

namespace bench {

namespace {

// A barrier for readers. A reader that ends leaves it.
class Meeting {
 public:
  explicit Meeting(int count) : expected(count) {}

  void meet() {
    std::unique_lock<std::mutex> guard(lock);
    const int mine = round;
    if (++arrived == expected) {
      next();
      return;
    }
    changed.wait(guard, [&] { return round != mine; });
  }

  void leave() {
    const std::lock_guard<std::mutex> guard(lock);
    --expected;
    if (expected > 0 && arrived == expected) next();
  }

 private:
  void next() {
    arrived = 0;
    ++round;
    changed.notify_all();
  }

  std::mutex lock;
  std::condition_variable changed;
  int expected;
  int arrived = 0;
  int round = 0;
};

bool readAll(const Options& options, Reader* reader, Meeting* meeting) {
  long long next = options.step;
  while (!reader->atEnd()) {
    if (!reader->read(static_cast<size_t>(options.read))) return false;
    if (options.step > 0 && reader->offset() >= next) {
      meeting->meet();
      next += options.step;
    }
  }
  return true;
}

std::string urlOf(const Options& options, int reader) {
  if (!options.distinct) return options.url;
  const bool asks = options.url.find('?') != std::string::npos;
  return options.url + (asks ? "&r=" : "?r=") + std::to_string(reader);
}

}  // namespace

bool readers(const Options& options, SourceMaker make, Outcome* outcome) {
  std::vector<std::unique_ptr<Reader>> all;
  for (int i = 0; i < options.readers; ++i) {
    all.push_back(std::make_unique<Reader>(options, make(options)));
    if (!all.back()->open(urlOf(options, i))) return false;
  }
  Meeting meeting(options.readers);
  std::vector<char> done(all.size(), 0);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < all.size(); ++i) {
    threads.emplace_back([&options, &meeting, &done, &all, i] {
      done[i] = readAll(options, all[i].get(), &meeting) ? 1 : 0;
      meeting.leave();
    });
  }
  for (std::thread& thread : threads) thread.join();
  bool good = true;
  for (size_t i = 0; i < all.size(); ++i) {
    all[i]->source()->close();
    outcome->operations.add(all[i]->operations());
    outcome->bytes += all[i]->bytes();
    good = good && done[i] != 0;
  }
  return good;
}

}  // namespace bench
