#include "tests/ordeal/stress/Actor.h"

#include <algorithm>
#include <thread>

#include "api/fluviafs.h"
#include "tests/support/Pattern.h"

namespace stress {

namespace {
constexpr size_t kMostBytes = 400000;
constexpr size_t kMostHandles = 5;

using Clock = std::chrono::steady_clock;
}  // namespace

Actor::Step::Step(Actor* actor, const std::string& what, const std::shared_ptr<Held>& held)
    : actor_(actor) {
  std::lock_guard<std::mutex> guard(actor->lock);
  actor->now = what;
  if (held != nullptr) {
    actor->now += " of " + held->target->kind + " " + held->target->url + ", handle " +
                  std::to_string(held->handle);
  }
  actor->begun = Clock::now();
  if (held != nullptr && held->target->stalls && !actor->patient) actor->stalled = held;
  actor->patience = std::chrono::milliseconds(actor->random() % 200);
  actor->closeInstead = actor->random() % 4 == 0;
}

Actor::Step::~Step() {
  std::lock_guard<std::mutex> guard(actor_->lock);
  actor_->now.clear();
  actor_->stalled = nullptr;
}

Actor::Mark::Mark(const Held& file)
    : held(file),
      own(file.disturbances.mark()),
      target(file.target->disturbances.mark()),
      learnt(file.learnt) {}

bool Actor::Mark::disturbed() const {
  return held.disturbances.since(own) || (!learnt && held.target->disturbances.since(target));
}

Actor::Actor(World* where, Roster* others, Tally* counts, unsigned int seed, bool waits)
    : world(where),
      roster(others),
      tally(counts),
      random(seed),
      patient(waits),
      bytes(kMostBytes),
      begun(Clock::now()) {}

Actor::~Actor() = default;

void Actor::fail(const Mine& file, const std::string& what) {
  world->fail(doing() + " at " + std::to_string(file.position) + ": " + what);
}

std::string Actor::doing() const {
  std::lock_guard<std::mutex> guard(lock);
  return now;
}

double Actor::seconds() const {
  std::lock_guard<std::mutex> guard(lock);
  return now.empty() ? 0 : std::chrono::duration<double>(Clock::now() - begun).count();
}

void Actor::unblock() {
  std::shared_ptr<Held> held;
  bool close = false;
  {
    std::lock_guard<std::mutex> guard(lock);
    if (stalled == nullptr || Clock::now() - begun < patience) return;
    held = stalled;
    close = closeInstead;
    patience += std::chrono::milliseconds(50);
  }
  if (close) {
    ++tally->strangeCloses;
    held->close(world, tally, false);
  } else {
    held->breakRead(world, tally);
  }
}

void Actor::run(int steps) {
  for (int i = 0; i < steps && !world->failed(); ++i) step();
  while (!mine.empty()) close(mine.size() - 1);
  const Step now_(this, "the last callbacks", nullptr);
  for (const std::shared_ptr<Request>& request : kept) {
    await(request);
    request->finish();
  }
}

void Actor::step() {
  if (mine.empty() || (mine.size() < kMostHandles && random() % 30 == 0)) {
    open();
    return;
  }
  if (random() % 12 == 0) {
    meddle();
    return;
  }
  if (random() % 150 == 0) {
    crew();
    return;
  }
  stepOn(random() % mine.size());
}

void Actor::stepOn(size_t which) {
  Mine* file = &mine[which];
  if (file->held->isClosing()) {
    close(which);
    return;
  }
  switch (random() % 32) {
    case 0:
      close(which);
      break;
    case 1:
    case 2:
    case 3:
      ask(file);
      break;
    case 4:
      set(file->held);
      break;
    case 5:
      readText(file);
      break;
    case 6:
      chain(file);
      break;
    case 7:
    case 8:
    case 9:
    case 10:
      batch(which);
      break;
    case 11:
    case 12:
    case 13:
    case 14:
    case 15:
    case 16:
      seek(file);
      break;
    default:
      read(file, someSize());
  }
}

unsigned int Actor::someSize() {
  switch (random() % 8) {
    case 0:
      return 1 + random() % 4;
    case 1:
      return static_cast<unsigned int>(random() % kMostBytes);
    case 2:
      return 32768;
    default:
      return static_cast<unsigned int>(random() % 20000);
  }
}

void Actor::open() {
  Target* target = world->targets[random() % world->targets.size()].get();
  const Step now_(this, "open of " + target->kind, nullptr);
  ++tally->operations;
  std::shared_ptr<Held> held = Held::open(world, target);
  if (held == nullptr) return;
  roster->add(held);
  Mine file;
  file.held = held;
  mine.push_back(file);
}

void Actor::close(size_t which) {
  Mine file = mine[which];
  {
    const Step now_(this, "close", file.held);
    file.held->close(world, tally, false);
  }
  roster->forget(file.held);
  mine.erase(mine.begin() + static_cast<long>(which));
}

void Actor::read(Mine* file, unsigned int size) {
  const Step now_(this, "read of " + std::to_string(size) + " bytes", file->held);
  const Held::Use use(file->held.get());
  if (!use) return;
  const Mark mark(*file->held);
  unsigned int got = 0;
  const int result = x_fluvia_file_read(file->held->handle, bytes.data(), size, &got);
  const long long at = x_fluvia_file_offset(file->held->handle);
  tally->operations += 2;
  ++tally->reads;
  checkRead(file, size, result, got, at, mark.disturbed());
}

void Actor::checkRead(Mine* file, unsigned int asked, int result, unsigned int got, long long at,
                      bool disturbed) {
  const Target& target = *file->held->target;
  const bool moved = result == FVFR_OK || result == FVFR_END_OF_FILE;
  const bool closing = file->held->isClosing();
  if (!moved) ++tally->failures;
  if (target.empty) {
    if (result != FVFR_FAILED || got != 0) fail(*file, "gave " + std::to_string(result));
    return;
  }
  // A stream that cannot seek may advance past bytes that are no longer buffered.
  long long from = moved ? at - got : at;
  if (closing) from = file->position;
  if (from != file->position && (target.seekable || from < file->position)) {
    fail(*file, "left the position at " + std::to_string(at) + " after " + std::to_string(result) +
                    " and " + std::to_string(got) + " bytes");
    return;
  }
  if (got > asked || static_cast<long long>(got) > std::max(0LL, target.size - from)) {
    fail(*file, std::to_string(got) + " bytes of " + std::to_string(asked) + " and of " +
                    std::to_string(target.size - from));
    return;
  }
  if (!closing || target.seekable) {
    const long long wrong = support::firstDifference(
        target.base + static_cast<unsigned long long>(from), bytes.data(), got);
    if (wrong >= 0) fail(*file, "byte " + std::to_string(from + wrong) + " is wrong");
    tally->bytes += got;
  }
  const long long wanted = std::min<long long>(asked, std::max(0LL, target.size - from));
  file->position = moved ? from + got : from;
  if (got > 0) file->held->learnt = true;
  if (result == FVFR_OK && got == wanted && (from < target.size || target.mortal())) return;
  if (result == FVFR_END_OF_FILE && from >= target.size) return;
  if (target.failures.count(result) != 0) return;
  // Advanced past the end: there is nothing to move the buffer to.
  if (!target.seekable && from > target.size && result == FVFR_FAILED) return;
  if (disturbed && (result == FVFR_FAILED || result == FVFR_NOT_APPLIED)) return;
  fail(*file, "gave " + std::to_string(result) + " and " + std::to_string(got) + " bytes from " +
                  std::to_string(from) + ", not " + std::to_string(wanted));
}

void Actor::seek(Mine* file) {
  const Step now_(this, "seek", file->held);
  const Held::Use use(file->held.get());
  if (!use) return;
  Target& target = *file->held->target;
  const unsigned long long span = static_cast<unsigned long long>(target.size) + 3;
  long long to = static_cast<long long>(random() % span);
  if (random() % 2 == 0) {
    to = std::max(
        0LL,
        std::min(target.size, file->position + static_cast<long long>(random() % 160000) - 80000));
  }
  const Mark mark(*file->held);
  long long current = -99;
  const int result = x_fluvia_file_seek(file->held->handle, to, &current);
  ++tally->operations;
  if (file->held->isClosing()) return;
  if (result == FVFR_OK) {
    const long long wanted = target.sized ? std::min(to, target.size) : current;
    if (current != wanted || (current != to && current != target.size)) {
      fail(*file, "to " + std::to_string(to) + " went to " + std::to_string(current));
    }
    file->position = current;
    return;
  }
  if (result == FVFR_SEEK_REFUSED) {
    checkRefusal(*file, to, result);
    return;
  }
  const bool mayFail = target.empty || target.mortal() || target.size == 0 || mark.disturbed();
  ++tally->failures;
  if (result != FVFR_FAILED || !mayFail) {
    fail(*file, "to " + std::to_string(to) + " gave " + std::to_string(result));
  }
}

void Actor::checkRefusal(const Mine& file, long long to, int result) {
  const Target& target = *file.held->target;
  const long long range = to - file.position;
  const bool far =
      (range < 0 && std::min(to, target.size) > FVFR_SEEK_SPAN) || range > FVFR_SEEK_SPAN;
  if (!target.seekable && far) return;
  fail(file, "to " + std::to_string(to) + " gave " + std::to_string(result));
}

void Actor::ask(Mine* file) {
  const Step now_(this, "size and position", file->held);
  const Held::Use use(file->held.get());
  if (!use) return;
  Target& target = *file->held->target;
  const int handle = file->held->handle;
  const Mark mark(*file->held);
  const long long size = x_fluvia_file_size(handle);
  const long long at = x_fluvia_file_offset(handle);
  const int buffered = x_fluvia_file_bufferedSize(handle);
  const int capacity = x_fluvia_file_bufferSize(handle);
  tally->operations += 4;
  if (file->held->isClosing()) return;
  if (at != file->position) fail(*file, "position " + std::to_string(at));
  if (target.empty) {
    if (size != FVFR_FAILED || buffered != FVFR_FAILED) fail(*file, "an empty handle has a size");
    return;
  }
  const int wanted = world->bufferSize / FVFR_BUFFER_BLOCK * FVFR_BUFFER_BLOCK;
  if (capacity != wanted) fail(*file, "capacity " + std::to_string(capacity));
  if (buffered < 0 || buffered > std::max(0LL, target.size - at)) {
    fail(*file, std::to_string(buffered) + " bytes buffered");
  }
  const bool right = size == target.size || (!target.sized && size == FVFR_UNKNOWN_SIZE);
  const bool none = size == 0 && (mark.disturbed() || target.mortal());
  if (!right && !none) fail(*file, "size " + std::to_string(size));
  if (right && size > 0) file->held->learnt = true;
}

}  // namespace stress
