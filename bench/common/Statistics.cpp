#include "bench/common/Statistics.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace bench {

namespace {

double seconds(const struct timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// KiB. Not ru_maxrss, which begins with the value of the parent process.
long peakMemory() {
  FILE* file = fopen("/proc/self/status", "re");
  if (file == nullptr) return -1;
  char line[256];
  long peak = -1;
  while (peak < 0 && fgets(line, sizeof line, file) != nullptr) {
    if (sscanf(line, "VmHWM: %ld kB", &peak) != 1) peak = -1;
  }
  fclose(file);
  return peak;
}

}  // namespace

Histogram::Classes* Histogram::classesOf(size_t power) {
  if (powers[power] == nullptr) powers[power] = std::make_unique<Classes>(Classes{});
  return powers[power].get();
}

void Histogram::note(Clock::duration duration) {
  const auto ns =
      static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(duration).count());
  longestNs = std::max(longestNs, ns);
  // Gives the shortest durations classes, too.
  const uint64_t value = ns + (1 << kFine);
  const unsigned int power = 63 - static_cast<unsigned int>(__builtin_clzll(value));
  ++(*classesOf(power))[static_cast<size_t>(value >> (power - kFine)) - (1 << kFine)];
  ++total;
}

void Histogram::add(const Histogram& other) {
  for (size_t power = 0; power < powers.size(); ++power) {
    if (other.powers[power] == nullptr) continue;
    Classes* mine = classesOf(power);
    for (size_t i = 0; i < mine->size(); ++i) (*mine)[i] += (*other.powers[power])[i];
  }
  total += other.total;
  longestNs = std::max(longestNs, other.longestNs);
}

double Histogram::quantile(double share) const {
  const auto wanted = static_cast<uint64_t>(share * static_cast<double>(total));
  uint64_t seen = 0;
  for (size_t power = kFine; power < powers.size(); ++power) {
    if (powers[power] == nullptr) continue;
    for (size_t i = 0; i < powers[power]->size(); ++i) {
      seen += (*powers[power])[i];
      if (seen <= wanted) continue;
      const uint64_t end = ((1ULL << kFine) + i + 1) << (power - kFine);
      return std::min(static_cast<double>(end - (1 << kFine)) / 1000.0, longest());
    }
  }
  return longest();
}

void Measurement::start() {
  stopped = false;
  getrusage(RUSAGE_SELF, &before);
  began = Clock::now();
}

void Measurement::stop() {
  if (stopped) return;
  stopped = true;
  ended = Clock::now();
  getrusage(RUSAGE_SELF, &after);
}

void Measurement::print(const Histogram& operations, long long bytes,
                        const std::string& more) const {
  const double user = seconds(after.ru_utime) - seconds(before.ru_utime);
  const double system = seconds(after.ru_stime) - seconds(before.ru_stime);
  printf(
      "{\"wall\": %.6f, \"cpu\": %.6f, \"user\": %.6f, \"system\": %.6f, \"peak_kib\": %ld, "
      "\"voluntary\": %ld, \"involuntary\": %ld, \"operations\": %llu, \"bytes\": %lld, "
      "\"p50_us\": %.3f, \"p99_us\": %.3f, \"longest_us\": %.3f%s}\n",
      std::chrono::duration<double>(ended - began).count(), user + system, user, system,
      peakMemory(), voluntary(), after.ru_nivcsw - before.ru_nivcsw,
      static_cast<unsigned long long>(operations.count()), bytes, operations.quantile(0.5),
      operations.quantile(0.99), operations.longest(), more.c_str());
}

}  // namespace bench
