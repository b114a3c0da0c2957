#include "tests/support/CapturedStderr.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "util/Log.h"

namespace support {

namespace {

// The library writes a line in three pieces, and other threads may write between them. Test
// programs join the pieces of each thread's line before it goes to descriptor 2, so that every line
// can be found.
constexpr size_t kLongestLine = 8192;
thread_local char line[kLongestLine];
thread_local size_t lineLength = 0;

void writeAll(const char* text, size_t size) {
  while (size > 0) {
    const ssize_t n = write(2, text, size);
    if (n <= 0) return;
    text += n;
    size -= static_cast<size_t>(n);
  }
}

ssize_t assemble(void* /*cookie*/, const char* text, size_t size) {
  const bool begins = lineLength == 0 && size > 10 && strncmp(text, "[FluviaFS]", 10) == 0;
  if ((!begins && lineLength == 0) || lineLength + size > kLongestLine) {
    writeAll(line, lineLength);
    lineLength = 0;
    writeAll(text, size);
    return static_cast<ssize_t>(size);
  }
  std::copy(text, text + size, line + lineLength);
  lineLength += size;
  if (line[lineLength - 1] == '\n') {
    writeAll(line, lineLength);
    lineLength = 0;
  }
  return static_cast<ssize_t>(size);
}

// Runs once in a test program, before it has threads.
const bool installed = [] {
  FILE* assembled = fopencookie(nullptr, "w", {nullptr, &assemble, nullptr, nullptr});
  if (assembled == nullptr) abort();
  setvbuf(assembled, nullptr, _IONBF, 0);
  stderr = assembled;
  return true;
}();

}  // namespace

CapturedStderr::CapturedStderr(int logLevel) : saved(dup(2)), savedLevel(util::LOG_LEV) {
  char name[] = "/tmp/fluviafs-stderr-XXXXXX";
  file = mkstemp(name);
  if (file < 0 || saved < 0 || !installed) abort();
  unlink(name);
  fflush(stderr);
  dup2(file, 2);
  util::LOG_LEV = logLevel;
}

CapturedStderr::~CapturedStderr() {
  fflush(stderr);
  dup2(saved, 2);
  close(saved);
  close(file);
  util::LOG_LEV = savedLevel;
}

std::string CapturedStderr::text() const {
  std::string all;
  char piece[65536];
  off_t at = 0;
  for (ssize_t n = 0; (n = pread(file, piece, sizeof piece, at)) > 0; at += n) {
    all.append(piece, static_cast<size_t>(n));
  }
  return all;
}

std::vector<std::string> CapturedStderr::messages(const std::string& function) const {
  return messagesOf(function, 0);
}

std::vector<std::string> CapturedStderr::ownMessages() const { return messagesOf("", gettid()); }

std::vector<std::string> CapturedStderr::messagesOf(const std::string& function,
                                                    long thread) const {
  std::vector<std::string> found;
  std::istringstream lines(text());
  std::string one;
  while (std::getline(lines, one)) {
    // [FluviaFS][00:s:ms][thread][function][line]-------message
    const size_t start = one.find("[FluviaFS][00:");
    const size_t dashes = one.find("]-------", start);
    if (start == std::string::npos || dashes == std::string::npos) continue;
    const size_t writer = one.find("][", start + 11) + 2;
    size_t name = one.find("][", writer);
    if (name == std::string::npos) continue;
    if (thread != 0 && one.substr(writer, name - writer) != std::to_string(thread)) continue;
    name += 2;
    const std::string logged = one.substr(name, one.find(']', name) - name);
    if (function.empty() || function == logged) {
      found.push_back(logged + ": " + one.substr(dashes + 8));
    }
  }
  return found;
}

bool CapturedStderr::has(const std::string& wanted) const { return count(wanted) > 0; }

int CapturedStderr::count(const std::string& wanted) const {
  const std::vector<std::string> all = messages();
  return static_cast<int>(std::count(all.begin(), all.end(), wanted));
}

}  // namespace support
