#include "webs/ReadTurns.h"

#include <algorithm>

#include "util/Clock.h"

namespace webs {

namespace {

// For how long a reader that has just read is expected to read again: longer than a busy machine
// takes to let a thread go on, shorter than a viewer notices.
constexpr long long kLagMs = 20;
constexpr long long kRunPauseMs = 5;
// How often a read that nobody lets go on looks whether the others still do something.
constexpr int kLookMs = 5;

}  // namespace

ReadTurns::ReadTurns(util::BufferQueue* queue)
    : queue_(queue), busy(false), runOf(nullptr), runBytes(0), runNew(0) {}

ReadTurns::Turn::Turn(ReadTurns* turns, const FluviaFile* reader, long long position, bool alone)
    : turns_(alone ? nullptr : turns), reader_(reader), position_(position) {
  if (turns_ == nullptr) return;
  held_ = turns_->waitForTurn(reader, position);
  version_ = turns_->queue_->connectionVersion();
}

ReadTurns::Turn::~Turn() {
  if (turns_ == nullptr) return;
  const bool restarted = turns_->queue_->connectionVersion() != version_;
  turns_->end(reader_, position_ + bytes_, bytes_, held_ ? 0 : bytes_, restarted);
}

// A place in the list of waiters, given up also when the caller's thread is cancelled.
class ReadTurns::Waiting {
 public:
  Waiting(ReadTurns* turns, Waiter* waiter) : turns_(turns), waiter_(waiter) {
    util::Lock guard(turns_->lock);
    turns_->waiters.push_back(waiter_);
    turns_->grant(util::monotonicMs());
  }
  ~Waiting() {
    util::Lock guard(turns_->lock);
    turns_->waiters.remove(waiter_);
    if (taken_ || !waiter_->granted) return;
    turns_->busy = false;
    turns_->grant(util::monotonicMs());
  }
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

  void wait() {
    util::Lock guard(waiter_->wake);
    while (!waiter_->granted) {
      if (waiter_->wake.waitFor(kLookMs) || waiter_->granted) continue;
      guard.release();
      turns_->look();
      guard.acquire();
    }
    taken_ = true;
  }

 private:
  ReadTurns* turns_;
  Waiter* waiter_;
  bool taken_ = false;
};

void ReadTurns::look() {
  util::Lock guard(lock);
  grant(util::monotonicMs());
}

bool ReadTurns::waitForTurn(const FluviaFile* reader, long long position) {
  Waiter waiter(reader, position);
  Waiting waiting(this, &waiter);
  waiting.wait();
  return waiter.held;
}

void ReadTurns::end(const FluviaFile* reader, long long position, unsigned int bytes,
                    unsigned int newBytes, bool restarted) {
  util::Lock guard(lock);
  busy = false;
  if (restarted) {
    runOf = reader;
    runBytes = 0;
    runNew = 0;
  }
  runBytes += bytes;
  runNew += newBytes;
  for (Waiter* waiter : waiters) {
    waiter->passedBytes += bytes;
    waiter->passedNew += newBytes;
  }
  auto known = std::find_if(readers.begin(), readers.end(),
                            [&](const Reader& each) { return each.file == reader; });
  if (known == readers.end()) known = readers.insert(known, Reader{reader, 0, 0});
  known->position = position;
  known->lastRead = util::monotonicMs();
  grant(known->lastRead);
}

void ReadTurns::forget(const FluviaFile* reader) {
  util::Lock guard(lock);
  readers.remove_if([&](const Reader& each) { return each.file == reader; });
  if (runOf == reader) runOf = nullptr;
}

// Lets the best waiter go, if one may.
void ReadTurns::grant(long long now) {
  if (busy) return;
  Waiter* best = nullptr;
  Claim claim = kNotNow;
  for (Waiter* waiter : waiters) {
    const Claim its = claimOf(*waiter, now);
    // Of reads that need a connection the one furthest back takes those ahead of it along.
    const bool earlier = best != nullptr && its == kNewConnection && claim == its &&
                         waiter->position < best->position &&
                         best->position - waiter->position <= queue_->getBufferSize();
    if (its > claim || earlier) {
      best = waiter;
      claim = its;
    }
    if (claim == kOverdue) break;
  }
  if (best == nullptr) return;
  busy = true;
  util::Lock guard(best->wake);
  best->held = queue_->getBufferedSize(best->position) > 0;
  best->granted = true;
  best->wake.notifyAll(0);
}

ReadTurns::Claim ReadTurns::claimOf(const Waiter& waiter, long long now) {
  const bool overdue = isMuch(waiter.passedBytes, waiter.passedNew);
  if (queue_->getBufferedSize(waiter.position) > 0) return overdue ? kOverdue : kHeld;
  if (!overdue && leavesSomebodyBehind(waiter, now)) return kNotNow;
  if (queue_->comesNext(waiter.position)) return overdue ? kOverdue : kComesNext;
  if (breaksARun(waiter, now)) return kNotNow;
  return overdue ? kOverdue : kNewConnection;
}

// A buffer of new bytes: what readers that keep together read of it from the buffer moves nothing.
// Readers that read nothing else must come to an end too.
bool ReadTurns::isMuch(long long bytes, long long newBytes) {
  const long long capacity = queue_->getBufferSize();
  const auto known = static_cast<long long>(std::max<size_t>(1, readers.size()));
  return newBytes >= capacity || bytes >= capacity * known;
}

// Whether new data at that position would take from the buffer what another reader, which is not
// here at this moment, reads next.
bool ReadTurns::leavesSomebodyBehind(const Waiter& waiter, long long now) {
  const long long capacity = queue_->getBufferSize();
  return std::any_of(readers.begin(), readers.end(), [&](const Reader& each) {
    const long long lag = waiter.position - each.position;
    return each.file != waiter.file && lag > capacity / 2 && lag <= capacity &&
           now - each.lastRead < kLagMs;
  });
}

// Whether it takes the stream from a reader for which it was just restarted.
bool ReadTurns::breaksARun(const Waiter& waiter, long long now) {
  const auto* const running = runOf;
  if (running == nullptr || running == waiter.file || isMuch(runBytes, runNew)) return false;
  return std::any_of(readers.begin(), readers.end(), [&](const Reader& each) {
    return each.file == running && now - each.lastRead < kRunPauseMs;
  });
}

}  // namespace webs
