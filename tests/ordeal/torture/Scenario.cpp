#include "tests/ordeal/torture/Scenario.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "api/fluviafs.h"
#include "tests/ordeal/torture/Interpose.h"
#include "tests/support/Pattern.h"

namespace torture {

namespace {

constexpr int kBuffer = 4 * 32768;
constexpr unsigned int kPiece = 40000;

// One asynchronous read, alive until its callbacks have come.
struct AsyncRead {
  std::vector<char> buffer;
  std::atomic<int> calls{0};
  std::atomic<int> status{0};
  std::atomic<int> bytes{0};

  static void completed(int /*id*/, void* self, int status, int bytes) {
    const Spared ours;
    auto* read = static_cast<AsyncRead*>(self);
    read->status = status;
    read->bytes = bytes;
    ++read->calls;
  }
};

// Aborts the read of a handle if a call of its user takes too long.
class Impatience {
 public:
  Impatience() : thread_([this] { watch(); }) {}
  ~Impatience() {
    {
      const std::lock_guard<std::mutex> guard(lock_);
      over_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }
  Impatience(const Impatience&) = delete;
  Impatience& operator=(const Impatience&) = delete;

  void begin(int handle) { set(handle); }
  void end() { set(0); }

 private:
  static constexpr std::chrono::seconds kPatience{3};

  void set(int handle) {
    {
      const std::lock_guard<std::mutex> guard(lock_);
      handle_ = handle;
      ++calls_;
    }
    changed_.notify_all();
  }

  void watch() {
    const Spared ours;
    std::unique_lock<std::mutex> guard(lock_);
    while (!over_) {
      const unsigned int call = calls_;
      if (changed_.wait_for(guard, kPatience, [&] { return over_ || calls_ != call; })) continue;
      if (handle_ == 0) continue;
      const int handle = handle_;
      guard.unlock();
      x_fluvia_file_read_abort(handle, 0);
      guard.lock();
    }
  }

  std::mutex lock_;
  std::condition_variable changed_;
  unsigned int calls_ = 0;
  int handle_ = 0;
  bool over_ = false;
  std::thread thread_;
};

class User {
  // This thread calls the library: its allocations in there count.
  template <typename Call>
  auto inside(Call call) {
    if (impatience_) impatience_->begin(handle_);
    struct Leave {
      explicit Leave(Impatience* impatience) : impatience_(impatience) {}
      ~Leave() {
        if (impatience_ != nullptr) impatience_->end();
      }
      Impatience* impatience_;
    } leave(impatience_.get());
    const Counted counted;
    return call();
  }

 public:
  User(const Resource& resource, Judge judge) : resource_(resource), judge_(judge) {
    if (resource.impatient) impatience_.reset(new Impatience());
  }

  std::string run(int* fileless) {
    if (!open(fileless)) return problem_;
    describe();
    readAt(-1, 65536);
    readAt(resource_.size / 2, kPiece);
    readAsyncAt(resource_.size - kPiece / 2, false);
    readAt(100, kPiece);
    readAsyncAt(resource_.size / 3, true);
    readAt(resource_.size, 10);
    describe();
    close();
    return problem_;
  }

  // One handle's calls, for more than one handle at a time. Without an open handle only open().

  bool open(int* fileless) {
    if (!openHandle()) {
      ++*fileless;
      return false;
    }
    if (inside([&] { return x_fluvia_file_size(handle_); }) == FVFR_FAILED) ++*fileless;
    return true;
  }

  void close() {
    const int code = inside([&] { return x_fluvia_file_close(handle_); });
    if (code != 0) complain("close gave " + std::to_string(code));
    if (inside([&] { return x_fluvia_file_close(handle_); }) != FVFR_FAILED) {
      complain("the handle is still open after its close");
    }
  }

  // Offset -1: where the handle stands, which is 0.
  void readAt(long long offset, unsigned int count) {
    if (offset >= 0 && !moveTo(offset)) return;
    if (offset < 0) offset = 0;
    std::vector<char> buffer(count);
    unsigned int got = 0;
    const int code =
        inside([&] { return x_fluvia_file_read(handle_, buffer.data(), count, &got); });
    checkBytes(offset, buffer.data(), got, "read");
    if (code == FVFR_END_OF_FILE && offset >= resource_.size) return;
    accept(code,
           {FVFR_OK, FVFR_NOT_APPLIED, FVFR_FAILED, FVFR_TIMEOUT, FVFR_END_OF_FILE,
            FVFR_NOT_AVAILABLE, FVFR_NOT_FOUND},
           "read at " + std::to_string(offset));
    if (code == 0 || code == FVFR_END_OF_FILE) checkEnd(offset, got, count, "read");
  }

  void readAsyncAt(long long offset, bool abort) {
    if (!moveTo(offset)) return;
    AsyncRead read;
    read.buffer.resize(kPiece);
    int id = 0;
    const int code = inside([&] {
      return x_fluvia_file_read_async(handle_, read.buffer.data(), kPiece, &AsyncRead::completed,
                                      &read, &id);
    });
    if (!accept(code, {FVFR_OK, FVFR_FAILED}, "read_async")) {
      if (read.calls != 0) complain("a refused read was called back");
      return;
    }
    if (abort) {
      accept(inside([&] { return x_fluvia_file_read_abort(handle_, id); }), {FVFR_OK}, "abort");
    }
    // Bounded by the deadline of the whole run.
    inside([&] {
      while (read.calls == 0) std::this_thread::yield();
    });
    finishAsync(offset, read, abort);
    // An abort has made both calls by the time it returns, or left one to the worker.
    if (read.calls > (abort ? 2 : 1))
      complain("called back " + std::to_string(read.calls) + " times");
  }

  const std::string& problem() const { return problem_; }

 private:
  void complain(const std::string& what) {
    if (problem_.empty()) problem_ = resource_.url + ": " + what;
  }

  bool accept(int code, std::initializer_list<int> codes, const std::string& call) {
    const bool fine = judge_ == Judge::kMustPass
                          ? code == 0
                          : std::find(codes.begin(), codes.end(), code) != codes.end();
    if (!fine) complain(call + " gave " + std::to_string(code));
    return code == 0;
  }

  bool openHandle() {
    const int code =
        inside([&] { return x_fluvia_file_open_x(resource_.url.c_str(), &handle_, kBuffer); });
    if (!accept(code, {FVFR_OK, FVFR_FAILED}, "open")) return false;
    if (handle_ < 1 || handle_ > 255) complain("open gave handle " + std::to_string(handle_));
    return true;
  }

  // The questions and the settings; only their returning is judged, and what has one right answer.
  void describe() {
    inside([&] {
      x_fluvia_file_http_set_userAgent(handle_, "torture");
      x_fluvia_file_http_set_cookie(handle_, "a=b");
    });
    const long long size = inside([&] { return x_fluvia_file_size(handle_); });
    const bool fine =
        size == resource_.size || (judge_ == Judge::kMayFail &&
                                   (size == 0 || size == FVFR_FAILED || size == FVFR_UNKNOWN_SIZE));
    if (!fine) complain("the size is " + std::to_string(size));
    char header[512];
    int length = 0;
    inside([&] {
      x_fluvia_file_offset(handle_);
      x_fluvia_file_http_get_header(handle_, header, sizeof header, &length);
      x_fluvia_file_http_get_server_name(handle_);
      x_fluvia_file_http_get_content_type(handle_);
      x_fluvia_file_http_get_download_status(handle_);
      x_fluvia_file_http_get_speed(handle_);
    });
  }

  bool moveTo(long long offset) {
    long long now = -1;
    const int code = inside([&] { return x_fluvia_file_seek(handle_, offset, &now); });
    return accept(code, {FVFR_OK, FVFR_FAILED, FVFR_SEEK_REFUSED}, "seek");
  }

  void checkBytes(long long offset, const char* bytes, size_t count, const std::string& call) {
    const long long at =
        support::firstDifference(static_cast<unsigned long long>(offset), bytes, count);
    if (at >= 0) complain(call + ": byte " + std::to_string(offset + at) + " is wrong");
  }

  void checkEnd(long long offset, size_t got, size_t wanted, const std::string& call) {
    const long long end = offset + static_cast<long long>(got);
    const bool short_ = got < wanted && end != resource_.size;
    if (short_)
      complain(call + " at " + std::to_string(offset) + " ends at " + std::to_string(end));
  }

  void finishAsync(long long offset, const AsyncRead& read, bool aborted) {
    const int status = read.status;
    const size_t got = static_cast<size_t>(std::max(read.bytes.load(), 0));
    if (status == FVFR_ASYNC_DONE || status == FVFR_ASYNC_END_OF_FILE) {
      checkBytes(offset, read.buffer.data(), got, "async read");
      checkEnd(offset, got, kPiece, "async read");
      return;
    }
    const bool fine = status == FVFR_ASYNC_CANCELLED
                          ? aborted
                          : status == FVFR_ASYNC_FAILED && (aborted || mayFail());
    if (!fine)
      complain("async read at " + std::to_string(offset) + " ended with status " +
               std::to_string(status));
  }

  bool mayFail() const { return judge_ == Judge::kMayFail; }

  const Resource& resource_;
  const Judge judge_;
  std::unique_ptr<Impatience> impatience_;
  int handle_ = 0;
  std::string problem_;
};

// Two handles of one resource that read at the same time, each on a thread of its own. The far one
// ends first, while the near one reads.
class Pair {
 public:
  Pair(const Resource& resource, Judge judge)
      : size_(resource.size), near_(resource, judge), far_(resource, judge) {}

  std::string run(int* fileless) {
    if (near_.open(fileless)) {
      if (far_.open(fileless)) {
        readTogether();
      } else {
        near_.readAt(-1, kPiece);
      }
      near_.close();
    }
    return near_.problem().empty() ? far_.problem() : near_.problem();
  }

 private:
  void readTogether() {
    std::thread other([this] {
      const Spared ours;
      readFar();
    });
    near_.readAt(-1, 65536);
    near_.readAt(100, kPiece);
    near_.readAt(kPiece, kPiece);
    await(farIsDone_);
    nearReads_ = true;
    // More than the buffer has room for: the transfer has to go on for it.
    near_.readAt(0, static_cast<unsigned int>(size_));
    other.join();
  }

  void readFar() {
    far_.readAt(size_ / 2, kPiece);
    far_.readAsyncAt(size_ - kPiece / 2, false);
    far_.readAt(2 * kPiece, kPiece);
    far_.readAsyncAt(size_ / 3, true);
    farIsDone_ = true;
    await(nearReads_);
    far_.close();
  }

  // Bounded by the deadline of the whole run.
  static void await(const std::atomic<bool>& happened) {
    while (!happened) std::this_thread::yield();
  }

  const long long size_;
  User near_;
  User far_;
  std::atomic<bool> farIsDone_{false};
  std::atomic<bool> nearReads_{false};
};

}  // namespace

std::string useLibrary(const Resource& resource, Judge judge, int* fileless) {
  const Spared ours;
  return User(resource, judge).run(fileless);
}

std::string useLibraryTwice(const Resource& resource, Judge judge, int* fileless) {
  const Spared ours;
  return Pair(resource, judge).run(fileless);
}

}  // namespace torture
