#include "LiveTrace.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <new>

#include "../TraceCommand.h"
#include "TracePage.h"

namespace tools {
namespace {

// A failed write does not end the trace: the log's file was writable when it was opened.
void passOn(int file, const char* data, size_t size) {
  while (size != 0) {
    const ssize_t written = write(file, data, size);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return;
    }
    data += written;
    size -= static_cast<size_t>(written);
  }
}

}  // namespace

LiveTrace::LiveTrace() : reader_([this](const LogEntry& entry) { story_.take(entry); }) {}

LiveTrace::~LiveTrace() {
  giveBack();
  if (pipe_ >= 0) {
    close(pipe_);
  }
}

bool LiveTrace::begin(const std::string& output, std::string* error) {
  if (!page_.open(output, false, error)) {
    return false;
  }
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    *error = std::string("cannot follow the library's log: ") + std::strerror(errno);
    return false;
  }
  pipe_ = ends[0];
  before_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const bool moved = before_ >= 0 && dup2(ends[1], STDERR_FILENO) >= 0;
  if (!moved) {
    *error = std::string("cannot follow the library's log: ") + std::strerror(errno);
  }
  close(ends[1]);
  if (moved) {
    thread_ = std::thread(&LiveTrace::readAll, this);
  }
  return moved;
}

void LiveTrace::readAll() {
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t got = read(pipe_, buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return;
    }
    passOn(before_, buffer.data(), static_cast<size_t>(got));
    take(buffer.data(), static_cast<size_t>(got));
  }
}

// Without memory the rest of the log is only passed on: a full pipe would stop the library.
void LiveTrace::take(const char* data, size_t size) {
  if (starved_) {
    return;
  }
  try {
    reader_.feed(data, size);
  } catch (const std::bad_alloc&) {
    starved_ = true;
  }
}

// Descriptor 2 was the only write end: the reading thread now reaches the end of the pipe.
void LiveTrace::giveBack() {
  if (before_ < 0) {
    return;
  }
  dup2(before_, STDERR_FILENO);
  if (thread_.joinable()) {
    thread_.join();
  }
  close(before_);
  before_ = -1;
}

bool LiveTrace::finish(const std::string& title, std::string* error) {
  giveBack();
  if (starved_) {
    *error = "no memory is left for the trace";
    return false;
  }
  reader_.finish();
  story_.finish();
  return writePage(tracePage(title, story_, reader_.counts()), &page_, error);
}

}  // namespace tools
