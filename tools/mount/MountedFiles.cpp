#include "MountedFiles.h"

#include <fluviafs.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <utility>

namespace tools {
namespace {

// The last part of a path, or of the path of a URL: before it may be a password.
std::string lastPart(const Source& source) {
  std::string name = source.name();
  if (!source.isLocal()) {
    name.resize(std::min(name.find_first_of("?#"), name.size()));
    name.erase(0, name.find('/', name.find("//") + 2));
  }
  while (!name.empty() && name.back() == '/') name.pop_back();
  name = name.substr(name.rfind('/') + 1);
  return name.empty() || name == "." || name == ".." ? "source" : name;
}

// film.ts, 2: film-2.ts
std::string numbered(const std::string& name, int number) {
  const size_t dot = name.rfind('.');
  const std::string suffix = "-" + std::to_string(number);
  if (dot == std::string::npos || dot == 0) return name + suffix;
  return name.substr(0, dot) + suffix + name.substr(dot);
}

// Decides by the status of the transfer: the library's code for a silent server is that of a
// missing file.
int errnoOfStatus(int status) {
  switch (status) {
    case FVFR_DOWNLOAD_TIMEOUT:
    case FVFR_DOWNLOAD_NO_DATA:
    case FVFR_DOWNLOAD_CONNECTION_DEAD:
      return ETIMEDOUT;
    case FVFR_DOWNLOAD_UNKNOWN_HOST:
    case FVFR_DOWNLOAD_UNREACHABLE:
      return EHOSTUNREACH;
    case FVFR_DOWNLOAD_REFUSED:
      return ECONNREFUSED;
    case 401:
    case 403:
    case 407:
      return EACCES;
    case 404:
    case 410:
      return ENOENT;
    default:
      return EIO;
  }
}

// How often a read that waits behind another asks whether it is still wanted.
constexpr auto kAskEvery = std::chrono::milliseconds(20);

}  // namespace

void MountedFiles::bearOutages(int seconds, std::function<void(const std::string& text)> notice,
                               std::function<bool()> unwanted) {
  seconds_ = seconds;
  notice_ = std::move(notice);
  unwanted_ = std::move(unwanted);
}

bool MountedFiles::open(File* file, Reading* reading, std::string* error) const {
  reading->source.bearOutages(seconds_, [this, file](FluviaStreamNotice, const std::string& text) {
    if (!file->name.empty()) notice_(file->name + ": " + text);
  });
  reading->source.setUnwanted(unwanted_);
  return reading->source.open(file->given, 0, error);
}

bool MountedFiles::add(const std::string& source, std::string* error) {
  auto file = std::make_unique<File>();
  file->given = source;
  if (!open(file.get(), &file->shared, error)) return false;
  const int result = file->shared.source.connect();
  if (result != FVFR_OK) {
    *error = file->shared.source.explain("read", result);
    return false;
  }
  file->size = file->shared.source.size();
  file->seekable = file->size == 0 || file->shared.source.canSeek();
  std::string name = lastPart(file->shared.source);
  for (int number = 2; find(name) != nullptr; ++number) {
    name = numbered(lastPart(file->shared.source), number);
  }
  file->name = name;
  // No read uses it: its download ends.
  if (!file->seekable) file->shared.source.close();
  files_.push_back(std::move(file));
  return true;
}

MountedFiles::File* MountedFiles::find(const std::string& name) const {
  const auto found = std::find_if(files_.begin(), files_.end(),
                                  [&name](const auto& file) { return file->name == name; });
  return found == files_.end() ? nullptr : found->get();
}

MountedFiles::Reading* MountedFiles::begin(File* file, int* problem) {
  if (file->seekable) return &file->shared;
  auto reading = std::make_unique<Reading>();
  std::string error;
  reading->source.isolate();
  if (!open(file, reading.get(), &error)) {
    *problem = EIO;
    return nullptr;
  }
  const std::lock_guard<std::mutex> guard(lock_);
  if (aborted_) reading->source.abort();
  readings_.push_back(std::move(reading));
  return readings_.back().get();
}

void MountedFiles::end(File* file, Reading* reading) {
  if (reading == &file->shared) return;
  std::unique_ptr<Reading> ended;
  const std::lock_guard<std::mutex> guard(lock_);
  const auto found = std::find_if(readings_.begin(), readings_.end(),
                                  [reading](const auto& other) { return other.get() == reading; });
  ended = std::move(*found);
  readings_.erase(found);
}

int MountedFiles::errnoOf(const Source& source, int result) const {
  switch (result) {
    case FVFR_SEEK_REFUSED:
      return ESPIPE;
    case FLUVIA_STREAM_CHANGED:
      return ESTALE;
    case FLUVIA_STREAM_ABORTED:
      return isUnwanted() ? EINTR : EIO;
    default:
      return source.isLocal() ? EIO : errnoOfStatus(source.downloadStatus());
  }
}

int MountedFiles::read(const File& file, Reading* reading, char* buffer, size_t size,
                       long long offset) const {
  if (offset < 0) return -EINVAL;
  if (file.size >= 0 && offset >= file.size) return 0;
  std::unique_lock<std::timed_mutex> mine(reading->turn, std::defer_lock);
  while (!mine.try_lock_for(kAskEvery)) {
    if (isUnwanted()) return -EINTR;
  }
  return readOn(&reading->source, buffer, size, offset);
}

int MountedFiles::readOn(Source* source, char* buffer, size_t size, long long offset) const {
  const int moved = source->moveTo(offset);
  if (moved != FVFR_OK) return -errnoOf(*source, moved);
  size_t done = 0;
  // Reads all of it: to the kernel a short read is the end of the file.
  while (done < size) {
    unsigned int got = 0;
    const auto wanted = static_cast<unsigned int>(std::min<size_t>(size - done, INT_MAX));
    const int result = source->read(buffer + done, wanted, &got);
    done += got;
    if (result == FVFR_END_OF_FILE) break;
    if (result != FVFR_OK) return -errnoOf(*source, result);
  }
  return static_cast<int>(done);
}

void MountedFiles::abort() {
  const std::lock_guard<std::mutex> guard(lock_);
  aborted_ = true;
  for (const auto& file : files_) {
    if (file->seekable) file->shared.source.abort();
  }
  for (const auto& reading : readings_) reading->source.abort();
}

}  // namespace tools
