// A player's hour in a few seconds, for pictures and their tests: streams from a server that cuts a
// connection and falls silent, at a player's pace, with seeks. Standard error is the log. Standard
// output is the reader's thread and each of its reads, in ms of the log's clock.
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Pattern.h"

namespace {

using std::chrono::milliseconds;
using support::Exchange;

constexpr long long kMiB = 1 << 20;
constexpr long long kFilm = 12 * kMiB;
constexpr long long kSound = 3 * kMiB;
constexpr unsigned int kPiece = 65536;

// The position of the film's reader.
std::atomic<long long> filmPosition{0};

// The log counts its milliseconds from the same time.
long long clockMs() {
  return std::chrono::duration_cast<milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// Waits until the film's reader has everything before offset, so that it waits for the next byte.
bool untilRead(Exchange& exchange, long long offset) {
  for (int i = 0; i < 3000 && filmPosition < offset; ++i) {
    if (!exchange.pause(10)) return false;
  }
  return filmPosition >= offset;
}

// Responds to a range request at about 4 MiB/s. After limit bytes it ends the connection, or is
// silent until the film's reader has come that far and for silence ms more.
void serve(Exchange& exchange, long long size, long long limit, int silence) {
  long long first = 0;
  long long last = -1;
  const bool ranged = exchange.request().range(&first, &last);
  const std::string range = "bytes " + std::to_string(first) + "-" + std::to_string(size - 1) +
                            "/" + std::to_string(size);
  if (!exchange.send(std::string("HTTP/1.1 ") + (ranged ? "206 Partial" : "200 OK") +
                     "\r\nAccept-Ranges: bytes\r\nContent-Type: video/mp4\r\nContent-Length: " +
                     std::to_string(size - first) + "\r\n" +
                     (ranged ? "Content-Range: " + range + "\r\n" : "") + "\r\n")) {
    return;
  }
  constexpr long long kStep = 32768;
  for (long long sent = 0; first + sent < size; sent += kStep) {
    if (sent == limit) {
      if (silence == 0) return;
      if (!untilRead(exchange, first + sent) || !exchange.pause(silence)) return;
    }
    if (!exchange.sendPattern(first + sent, std::min(kStep, size - first - sent))) return;
    exchange.pause(8);
  }
}

// Reads count bytes at a pace. Returns false if a byte is wrong or missing.
bool play(int handle, long long from, long long count, int pause,
          std::atomic<long long>* position) {
  std::vector<char> buffer(kPiece);
  while (count > 0) {
    unsigned int got = 0;
    const long long begin = clockMs();
    const int code = x_fluvia_file_read(handle, buffer.data(), kPiece, &got);
    if (position != nullptr) printf("read %lld %lld\n", begin, clockMs());
    if (support::firstDifference(static_cast<unsigned long long>(from), buffer.data(), got) >= 0) {
      return false;
    }
    from += got;
    count -= got;
    if (position != nullptr) *position = from;
    if (code == FVFR_END_OF_FILE) return count <= 0;
    if (code != FVFR_OK) return false;
    std::this_thread::sleep_for(milliseconds(pause));  // a player's pace
  }
  return true;
}

bool seekAndPlay(int handle, long long to, long long count) {
  long long now = -1;
  return x_fluvia_file_seek(handle, to, &now) == FVFR_OK &&
         play(handle, to, count, 25, &filmPosition);
}

bool playFilm(const std::string& url) {
  int handle = 0;
  if (x_fluvia_file_open_x(url.c_str(), &handle, kMiB) != FVFR_OK) return false;
  const bool whole = play(handle, 0, 5 * kMiB, 25, &filmPosition) &&
                     seekAndPlay(handle, 9 * kMiB, kMiB) && seekAndPlay(handle, 2 * kMiB, 2 * kMiB);
  return x_fluvia_file_close(handle) == FVFR_OK && whole;
}

bool playSound(const std::string& url, std::promise<bool> opened) {
  int handle = 0;
  const bool open = x_fluvia_file_open_x(url.c_str(), &handle, kMiB / 2) == FVFR_OK;
  opened.set_value(open);
  if (!open) return false;
  const bool whole = play(handle, 0, kSound, 60, nullptr);
  return x_fluvia_file_close(handle) == FVFR_OK && whole;
}

}  // namespace

int main() {
  support::FaultServer server;
  server.on("/film.mp4", [](Exchange& exchange) {
    const int turn = exchange.number();
    // The first connection is cut, the second falls silent, the third is late; the others are good.
    if (turn == 2 && !exchange.pause(400)) return;
    serve(exchange, kFilm, turn == 0 ? 3 * kMiB : turn == 1 ? kMiB : -1, turn == 1 ? 1500 : 0);
  });
  server.on("/sound.m4a?token=<b>&x=\"1\"",
            [](Exchange& exchange) { serve(exchange, kSound, -1, 0); });
  x_fluvia_file_set_log_level(3);
  printf("reader %ld\n", static_cast<long>(syscall(SYS_gettid)));
  int missing = 0;
  char byte = 0;
  unsigned int got = 0;
  const bool refused =
      x_fluvia_file_open(server.url("/missing.mp4").c_str(), &missing) == FVFR_OK &&
      x_fluvia_file_read(missing, &byte, 1, &got) != FVFR_OK &&
      x_fluvia_file_close(missing) == FVFR_OK;
  bool sound = false;
  std::promise<bool> opened;
  std::future<bool> soundOpens = opened.get_future();
  std::thread second(
      [&] { sound = playSound(server.url("/sound.m4a?token=<b>&x=\"1\""), std::move(opened)); });
  // Only one open at a time: the log does not say which of two interleaved lines has which handle.
  const bool film = soundOpens.get() && playFilm(server.url("/film.mp4"));
  second.join();
  printf("film %d sound %d missing %d requests %d\n", film, sound, refused,
         server.requestCount("/film.mp4"));
  return film && sound && refused ? 0 : 1;
}
