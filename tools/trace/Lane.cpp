#include "Lane.h"

#include <algorithm>

#include "ConnectionEnd.h"

namespace tools {
namespace {

constexpr size_t kMostConnections = 1000;
constexpr size_t kMostWaits = 1000;
constexpr size_t kMostHappenings = 1000;
constexpr size_t kMostPauses = 1000;
// If there are more stretches than this, the nearest ones are drawn as one.
constexpr size_t kMostStretches = 12;
// Closed handles of a resource beyond this number share the last one's curve.
constexpr size_t kMostReaders = 40;
// Waits that are nearer to each other than this (seconds), and than they are long, look like one
// and are merged.
constexpr double kOneWait = 0.02;
// A connection that has delivered nothing for this long (seconds) is called silent.
constexpr double kSilence = 0.25;

}  // namespace

Lane::Reader* Lane::readerOf(int handle) {
  for (auto reader = readers_.rbegin(); reader != readers_.rend(); ++reader) {
    if (reader->handle == handle) return &*reader;
  }
  return nullptr;
}

void Lane::opened(double time, int handle) {
  happened(time, Happening::Kind::kOpen, "handle " + std::to_string(handle) + " opened");
  Reader* known = readerOf(handle);
  if (known == nullptr && readers_.size() == kMostReaders) known = &readers_.back();
  if (known == nullptr) {
    readers_.emplace_back();
    known = &readers_.back();
  }
  known->handle = handle;
  known->open = true;
  known->position = 0;
  known->positions.add(time, 0);
}

void Lane::closed(double time, int handle) {
  Reader* reader = readerOf(handle);
  if (reader == nullptr || !reader->open) return;
  endWait(time, handle);
  happened(time, Happening::Kind::kClose, "handle " + std::to_string(handle) + " closed");
  reader->positions.add(time, reader->position);
  reader->positions.add(time, ThinCurve::kBreak);
  reader->open = false;
  if (inUse()) return;
  writerGoesOn(time);
  blocks_.clear();
  heads_.add(time, ThinCurve::kBreak);
  holdings_.add(time, {});
}

bool Lane::inUse() const {
  return std::any_of(readers_.begin(), readers_.end(),
                     [](const Reader& reader) { return reader.open; });
}

void Lane::readerAt(double time, int handle, long long offset) {
  Reader* reader = readerOf(handle);
  if (reader == nullptr || !reader->open || offset < 0) return;
  reader->position = offset;
  reader->positions.add(time, offset);
}

void Lane::readerMovedBy(double time, int handle, long long bytes) {
  Reader* reader = readerOf(handle);
  if (reader == nullptr || !reader->open || bytes < 0) return;
  reader->position += bytes;
  reader->positions.add(time, reader->position);
  if (bytes > 0) reader->sought = false;
}

void Lane::sought(double time, int handle, long long offset) {
  Reader* reader = readerOf(handle);
  if (reader == nullptr) return;
  happened(time, Happening::Kind::kSeek,
           "seek from " + std::to_string(reader->position) + " to " + std::to_string(offset));
  reader->positions.add(time, reader->position);
  readerAt(time, handle, offset);
  reader->sought = true;
}

void Lane::beginWait(double time, int handle, long long offset) {
  Reader* reader = readerOf(handle);
  if (reader == nullptr) return;
  mark(time);
  if (reader->waiting) return;
  reader->waiting = true;
  reader->marked = time;
  reader->wait = Wait();
  reader->wait.begin = time;
  reader->wait.handle = handle;
  reader->wait.offset = offset;
  reader->wait.afterSeek = reader->sought;
}

void Lane::endWait(double time, int handle) {
  Reader* reader = readerOf(handle);
  if (reader == nullptr || !reader->waiting) return;
  mark(time);
  reader->waiting = false;
  reader->wait.end = time;
  reader->wait.waited = time - reader->wait.begin;
  keepWait(reader->wait);
}

void Lane::keepWait(const Wait& wait) {
  for (auto kept = waits_.rbegin(); kept != waits_.rend(); ++kept) {
    if (kept->handle != wait.handle) continue;
    const double gap = wait.begin - kept->end;
    if (gap > kOneWait || gap > kept->waited + wait.waited) break;
    kept->end = wait.end;
    kept->waited += wait.waited;
    kept->afterSeek = kept->afterSeek || wait.afterSeek;
    kept->endedConnection = std::max(kept->endedConnection, wait.endedConnection);
    for (size_t i = 0; i < wait.shares.size(); ++i) kept->shares[i] += wait.shares[i];
    return;
  }
  if (wait.waited < shortest_) return;
  waits_.push_back(wait);
  if (waits_.size() > kMostWaits) dropShortWaits();
}

// The last one may still grow and is kept.
void Lane::dropShortWaits() {
  size_t limit = kMostWaits;
  while (waits_.size() > limit) {
    shortest_ *= 2;
    const auto gone = std::remove_if(waits_.begin(), waits_.end() - 1, [this](const Wait& wait) {
      if (wait.waited >= shortest_) return false;
      ++shortWaits_;
      shortWaited_ += wait.waited;
      return true;
    });
    waits_.erase(gone, waits_.end() - 1);
    limit = kMostWaits / 2;
  }
}

// State of the connection since the last mark, for a waiting reader.
Wait::Share Lane::shareOf(const Wait& wait, double time) const {
  if (phase_ == Phase::kNone) return Wait::kNoConnection;
  if (phase_ == Phase::kAsked) return Wait::kNoAnswer;
  if (time - lastData_ >= kSilence) return Wait::kSilent;
  const bool elsewhere = connected_ && (wait.offset < connections_.back().from ||
                                        wait.offset > head_ + kReadAheadMargin);
  return elsewhere ? Wait::kElsewhere : Wait::kFlowing;
}

// Counts the time since the last mark for every waiting reader.
void Lane::mark(double time) {
  for (Reader& reader : readers_) {
    if (!reader.waiting) continue;
    reader.wait.shares[shareOf(reader.wait, time)] += time - reader.marked;
    reader.marked = time;
  }
}

void Lane::enter(double time, Phase phase) {
  mark(time);
  phase_ = phase;
  lastData_ = time;
}

void Lane::stored(double time, int block, long long beginning, long long bytes) {
  head_ = beginning + bytes;
  blocks_.set(block, {beginning, head_});
  heads_.add(time, head_);
  show(time);
}

void Lane::storedMore(double time, int block, long long bytes) {
  if (const Span* known = blocks_.find(block)) stored(time, block, known->begin, bytes);
}

void Lane::placed(double time, int block, long long beginning) {
  const Span* known = blocks_.find(block);
  if (known != nullptr && known->begin == beginning && known->end != known->begin) return;
  blocks_.set(block, {beginning, beginning});
  show(time);
}

void Lane::droppedBlock(double time, int block) {
  blocks_.erase(block);
  show(time);
}

void Lane::dumped(double time, const std::map<int, Span>& blocks) {
  blocks_.replace(blocks);
  show(time);
}

void Lane::show(double time) { holdings_.add(time, blocks_.stretches(kMostStretches)); }

void Lane::writerWaits(double time) {
  if (pausedSince_ < 0) pausedSince_ = time;
}

void Lane::writerGoesOn(double time) {
  if (pausedSince_ < 0) return;
  if (!pauses_.empty() && pausedSince_ - pauses_.back().end <= kOneWait) {
    pauses_.back().end = time;
  } else if (pauses_.size() < kMostPauses) {
    pauses_.push_back({pausedSince_, time});
  }
  if (connected_) connections_.back().heldBack += time - pausedSince_;
  pausedSince_ = -1;
  lastData_ = time;  // the library caused the pause, not a silent server
}

void Lane::connect(double time, const Connection& connection) {
  if (connected_) disconnected(time, -1, -1, -1);
  enter(time, Phase::kAsked);
  if (connections_.size() == kMostConnections) {
    ++moreConnections_;
    return;
  }
  connections_.push_back(connection);
  connections_.back().begin = time;
  connected_ = true;
}

void Lane::answered(double time, long long status) {
  Connection* connection = running();
  if (connection == nullptr || status <= 0) return;
  // This is logged for each header line; after a redirection the first ones have its status.
  if (connection->status != status) mark(time);
  connection->status = status;
}

void Lane::address(const std::string& text) {
  if (Connection* connection = running()) connection->address = text;
}

void Lane::received(double time, long long bytes) {
  enter(time, Phase::kFlowing);
  Connection* connection = running();
  if (connection == nullptr) return;
  if (connection->firstByte < 0) connection->firstByte = time;
  connection->got += bytes;
  connection->gotKnown = true;
}

void Lane::disconnected(double time, int code, long long status, long long behind) {
  writerGoesOn(time);
  enter(time, Phase::kNone);
  Connection* connection = running();
  if (connection == nullptr) return;
  connected_ = false;
  connection->end = time;
  connection->code = code;
  if (status > 0) connection->status = status;
  // libcurl's count is higher if lines of pieces are missing.
  if (behind >= connection->from) {
    connection->got = std::max(connection->got, behind - connection->from);
    connection->gotKnown = true;
  }
  explainEnd(connection);
  for (Reader& reader : readers_) {
    if (reader.waiting) {
      reader.wait.endedConnection = static_cast<int>(connections_.size()) - 1;
    }
  }
}

// The result of the run may say more than libcurl's code: for example that the library aborted it.
void Lane::runResult(int result) {
  if (connections_.empty() || connections_.back().end < 0) return;
  explainResult(result, &connections_.back());
}

void Lane::streamEvent(int event) {
  if (connections_.empty() || connections_.back().end < 0 || event == 0) return;
  connections_.back().event = event;
}

void Lane::localRunEnded(double time) {
  if (!connected_) return;
  disconnected(time, 0, -1, -1);
  connections_.back().why = "read to its end, or told to stop";
}

void Lane::happened(double time, Happening::Kind kind, const std::string& text) {
  if (!happenings_.empty() && happenings_.back().text == text && happenings_.back().kind == kind) {
    ++happenings_.back().times;
    return;
  }
  if (happenings_.size() == kMostHappenings) {
    ++moreHappenings_;
    return;
  }
  happenings_.push_back({time, kind, text, 1});
}

void Lane::learntSize(long long size) {
  if (size > 0) size_ = size;
}

void Lane::finish(double time) {
  for (Reader& reader : readers_) {
    endWait(time, reader.handle);
    if (reader.open) reader.positions.add(time, reader.position);
  }
  writerGoesOn(time);
  if (inUse()) show(time);
}

}  // namespace tools
