// Makes one call below the library fail at a time, each in a separate process. Requires that every
// call returns with a clear code, that no byte is wrong, that nothing is left behind, and that the
// library works again afterwards.
//
// rough is a server that breaks one connection off and falls silent on the next. The two- ones have
// two handles of the resource at the same time. The cold ones are the first use of the library in
// their process; before the others it has been used once.
// Prints a line for each point with what came out, and what was wrong. Exit code 1 when anything
// was.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <mutex>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "api/fluviafs.h"
#include "tests/ordeal/torture/Interpose.h"
#include "tests/ordeal/torture/Scenario.h"
#include "tests/support/Behaviours.h"
#include "tests/support/CommandLine.h"
#include "tests/support/FaultServer.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"

extern char** environ;

namespace {

using torture::Judge;
using torture::Point;
using torture::Resource;

constexpr long long kSize = 300000;
// Ten seconds of silence pass in a quarter of a second.
constexpr int kFasterClock = 40;
constexpr int kWrong = 3;

bool isLocalScenario(const std::string& name) {
  return name == "local" || name == "cold-local" || name == "two-local";
}

// One run with one point, in a process of its own.
struct Job {
  std::string scenario;
  Point point = Point::kNone;
  long first = 0;
  long length = 1;
  std::string url;    // used while something fails
  std::string plain;  // used before and after

  bool isLocal() const { return isLocalScenario(scenario); }
  bool isCold() const { return scenario.compare(0, 5, "cold-") == 0; }
  bool isPair() const { return scenario.compare(0, 4, "two-") == 0; }

  std::string use(const Resource& resource, Judge judge, int* fileless) const {
    return isPair() ? torture::useLibraryTwice(resource, judge, fileless)
                    : torture::useLibrary(resource, judge, fileless);
  }
};

int wrong(const std::string& phase, const std::string& what) {
  std::cout << "wrong " << phase << ": " << what << std::endl;
  return kWrong;
}

int runChild(const Job& job) {
  const torture::Spared ours;
  const Resource plain{job.plain, kSize, false};
  int fileless = 0;
  if (!job.isCold()) {
    const std::string problem = job.use(plain, Judge::kMustPass, &fileless);
    if (!problem.empty()) return wrong("before", problem);
  }
  const int threads = support::threadCount();
  const int descriptors = support::descriptorCount();

  if (!job.isLocal()) torture::setClockSpeed(kFasterClock);
  torture::arm(job.point, job.first, job.length);
  const std::string problem = job.use({job.url, kSize, job.isLocal()}, Judge::kMayFail, &fileless);
  const long counted = torture::disarm();
  torture::setClockSpeed(1);
  std::cout << "counted " << counted << " failed " << torture::failures() << std::endl;
  if (!problem.empty()) return wrong("during", problem);

  // Workers that could not be created, or a crypto library that could not be initialized, are
  // missing for the life of the process.
  const Judge after = job.isCold() ? Judge::kMayFail : Judge::kMustPass;
  int filelessLater = 0;
  const std::string later = job.use(plain, after, &filelessLater);
  if (!later.empty()) return wrong("after", later);
  if (job.isCold()) return 0;
  if (!support::eventually([&] { return support::threadCount() <= threads; })) {
    return wrong("after", "threads were " + std::to_string(threads) + " and are " +
                              std::to_string(support::threadCount()));
  }
  const int most = descriptors + fileless;
  if (!support::eventually([&] { return support::descriptorCount() <= most; })) {
    return wrong("after", "descriptors were " + std::to_string(descriptors) + " and are " +
                              std::to_string(support::descriptorCount()));
  }
  return 0;
}

// The parent: makes the runs and sums them up.
struct Options {
  std::vector<std::string> scenarios;
  std::vector<Point> points;
  unsigned int most = 500;
  long length = 1;
  long only = 0;
  unsigned int jobs = 2;
  int deadline = 90;
  unsigned int seed = 1;
};

struct Outcome {
  long counted = 0;
  long failed = 0;
  std::string trouble;  // empty: no error
};

std::string contentsOf(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string lastLines(const std::string& text, size_t bytes) {
  if (text.size() <= bytes) return text;
  const size_t line = text.find('\n', text.size() - bytes);
  return line == std::string::npos ? text : text.substr(line + 1);
}

class Driver {
 public:
  Driver(std::string program, Options options)
      : program_(std::move(program)), options_(std::move(options)) {
    local_ = folder_.makePattern("resource", kSize);
    server_.on("/plain", support::serveRanges(kSize));
  }

  bool run() {
    for (const std::string& scenario : options_.scenarios) {
      for (const Point point : options_.points) torturePoint(scenario, point);
    }
    std::cout << runs_ << " runs, " << failedCalls_ << " calls failed, " << troubles_
              << " runs went wrong" << std::endl;
    if (failedCalls_ == 0) std::cout << "no call was made to fail" << std::endl;
    return troubles_ == 0 && failedCalls_ > 0;
  }

 private:
  std::string urlOf(const std::string& scenario) {
    if (isLocalScenario(scenario)) return local_;
    std::string path = "/plain";
    if (scenario == "rough") {
      path = "/rough-" + std::to_string(++roughs_);
      server_.on(path,
                 support::inTurn({support::dropAfter(kSize, 90000),
                                  support::stallAfter(kSize, 20000), support::serveRanges(kSize)}));
    }
    return hostUrl(path);
  }

  // By name, so that libcurl resolves it in a thread.
  std::string hostUrl(const std::string& path) const {
    return std::string("http://") + torture::kHostName + ":" + std::to_string(server_.port()) +
           path;
  }

  Job job(const std::string& scenario, Point point, long first) {
    Job made;
    made.scenario = scenario;
    made.point = point;
    made.first = first;
    made.length = options_.length;
    made.url = urlOf(scenario);
    made.plain = made.isLocal() ? local_ : hostUrl("/plain");
    return made;
  }

  // Every number that a run without a failure counts, or a sample of them.
  std::vector<long> numbers(long counted, Point point) const {
    std::vector<long> all;
    for (long n = 1; n <= counted; ++n) all.push_back(n);
    if (all.size() <= options_.most) return all;
    std::mt19937 random(options_.seed + static_cast<unsigned int>(point));
    std::shuffle(all.begin(), all.end(), random);
    all.resize(options_.most);
    std::sort(all.begin(), all.end());
    return all;
  }

  void torturePoint(const std::string& scenario, Point point) {
    const auto began = std::chrono::steady_clock::now();
    const Outcome untouched = runOne(job(scenario, point, 0));
    if (!untouched.trouble.empty()) {
      report(scenario, point, 0, untouched);
      return;
    }
    std::vector<long> todo =
        options_.only > 0 ? std::vector<long>{options_.only} : numbers(untouched.counted, point);
    const bool sampled = static_cast<long>(todo.size()) < untouched.counted;
    const long troublesBefore = troubles_;
    const long failedBefore = failedCalls_;
    runAll(scenario, point, todo);
    // Threads make the count differ from run to run: continues until a run passes without a
    // failure.
    for (long next = untouched.counted + 1; !sampled && options_.only == 0; ++next) {
      const Outcome outcome = runOne(job(scenario, point, next));
      report(scenario, point, next, outcome);
      if (outcome.failed == 0) break;
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    std::printf(
        "%-10s %-10s %5ld calls, %4zu of them failed in turn%s, %ld failures, %ld wrong"
        ", %.0f s\n",
        scenario.c_str(), torture::nameOf(point), untouched.counted, todo.size(),
        sampled ? " (sampled)" : "", failedCalls_ - failedBefore, troubles_ - troublesBefore,
        seconds);
    std::fflush(stdout);
  }

  void runAll(const std::string& scenario, Point point, const std::vector<long>& todo) {
    std::atomic<size_t> next{0};
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < options_.jobs; ++i) {
      threads.emplace_back([&] {
        for (size_t at = next++; at < todo.size(); at = next++) {
          Job one;
          {
            const std::lock_guard<std::mutex> guard(lock_);
            one = job(scenario, point, todo[at]);
          }
          report(scenario, point, todo[at], runOne(one));
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  }

  void report(const std::string& scenario, Point point, long number, const Outcome& outcome) {
    const std::lock_guard<std::mutex> guard(lock_);
    ++runs_;
    failedCalls_ += outcome.failed;
    if (outcome.trouble.empty()) return;
    ++troubles_;
    std::cout << "WRONG: --scenario " << scenario << " --point " << torture::nameOf(point)
              << " --only " << number << " --length " << options_.length << "\n"
              << outcome.trouble << std::endl;
  }

  Outcome runOne(const Job& one) {
    const std::string base = folder_.file("run-" + std::to_string(++files_));
    const pid_t child = start(one, base);
    Outcome outcome;
    const int status = await(child, base);
    const std::string said = contentsOf(base + ".out");
    std::sscanf(said.c_str(), "counted %ld failed %ld", &outcome.counted, &outcome.failed);
    if (status != 0) {
      outcome.trouble = describe(status) + "\n" + said + lastLines(contentsOf(base + ".err"), 6000);
    }
    for (const char* end : {".out", ".err"}) unlink((base + end).c_str());
    return outcome;
  }

  pid_t start(const Job& one, const std::string& base) {
    std::vector<std::string> words = {program_,
                                      "--child",
                                      one.scenario,
                                      torture::nameOf(one.point),
                                      std::to_string(one.first),
                                      std::to_string(one.length),
                                      one.url,
                                      one.plain};
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(&word[0]);
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string files[2] = {base + ".out", base + ".err"};
    for (int i = 0; i < 2; ++i) {
      posix_spawn_file_actions_addopen(&actions, i + 1, files[i].c_str(),
                                       O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }
    pid_t child = -1;
    const int failure =
        posix_spawn(&child, program_.c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
      std::cerr << "cannot start " << program_ << ": " << strerror(failure) << std::endl;
      std::exit(2);
    }
    return child;
  }

  // Returns the wait status. A child past its deadline prints its threads' stacks and is killed.
  int await(pid_t child, const std::string& base) const {
    int status = 0;
    const bool ended = support::eventually(
        [&] { return waitpid(child, &status, WNOHANG) == child; }, options_.deadline);
    if (ended) return status;
    const std::string show = "gdb -p " + std::to_string(child) +
                             " -batch -ex 'thread apply all bt 12' >>" + base + ".out 2>&1";
    if (std::system(show.c_str()) != 0) std::cerr << "gdb shows no stacks" << std::endl;
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return status;
  }

  std::string describe(int status) const {
    if (WIFSIGNALED(status)) {
      return WTERMSIG(status) == SIGKILL
                 ? "did not end within " + std::to_string(options_.deadline) + " s"
                 : "signal " + std::to_string(WTERMSIG(status));
    }
    return "exit code " + std::to_string(WEXITSTATUS(status));
  }

  const std::string program_;
  const Options options_;
  support::TemporaryFolder folder_;
  support::FaultServer server_;
  std::string local_;
  std::mutex lock_;
  std::atomic<int> files_{0};
  std::atomic<int> roughs_{0};
  long runs_ = 0;
  long failedCalls_ = 0;
  long troubles_ = 0;
};

Options parse(int argc, char** argv) {
  Options options;
  options.seed = support::seedOr(1);
  options.scenarios = {"local",    "http",       "rough",    "two-local",
                       "two-http", "cold-local", "cold-http"};
  std::vector<std::string> points = {"thread", "socket", "connect", "open",
                                     "read",   "send",   "resolve", "allocation"};
  support::CommandLine line(
      "Fails one thing under the library at a time, each in a process of its own.");
  line.option("--scenario", &options.scenarios, "What to do; may be repeated")
      .repeatable()
      .oneOf(options.scenarios)
      .withDefault();
  line.option("--point", &points, "What fails; may be repeated")
      .repeatable()
      .oneOf(points)
      .withDefault();
  line.option("--points", &options.most, "Sample at most that many numbers of each point")
      .withDefault();
  line.option("--length", &options.length, "Calls in a row that fail; 0: all from that one on")
      .withDefault();
  line.option("--only", &options.only, "Only this number");
  line.option("--jobs", &options.jobs, "Processes at a time").withDefault();
  line.option("--deadline", &options.deadline, "Seconds after which a run hangs").withDefault();
  line.option("--seed", &options.seed, "Of the sampling; FLUVIA_SEED or 1");
  line.parseOrExit(argc, argv);
  for (const std::string& name : points) options.points.push_back(torture::pointOf(name));
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 8 && std::strcmp(argv[1], "--child") == 0) {
    Job job;
    job.scenario = argv[2];
    job.point = torture::pointOf(argv[3]);
    job.first = std::strtol(argv[4], nullptr, 10);
    job.length = std::strtol(argv[5], nullptr, 10);
    job.url = argv[6];
    job.plain = argv[7];
    return runChild(job);
  }
  const Options options = parse(argc, argv);
  std::cout << "seed " << options.seed << std::endl;
  return Driver(argv[0], options).run() ? 0 : 1;
}
