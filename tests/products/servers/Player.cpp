// Reads a resource as a player does: seven packets of a transport stream at a time, 6 Mbit/s, for
// some seconds. Then it jumps between 90 % and 10 % of it. Every byte is compared with those of a
// file.
//
// Prints the longest wait of a read of each kind, in milliseconds: "playing N jumping N". Exit code
// 1 if a call fails or a byte differs.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "fluviafs.h"
#include "tests/support/CommandLine.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int kPackets = 7 * 188;
constexpr double kBytesPerSecond = 6e6 / 8;
constexpr unsigned int kJumpRead = 32768;

class Player {
 public:
  Player(const std::string& url, const std::string& authority, const std::string& expected)
      : expected_(expected), buffer_(kJumpRead) {
    if (x_fluvia_file_open(url.c_str(), &handle_) != FVFR_OK) fail("open", 0);
    if (!authority.empty()) x_fluvia_file_http_set_CA(handle_, authority.c_str());
  }
  ~Player() { x_fluvia_file_close(handle_); }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  double play(double seconds) {
    double longest = 0;
    const Clock::time_point began = Clock::now();
    for (double played = 0; played < seconds && left() >= kPackets;
         played += kPackets / kBytesPerSecond) {
      std::this_thread::sleep_until(began + std::chrono::duration_cast<Clock::duration>(
                                                std::chrono::duration<double>(played)));
      longest = std::max(longest, read(kPackets));
    }
    return longest;
  }

  double jump(int times) {
    double longest = 0;
    for (int i = 0; i < times; ++i) {
      const size_t place =
          expected_.size() / 10 * (i % 2 == 0 ? 9 : 1) + 1316 * static_cast<size_t>(i);
      long long now = 0;
      if (x_fluvia_file_seek(handle_, static_cast<long long>(place), &now) != FVFR_OK)
        fail("seek", 0);
      position_ = place;
      for (int reads = 0; reads < 20; ++reads) longest = std::max(longest, read(kJumpRead));
    }
    return longest;
  }

 private:
  size_t left() const { return expected_.size() - position_; }

  // Milliseconds.
  double read(unsigned int wanted) {
    const auto size = static_cast<unsigned int>(std::min<size_t>(wanted, left()));
    unsigned int got = 0;
    const Clock::time_point began = Clock::now();
    const int code = x_fluvia_file_read(handle_, buffer_.data(), size, &got);
    const double waited = std::chrono::duration<double, std::milli>(Clock::now() - began).count();
    if (code != FVFR_OK || got != size) fail("read", code);
    if (expected_.compare(position_, size, buffer_.data(), size) != 0) fail("other bytes", 0);
    position_ += size;
    return waited;
  }

  [[noreturn]] void fail(const char* what, int code) const {
    fprintf(stderr, "%s at %zu: %d\n", what, position_, code);
    exit(1);
  }

  const std::string& expected_;
  std::vector<char> buffer_;
  int handle_ = 0;
  size_t position_ = 0;
};

}  // namespace

int main(int count, char** arguments) {
  std::string url;
  std::string path;
  std::string authorities;
  double seconds = 4;
  int jumps = 30;
  support::CommandLine line(
      "A player's way through a resource, comparing every byte with those of a file.");
  line.option("URL", &url, "Of the resource").required();
  line.option("FILE", &path, "What it must be").required();
  line.option("CA", &authorities, "Certificates to verify the server with; may be empty");
  line.option("SECONDS", &seconds, "How long to play").withDefault();
  line.option("JUMPS", &jumps, "How many").withDefault();
  line.parseOrExit(count, arguments);
  std::ifstream file(path, std::ios::binary);
  const std::string expected((std::istreambuf_iterator<char>(file)), {});
  Player player(url, authorities, expected);
  const double playing = player.play(seconds);
  const double jumping = player.jump(jumps);
  printf("playing %.0f jumping %.0f\n", playing, jumping);
  return 0;
}
