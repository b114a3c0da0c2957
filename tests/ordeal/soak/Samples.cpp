#include "tests/ordeal/soak/Samples.h"

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "tests/support/TestFiles.h"

namespace soak {

namespace {

double secondsOf(const struct timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

Sample takeSample(double seconds) {
  Sample sample;
  sample.seconds = seconds;
  struct rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  sample.processor = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
  sample.descriptors = support::descriptorCount();
  sample.threads = support::threadCount();
  long long pages = 0;
  if (FILE* statm = fopen("/proc/self/statm", "r")) {
    if (fscanf(statm, "%*d %lld", &pages) != 1) pages = 0;
    fclose(statm);
  }
  sample.memory = pages * sysconf(_SC_PAGESIZE);
  sample.heap = static_cast<long long>(mallinfo2().uordblks);
  return sample;
}

long long Samples::medianMemory(int from, int to) const {
  std::vector<long long> values;
  const size_t count = running.size();
  for (size_t i = count * static_cast<size_t>(from) / 4; i < count * static_cast<size_t>(to) / 4;
       ++i) {
    values.push_back(running[i].memory);
  }
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

std::string Samples::verdict() const {
  const long long second = medianMemory(1, 2);
  const long long last = medianMemory(3, 4);
  if (last > second + second / 100 + 512 * 1024) return "memory grows";
  for (const Sample& sample : quiet) {
    if (sample.descriptors != quiet.front().descriptors) return "descriptors are left";
    if (sample.threads != quiet.front().threads) return "threads are left";
    if (sample.heap > quiet.front().heap + 64 * 1024) return "memory is kept";
  }
  return quiet.size() < 2 ? "too short to tell" : "";
}

std::string Samples::summary() const {
  char text[384];
  snprintf(text, sizeof text,
           "memory: median %.2f MiB in the second quarter, %.2f MiB in the last; all closed %zu "
           "times: %d descriptors, %d threads, %lld KiB in use the first time, %lld KiB the last",
           static_cast<double>(medianMemory(1, 2)) / 1048576,
           static_cast<double>(medianMemory(3, 4)) / 1048576, quiet.size(),
           quiet.empty() ? 0 : quiet.back().descriptors, quiet.empty() ? 0 : quiet.back().threads,
           quiet.empty() ? 0 : quiet.front().heap / 1024,
           quiet.empty() ? 0 : quiet.back().heap / 1024);
  return text;
}

bool Samples::write(const std::string& path) const {
  FILE* out = fopen(path.c_str(), "w");
  if (out == nullptr) return false;
  fprintf(out, "seconds,processor,memory,heap,descriptors,threads,quiet\n");
  for (const std::vector<Sample>* samples : {&running, &quiet}) {
    for (const Sample& sample : *samples) {
      fprintf(out, "%.1f,%.2f,%lld,%lld,%d,%d,%d\n", sample.seconds, sample.processor,
              sample.memory, sample.heap, sample.descriptors, sample.threads,
              samples == &quiet ? 1 : 0);
    }
  }
  return fclose(out) == 0;
}

}  // namespace soak
