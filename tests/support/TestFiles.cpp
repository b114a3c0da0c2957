#include "tests/support/TestFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/support/Pattern.h"
#include "tests/support/Watchdog.h"

namespace support {

namespace {

int entriesOf(const char* folder) {
  int count = 0;
  DIR* entries = opendir(folder);
  if (entries == nullptr) abort();
  while (const dirent* entry = readdir(entries)) {
    if (entry->d_name[0] != '.') ++count;
  }
  closedir(entries);
  return count;
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
  char name[] = "/tmp/fluviafs-test-XXXXXX";
  if (mkdtemp(name) == nullptr) abort();
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryFolder::makePattern(const std::string& name, long long size,
                                         unsigned long long base) const {
  const std::string path = file(name);
  std::ofstream out(path, std::ios::binary);
  std::vector<char> piece(1 << 20);
  for (long long at = 0; at < size; at += static_cast<long long>(piece.size())) {
    const size_t n =
        static_cast<size_t>(std::min<long long>(static_cast<long long>(piece.size()), size - at));
    fillPattern(base + static_cast<unsigned long long>(at), piece.data(), n);
    out.write(piece.data(), static_cast<std::streamsize>(n));
  }
  out.close();
  if (!out) abort();
  return path;
}

std::string TemporaryFolder::makeSparse(const std::string& name, long long size) const {
  const std::string path = file(name);
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0 || ftruncate(fd, size) != 0) abort();
  close(fd);
  return path;
}

std::string TemporaryFolder::makeText(const std::string& name, const std::string& text) const {
  const std::string path = file(name);
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

void Completions::completed(int id, void* userData, int status, int bytes) {
  Completions* self = static_cast<Completions*>(userData);
  std::lock_guard<std::mutex> guard(self->lock);
  self->made.push_back({id, status, bytes});
  self->changed.notify_all();
}

bool Completions::waitFor(size_t count, int seconds) {
  std::unique_lock<std::mutex> guard(lock);
  return changed.wait_for(guard, patienceOf(seconds), [&] { return made.size() >= count; });
}

std::vector<Completions::Call> Completions::calls() const {
  std::lock_guard<std::mutex> guard(lock);
  return made;
}

size_t Completions::count() const {
  std::lock_guard<std::mutex> guard(lock);
  return made.size();
}

int threadCount() { return entriesOf("/proc/self/task"); }

void makeFirstThread() {
  pid_t thread = 0;
  std::thread([&] { thread = gettid(); }).join();
  // The join does not wait until the kernel has removed the thread; emulators keep it for a moment.
  const std::string entry = "/proc/self/task/" + std::to_string(thread);
  if (!eventually([&] { return access(entry.c_str(), F_OK) != 0; })) abort();
}

int descriptorCount() { return entriesOf("/proc/self/fd"); }

}  // namespace support
