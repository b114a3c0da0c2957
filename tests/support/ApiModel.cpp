#include "tests/support/ApiModel.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include "api/fluviafs.h"
#include "tests/support/Pattern.h"
#include "tests/support/Watchdog.h"

namespace support {

namespace {

std::string fault(const char* call, const Open& file, long long got, long long wanted) {
  return std::string(call) + " of " + file.resource->path + " at " + std::to_string(file.offset) +
         ": " + std::to_string(got) + ", not " + std::to_string(wanted);
}

}  // namespace

Caller::Caller(const std::vector<Resource>& files, int bufferSize, unsigned int seed, bool onlyOne)
    : resources(files), buffer(bufferSize), alone(onlyOne), random(seed), bytes(200000) {}

Caller::~Caller() {
  for (const Open& open : opened) x_fluvia_file_close(open.handle);
}

std::string Caller::step() {
  if (opened.empty() || (opened.size() < 4 && random() % 40 == 0)) return open();
  const size_t which = random() % opened.size();
  Open& file = opened[which];
  switch (random() % 16) {
    case 0:
      return close(which);
    case 1:
      return size(file);
    case 2:
    case 3:
    case 4:
      return seek(file);
    case 5:
    case 6:
      return async(file, false);
    case 7:
      return async(file, true);
    case 8:
      return buffered(file);
    default:
      return read(file);
  }
}

std::string Caller::open() {
  Open file = {0, &resources[random() % resources.size()], 0};
  const int result = x_fluvia_file_open_x(file.resource->path.c_str(), &file.handle, buffer);
  if (result != 0) return fault("open", file, result, 0);
  opened.push_back(file);
  return "";
}

std::string Caller::close(size_t which) {
  const Open file = opened[which];
  opened.erase(opened.begin() + static_cast<long>(which));
  const int result = x_fluvia_file_close(file.handle);
  return result == 0 ? "" : fault("close", file, result, 0);
}

std::string Caller::size(const Open& file) {
  const long long got = x_fluvia_file_size(file.handle);
  if (got != file.resource->size) return fault("size", file, got, file.resource->size);
  const long long at = x_fluvia_file_offset(file.handle);
  return at == file.offset ? "" : fault("offset", file, at, file.offset);
}

std::string Caller::buffered(const Open& file) {
  const int got = x_fluvia_file_bufferedSize(file.handle);
  const long long most = std::max(0LL, file.resource->size - file.offset);
  return got >= 0 && got <= most ? "" : fault("bufferedSize", file, got, most);
}

std::string Caller::seek(Open& file) {
  const long long size = file.resource->size;
  long long to = static_cast<long long>(random() % static_cast<unsigned long long>(size + 3));
  if (random() % 2 == 0) {
    to = std::max(0LL,
                  std::min(size, file.offset + static_cast<long long>(random() % 120000) - 60000));
  }
  long long now = -99;
  const int result = x_fluvia_file_seek(file.handle, to, &now);
  const long long wanted = std::min(to, size);
  if (size == 0) return result == FVFR_FAILED ? "" : fault("seek", file, result, FVFR_FAILED);
  if (result != 0) return fault("seek", file, result, 0);
  if (now != wanted) return fault("seek", file, now, wanted);
  file.offset = wanted;
  return "";
}

unsigned int Caller::someSize() {
  return static_cast<unsigned int>(random() % 5 == 0 ? random() % bytes.size() : random() % 9000);
}

unsigned int Caller::expected(const Open& file, unsigned int asked) {
  return static_cast<unsigned int>(
      std::min<long long>(asked, std::max(0LL, file.resource->size - file.offset)));
}

std::string Caller::bytesFault(const Open& file, unsigned int count) {
  compared += count;
  const long long wrong = support::firstDifference(
      file.resource->base + static_cast<unsigned long long>(file.offset), bytes.data(), count);
  return wrong < 0 ? "" : fault("byte", file, wrong, -1);
}

std::string Caller::read(Open& file) {
  const unsigned int asked = someSize();
  const unsigned int wanted = expected(file, asked);
  unsigned int got = 77777;
  const int result = x_fluvia_file_read(file.handle, bytes.data(), asked, &got);
  const int code = file.offset >= file.resource->size ? FVFR_END_OF_FILE : FVFR_OK;
  if (result != code) return fault("read", file, result, code);
  if (got != wanted) return fault("read bytes", file, got, wanted);
  const std::string wrong = bytesFault(file, got);
  file.offset += got;
  return wrong;
}

std::string Caller::async(Open& file, bool abort) {
  const unsigned int asked = someSize();
  const unsigned int wanted = expected(file, asked);
  kept.emplace_back(new Completions());
  Completions& done = *kept.back();
  int id = 0;
  int result = x_fluvia_file_read_async(file.handle, bytes.data(), asked, &Completions::completed,
                                        &done, &id);
  if (result != 0) return fault("read_async", file, result, 0);
  if (id < 1 || id > 511) return fault("request id", file, id, 1);
  if (abort) {
    result = x_fluvia_file_read_abort(file.handle, id);
    if (result != 0) return fault("read_abort", file, result, 0);
  }
  if (!done.waitFor(1, 30)) return fault("completion", file, 0, 1);
  const Completions::Call call = done.calls()[0];
  // A request that was aborted in the queue is called back twice before abort returns; one that was
  // aborted while it ran, only once.
  const bool queuedAbort = abort && call.status == FVFR_ASYNC_CANCELLED && call.bytes == 0;
  if (!queuedAbort && alone && done.count() != 1) return fault("completions", file, 2, 1);
  if (call.id != id) return fault("completed id", file, call.id, id);
  return checkCompletion(file, call, wanted, abort || !alone);
}

std::string Caller::checkCompletion(Open& file, const Completions::Call& call, unsigned int wanted,
                                    bool mayBeCancelled) {
  const int status = file.offset >= file.resource->size ? FVFR_ASYNC_END_OF_FILE : FVFR_ASYNC_DONE;
  const bool cancelled = call.status == FVFR_ASYNC_CANCELLED;
  if (call.status != status && !(mayBeCancelled && cancelled)) {
    return fault("status", file, call.status, status);
  }
  if (cancelled) {
    const long long at = x_fluvia_file_offset(file.handle);
    return at == file.offset ? bytesFault(file, static_cast<unsigned int>(call.bytes))
                             : fault("offset after abort", file, at, file.offset);
  }
  if (call.bytes != static_cast<int>(wanted)) {
    return fault("async bytes", file, call.bytes, wanted);
  }
  const std::string wrong = bytesFault(file, wanted);
  file.offset += wanted;
  return wrong;
}

CallersResult runCallers(const CallersPlan& plan, const std::vector<Resource>& resources,
                         unsigned int seed) {
  const int calls = scaled(plan.calls);
  std::vector<std::string> wrong(static_cast<size_t>(plan.threads));
  std::atomic<int> made{0};
  std::atomic<long long> compared{0};
  Watchdog watchdog(60, [&] { return std::to_string(made) + " calls made"; });
  std::vector<std::thread> threads;
  for (std::string& mine : wrong) {
    const unsigned int number = static_cast<unsigned int>(threads.size());
    threads.emplace_back([&, number] {
      Caller caller(resources, plan.bufferSize, seed + number, plan.threads == 1);
      for (int call = 0; call < calls && mine.empty(); ++call) {
        mine = caller.step();
        if (++made % 64 == 0) watchdog.at("calls");
      }
      compared += caller.bytesCompared();
    });
  }
  for (std::thread& thread : threads) thread.join();
  CallersResult result;
  result.calls = made;
  result.bytesCompared = compared;
  for (const std::string& fault : wrong) {
    if (!fault.empty()) result.wrong += fault + "\n";
  }
  return result;
}

}  // namespace support
