// How a reader survives an outage of its server, by the rules of fluvia_outage.h.
#include <algorithm>
#include <string>

#include "Diagnosis.h"
#include "SourceWorker.h"

namespace {

// Bytes that are read and dropped at a time.
constexpr long long kSkipped = 65536;

template <typename TimePoint>
long long millisecondsOf(TimePoint time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

}  // namespace

bool SourceReader::Worker::lose(long long offset) {
  if (fluvia_outage_has_changed(&outage_, handle_) != 0) {
    endAsChanged();
    return false;
  }
  const Clock::time_point now = Clock::now();
  const long pause = fluvia_outage_pause(&outage_, handle_, millisecondsOf(now));
  if (pause < 0) {
    fail("read");
    return false;
  }
  SourceOutage outage;
  outage.waits = true;
  outage.why = diagnose(name_, handle_).text;
  outage.milliseconds = pause;
  outage.offset = offset;
  nextTry_ = now + std::chrono::milliseconds(pause);
  hold_ = Hold::kLost;
  closeHandle();
  if (outages_) outages_(outage);
  return true;
}

SourceReader::Outcome SourceReader::Worker::comeBack(long long offset, unsigned long long ticket) {
  for (;;) {
    Outcome outcome = hold_ == Hold::kLost ? waitForTheNextTry(ticket) : Outcome::kDone;
    if (outcome == Outcome::kDone && hold_ == Hold::kLost) outcome = reopen();
    if (outcome == Outcome::kDone) outcome = prove(ticket);
    if (outcome == Outcome::kDone) outcome = returnTo(offset, ticket);
    if (outcome == Outcome::kDone) {
      hold_ = Hold::kUsual;
      return outcome;
    }
    if (outcome == Outcome::kInterrupted) {
      // The next caller has the full time again, and a retry at once.
      outage_.since = -1;
      outage_.tries = 0;
      nextTry_ = Clock::now();
      return outcome;
    }
    if (hold_ == Hold::kFinal || !lose(offset)) return outcome;
  }
}

SourceReader::Outcome SourceReader::Worker::waitForTheNextTry(unsigned long long ticket) {
  Lock held(lock_);
  while (!abandoned(ticket)) {
    if (Clock::now() >= nextTry_) return Outcome::kDone;
    if (lookWanted_ || (observer_ && Clock::now() >= nextLook_)) {
      look(held);
    } else {
      changed_.wait_until(held, observer_ ? std::min(nextTry_, nextLook_) : nextTry_);
    }
  }
  return Outcome::kInterrupted;
}

SourceReader::Outcome SourceReader::Worker::reopen() {
  position_ = 0;
  if (fluvia_outage_open(&outage_, settings_.bufferSize, &handle_) != FVFR_OK) {
    handle_ = 0;
    return end({SourceFailure::kOther, "all handles are in use, or no memory is left"});
  }
  hold_ = Hold::kUnproven;
  applySettings();
  return Outcome::kDone;
}

SourceReader::Outcome SourceReader::Worker::prove(unsigned long long ticket) {
  Piece first;
  const Outcome outcome = fetchOnce(1, ticket, &first);
  if (outcome != Outcome::kDone && outcome != Outcome::kEnd) return outcome;
  return fluvia_outage_is_same(&outage_, handle_) != 0 ? Outcome::kDone : endAsChanged();
}

SourceReader::Outcome SourceReader::Worker::returnTo(long long offset, unsigned long long ticket) {
  if (outage_.known == 0 || outage_.seekable != 0) return Outcome::kDone;
  const Clock::time_point until = Clock::now() + std::chrono::seconds(settings_.reopen);
  while (position_ < offset) {
    Piece dropped;
    const long long step = std::min(kSkipped, offset - position_);
    const Outcome outcome = fetchOnce(static_cast<unsigned int>(step), ticket, &dropped);
    if (outcome == Outcome::kEnd) return endAsChanged();
    if (outcome != Outcome::kDone) return outcome;
    if (Clock::now() >= until) {
      return end({SourceFailure::kTimeout, "a stream that cannot seek does not come back in time"});
    }
  }
  return Outcome::kDone;
}

SourceReader::Outcome SourceReader::Worker::endAsChanged() {
  return end({SourceFailure::kOther, "the resource has changed"});
}

SourceReader::Outcome SourceReader::Worker::end(const Diagnosis& why) {
  hold_ = Hold::kFinal;
  fail("go on with", why);
  return Outcome::kFailed;
}

void SourceReader::Worker::endOutage(long long offset) {
  const bool goesOn = outage_.since >= 0;
  fluvia_outage_end(&outage_, handle_);
  if (!goesOn || !outages_) return;
  SourceOutage outage;
  outage.offset = offset;
  outages_(outage);
}
