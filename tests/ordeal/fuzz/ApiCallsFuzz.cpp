// Decodes bytes into sequences of calls of the C interface. This program produces the resource from
// memory; its ends and failures are decoded from the same bytes.
//
// It replaces the library's choice of the producer.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "api/fluviafs.h"
#include "tests/ordeal/fuzz/FuzzTarget.h"
#include "tests/support/Pattern.h"
#include "util/Log.h"
#include "util/Semaphore.h"
#include "webs/FileRequest.h"
#include "webs/FileRequestAdaptor.h"

namespace {

// The bytes of an input, zeros after its end.
class Bytes {
 public:
  Bytes(const uint8_t* data, size_t size) : at_(data), left_(size) {}
  bool empty() const { return left_ == 0; }
  unsigned int next() {
    if (left_ == 0) return 0;
    --left_;
    return *at_++;
  }
  unsigned int next16() {
    const unsigned int high = next();
    return high << 8 | next();
  }

 private:
  const uint8_t* at_;
  size_t left_;
};

// The actions of one run of the producer: so many bytes, in chunks of one size, then an event.
struct Run {
  long long bytes;
  unsigned int chunk;
  int event;  // -1: the start fails
};

// The resource of the current input. All its handles share it.
struct Resource {
  long long size = 0;
  bool sizeKnown = true;
  bool seekable = true;
  bool volatileContent = false;
  std::vector<Run> runs;
  std::atomic<size_t> begun{0};
};
Resource resource;

// Streams on the thread that starts it and pauses after an announced stop, as the producer of a URL
// does.
class MemoryRequest : public FileRequest, public util::Semaphore {
 public:
  MemoryRequest() : FileRequest("memory") {}

  void release() override { stopStreaming(); }
  int startStreaming(int version, long long offset, long long count) override;
  int stopStreaming() override;
  bool isRandomAccess() override { return resource.seekable; }
  long long getContentSize() override { return contentSize; }
  void setBreak() override {}
  bool getStopWait() override { return stopWait; }
  void setStopWait() override { stopWait = true; }
  int getType() override { return 1; }
  bool initialize() override { return true; }

 private:
  Run nextRun() const;
  long long deliver(const Run& run, int version, long long from, long long until, bool* refused);

  std::atomic<long long> contentSize{0};
  std::atomic<bool> stopWait{false};
  std::atomic<bool> wanted{false};
  bool finished = true;
  bool firstDelivered = false;  // on the transfer's thread only
};

Run MemoryRequest::nextRun() const {
  const size_t number = resource.begun++;
  if (number < resource.runs.size()) return resource.runs[number];
  return {resource.size, 16384, util::EVENT_STREAM_PARTIAL_END};
}

int MemoryRequest::startStreaming(int version, long long offset, long long count) {
  const Run run = nextRun();
  if (run.event < 0) return -1;
  {
    util::Lock lock(*this);
    wanted = true;
    finished = false;
  }
  long long until = count == 0 ? resource.size : std::min(resource.size, offset + count);
  const bool cut = until - offset > run.bytes;
  if (cut) until = offset + run.bytes;
  bool refused = false;
  if (offset < until && !firstDelivered) {
    firstDelivered = true;
    contentSize = resource.sizeKnown ? resource.size : util::UNKNOWN_CONTENT_SIZE;
    out->notifyStreamException(util::STREAM_NORMAL);
  }
  deliver(run, version, offset, until, &refused);
  int event = cut ? run.event : static_cast<int>(util::EVENT_STREAM_PARTIAL_END);
  if (refused || !wanted) event = util::STREAM_CANCELED;
  if (event == util::EVENT_STREAM_PARTIAL_END && !cut && firstDelivered)
    contentSize = resource.size;
  out->notifyStreamException(event);
  util::Lock lock(*this);
  finished = true;
  notifyAll(0);
  return 0;
}

long long MemoryRequest::deliver(const Run& run, int version, long long from, long long until,
                                 bool* refused) {
  std::vector<char> chunk(run.chunk);
  while (from < until && wanted && !*refused) {
    const auto n = static_cast<unsigned int>(std::min<long long>(run.chunk, until - from));
    support::fillPattern(static_cast<unsigned long long>(from), chunk.data(), n);
    *refused = out->streamIn(chunk.data(), n, version) == 0;
    while (stopWait && wanted) std::this_thread::yield();
    from += n;
  }
  return from;
}

int MemoryRequest::stopStreaming() {
  util::Lock lock(*this);
  wanted = false;
  stopWait = false;
  while (!finished) wait(0);
  return 0;
}

// One asynchronous read; its callbacks come before the input ends.
struct AsyncRead {
  explicit AsyncRead(unsigned int size) : buffer(size) {}
  std::vector<char> buffer;
  std::atomic<int> calls{0};
  int status = 0;
  int bytes = 0;

  static void completed(int, void* self, int status, int bytes) {
    auto* read = static_cast<AsyncRead*>(self);
    read->status = status;
    read->bytes = bytes;
    ++read->calls;
  }
};

void checkBytes(long long offset, const std::vector<char>& bytes, unsigned int got) {
  FUZZ_CHECK(got <= bytes.size());
  FUZZ_CHECK(got == 0 || (offset >= 0 && offset + got <= resource.size));
  FUZZ_CHECK(support::firstDifference(static_cast<unsigned long long>(offset), bytes.data(), got) ==
             -1);
}

void readNow(int handle, unsigned int size) {
  std::vector<char> buffer(size);
  unsigned int got = 0;
  const int result = x_fluvia_file_read(handle, buffer.data(), size, &got);
  // Measured from the end: the read itself may have moved a stream that cannot seek.
  const long long end = x_fluvia_file_offset(handle);
  const long long offset = result == 0 || result == -13 ? end - got : end;
  checkBytes(offset, buffer, got);
  FUZZ_CHECK(result == 0 || result == -1 || result == -4 || result == -6 || result == -13 ||
             result == -17 || result == -21);
  // A resource that changes has its own end.
  FUZZ_CHECK(result != 0 || got == size || offset + got == resource.size ||
             resource.volatileContent);
}

void readAsync(int handle, unsigned int size, bool abort) {
  AsyncRead read(size);
  int id = 0;
  const long long offset = x_fluvia_file_offset(handle);
  if (x_fluvia_file_read_async(handle, read.buffer.data(), size, &AsyncRead::completed, &read,
                               &id) != 0) {
    return;
  }
  if (abort) FUZZ_CHECK(x_fluvia_file_read_abort(handle, id) == 0);
  while (read.calls == 0) std::this_thread::yield();
  const bool done = read.status == 1 || read.status == 4;
  FUZZ_CHECK(done || read.status == -1 || (abort && read.status == 3));
  if (done) checkBytes(offset, read.buffer, static_cast<unsigned int>(read.bytes));
}

void seek(int handle, long long offset) {
  long long now = -1;
  const int result = x_fluvia_file_seek(handle, offset, &now);
  FUZZ_CHECK(result == 0 || result == -4 || result == -12);
}

void perform(unsigned int operation, int handle, Bytes* bytes) {
  switch (operation) {
    case 0:
    case 1:
      readNow(handle, bytes->next16());
      break;
    case 2:
      readNow(handle, 1 + bytes->next());
      break;
    case 3:
      seek(handle, static_cast<long long>(bytes->next16()) * 16);
      break;
    case 4:
      seek(handle, x_fluvia_file_offset(handle) + static_cast<int>(bytes->next()) - 128);
      break;
    case 5:
      readAsync(handle, 1 + bytes->next16(), false);
      break;
    case 6:
      readAsync(handle, 1 + bytes->next16(), true);
      break;
    case 7: {
      const long long size = x_fluvia_file_size(handle);
      FUZZ_CHECK(size == resource.size || size == 0 || size == util::UNKNOWN_CONTENT_SIZE);
      break;
    }
    case 8:
      FUZZ_CHECK(x_fluvia_file_bufferedSize(handle) >= 0);
      break;
    case 9:
      FUZZ_CHECK(x_fluvia_file_read_abort(handle, 0) == 0);
      break;
    case 10:
      FUZZ_CHECK(x_fluvia_file_volatile(handle) == 0);
      resource.volatileContent = true;
      break;
    default:
      break;
  }
}

void describeResource(Bytes* bytes) {
  const unsigned int flags = bytes->next();
  resource.sizeKnown = (flags & 1) == 0;
  resource.seekable = (flags & 2) == 0;
  resource.size = 1 + static_cast<long long>(bytes->next16()) * 16;
  resource.volatileContent = false;
  resource.runs.clear();
  resource.begun = 0;
  for (unsigned int left = flags >> 5; left > 0; --left) {
    static constexpr int kEvents[] = {util::EVENT_STREAM_PARTIAL_END,
                                      util::STREAM_ERROR,
                                      util::STREAM_TIMEOUT,
                                      util::STREAM_DEAD,
                                      util::STREAM_FILE_NOT_FOUND,
                                      util::STREAM_NOT_AVAILABLE,
                                      -1,
                                      util::EVENT_STREAM_PARTIAL_END};
    const unsigned int kind = bytes->next();
    resource.runs.push_back(
        {static_cast<long long>(bytes->next16()) * 8, 1 + (kind >> 3) * 2000, kEvents[kind & 7]});
  }
}

}  // namespace

FileRequest* FileRequestAdaptor::createFileRequest(const std::string&) {
  return new MemoryRequest();
}

void FileRequestAdaptor::releaseFileRequest(FileRequest* request) {
  request->release();
  delete request;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  util::LOG_LEV = -5;
  Bytes bytes(data, size);
  describeResource(&bytes);
  const int blocks = static_cast<int>(bytes.next() & 7);
  int handles[2] = {0, 0};
  FUZZ_CHECK(x_fluvia_file_open_x("/memory", &handles[0], blocks * 32768) == 0);
  for (int calls = 0; calls < 40 && !bytes.empty(); ++calls) {
    const unsigned int operation = bytes.next();
    const int which = operation >> 7;
    if (handles[which] == 0) {
      FUZZ_CHECK(x_fluvia_file_open_x("/memory", &handles[which], 0) == 0);
    }
    if ((operation & 0x7F) % 13 == 12) {
      FUZZ_CHECK(x_fluvia_file_close(handles[which]) == 0);
      handles[which] = 0;
    } else {
      perform((operation & 0x7F) % 13, handles[which], &bytes);
    }
  }
  for (const int handle : handles) {
    if (handle != 0) FUZZ_CHECK(x_fluvia_file_close(handle) == 0);
  }
  return 0;
}
