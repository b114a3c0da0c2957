#include "tests/support/CapturedStderr.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "util/Log.h"

namespace support {

CapturedStderr::CapturedStderr(int logLevel) : saved(dup(2)), savedLevel(util::LOG_LEV) {
  char name[] = "/tmp/fluviafs-stderr-XXXXXX";
  file = mkstemp(name);
  if (file < 0 || saved < 0) abort();
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
  std::vector<std::string> found;
  std::istringstream lines(text());
  std::string line;
  while (std::getline(lines, line)) {
    // [FluviaFS][00:s:ms][thread][function][line]-------message
    const size_t start = line.find("[FluviaFS][00:");
    const size_t dashes = line.find("]-------", start);
    if (start == std::string::npos || dashes == std::string::npos) continue;
    size_t name = line.find("][", line.find("][", start + 11) + 2);
    if (name == std::string::npos) continue;
    name += 2;
    const std::string logged = line.substr(name, line.find(']', name) - name);
    if (function.empty() || function == logged) {
      found.push_back(logged + ": " + line.substr(dashes + 8));
    }
  }
  return found;
}

bool CapturedStderr::has(const std::string& line) const { return count(line) > 0; }

int CapturedStderr::count(const std::string& line) const {
  const std::vector<std::string> all = messages();
  return static_cast<int>(std::count(all.begin(), all.end(), line));
}

}  // namespace support
