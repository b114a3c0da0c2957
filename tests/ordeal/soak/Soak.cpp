// Players with human habits for any time: by default sixteen that watch almost as fast as the films
// come.
//
// Before the measured seconds it warms up, for five minutes by default: until then the heaps of the
// C library grow, one for each processor. The films are those of the given URLs (of a server
// without faults) and those of a fault server in a separate process. Returns 0 if every byte was
// right, only what may fail failed, and memory, descriptors and threads returned to their first
// values.
#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "api/fluviafs.h"
#include "tests/ordeal/soak/FullPool.h"
#include "tests/ordeal/soak/Player.h"
#include "tests/ordeal/soak/Samples.h"
#include "tests/support/Behaviours.h"
#include "tests/support/CommandLine.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Pattern.h"
#include "tests/support/SilentStderr.h"
#include "tests/support/Watchdog.h"

namespace {

constexpr int kIntervals = 8;
constexpr long long kSize = 20000000;

// Serves until this process ends; writes its port to the descriptor.
[[noreturn]] void serve(int answer) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  support::FaultServer server;
  server.on("/sound", support::serveRanges(kSize));
  server.on("/sound2", support::serveRanges(kSize));
  server.on("/broken", support::dropAfter(kSize, 700000));
  server.on("/slow", support::drip(kSize, 65536, 20));
  server.on("/ignored", support::ignoreRanges(3000000));
  server.on("/chunked", support::serveChunked(kSize));
  server.on("/missing", support::answerStatus(404));
  server.on("/busy", support::answerStatus(503));
  server.on("/reset", support::resetAfter(kSize, 2000000));
  for (int i = 0; i < soak::FullPool::kBuffers; ++i) {
    server.on("/fill" + std::to_string(i), support::serveRanges(kSize));
  }
  const int port = server.port();
  if (write(answer, &port, sizeof port) != sizeof port) _exit(1);
  for (;;) pause();
}

std::vector<soak::Film> filmsOf(const std::string& server) {
  return {{server + "/sound", kSize, false, true},     {server + "/sound2", kSize, false, true},
          {server + "/broken", kSize, false, true},    {server + "/slow", kSize, false, true},
          {server + "/ignored", 3000000, false, true}, {server + "/chunked", kSize, false, false},
          {server + "/missing", kSize, true, true},    {server + "/busy", kSize, true, true},
          {server + "/reset", kSize, true, true}};
}

// Waits until the threads and connections of closed files are gone, as far as possible.
soak::Sample quietSample(double seconds, const soak::Sample& before) {
  support::eventually([&] {
    const soak::Sample now = soak::takeSample(seconds);
    return now.descriptors <= before.descriptors && now.threads <= before.threads;
  });
  return soak::takeSample(seconds);
}

int make(const char* path, long long size) {
  std::ofstream out(path, std::ios::binary);
  for (long long at = 0; at < size; at += 100000) {
    out << support::pattern(static_cast<unsigned long long>(at),
                            static_cast<size_t>(std::min(100000LL, size - at)));
  }
  out.close();
  return out ? 0 : 1;
}

// Takes a sample every second, and at intervals one with every handle closed. Returns an empty
// string, or the error.
std::string watch(int seconds, soak::Interval* interval, soak::FullPool* pool,
                  soak::Samples* samples) {
  const auto begin = std::chrono::steady_clock::now();
  soak::Sample quiet;
  quiet.descriptors = quiet.threads = 1 << 30;
  for (int second = 1; second <= seconds; ++second) {
    std::this_thread::sleep_until(begin + std::chrono::seconds(second));
    samples->add(soak::takeSample(second));
    if (second % std::max(1, seconds / kIntervals) != 0) continue;
    interval->begin();
    pool->release();
    // At the first time, everything that lives as long as the process has been made.
    quiet = quietSample(second, quiet);
    samples->addQuiet(quiet);
    const std::string fault = pool->fill();
    interval->end();
    if (!fault.empty()) return fault;
  }
  return "";
}

// Prints the figures and the errors. Returns false if there was an error.
bool report(const std::vector<std::string>& wrong, const soak::Counts& counts,
            const soak::Samples& samples) {
  bool well = true;
  for (const std::string& what : wrong) {
    if (what.empty()) continue;
    printf("FAILED: %s\n", what.c_str());
    well = false;
  }
  printf("%lld MB read and compared, %lld seeks, %lld opens, %lld allowed failures\n%s\n",
         counts.bytes / 1000000, counts.seeks.load(), counts.opens.load(), counts.failures.load(),
         samples.summary().c_str());
  const std::string verdict = samples.verdict();
  if (verdict.empty()) return well;
  printf("FAILED: %s\n", verdict.c_str());
  return false;
}

struct Options {
  int seconds = 60;
  int warm = 300;
  int players = 16;
  long long rate = 0;  // bits a second; 0: almost at full speed
  std::string csv = "soak.csv";
  std::vector<soak::Film> others;
  std::pair<std::string, long long> made;
};

int run(const std::vector<soak::Film>& films, const std::string& server, const Options& options) {
  const unsigned int seed = support::seedOr(20261121);
  printf("%d players, %d s after %d s of warming up, seed %u\n", options.players, options.seconds,
         options.warm, seed);
  fflush(stdout);
  const auto count = static_cast<size_t>(options.players);
  soak::Interval interval(options.players);
  soak::Counts counts;
  soak::Samples samples(options.seconds);
  std::atomic<bool> stop{false};
  soak::FullPool pool(server);
  std::vector<std::string> wrong(count + 1);
  wrong[count] = pool.fill();
  std::vector<std::thread> players;
  for (unsigned int i = 0; i < count; ++i) {
    players.emplace_back([&, i] {
      soak::Player player(&films, &interval, &counts, seed + i, options.rate);
      wrong[i] = player.play(&stop);
    });
  }
  std::this_thread::sleep_for(std::chrono::seconds(options.warm));
  if (wrong[count].empty()) {
    wrong[count] = watch(options.seconds, &interval, &pool, &samples);
  }
  stop = true;
  for (std::thread& player : players) player.join();
  const bool well = report(wrong, counts, samples);
  return samples.write(options.csv) && well ? 0 : 1;
}

// As many heaps as a process on 32-bit ARM has. On 64 bits there are four times as many, and
// short-lived threads fill them one after the other for hours.
void limitHeaps() { mallopt(M_ARENA_MAX, 2 * static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN))); }

Options parse(int count, char** words) {
  Options options;
  std::vector<std::pair<std::string, long long>> urls;
  support::CommandLine line("Players with human habits for as long as is wanted.");
  line.option("--seconds", &options.seconds, "Seconds that count").withDefault();
  line.option("--warm", &options.warm, "Seconds before those").withDefault();
  line.option("--players", &options.players).withDefault();
  line.option("--rate", &options.rate, "Bits a second; 0: almost as fast as the films come")
      .withDefault();
  line.option("--csv", &options.csv, "Where the samples go").withDefault();
  line.option("--url", &urls, "URL and size of a film of a sound server; may be repeated")
      .repeatable();
  line.option("--make", &options.made, "Only write a film of that size for another server");
  line.parseOrExit(count, words);
  for (const auto& [url, size] : urls) options.others.push_back({url, size, false, true});
  return options;
}

// Starts the fault server's process and reads its port. Returns false if that fails.
bool startServer(pid_t* server, int* port) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  *server = fork();
  if (*server < 0) return false;
  if (*server == 0) serve(ends[1]);
  const bool told = read(ends[0], port, sizeof *port) == sizeof *port;
  close(ends[0]);
  close(ends[1]);
  return told;
}

}  // namespace

int main(int count, char** words) {
  limitHeaps();
  const Options options = parse(count, words);
  if (!options.made.first.empty()) return make(options.made.first.c_str(), options.made.second);
  pid_t process = 0;
  int port = 0;
  if (!startServer(&process, &port)) return 2;
  support::silenceStderr();
  const std::string server = "http://127.0.0.1:" + std::to_string(port);
  std::vector<soak::Film> films = filmsOf(server);
  films.insert(films.end(), options.others.begin(), options.others.end());
  const int result = run(films, server, options);
  kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
  return result;
}
