#include "SourceWorker.h"

#include <sys/stat.h>

#include <algorithm>
#include <new>

#include "Diagnosis.h"
#include "Passwords.h"
#include "PausePoint.h"

namespace {

constexpr std::chrono::milliseconds kLookEvery(100);
constexpr std::chrono::milliseconds kLevelsWait(50);
// An abort of another handle breaks every read of a resource whose size is not known yet.
constexpr int kTries = 5;
constexpr unsigned int kFirstRead = 4096;
// A fragment's head, the next one's, the pictures, the sound, the pictures again: the restarts that
// a pulling demuxer causes per fragment.
constexpr int kRestartsInAFragment = 4;
// Data in flight of an aborted transfer still uses the line for this long.
constexpr std::chrono::milliseconds kOnItsWay(50);
// A shorter time is too short to measure a speed.
constexpr std::chrono::milliseconds kWorthMeasuring(5);
// Used before the first measurement: 10 Mbit/s, in bytes per second.
constexpr double kAssumedSpeed = 1250000;
// Limit of the head, besides half of the buffer: the beginning must stay buffered.
constexpr long long kMostOfHead = 262144;
// The demuxer of MPEG-TS reads pieces of 300 packets backwards from the end, until one has a time
// stamp. These are often more than one piece apart.
constexpr long long kLastPiece = 65536;
constexpr long long kMostOfEnd = 131072;

}  // namespace

SourceReader::Worker::Worker(const std::string& name, const SourceSettings& settings,
                             OutageObserver outages)
    : name_(name),
      local_(name.compare(0, 1, "/") == 0),
      settings_(settings),
      outages_(std::move(outages)) {
  fluvia_outage_init(&outage_, name_.c_str(), settings_.reopen);
}

// ---- The reader's side -------------------------------------------------------------------------

void SourceReader::Worker::quit() {
  Leaving::instance().quit(name_, &stay_);
  const std::lock_guard<std::mutex> guard(lock_);
  quitting_ = true;
  changed_.notify_all();
}

void SourceReader::Worker::giveUp() {
  {
    const std::lock_guard<std::mutex> guard(lock_);
    without_ = true;
  }
  fail("open", {SourceFailure::kOther, "no thread can be started"});
}

// Runs before any thread can know that everything was read, so that none shares what is buffered.
void SourceReader::Worker::release() {
  Leaving::instance().close(name_, &stay_);
  const std::lock_guard<std::mutex> guard(lock_);
  released_ = true;
  changed_.notify_all();
}

bool SourceReader::Worker::isReleased() const {
  const std::lock_guard<std::mutex> guard(lock_);
  return released_;
}

SourceFacts SourceReader::Worker::waitForFacts(int milliseconds) {
  Lock held(lock_);
  changed_.wait_until(held, opened_ + std::chrono::milliseconds(milliseconds),
                      [this] { return facts_.known || interrupted_; });
  return facts_;
}

SourceFacts SourceReader::Worker::facts() const {
  const std::lock_guard<std::mutex> guard(lock_);
  return facts_;
}

SourceReader::Outcome SourceReader::Worker::read(const Span& span, Piece* piece) {
  const std::lock_guard<std::mutex> mine(turn_);
  Lock held(lock_);
  if (interrupted_) return Outcome::kInterrupted;
  if (without_) return Outcome::kFailed;
  const unsigned long long ticket = ++ticket_;
  wanted_ = span;
  requested_ = true;
  changed_.notify_all();
  changed_.wait(held, [&] { return answered_ == ticket || interrupted_; });
  if (answered_ != ticket) {
    ++ticket_;
    requested_ = false;
    changed_.notify_all();
    return Outcome::kInterrupted;
  }
  *piece = std::move(piece_);
  return outcome_;
}

void SourceReader::Worker::setInterrupted(bool interrupted) {
  const std::lock_guard<std::mutex> guard(lock_);
  interrupted_ = interrupted;
  changed_.notify_all();
}

SourceLevels SourceReader::Worker::levels() {
  Lock held(lock_);
  const unsigned int before = looks_;
  lookWanted_ = true;
  changed_.notify_all();
  changed_.wait_for(held, kLevelsWait, [&] { return looks_ != before; });
  return levels_;
}

void SourceReader::Worker::observe(Observer observer) {
  const std::lock_guard<std::mutex> guard(lock_);
  observer_ = std::move(observer);
  changed_.notify_all();
}

SourceFailure SourceReader::Worker::failure() const {
  const std::lock_guard<std::mutex> guard(lock_);
  return failure_;
}

std::string SourceReader::Worker::explanation() const {
  const std::lock_guard<std::mutex> guard(lock_);
  return explanation_;
}

int SourceReader::Worker::httpStatus() const {
  const std::lock_guard<std::mutex> guard(lock_);
  return httpStatus_;
}

// ---- The worker's side -------------------------------------------------------------------------

void SourceReader::Worker::run() {
  FLUVIA_SRC_PAUSE_POINT("SourceReader::run begun");
  if (Leaving::instance().enter(name_, &stay_) && openHandle()) {
    applySettings();
    learn();
  }
  serve();
  tellEnd();
  FLUVIA_SRC_PAUSE_POINT("SourceReader::run before close");
  if (handle_ > 0) x_fluvia_file_close(handle_);
  Leaving::instance().leave(name_, &stay_);
}

bool SourceReader::Worker::openHandle() {
  if (x_fluvia_file_open_x(name_.c_str(), &handle_, settings_.bufferSize) != FVFR_OK) {
    handle_ = 0;
    fail("open");
    return false;
  }
  return true;
}

void SourceReader::Worker::applySettings() {
  if (local_) return;
  struct stat status {};
  const bool folder = stat(settings_.authorities.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  const auto set = [this](int (*function)(int, const char*), const std::string& value) {
    if (!value.empty()) function(handle_, value.c_str());
  };
  set(x_fluvia_file_http_set_userAgent, settings_.userAgent);
  set(x_fluvia_file_http_set_proxy, settings_.proxy);
  set(x_fluvia_file_http_set_cookie, settings_.cookie);
  set(folder ? x_fluvia_file_http_set_CAPath : x_fluvia_file_http_set_CA, settings_.authorities);
  set(x_fluvia_file_http_set_client_authert, settings_.certificate);
  set(x_fluvia_file_http_set_private_key, settings_.key);
  if (settings_.speed > 0) x_fluvia_file_http_set_speed(handle_, settings_.speed);
  if (settings_.featureFlag >= 0) x_fluvia_file_set_featureflag(handle_, settings_.featureFlag);
}

// Reads the first bytes, after which neither size nor seek waits, and returns to the beginning.
void SourceReader::Worker::learn() {
  SourceFacts facts;
  const Outcome outcome = learnHead(&facts.medium);
  restartsSaved_ = facts.medium == Medium::kFragments ? kRestartsInAFragment : 1;
  readsEndBackwards_ = facts.medium == Medium::kTransport;
  if (outcome == Outcome::kFailed || outcome == Outcome::kInterrupted) return;
  facts.known = true;
  facts.size = outage_.size;
  facts.seekable = outage_.seekable != 0;
  position_ = x_fluvia_file_offset(handle_);
  moveTo(0);
  const std::lock_guard<std::mutex> guard(lock_);
  facts_ = facts;
  changed_.notify_all();
}

SourceReader::Outcome SourceReader::Worker::learnHead(Medium* medium) {
  const long long most = std::min<long long>(kMostOfHead, settings_.bufferSize / 2);
  std::string bytes;
  Head head;
  head.wanted = kFirstRead;
  for (;;) {
    const long long at = static_cast<long long>(bytes.size());
    if (head.wanted <= at || (at > 0 && head.wanted > most)) return Outcome::kDone;
    const auto size = static_cast<unsigned int>(std::max<long long>(head.wanted - at, kFirstRead));
    Piece piece;
    const Clock::time_point asked = Clock::now();
    const Outcome outcome = fetch({at, size, size}, kLearning, &piece);
    if (outcome != Outcome::kDone) return outcome;
    if (at == 0) {
      restart_ = Clock::now() - asked;
      noteBeginning();
    }
    bytes.append(piece.data.get(), piece.size);
    head = lookAtHead(bytes);
    *medium = head.medium;
    // A stream that cannot seek is always pushed, and in a local file a demuxer may seek freely.
    if (local_ && *medium != Medium::kPlaylist) *medium = Medium::kOther;
    if (local_ || outage_.seekable == 0) return outcome;
    // Its demuxer reads the end next and then this again. Only a complete block stays buffered.
    if (head.medium == Medium::kFragments) head.wanted = FVFR_BUFFER_BLOCK;
  }
}

void SourceReader::Worker::serve() {
  Lock held(lock_);
  while (!quitting_) {
    if (!requested_) {
      if (!closeReleased(held)) waitOrLook(held);
      continue;
    }
    requested_ = false;
    released_ = false;
    const unsigned long long ticket = ticket_;
    const Span span = wanted_;
    held.unlock();
    Piece piece;
    const Outcome outcome = fetch(span, ticket, &piece);
    held.lock();
    if (abandoned(ticket)) continue;
    piece_ = std::move(piece);
    outcome_ = outcome;
    answered_ = ticket;
    changed_.notify_all();
  }
}

bool SourceReader::Worker::closeReleased(Lock& held) {
  if (!released_ || handle_ == 0) return false;
  held.unlock();
  // A read opens it again as after an outage, but without a pause.
  hold_ = Hold::kLost;
  nextTry_ = Clock::now();
  closeHandle();
  held.lock();
  return true;
}

void SourceReader::Worker::closeHandle() {
  Leaving::instance().close(name_, &stay_);
  x_fluvia_file_close(handle_);
  handle_ = 0;
  Leaving::instance().leave(name_, &stay_);
}

SourceReader::Outcome SourceReader::Worker::fetch(const Span& span, unsigned long long ticket,
                                                  Piece* piece) {
  if (hold_ == Hold::kFinal) return Outcome::kFailed;
  for (;;) {
    if (hold_ != Hold::kUsual) {
      const Outcome back = comeBack(span.offset, ticket);
      if (back != Outcome::kDone) return back;
    }
    if (handle_ == 0) return Outcome::kFailed;
    const Outcome outcome = fetchHere(span, ticket, piece);
    if (outcome == Outcome::kInterrupted) return outcome;
    if (outcome != Outcome::kFailed) {
      endOutage(span.offset);
      return outcome;
    }
    if (!lose(span.offset)) return Outcome::kFailed;
  }
}

SourceReader::Outcome SourceReader::Worker::fetchHere(const Span& span, unsigned long long ticket,
                                                      Piece* piece) {
  Outcome outcome = Outcome::kFailed;
  for (int tries = 0; tries < kTries; ++tries) {
    const bool far = isFar(span.offset);
    const bool anew = far && !isSoonThere(span.offset);
    if (far) {
      outcome = anew ? restartAt(span.offset, ticket) : runOn(span.offset, ticket);
      if (outcome != Outcome::kDone) return outcome;
    }
    if (position_ != span.offset && !moveTo(span.offset)) break;
    outcome = fetchOnce(sizeNow(span), ticket, piece);
    if (anew && outcome == Outcome::kDone) noteBeginning();
    if (outcome != Outcome::kFailed) return outcome;
    if (local_ || x_fluvia_file_http_get_download_status(handle_) != FVFR_DOWNLOAD_OK) break;
  }
  return Outcome::kFailed;
}

unsigned int SourceReader::Worker::sizeNow(const Span& span) const {
  if (span.least >= span.most) return span.most;
  const int held = std::max(0, x_fluvia_file_bufferedSize(handle_));
  return std::min(span.most, std::max(span.least, static_cast<unsigned int>(held)));
}

long long SourceReader::Worker::arrived() const {
  return position_ + std::max(0, x_fluvia_file_bufferedSize(handle_));
}

// True if a read at offset needs a new request to a server.
bool SourceReader::Worker::isFar(long long offset) {
  if (local_ || offset == position_ || offset == 0) return false;
  if (offset >= position_) return offset > arrived() + SourceReader::kReadAheadMargin;
  return moveTo(offset) && x_fluvia_file_bufferedSize(handle_) <= 0;
}

// True if the running transfer delivers offset sooner than a new request would, counting the
// requests that a demuxer would need to step back from there. Everything in between must stay
// buffered meanwhile.
bool SourceReader::Worker::isSoonThere(long long offset) {
  const Seconds most = (restart_ + kOnItsWay) * restartsSaved_;
  const long long from = arrived();
  const double brings = speedUpTo(from) * most.count();
  if (offset < position_ || offset - position_ > settings_.bufferSize / 4 * 3) return false;
  return static_cast<double>(offset - from) < brings;
}

// The best speed so far, in bytes per second. The library's figure includes the time to connect.
double SourceReader::Worker::speedUpTo(long long arrived) {
  const Seconds passed = Clock::now() - since_;
  if (passed >= kWorthMeasuring && arrived > from_) {
    bestSpeed_ = std::max(bestSpeed_, static_cast<double>(arrived - from_) / passed.count());
  }
  return bestSpeed_ > 0 ? bestSpeed_ : kAssumedSpeed;
}

// The read that has just ended began a transfer.
void SourceReader::Worker::noteBeginning() {
  since_ = Clock::now();
  from_ = arrived();
}

// Lets the running transfer continue up to offset by reading single bytes close behind it. If it
// runs elsewhere, the first of them begins one where the buffered bytes end. Failures are left for
// the read at offset.
SourceReader::Outcome SourceReader::Worker::runOn(long long offset, unsigned long long ticket) {
  long long ahead = 0;
  while (isFar(offset)) {
    Piece byte;
    if (!moveTo(arrived() + ahead)) break;
    const Outcome outcome = fetchOnce(1, ticket, &byte);
    if (outcome == Outcome::kInterrupted) return outcome;
    if (outcome != Outcome::kDone) break;
    ahead = FVFR_BUFFER_BLOCK;
  }
  return Outcome::kDone;
}

SourceReader::Outcome SourceReader::Worker::restartAt(long long offset, unsigned long long ticket) {
  noteFar(offset);
  const long long earlier = earlierBy(offset);
  return earlier > 0 ? runUp(offset - earlier, offset, ticket) : Outcome::kDone;
}

// Bytes by which a request begins before offset, because the demuxer will step back.
long long SourceReader::Worker::earlierBy(long long offset) {
  if (stepsBack_) return FVFR_BUFFER_BLOCK;
  if (!readsEndBackwards_ || outage_.size - offset > kLastPiece) return 0;
  // Every other time the first piece is enough, so this may cost half a restart.
  const double brings = speedUpTo(arrived()) * Seconds(restart_).count() / 2;
  return std::min(kMostOfEnd, static_cast<long long>(brings));
}

// Some demuxers pull a picture and then the sound stored a little before it. A request that begins
// at the picture would be aborted for one at the sound, so requests begin early once this was seen.
void SourceReader::Worker::noteFar(long long offset) {
  if (offset < lastFar_ && lastFar_ - offset <= SourceReader::kReadAheadMargin) stepsBack_ = true;
  lastFar_ = offset;
}

// Starts a request at the block of begin and lets it continue up to offset. Failures are left for
// the read at offset.
SourceReader::Outcome SourceReader::Worker::runUp(long long begin, long long offset,
                                                  unsigned long long ticket) {
  const long long block = begin / FVFR_BUFFER_BLOCK * FVFR_BUFFER_BLOCK;
  if (begin < 0 || !moveTo(block)) return Outcome::kDone;
  Piece first;
  const Outcome outcome = fetchOnce(1, ticket, &first);
  if (outcome == Outcome::kInterrupted) return outcome;
  return outcome == Outcome::kDone ? runOn(offset, ticket) : Outcome::kDone;
}

bool SourceReader::Worker::moveTo(long long offset) {
  long long now = 0;
  const int moved = x_fluvia_file_seek(handle_, offset, &now);
  position_ = x_fluvia_file_offset(handle_);
  if (moved == FVFR_OK) return true;
  // A file without bytes refuses every seek; its only offset is 0.
  return x_fluvia_file_size(handle_) == 0 && position_ == offset;
}

SourceReader::Outcome SourceReader::Worker::fetchOnce(unsigned int size, unsigned long long ticket,
                                                      Piece* piece) {
  Piece made;
  made.data.reset(new (std::nothrow) char[size]);
  if (made.data == nullptr) return Outcome::kFailed;
  Lock held(lock_);
  pending_ = true;
  held.unlock();
  int request = 0;
  const int issued =
      x_fluvia_file_read_async(handle_, made.data.get(), size, &Worker::completed, this, &request);
  held.lock();
  if (issued != FVFR_OK) {
    pending_ = false;
    return Outcome::kFailed;
  }
  waitForCompletion(held, request, ticket);
  made.size = static_cast<unsigned int>(readBytes_);
  if (status_ == FVFR_ASYNC_DONE) {
    position_ += readBytes_;
    *piece = std::move(made);
    return Outcome::kDone;
  }
  if (status_ == FVFR_ASYNC_END_OF_FILE) return Outcome::kEnd;
  return abandoned(ticket) ? Outcome::kInterrupted : Outcome::kFailed;
}

// Waits until the library no longer uses the buffer. An abandoned request is aborted once: it has
// its own number, so the abort cannot come too early or reach another request.
void SourceReader::Worker::waitForCompletion(Lock& held, int request, unsigned long long ticket) {
  bool broken = false;
  while (pending_) {
    if (!broken && abandoned(ticket)) {
      broken = true;
      held.unlock();
      x_fluvia_file_read_abort(handle_, request);
      held.lock();
      continue;
    }
    waitOrLook(held);
  }
}

// A request that is aborted in the queue is called back twice. Both calls come before the abort
// returns, and so before the next request.
void SourceReader::Worker::completed(int /*request*/, void* worker, int status, int readBytes) {
  Worker* self = static_cast<Worker*>(worker);
  const std::lock_guard<std::mutex> guard(self->lock_);
  if (!self->pending_) return;
  self->pending_ = false;
  self->status_ = status;
  self->readBytes_ = readBytes;
  self->changed_.notify_all();
}

void SourceReader::Worker::fail(const std::string& action) {
  fail(action, diagnose(name_, handle_));
}

void SourceReader::Worker::fail(const std::string& action, const Diagnosis& why) {
  const std::lock_guard<std::mutex> guard(lock_);
  failure_ = why.failure;
  httpStatus_ = why.httpStatus;
  explanation_ = "Cannot " + action + " " + tools::maskPassword(name_) + ": " + why.text + ".";
  if (!facts_.known) facts_.known = facts_.failed = true;
  changed_.notify_all();
}

void SourceReader::Worker::waitOrLook(Lock& held) {
  if (lookWanted_ || (observer_ && Clock::now() >= nextLook_)) {
    look(held);
  } else if (observer_) {
    changed_.wait_until(held, nextLook_);
  } else {
    changed_.wait(held);
  }
}

// If no response stated the length of a stream, the library knows it when everything has arrived.
// This call does not wait: the library returns what it knows.
long long SourceReader::Worker::endOf(const SourceFacts& facts) const {
  if (facts.size >= 0) return facts.size;
  const long long learnt = x_fluvia_file_size(handle_);
  return learnt > 0 && learnt != FVFR_UNKNOWN_SIZE ? learnt : -1;
}

void SourceReader::Worker::look(Lock& held) {
  lookWanted_ = false;
  nextLook_ = Clock::now() + kLookEvery;
  const SourceFacts facts = facts_;
  const Observer observer = observer_;
  held.unlock();
  SourceLevels levels;
  if (handle_ > 0) {
    levels.buffered = std::max(0, x_fluvia_file_bufferedSize(handle_));
    levels.wanted = std::max(0, x_fluvia_file_bufferSize(handle_));
    levels.speed = std::max(0LL, x_fluvia_file_http_get_speed(handle_));
  }
  const long long end = facts.known && !facts.failed ? endOf(facts) : -1;
  if (end >= 0) levels.wanted = std::max(0LL, std::min(levels.wanted, end - position_));
  if (observer) observer(levels, false);
  held.lock();
  levels_ = levels;
  ++looks_;
  changed_.notify_all();
}

void SourceReader::Worker::tellEnd() {
  Lock held(lock_);
  const Observer observer = observer_;
  const SourceLevels levels = levels_;
  held.unlock();
  if (observer) observer(levels, true);
}
