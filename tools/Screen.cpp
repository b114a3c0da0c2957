#include "Screen.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "Passwords.h"

namespace tools {

Screen::Screen(std::string program)
    : program_(std::move(program)),
      own_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {}

Screen::~Screen() {
  if (own_ >= 0) {
    close(own_);
  }
}

bool Screen::redirect(const std::string& logFile, std::string* error) {
  const std::string target = logFile.empty() ? "/dev/null" : logFile;
  const int file = open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0) {
    *error = "cannot write the log file " + target + ": " + std::strerror(errno);
    return false;
  }
  const bool moved = dup2(file, STDERR_FILENO) >= 0;
  if (!moved) {
    *error = std::string("cannot redirect the library's log: ") + std::strerror(errno);
  }
  close(file);
  return moved;
}

bool Screen::isTerminal() const { return own_ >= 0 && isatty(own_) == 1; }

int Screen::columns() const {
  winsize size{};
  if (own_ < 0 || ioctl(own_, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
    return 80;
  }
  return size.ws_col;
}

void Screen::print(const char* next, size_t left) const {
  while (left != 0) {
    const ssize_t written = write(own_, next, left);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return;  // there is no reader, and no other place to report it
    }
    next += written;
    left -= static_cast<size_t>(written);
  }
}

void Screen::fail(const std::string& text) const {
  print(program_ + ": " + maskPasswords(text) + "\n");
}

}  // namespace tools
