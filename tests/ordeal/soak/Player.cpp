#include "tests/ordeal/soak/Player.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "api/fluviafs.h"
#include "tests/support/Pattern.h"

namespace soak {

void Interval::begin() {
  std::unique_lock<std::mutex> guard(lock);
  wanted = true;
  changed.wait(guard, [&] { return waiting == players; });
}

void Interval::end() {
  std::lock_guard<std::mutex> guard(lock);
  wanted = false;
  changed.notify_all();
}

void Interval::wait() {
  std::unique_lock<std::mutex> guard(lock);
  ++waiting;
  changed.notify_all();
  changed.wait(guard, [&] { return !wanted; });
  --waiting;
}

void Interval::leave() {
  std::lock_guard<std::mutex> guard(lock);
  --players;
  changed.notify_all();
}

Player::Player(const std::vector<Film>* all, Interval* breaks, Counts* what, unsigned int seed,
               long long rate)
    : films(all),
      interval(breaks),
      counts(what),
      bitsPerSecond(rate),
      random(seed),
      bytes(200000) {}

std::string Player::play(const std::atomic<bool>* stop) {
  while (!*stop && wrong.empty()) {
    if (interval->asked()) {
      close();
      interval->wait();
    } else if (film == nullptr) {
      open();
    } else {
      act();
    }
  }
  close();
  interval->leave();
  return wrong;
}

void Player::open() {
  film = &(*films)[random() % films->size()];
  position = 0;
  ++counts->opens;
  const int result = x_fluvia_file_open(film->url.c_str(), &handle);
  if (result != FVFR_OK) wrong = "open gave " + std::to_string(result);
}

void Player::close() {
  if (film == nullptr) return;
  if (x_fluvia_file_close(handle) != FVFR_OK) wrong = "close failed";
  film = nullptr;
}

void Player::act() {
  const long long size = film->size;
  switch (random() % 10) {
    case 0:  // skip
      seek(position + 1000000 + static_cast<long long>(random() % 3000000));
      break;
    case 1:  // back a little
      seek(std::max(0LL, position - static_cast<long long>(random() % 1500000)));
      break;
    case 2:  // scrub
      for (int i = 0; i < 8 && film != nullptr; ++i) {
        seek(static_cast<long long>(random() % static_cast<unsigned long long>(size)));
        if (film == nullptr || !read(20000)) break;
      }
      break;
    case 3:
      pause(static_cast<int>(random() % 1500));
      break;
    case 4:
      if (random() % 3 == 0) close();
      break;
    default:  // watch
      for (int i = 0; i < 25 && film != nullptr; ++i) {
        const unsigned int count = 1000 + static_cast<unsigned int>(random() % 100000);
        if (!read(count)) break;
        pause(bitsPerSecond == 0 ? 10 : static_cast<int>(count * 8000LL / bitsPerSecond));
      }
  }
}

void Player::pause(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void Player::seek(long long offset) {
  ++counts->seeks;
  long long now = 0;
  const int result = x_fluvia_file_seek(handle, offset, &now);
  if (result == FVFR_OK) {
    position = now;
  } else if (result == FVFR_FAILED && film->mayFail) {
    ++counts->failures;
    close();
  } else if (result != FVFR_SEEK_REFUSED || film->seekable) {
    wrong = "seek in " + film->url + " gave " + std::to_string(result);
  }
}

// Returns false at the end and after a failure: then another film is chosen.
bool Player::read(unsigned int size) {
  unsigned int got = 0;
  const int result = x_fluvia_file_read(handle, bytes.data(), size, &got);
  long long at = position;
  // A stream that cannot seek may advance past bytes that are no longer buffered.
  if (!film->seekable && result == FVFR_OK) at = x_fluvia_file_offset(handle) - got;
  if (support::firstDifference(static_cast<unsigned long long>(at), bytes.data(), got) >= 0) {
    wrong = "wrong byte in " + film->url + " at " + std::to_string(at);
  }
  counts->bytes += got;
  position = at + got;
  if (result == FVFR_OK && got > 0) return true;
  if (result != FVFR_OK && result != FVFR_END_OF_FILE) {
    if (!film->mayFail && (film->seekable || result != FVFR_FAILED)) {
      wrong = "read in " + film->url + " gave " + std::to_string(result);
    }
    ++counts->failures;
  }
  close();
  return false;
}

}  // namespace soak
