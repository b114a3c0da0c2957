#include "bench/common/Workloads.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <thread>
#include <utility>

namespace bench {

namespace {

constexpr long long kKiB = 1024;
constexpr long long kMiB = 1024 * kKiB;

size_t readSize(const Options& options) { return static_cast<size_t>(options.read); }

bool sequential(const Options& options, Reader* reader) {
  while (!reader->atEnd()) {
    if (!reader->read(readSize(options))) return false;
  }
  return true;
}

// Each operation: a seek to anywhere and a read.
bool randomSeeks(const Options& options, Reader* reader) {
  std::mt19937_64 engine(options.seed);
  std::uniform_int_distribution<long long> offsets(0, std::max(0LL, options.size - options.read));
  for (int i = 0; i < options.count; ++i) {
    if (!reader->seek(offsets(engine)) || !reader->read(readSize(options))) return false;
  }
  return true;
}

// A reader advances by 32 KiB between operations; each operation: a seek back by up to 1 MiB from
// there and a read.
bool backwardSeeks(const Options& options, Reader* reader) {
  std::mt19937_64 engine(options.seed);
  std::uniform_int_distribution<long long> distances(options.read, kMiB);
  long long front = 0;
  for (; front < kMiB; front = reader->offset()) {
    if (!reader->readAside(32 * kKiB)) return false;
  }
  for (int i = 0; i < options.count && front + 32 * kKiB <= options.size; ++i) {
    if (options.pause > 0) std::this_thread::sleep_for(std::chrono::milliseconds(options.pause));
    if (!reader->seek(front - distances(engine)) || !reader->read(readSize(options))) return false;
    if (!reader->seek(front) || !reader->readAside(32 * kKiB)) return false;
    front = reader->offset();
  }
  return true;
}

// Each operation: skip 48 KiB and read 16 KiB.
bool readAndSkip(const Options& options, Reader* reader) {
  long long at = 0;
  for (int i = 0; i < options.count && at + 16 * kKiB <= options.size; ++i, at += 64 * kKiB) {
    if (!reader->seek(at) || !reader->read(16 * kKiB)) return false;
  }
  return true;
}

// A player of a badly interleaved file: the head, the index at the end, then pictures and, 300 KiB
// further on, sound, 60 times.
bool playersTrace(const Options& options, Reader* reader) {
  if (!reader->read(64 * kKiB)) return false;
  if (!reader->seek(options.size - 64 * kKiB) || !reader->read(64 * kKiB)) return false;
  long long picture = 64 * kKiB;
  for (int i = 0; i < 60; ++i, picture += 64 * kKiB) {
    if (!reader->seek(picture) || !reader->read(64 * kKiB)) return false;
    if (!reader->seek(picture + 300 * kKiB) || !reader->read(16 * kKiB)) return false;
  }
  return true;
}

// Each operation: open, the first byte, close; the first open of the process is not counted.
bool firstBytes(const Options& options, SourceMaker make, Outcome* outcome) {
  for (int i = 0; i <= options.count; ++i) {
    const Clock::time_point begin = Clock::now();
    Reader reader(options, make(options));
    if (!reader.open(options.url) || !reader.read(1)) return false;
    const Clock::time_point end = Clock::now();
    reader.source()->close();
    if (i > 0) outcome->operations.note(end - begin);
    outcome->bytes += reader.bytes();
  }
  return true;
}

template <OneReader work>
bool one(const Options& options, SourceMaker make, Outcome* outcome) {
  return withOneReader(options, make, outcome, work);
}

}  // namespace

bool withOneReader(const Options& options, SourceMaker make, Outcome* outcome, OneReader work) {
  Reader reader(options, make(options));
  if (!reader.open(options.url)) return false;
  const bool done = work(options, &reader);
  reader.source()->close();
  outcome->operations.add(reader.operations());
  outcome->bytes += reader.bytes();
  return done;
}

Workload findWorkload(const std::string& name) {
  static const std::pair<const char*, Workload> kWorkloads[] = {
      {"sequential", one<sequential>},
      {"random", one<randomSeeks>},
      {"backward", one<backwardSeeks>},
      {"skip", one<readAndSkip>},
      {"trace", one<playersTrace>},
      {"readers", readers},
      {"first", firstBytes},
      {"silent", silent},
      {"play", play},
  };
  for (const auto& workload : kWorkloads) {
    if (name == workload.first) return workload.second;
  }
  return nullptr;
}

int runDriver(int argc, char** argv, SourceMaker make) {
  const Options options = parseOptions(argc, argv);
  const Workload workload = findWorkload(options.workload);
  if (workload == nullptr || make(options) == nullptr) {
    fprintf(stderr, "%s: no such workload or mode\n", argv[0]);
    return 2;
  }
  Outcome outcome;
  outcome.measurement.start();
  const bool done = workload(options, make, &outcome);
  outcome.measurement.stop();
  if (!done) return 1;
  outcome.measurement.print(outcome.operations, outcome.bytes, outcome.more);
  return 0;
}

}  // namespace bench
