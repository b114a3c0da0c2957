// Reads at a player's pace, one read every so many microseconds. Samples the bytes buffered ahead
// and the silence of the connection.
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "bench/common/Connections.h"
#include "bench/common/Workloads.h"

namespace bench {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr microseconds kLate = milliseconds(20);
// Shortest time between two samples of the bytes ahead and of the connections.
constexpr milliseconds kLook(10);
// Samples are taken after the counted seconds, for this part of them.
constexpr int kWatchedShare = 3;

// The pace of a player, by the clock: after a late read the next ones catch up.
class Pace {
 public:
  Pace(long long bitsPerSecond, size_t size)
      : between(static_cast<double>(size) * 8e9 / static_cast<double>(bitsPerSecond)) {}

  // Sleeps until the next read is due. Returns at once if it already is.
  void await() {
    const auto due = begun + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double, std::nano>(between * number++));
    if (Clock::now() >= due) return;
    ++sleeps;
    const auto since = due.time_since_epoch();
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(since);
    struct timespec until = {};
    until.tv_sec = static_cast<time_t>(whole.count());
    until.tv_nsec = static_cast<long>(std::chrono::nanoseconds(since - whole).count());
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
  }
  bool isOver(int seconds) const { return Clock::now() >= begun + std::chrono::seconds(seconds); }

  long sleeps = 0;

 private:
  const double between;  // nanoseconds
  const Clock::time_point begun = Clock::now();
  double number = 0;
};

// The bytes buffered ahead after reads, and how long connections were silent.
class Watch {
 public:
  explicit Watch(Source* watched) : source(watched) {}

  void look() {
    const Clock::time_point now = Clock::now();
    if (now < next) return;
    next = now + kLook;
    silence = std::max(silence, connections.longestSilence(now));
    const long long held = source->buffered();
    if (held < 0) return;
    least = looks == 0 ? held : std::min(least, held);
    sum += held;
    ++looks;
  }
  std::string figures() const {
    std::string text;
    if (silence >= 0) text = ", \"silence_ms\": " + std::to_string(silence);
    if (looks == 0) return text;
    return text + ", \"least_held\": " + std::to_string(least) +
           ", \"mean_held\": " + std::to_string(sum / looks);
  }

 private:
  Source* const source;
  Connections connections;
  Clock::time_point next;
  long long silence = -1;
  long long least = 0;
  long long sum = 0;
  long long looks = 0;
};

struct Part {
  int seconds;
  Watch* watch;  // null: no samples
  long sleeps = 0;
  long late = 0;
};

// Reads at the pace of one part of the playing.
bool playPart(const Options& options, Reader* reader, Part* part) {
  const auto size = static_cast<size_t>(options.read);
  Pace pace(options.rate, size);
  while (!pace.isOver(part->seconds)) {
    if (reader->offset() + options.read > options.size) {
      fprintf(stderr, "%lld bytes are too few for that time\n", options.size);
      return false;
    }
    pace.await();
    const Clock::time_point begin = Clock::now();
    if (!reader->readLightly(size)) return false;
    if (Clock::now() - begin > kLate) ++part->late;
    if (part->watch != nullptr) part->watch->look();
  }
  part->sleeps = pace.sleeps;
  return true;
}

}  // namespace

bool play(const Options& options, SourceMaker make, Outcome* outcome) {
  Reader reader(options, make(options));
  if (!reader.open(options.url)) return false;
  Part begin{options.begin, nullptr};
  bool done = playPart(options, &reader, &begin);
  reader.operations() = Histogram();
  Part counted{options.seconds, nullptr};
  outcome->measurement.start();
  done = done && playPart(options, &reader, &counted);
  outcome->measurement.stop();
  // The samples cost as much as the reads of some peers.
  Watch watch(reader.source());
  Part watched{std::max(1, options.seconds / kWatchedShare), &watch};
  done = done && playPart(options, &reader, &watched);
  reader.source()->close();
  outcome->operations.add(reader.operations());
  outcome->bytes = reader.bytes();
  outcome->more = ", \"sleeps\": " + std::to_string(counted.sleeps) +
                  ", \"late\": " + std::to_string(counted.late + watched.late) + watch.figures();
  return done;
}

}  // namespace bench
