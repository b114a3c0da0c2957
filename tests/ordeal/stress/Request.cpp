#include "tests/ordeal/stress/Request.h"

#include <algorithm>
#include <chrono>

#include "api/fluviafs.h"
#include "tests/support/Pattern.h"

namespace stress {

Request::Request(World* where, Tally* counts, std::shared_ptr<Held> file, long long position,
                 unsigned int size)
    : from(position),
      asked(size),
      held(std::move(file)),
      world(where),
      tally(counts),
      buffer(size),
      aborter(std::thread::id()) {}

void Request::fail(const std::string& what) {
  world->fail("asynchronous read of " + std::to_string(asked) + " bytes of " + held->target->kind +
              " at " + std::to_string(from) + ": " + what);
}

bool Request::issue() {
  const Held::Use use(held.get());
  if (!use) return false;
  ownMark = held->disturbances.mark();
  targetMark = held->target->disturbances.mark();
  wasLearnt = held->learnt;
  const int result = x_fluvia_file_read_async(held->handle, buffer.data(), asked,
                                              &Request::completed, this, &requestId);
  ++tally->operations;
  ++tally->asyncReads;
  if (result == FVFR_OK) return true;
  if (result != FVFR_FAILED || !(held->target->empty || held->isClosing())) {
    fail("refused with " + std::to_string(result));
  }
  return false;
}

void Request::abort() {
  const Held::Use use(held.get());
  if (!use) return;
  std::lock_guard<std::mutex> guard(gate);
  {
    // A callback that has passed the gate may return before the abort below: its id would then be
    // that of another request.
    std::lock_guard<std::mutex> counting(lock);
    if (counted) return;
  }
  aborted = true;
  aborter = std::this_thread::get_id();
  const int result = x_fluvia_file_read_abort(held->handle, requestId);
  ++tally->operations;
  ++tally->aborts;
  aborter = std::thread::id();
  if (held->isClosing()) closedMeanwhile = true;
  if (closedMeanwhile) return;
  if (result != FVFR_OK) fail("abort gave " + std::to_string(result));
  // Removed from the queue: called back twice, at once. Otherwise called back later, by its worker.
  if (whileAborting != 0 && whileAborting != 2) {
    fail(std::to_string(whileAborting) + " callbacks during its abort");
  }
}

void Request::completed(int id, void* userData, int status, int readBytes) {
  static_cast<Request*>(userData)->count(id, status, readBytes);
}

void Request::count(int id, int status, int readBytes) {
  ++tally->callbacks;
  if (held->isClosed()) fail("called back after close had returned");
  if (id != requestId) fail("id " + std::to_string(id) + ", not " + std::to_string(requestId));
  const bool mine = insideAbort();
  std::unique_lock<std::mutex> counting(gate, std::defer_lock);
  if (!mine) counting.lock();
  if (mine) ++whileAborting;
  bool first = false;
  {
    std::lock_guard<std::mutex> guard(lock);
    first = !counted;
    counted = true;
    if (first) {
      firstStatus = status;
      firstBytes = readBytes;
    } else if (status != FVFR_ASYNC_CANCELLED || readBytes != 0 ||
               firstStatus != FVFR_ASYNC_CANCELLED || firstBytes != 0) {
      fail("called back again with " + std::to_string(status) + " after " +
           std::to_string(firstStatus));
    }
  }
  if (counting.owns_lock()) counting.unlock();
  if (first && then) then(this);
  // The last access: a waiting thread may free this object now.
  std::lock_guard<std::mutex> guard(lock);
  ++calls;
  changed.notify_all();
}

bool Request::waitUntilAnswered(int seconds) {
  std::unique_lock<std::mutex> guard(lock);
  return changed.wait_for(guard, std::chrono::seconds(seconds), [&] { return calls > 0; });
}

bool Request::statusIsRight(long long position, bool disturbed) const {
  const Target& target = *held->target;
  switch (firstStatus) {
    case FVFR_ASYNC_DONE:
      return position < target.size || target.mortal();
    case FVFR_ASYNC_END_OF_FILE:
      return position >= target.size;
    case FVFR_ASYNC_CANCELLED:
      return aborted || held->isClosing();
    case FVFR_ASYNC_FAILED:
      // Past the end of a stream of unknown length there is nothing to move the buffer to.
      return disturbed || target.mortal() || (!target.sized && position > target.size);
    default:
      return false;
  }
}

std::string Request::faultFrom(long long position, bool disturbed) const {
  const Target& target = *held->target;
  if (!statusIsRight(position, disturbed)) return "status " + std::to_string(firstStatus);
  const long long there = std::max(0LL, target.size - position);
  const long long wanted = std::min<long long>(asked, there);
  const bool done = firstStatus == FVFR_ASYNC_DONE;
  if (firstBytes < 0 || firstBytes > wanted || (done && firstBytes != wanted)) {
    return std::to_string(firstBytes) + " bytes, not " + std::to_string(wanted);
  }
  const long long wrong =
      support::firstDifference(target.base + static_cast<unsigned long long>(position),
                               buffer.data(), static_cast<size_t>(firstBytes));
  return wrong < 0 ? "" : "byte " + std::to_string(position + wrong) + " is wrong";
}

void Request::check(const std::set<long long>& positions) {
  const bool disturbed = held->disturbances.since(ownMark) ||
                         (!wasLearnt && held->target->disturbances.since(targetMark));
  if (firstStatus == FVFR_ASYNC_FAILED) ++tally->failures;
  std::string fault;
  for (const long long position : positions) {
    fault = faultFrom(position, disturbed);
    if (fault.empty()) break;
  }
  if (!fault.empty()) fail(fault + ", " + std::to_string(positions.size()) + " positions");
  tally->bytes += firstBytes;
  if (firstBytes > 0) held->learnt = true;
}

void Request::finish() {
  const int came = calls;
  const bool twice = whileAborting > 0;
  if (came < 1 || came > 2 || (came == 2 && !twice)) {
    fail("called back " + std::to_string(came) + " times");
  }
  buffer = std::vector<char>();
  then = nullptr;  // it may own this request
}

}  // namespace stress
