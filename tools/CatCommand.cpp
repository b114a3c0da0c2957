#include <fluviafs.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Commands.h"
#include "Output.h"
#include "Progress.h"
#include "Source.h"
#include "Text.h"
#include "trace/LiveTrace.h"

namespace tools {
namespace {

constexpr int kTraceLevel = 3;  // everything

// Result of one read of the library: a code of FVFR_* and the number of valid bytes.
struct ReadResult {
  int code = FVFR_FAILED;
  unsigned int bytes = 0;
};

// Reads ahead: one asynchronous read runs while the bytes of the previous one are written out. The
// next one is issued only after the callback of the previous one, because outstanding reads begin
// at the same position.
class AsyncReader {
 public:
  explicit AsyncReader(const Source& source) : source_(source) {}
  // Waits for the outstanding read, whose buffer is about to be freed.
  ~AsyncReader() {
    if (outstanding_) {
      wait();
    }
  }
  AsyncReader(const AsyncReader&) = delete;
  AsyncReader& operator=(const AsyncReader&) = delete;

  // Issues a read of size bytes into buffer, which must stay valid until wait() has returned.
  int start(char* buffer, unsigned int size) {
    const std::lock_guard<std::mutex> guard(lock_);
    done_ = false;
    const int code =
        x_fluvia_file_read_async(source_.handle(), buffer, size, completed, this, &request_);
    outstanding_ = code == FVFR_OK;
    return code;
  }

  // Waits for the read that was started.
  ReadResult wait() {
    std::unique_lock<std::mutex> guard(lock_);
    wake_.wait(guard, [this] { return done_; });
    outstanding_ = false;
    return result_;
  }

 private:
  static void completed(int, void* userData, int status, int readBytes) {
    static_cast<AsyncReader*>(userData)->complete(status, readBytes);
  }

  void complete(int status, int readBytes) {
    // Notifies under the lock: the waiter may destroy this object as soon as it continues.
    const std::lock_guard<std::mutex> guard(lock_);
    result_.code = status == FVFR_ASYNC_DONE          ? FVFR_OK
                   : status == FVFR_ASYNC_END_OF_FILE ? FVFR_END_OF_FILE
                                                      : FVFR_FAILED;
    result_.bytes = static_cast<unsigned int>(readBytes);
    done_ = true;
    wake_.notify_one();
  }

  const Source& source_;
  std::mutex lock_;
  std::condition_variable wake_;
  bool done_ = false;  // guarded by lock_
  ReadResult result_;  // guarded by lock_
  int request_ = 0;
  bool outstanding_ = false;  // of the caller's thread
};

class Cat {
 public:
  Cat(const CatOptions& options, const Screen& screen) : options_(options), screen_(screen) {}

  int run() {
    std::string error;
    source_.bearOutages(options_.reopen, [this](FluviaStreamNotice notice,
                                                const std::string& text) { tell(notice, text); });
    if (!source_.open(options_.source, options_.buffer, &error)) {
      return fail(kExitSource, error);
    }
    if (!output_.open(options_.output, !options_.report.empty(), &error)) {
      return fail(kExitOutput, error);
    }
    const int first = source_.connect();
    if (first != FVFR_OK) {
      return fail(kExitSource, source_.explain("read", first));
    }
    if (options_.offset > 0 && !seek()) {
      return kExitSource;
    }
    const auto begin = std::chrono::steady_clock::now();
    const int code = stream();
    if (code != kExitOk || options_.report.empty()) {
      return code;
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    return report(elapsed.count());
  }

 private:
  int fail(int code, const std::string& error) const {
    screen_.fail(error);
    return code;
  }

  // Reports why the source waits, or that it continues. A final failure reports its own reason.
  void tell(FluviaStreamNotice notice, const std::string& text) const {
    if (notice == FLUVIA_STREAM_FAILS) {
      return;
    }
    if (progress_ == nullptr) {
      screen_.fail(text);
    } else {
      progress_->tell(text, notice == FLUVIA_STREAM_WAITS);
    }
  }

  bool seek() {
    long long now = 0;
    const int moved = x_fluvia_file_seek(source_.handle(), options_.offset, &now);
    if (moved == FVFR_OK || (moved == FVFR_FAILED && source_.isLocal())) {
      begin_ = x_fluvia_file_offset(source_.handle());
      source_.setPosition(begin_);
      return true;  // an empty file refuses to seek; its read then reports the end
    }
    screen_.fail(source_.explain("seek in", moved));
    return false;
  }

  // Bytes left to read, at most one buffer.
  unsigned int nextSize(long long asked) const {
    const long long left = options_.length < 0 ? options_.readSize : options_.length - asked;
    return static_cast<unsigned int>(std::min(left, static_cast<long long>(options_.readSize)));
  }

  int stream() {
    Progress progress(screen_, source_, expected());
    progress_ = &progress;
    std::string error;
    const int code = options_.async ? streamAsync() : streamBlocking();
    progress_ = nullptr;
    if (code == kExitOk && !output_.finish(&error)) {
      return fail(kExitOutput, error);
    }
    return code;
  }

  long long expected() const {
    const long long size = source_.size();
    if (size < 0) {
      return options_.length;
    }
    const long long left = std::max(0LL, size - options_.offset);
    return options_.length < 0 ? left : std::min(left, options_.length);
  }

  // Writes out the bytes of a read, also of one that failed. Returns false if that was the last
  // one, with *code set to the exit code.
  bool passOn(const ReadResult& result, const char* buffer, int* code) {
    std::string error;
    *code = kExitOk;
    if (!output_.write(buffer, result.bytes, &error)) {
      *code = fail(kExitOutput, error);
      return false;
    }
    done_ += result.bytes;
    progress_->add(result.bytes);
    if (result.code != FVFR_OK && result.code != FVFR_END_OF_FILE) {
      *code = fail(kExitSource, source_.explain("read", result.code));
      return false;
    }
    return result.code == FVFR_OK && result.bytes != 0;
  }

  // Reads at the current position and survives outages.
  ReadResult readOn(char* buffer) {
    ReadResult result;
    result.code = source_.read(buffer, nextSize(done_), &result.bytes);
    return result;
  }

  int streamBlocking() {
    std::vector<char> buffer(options_.readSize);
    int code = kExitOk;
    bool more = true;
    while (more && nextSize(done_) != 0) {
      more = passOn(readOn(buffer.data()), buffer.data(), &code);
    }
    return code;
  }

  int streamAsync() {
    std::array<std::vector<char>, 2> buffers = {std::vector<char>(options_.readSize),
                                                std::vector<char>(options_.readSize)};
    AsyncReader reader(source_);
    size_t turn = 0;
    bool underWay = false;
    int code = begin(reader, buffers[turn].data(), done_, &underWay);
    while (underWay) {
      ReadResult result = reader.wait();
      char* filled = buffers[turn].data();
      if (result.code == FVFR_FAILED && !goOn(&result, filled, &code)) {
        return code;
      }
      turn = 1 - turn;
      int started = kExitOk;
      underWay = false;
      if (result.code == FVFR_OK && result.bytes != 0) {
        started = begin(reader, buffers[turn].data(), done_ + result.bytes, &underWay);
      }
      if (!passOn(result, filled, &code) || started != kExitOk) {
        return code == kExitOk ? started : code;
      }
    }
    return code;
  }

  // A request has failed: writes out its bytes, and reads the next ones into *result with a
  // blocking read. Returns false if there is nothing more to do, with *code set to the exit code.
  bool goOn(ReadResult* result, char* buffer, int* code) {
    result->code = FVFR_OK;
    if (result->bytes != 0 && !passOn(*result, buffer, code)) {
      return false;
    }
    source_.setPosition(begin_ + done_);
    if (nextSize(done_) == 0) {
      return false;
    }
    *result = readOn(buffer);
    return true;
  }

  // Starts the next read unless everything that was asked for has arrived or been requested.
  int begin(AsyncReader& reader, char* buffer, long long asked, bool* underWay) {
    const unsigned int size = nextSize(asked);
    if (size == 0) {
      return kExitOk;
    }
    const int code = reader.start(buffer, size);
    *underWay = code == FVFR_OK;
    return *underWay ? kExitOk : fail(kExitSource, source_.explain("read", code));
  }

  int report(double seconds) {
    const double rate = seconds > 0 ? static_cast<double>(done_) / seconds : 0;
    const std::string text = "size    " + std::to_string(done_) + " bytes\nrate    " +
                             humanBytes(rate) + "/s\nsha256  " + output_.sha256() + "\n";
    if (options_.report == "-") {
      screen_.print(text);
      return kExitOk;
    }
    Output file;
    std::string error;
    const bool written = file.open(options_.report, false, &error) &&
                         file.write(text.data(), static_cast<unsigned int>(text.size()), &error) &&
                         file.finish(&error);
    return written ? kExitOk : fail(kExitOutput, error);
  }

  const CatOptions& options_;
  const Screen& screen_;
  Source source_;
  Output output_;
  Progress* progress_ = nullptr;  // while streaming
  long long begin_ = 0;           // offset of the first byte to read
  long long done_ = 0;            // bytes written out
};

// Writes the page also if the run fails: that is when it is needed most.
int runTraced(const CatOptions& options, const Screen& screen) {
  LiveTrace trace;
  std::string error;
  if (!trace.begin(options.trace, &error)) {
    screen.fail(error);
    return kExitOutput;
  }
  forceLogLevel(kTraceLevel);
  const int code = Cat(options, screen).run();
  if (!trace.finish(options.source, &error)) {
    screen.fail(error);
    return code == kExitOk ? static_cast<int>(kExitOutput) : code;
  }
  return code;
}

}  // namespace

int runCat(const CatOptions& options, const Screen& screen) {
  return options.trace.empty() ? Cat(options, screen).run() : runTraced(options, screen);
}

}  // namespace tools
