#include "webs/ReadTurns.h"

#include <algorithm>
#include <limits>

#include "util/Clock.h"
#include "util/PausePoint.h"

namespace webs {

namespace {

constexpr long long kNever = std::numeric_limits<long long>::max();
constexpr int kNoLimit = -1;

// Flag in aloneReads: a read of another handle waits for the reads counted there.
constexpr int kAwaited = 1 << 30;

}  // namespace

util::Relaxed<int> ReadTurns::longest(0);

ReadTurns::ReadTurns(util::BufferQueue* queue)
    : queue_(queue),
      members(0),
      aloneReads(0),
      busy(false),
      taker{nullptr, nullptr, 0, false},
      first(nullptr),
      run{nullptr, 0, 0},
      nextLook(kNever),
      keeper(nullptr),
      fetched(0),
      fetchingSince(0) {}

// A place in the list of waiters; removed also if the caller's thread is cancelled.
class ReadTurns::Waiting {
 public:
  Waiting(ReadTurns* turns, Waiter* waiter) : turns_(turns), waiter_(waiter) {
    util::Lock guard(turns_->lock);
    const Reader* reader = turns_->find(waiter_->file);
    // A cancelled request is marked first, and its wait is ended then: this sees one of the two.
    const bool givenUp = waiter_->isGivenUp != nullptr && waiter_->isGivenUp(waiter_->request);
    if (reader == nullptr || reader->closing || givenUp) {
      tell(waiter_, Word::kBroken);
      return;
    }
    waiter_->fetchedBefore = turns_->fetchTime(waiter_->since);
    turns_->append(waiter_);
    turns_->schedule(waiter_->since);
  }
  ~Waiting() {
    if (last_ == Word::kGo || last_ == Word::kBroken) return;
    util::Lock guard(turns_->lock);
    if (!turns_->unlink(waiter_) && given()) turns_->busy = false;
    turns_->schedule(util::monotonicMs());
  }
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

  // True if it is the read's turn, false if the wait was aborted.
  bool wait() {
    for (;;) {
      FLUVIA_PAUSE_POINT("ReadTurns::wait");
      last_ = sleep(turns_->sleepOf(waiter_));
      if (last_ == Word::kGo) return true;
      if (last_ == Word::kBroken) return false;
      util::Lock guard(turns_->lock);
      if (turns_->keeper == waiter_) turns_->keeper = nullptr;
      turns_->schedule(util::monotonicMs());
    }
  }

 private:
  Word sleep(int milliseconds) {
    util::Lock guard(waiter_->wake);
    while (waiter_->word == Word::kNone) {
      if (milliseconds == kNoLimit) {
        waiter_->wake.wait(0);
      } else if (!waiter_->wake.waitFor(milliseconds)) {
        break;
      }
    }
    const Word word = waiter_->word;
    waiter_->word = Word::kNone;
    return word;
  }
  bool given() {
    util::Lock guard(waiter_->wake);
    return waiter_->word == Word::kGo;
  }

  ReadTurns* turns_;
  Waiter* waiter_;
  Word last_ = Word::kNone;
};

ReadTurns::Turn::Turn(ReadTurns* turns, const FluviaFile* reader, long long position,
                      unsigned int size, const void* request, GivenUp isGivenUp)
    : turns_(turns), reader_(reader), position_(position) {
  if (turns_->beginAlone()) return;
  Waiter waiter;
  waiter.file = reader;
  waiter.request = request;
  waiter.isGivenUp = isGivenUp;
  waiter.position = position;
  waiter.size = size;
  waiter.since = util::monotonicMs();
  waiter.fetchedBefore = 0;
  Waiting waiting(turns_, &waiter);
  part_ = waiting.wait() ? Part::kTurn : Part::kBroken;
  version_ = turns_->queue_->connectionVersion();
  waits_ = turns_->queue_->readerWaits();
  FLUVIA_PAUSE_POINT("ReadTurns::Turn over");
}

ReadTurns::Turn::~Turn() {
  if (part_ == Part::kAlone) turns_->endAlone();
  if (part_ != Part::kTurn) return;
  const bool waited = turns_->queue_->readerWaits() != waits_;
  const bool restarted = turns_->queue_->connectionVersion() != version_;
  turns_->end(Done{reader_, position_, bytes_, waited, restarted});
}

// Counts first and checks then; a read of a joining handle checks after it has joined. So one of
// the two sees the other.
bool ReadTurns::beginAlone() {
  aloneReads.fetch_add(1);
  if (members.load() < 2) return true;
  endAlone();
  return false;
}

void ReadTurns::endAlone() {
  if (aloneReads.fetch_sub(1) != (kAwaited | 1)) return;
  util::Lock guard(lock);
  schedule(util::monotonicMs());
}

void ReadTurns::end(const Done& done) {
  util::Lock guard(lock);
  const long long now = util::monotonicMs();
  // The transfer may have reused the read's blocks after it got the turn.
  if (done.waited && fetchingSince == 0) fetchingSince = taker.since;
  const bool fetches = fetchingSince != 0;
  fetched = fetchTime(now);
  fetchingSince = 0;
  busy = false;
  if (Reader* known = find(done.reader)) {
    known->steady = known->position == done.from;
    known->position = done.from + done.bytes;
    known->lastRead = now;
    if (done.restarted && fetches) run = Run{done.reader, now, done.from};
    keepAhead(*known);
  }
  schedule(now);
}

// The transfer reuses blocks in front of the last read first. If that read was elsewhere, those are
// the next bytes of a reader that reads steadily: moves the queue back to that reader.
void ReadTurns::keepAhead(const Reader& last) {
  const Reader* kept = run.of == last.file ? nullptr : find(run.of);
  if (kept == nullptr && !last.steady) {
    for (const Reader& each : readers) {
      if (!each.steady || (kept != nullptr && each.lastRead <= kept->lastRead)) continue;
      kept = &each;
    }
  }
  if (kept != nullptr && kept->steady) queue_->expectReader(kept->position);
}

void ReadTurns::join(const FluviaFile* reader) {
  std::list<Reader> made(1, Reader{reader, 0, 0, false, false});
  util::Lock guard(lock);
  if (find(reader) != nullptr) return;
  readers.splice(readers.end(), made);
  members.fetch_add(1);
}

void ReadTurns::forget(const FluviaFile* reader) {
  util::Lock guard(lock);
  if (find(reader) == nullptr) return;
  readers.remove_if([&](const Reader& each) { return each.file == reader; });
  members.fetch_sub(1);
  if (run.of == reader) run.of = nullptr;
  schedule(util::monotonicMs());
}

void ReadTurns::breakWait(const FluviaFile* reader, const void* request) {
  util::Lock guard(lock);
  for (Waiter* waiter = first; waiter != nullptr;) {
    Waiter* const each = waiter;
    waiter = waiter->next;
    if (each->file != reader || each->request != request) continue;
    unlink(each);
    tell(each, Word::kBroken);
  }
  if (busy && taker.file == reader && taker.request == request) taker.met = true;
  schedule(util::monotonicMs());
}

void ReadTurns::breakForClose(const FluviaFile* reader) {
  util::Lock guard(lock);
  if (Reader* known = find(reader)) known->closing = true;
  for (Waiter* waiter = first; waiter != nullptr;) {
    Waiter* const each = waiter;
    waiter = waiter->next;
    if (each->file != reader) continue;
    unlink(each);
    tell(each, Word::kBroken);
  }
  schedule(util::monotonicMs());
}

// Starts the best waiter, if one may go; otherwise makes the first one wait for the time when one
// may.
void ReadTurns::schedule(long long now) {
  if (first == nullptr) aloneReads.fetch_and(~kAwaited);
  if (first == nullptr || isTaken()) return;
  fetched = fetchTime(now);
  fetchingSince = 0;
  long long lookAt = kNever;
  if (Waiter* chosen = best(now, &lookAt)) {
    give(chosen, now);
    return;
  }
  const Reader* runner = find(run.of);
  if (runner != nullptr && keepsThroughPauses(*runner)) fetchingSince = now;
  const bool sleepsUntilThen = keeper == first && nextLook <= lookAt;
  if (sleepsUntilThen) return;
  nextLook = lookAt;
  if (lookAt != kNever) tell(first, Word::kLook);
}

// True if a read has the turn, or a read that is alone runs; such a read then schedules at its end.
bool ReadTurns::isTaken() {
  if (busy) return true;
  if ((aloneReads.fetch_or(kAwaited) & ~kAwaited) != 0) return true;
  aloneReads.fetch_and(~kAwaited);
  return false;
}

bool ReadTurns::isTakerMet() {
  util::Lock guard(lock);
  return taker.met;
}

ReadTurns::Waiter* ReadTurns::best(long long now, long long* lookAt) {
  Waiter* found = nullptr;
  Claim claim = kNotNow;
  for (Waiter* waiter = first; waiter != nullptr && claim != kOverdue; waiter = waiter->next) {
    long long mayAt = kNever;
    const Claim its = claimOf(*waiter, now, &mayAt);
    if (its == kNotNow) *lookAt = std::min(*lookAt, mayAt);
    const bool furtherBack = found != nullptr && its == kNewConnection && claim == its &&
                             waiter->position < found->position &&
                             found->position - waiter->position <= queue_->getBufferSize();
    if (its > claim || furtherBack) {
      found = waiter;
      claim = its;
    }
  }
  return found;
}

void ReadTurns::give(Waiter* waiter, long long now) {
  unlink(waiter);
  busy = true;
  taker = Taker{waiter->file, waiter->request, now, false};
  const long long kept = now - waiter->since - (fetchTime(now) - waiter->fetchedBefore);
  if (kept > longest) longest = static_cast<int>(kept);
  fetchingSince = missingFrom(*waiter) == kNever ? 0 : now;
  tell(waiter, Word::kGo);
}

// *mayAt: for a read that may not go, when to check again.
ReadTurns::Claim ReadTurns::claimOf(const Waiter& waiter, long long now, long long* mayAt) {
  const bool overdue = now - waiter.since >= kTurnMs;
  const long long missing = missingFrom(waiter);
  if (missing == kNever) return overdue ? kOverdue : kBuffered;
  *mayAt = lagEnds(waiter, now);
  if (*mayAt > now) return kNotNow;
  if (queue_->comesNext(missing)) return overdue ? kOverdue : kComesNext;
  *mayAt = runEnds(waiter, now);
  if (*mayAt > now) return kNotNow;
  return overdue ? kOverdue : kNewConnection;
}

// Offset of the first byte that the read has to wait for; kNever if all of it is buffered.
long long ReadTurns::missingFrom(const Waiter& waiter) {
  const long long buffered = queue_->getBufferedSize(waiter.position);
  const long long end = waiter.position + buffered;
  const long long size = queue_->getContentSize();
  if (size > 0 && waiter.position >= size) return kNever;  // its end is known
  return buffered >= waiter.size || (buffered > 0 && end == size) ? kNever : end;
}

// Until when the read leaves readers behind it time to follow. This concerns readers that have just
// read and whose next bytes new data at its position would evict.
long long ReadTurns::lagEnds(const Waiter& waiter, long long now) {
  const long long capacity = queue_->getBufferSize();
  long long until = now;
  for (const Reader& each : readers) {
    const long long lag = waiter.position - each.position;
    if (each.file == waiter.file || lag <= capacity / 2 || lag > capacity) continue;
    until = std::max(until, each.lastRead + kLagMs);
  }
  return std::min(until, waiter.since + kLagMs);
}

// Until when the stream stays with the reader that it was restarted for, as far as that is known
// now. What the transfer stores is not announced, so this returns the time of the next check.
long long ReadTurns::runEnds(const Waiter& waiter, long long now) {
  const Reader* reader = run.of == nullptr || run.of == waiter.file ? nullptr : find(run.of);
  if (reader == nullptr || hasJumped(*reader)) return now;
  const long long age = now - run.began;
  if (keepsThroughPauses(*reader)) {
    return std::min(run.began + kFillMs, now + std::max<long long>(age, 2));
  }
  const long long limit = run.began + kTurnMs;
  return isWaiting(run.of) ? limit : std::min(limit, reader->lastRead + kPauseMs);
}

// True if the reader of the run continues steadily, and the transfer still has to store, and does
// store, a share of the buffer for it.
bool ReadTurns::keepsThroughPauses(const Reader& reader) {
  if (!reader.steady) return false;
  const long long until = reader.position + queue_->getBufferedSize(reader.position);
  const long long size = queue_->getContentSize();
  if (until - run.from >= queue_->getBufferSize() / kStoredShare) return false;
  return (size <= 0 || until < size) && queue_->comesNext(until);
}

// True if the reader waits for bytes elsewhere than where it last read, with another connection: it
// no longer needs what was restarted for it.
bool ReadTurns::hasJumped(const Reader& reader) {
  for (const Waiter* waiter = first; waiter != nullptr; waiter = waiter->next) {
    if (waiter->file != reader.file || waiter->position == reader.position) continue;
    const long long missing = missingFrom(*waiter);
    if (missing != kNever && !queue_->comesNext(missing)) return true;
  }
  return false;
}

// How long the waiter may sleep before it checks, in milliseconds. It knows every time until now at
// which it should check.
int ReadTurns::sleepOf(Waiter* waiter) {
  util::Lock guard(lock);
  {
    util::Lock own(waiter->wake);
    if (waiter->word == Word::kLook) waiter->word = Word::kNone;
  }
  const bool keeps = waiter == first && !busy && nextLook != kNever;
  if (keeps) {
    keeper = waiter;
  } else if (keeper == waiter) {
    keeper = nullptr;
  }
  if (!keeps) return kNoLimit;
  return static_cast<int>(std::max(1LL, nextLook - util::monotonicMs()));
}

bool ReadTurns::isWaiting(const FluviaFile* reader) {
  for (const Waiter* waiter = first; waiter != nullptr; waiter = waiter->next) {
    if (waiter->file == reader) return true;
  }
  return false;
}

void ReadTurns::append(Waiter* waiter) {
  Waiter** link = &first;
  while (*link != nullptr) link = &(*link)->next;
  *link = waiter;
}

// False when it was not in the list.
bool ReadTurns::unlink(Waiter* waiter) {
  if (keeper == waiter) keeper = nullptr;
  for (Waiter** link = &first; *link != nullptr; link = &(*link)->next) {
    if (*link != waiter) continue;
    *link = waiter->next;
    return true;
  }
  return false;
}

// The waiter may be destroyed as soon as it has received a word that ends its wait.
void ReadTurns::tell(Waiter* waiter, Word word) {
  util::Lock guard(waiter->wake);
  waiter->word = word;
  waiter->wake.notifyAll(0);
}

ReadTurns::Reader* ReadTurns::find(const FluviaFile* reader) {
  const auto found = std::find_if(readers.begin(), readers.end(),
                                  [&](const Reader& each) { return each.file == reader; });
  return found == readers.end() ? nullptr : &*found;
}

// How long data has been fetched until now.
long long ReadTurns::fetchTime(long long now) {
  return fetchingSince == 0 ? fetched : fetched + now - fetchingSince;
}

}  // namespace webs
