// What a user of libcurl writes in an afternoon: a thread fills a ring that keeps 1 MiB behind the
// reader, with one mutex and one condition. A seek outside the buffered bytes begins another
// transfer. The thread also reads local files.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/common/Source.h"
#include "bench/drivers/Curl.h"

namespace {

constexpr size_t kChunk = 32768;

class RingSource : public bench::Source {
 public:
  bool open(const bench::Options& options, const std::string& url) override {
    resourceSize = options.size;
    ring.resize(static_cast<size_t>(options.buffer));
    keptBehind = options.buffer / 2;
    if (url[0] == '/') {
      file = ::open(url.c_str(), O_RDONLY | O_CLOEXEC);
      if (file < 0) return false;
    } else {
      curl = bench::makeCurl(options, url, store, this);
      if (curl == nullptr) return false;
      curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
      curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, watch);
      curl_easy_setopt(curl, CURLOPT_XFERINFODATA, this);
    }
    thread = std::thread([this] { fetchAll(); });
    return true;
  }

  long long read(char* buffer, size_t size) override {
    std::unique_lock<std::mutex> guard(lock);
    size_t done = 0;
    while (done < size && position < resourceSize) {
      changed.wait(guard, [this] { return aborted || failed || position < end; });
      if (aborted || failed) return -1;
      const size_t at = static_cast<size_t>(position) % ring.size();
      const size_t held = std::min(static_cast<size_t>(end - position), ring.size() - at);
      const size_t count = std::min(size - done, held);
      memcpy(buffer + done, &ring[at], count);
      done += count;
      position += static_cast<long long>(count);
      changed.notify_all();
    }
    return static_cast<long long>(done);
  }

  bool seek(long long offset) override {
    const std::lock_guard<std::mutex> guard(lock);
    position = offset;
    if (offset < begin || offset > end) {
      begin = end = offset;
      restart = true;
      failed = false;
    }
    changed.notify_all();
    return true;
  }

  void abort() override {
    const std::lock_guard<std::mutex> guard(lock);
    aborted = true;
    changed.notify_all();
  }

  void close() override {
    {
      const std::lock_guard<std::mutex> guard(lock);
      closing = true;
      changed.notify_all();
    }
    thread.join();
    if (curl != nullptr) curl_easy_cleanup(curl);
    if (file >= 0) ::close(file);
  }

  long long buffered() override {
    const std::lock_guard<std::mutex> guard(lock);
    return end - position;
  }

 private:
  void fetchAll() {
    std::unique_lock<std::mutex> guard(lock);
    while (!closing) {
      restart = false;
      if (end < resourceSize) {
        const long long from = end;
        guard.unlock();
        const bool good = curl != nullptr ? fetch(from) : copyFile(from);
        guard.lock();
        if (!good && !restart && !closing) {
          failed = true;
          changed.notify_all();
        }
      }
      changed.wait(guard, [this] { return closing || restart; });
    }
  }

  bool fetch(long long from) {
    const std::string range = std::to_string(from) + "-";
    curl_easy_setopt(curl, CURLOPT_RANGE, range.c_str());
    return curl_easy_perform(curl) == CURLE_OK;
  }

  bool copyFile(long long from) {
    std::vector<char> chunk(kChunk);
    for (;;) {
      const ssize_t got = pread(file, chunk.data(), chunk.size(), from);
      if (got <= 0) return got == 0;
      if (!put(chunk.data(), static_cast<size_t>(got))) return false;
      from += got;
    }
  }

  // Waits for room. Returns false if this transfer must end.
  bool put(const char* data, size_t size) {
    std::unique_lock<std::mutex> guard(lock);
    while (size > 0) {
      changed.wait(guard, [this] { return closing || restart || room() > 0; });
      if (closing || restart) return false;
      const size_t at = static_cast<size_t>(end) % ring.size();
      const size_t count = std::min(std::min(size, room()), ring.size() - at);
      memcpy(&ring[at], data, count);
      end += static_cast<long long>(count);
      begin = std::max(begin, end - static_cast<long long>(ring.size()));
      data += count;
      size -= count;
      changed.notify_all();
    }
    return true;
  }

  size_t room() const {
    const long long first = std::max(begin, position - keptBehind);
    const long long held = end - first;
    return static_cast<size_t>(std::max(0LL, static_cast<long long>(ring.size()) - held));
  }

  static size_t store(char* data, size_t, size_t size, void* receiver) {
    return static_cast<RingSource*>(receiver)->put(data, size) ? size : 0;
  }
  static int watch(void* receiver, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    RingSource* self = static_cast<RingSource*>(receiver);
    const std::lock_guard<std::mutex> guard(self->lock);
    return self->closing || self->restart ? 1 : 0;
  }

  std::mutex lock;
  std::condition_variable changed;
  std::thread thread;
  CURL* curl = nullptr;
  int file = -1;
  std::vector<char> ring;
  long long resourceSize = 0;
  long long keptBehind = 0;
  long long begin = 0;  // [begin, end) is buffered
  long long end = 0;
  long long position = 0;
  bool restart = false;
  bool failed = false;
  bool aborted = false;
  bool closing = false;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runDriver(argc, argv, [](const bench::Options&) {
    return std::unique_ptr<bench::Source>(new RingSource);
  });
}
