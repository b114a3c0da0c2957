#include "tests/ordeal/stress/Held.h"

#include <algorithm>
#include <shared_mutex>

#include "api/fluviafs.h"
#include "tests/ordeal/stress/Request.h"

namespace stress {

namespace {

// An open takes it exclusively, and a close shares it if others' calls may overlap: a number must
// not pass to another file while a thread may still call with it.
std::shared_mutex& numbers() {
  static std::shared_mutex made;
  return made;
}

}  // namespace

std::shared_ptr<Held> Held::open(World* world, Target* target) {
  if (target->beforeAny) {
    // A second open would wait for the first byte and block the whole interface.
    int none = 0;
    if (!target->handles.compare_exchange_strong(none, 1)) return nullptr;
  } else {
    ++target->handles;
  }
  int handle = 0;
  int result = 0;
  {
    std::unique_lock<std::shared_mutex> alone(numbers());
    result = x_fluvia_file_open_x(target->url.c_str(), &handle, world->bufferSize);
  }
  if (result != FVFR_OK || handle < 1 || handle > FVFR_MAX_HANDLES) {
    world->fail("open of " + target->kind + " gave " + std::to_string(result) + " and handle " +
                std::to_string(handle));
    return nullptr;
  }
  return std::shared_ptr<Held>(new Held(handle, target));
}

void Held::close(World* world, Tally* tally, bool inCallback) {
  bool overlapped = false;
  {
    std::unique_lock<std::mutex> guard(lock);
    if (closing) {
      if (!inCallback) left.wait(guard, [&] { return returned; });
      return;
    }
    closing = true;
    overlapped = users > 0;
  }
  std::shared_lock<std::shared_mutex> shared(numbers(), std::defer_lock);
  if (overlapped) shared.lock();
  disturbances.begin();
  target->disturbances.begin();
  const int result = x_fluvia_file_close(handle);
  ++tally->operations;
  if (!inCallback) closed = true;
  --target->handles;
  target->disturbances.end();
  disturbances.end();
  if (result != FVFR_OK)
    world->fail("close of " + target->kind + " gave " + std::to_string(result));
  std::unique_lock<std::mutex> guard(lock);
  returned = true;
  left.notify_all();
  left.wait(guard, [&] { return users == 0; });
}

void Held::breakRead(World* world, Tally* tally) {
  const Use use(this);
  if (!use) return;
  disturbances.begin();
  target->disturbances.begin();
  const int result = x_fluvia_file_read_abort(handle, 0);
  ++tally->operations;
  ++tally->breaks;
  target->disturbances.end();
  disturbances.end();
  if (result == (target->empty ? FVFR_FAILED : FVFR_OK)) return;
  if (!isClosing()) world->fail("break of " + target->kind + " gave " + std::to_string(result));
}

bool Held::isClosing() const {
  std::lock_guard<std::mutex> guard(lock);
  return closing;
}

Held::Use::Use(Held* held) : held_(held) {
  std::lock_guard<std::mutex> guard(held->lock);
  if (held->closing) {
    held_ = nullptr;
  } else {
    ++held->users;
  }
}

Held::Use::~Use() {
  if (held_ == nullptr) return;
  std::lock_guard<std::mutex> guard(held_->lock);
  --held_->users;
  held_->left.notify_all();
}

void Held::post(const std::shared_ptr<Request>& request) {
  std::lock_guard<std::mutex> guard(lock);
  if (posted.size() > 16) posted.clear();
  posted.push_back(request);
}

std::shared_ptr<Request> Held::someRequest(std::mt19937* random) {
  std::lock_guard<std::mutex> guard(lock);
  return posted.empty() ? nullptr : posted[(*random)() % posted.size()].lock();
}

void Roster::add(const std::shared_ptr<Held>& held) {
  std::lock_guard<std::mutex> guard(lock);
  all.push_back(held);
}

std::shared_ptr<Held> Roster::some(std::mt19937* random) {
  std::lock_guard<std::mutex> guard(lock);
  return all.empty() ? nullptr : all[(*random)() % all.size()];
}

void Roster::forget(const std::shared_ptr<Held>& held) {
  std::lock_guard<std::mutex> guard(lock);
  all.erase(std::remove(all.begin(), all.end(), held), all.end());
}

size_t Roster::size() const {
  std::lock_guard<std::mutex> guard(lock);
  return all.size();
}

}  // namespace stress
