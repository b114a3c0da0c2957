#include "MountedFiles.h"

#include <fluviafs.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace tools {
namespace {

// The last part of a path or URL, without the query of a URL.
std::string lastPart(const Source& source) {
  std::string name = source.name();
  if (!source.isLocal()) name.resize(std::min(name.find_first_of("?#"), name.size()));
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

int errnoOf(int result) {
  switch (result) {
    case FVFR_TIMEOUT:
      return ETIMEDOUT;
    case FVFR_NOT_FOUND:
      return ENOENT;
    case FVFR_NOT_AVAILABLE:
      return EACCES;
    case FVFR_SEEK_REFUSED:
      return ESPIPE;
    default:
      return EIO;
  }
}

}  // namespace

bool MountedFiles::add(const std::string& source, std::string* error) {
  auto file = std::make_unique<File>();
  if (!file->source.open(source, 0, error)) return false;
  // A read tells what is wrong; the size does not.
  char first = 0;
  unsigned int got = 0;
  const int result = x_fluvia_file_read(file->source.handle(), &first, 1, &got);
  if (result != FVFR_OK && result != FVFR_END_OF_FILE) {
    *error = file->source.explain("read", result);
    return false;
  }
  file->size = file->source.size();
  file->name = lastPart(file->source);
  for (int number = 2; find(file->name) != nullptr; ++number) {
    file->name = numbered(lastPart(file->source), number);
  }
  files_.push_back(std::move(file));
  return true;
}

MountedFiles::File* MountedFiles::find(const std::string& name) const {
  const auto found = std::find_if(files_.begin(), files_.end(),
                                  [&name](const auto& file) { return file->name == name; });
  return found == files_.end() ? nullptr : found->get();
}

int MountedFiles::read(File* file, char* buffer, size_t size, long long offset) {
  if (offset < 0) return -EINVAL;
  if (file->size >= 0 && offset >= file->size) return 0;
  const std::lock_guard<std::mutex> mine(file->turn);
  const int handle = file->source.handle();
  if (x_fluvia_file_offset(handle) != offset) {
    long long now = 0;
    const int moved = x_fluvia_file_seek(handle, offset, &now);
    if (moved != FVFR_OK) return -errnoOf(moved);
  }
  unsigned int got = 0;
  const unsigned int wanted = static_cast<unsigned int>(std::min<size_t>(size, INT_MAX));
  const int result = x_fluvia_file_read(handle, buffer, wanted, &got);
  if (result == FVFR_OK) return static_cast<int>(got);
  return result == FVFR_END_OF_FILE ? 0 : -errnoOf(result);
}

}  // namespace tools
