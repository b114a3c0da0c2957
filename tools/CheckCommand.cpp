#include <fcntl.h>
#include <fluviafs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Commands.h"
#include "Passwords.h"
#include "Source.h"

namespace tools {
namespace {

// The same bytes from another source: a local file read directly, or a copy of a resource made by
// one reading from beginning to end.
class Reference {
 public:
  ~Reference() {
    if (file_ >= 0) {
      close(file_);
    }
  }

  bool open(const std::string& name, int buffer, std::string* error) {
    Source source;
    if (!source.open(name, buffer, error)) {
      return false;
    }
    if (!source.isLocal()) {
      return copy(source, error);
    }
    file_ = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (file_ < 0) {
      *error = "cannot read " + maskPassword(name) + ": " + std::strerror(errno);
      return false;
    }
    const off_t end = lseek(file_, 0, SEEK_END);
    // The library takes the size of a local file modulo 2^32.
    size_ = end & 0xFFFFFFFFLL;
    return end >= 0;
  }

  long long size() const { return size_; }

  // Reads as pread(2) does, but always all bytes. Returns false with *error set on failure.
  bool read(char* buffer, size_t size, long long offset, std::string* error) const {
    while (size != 0) {
      const ssize_t got = pread(file_, buffer, size, offset);
      if (got < 0 && errno == EINTR) {
        continue;
      }
      if (got <= 0) {
        *error = got == 0 ? "the source became shorter while it was checked"
                          : std::string("cannot read the source plainly: ") + std::strerror(errno);
        return false;
      }
      buffer += got;
      offset += got;
      size -= static_cast<size_t>(got);
    }
    return true;
  }

 private:
  // Copies the whole resource into an unnamed temporary file.
  bool copy(const Source& source, std::string* error) {
    std::FILE* file = std::tmpfile();
    if (file == nullptr) {
      *error = std::string("cannot make a temporary file: ") + std::strerror(errno);
      return false;
    }
    const bool copied = copyInto(source, file, error);
    file_ = copied ? fcntl(fileno(file), F_DUPFD_CLOEXEC, 3) : -1;
    std::fclose(file);
    return copied && file_ >= 0;
  }

  bool copyInto(const Source& source, std::FILE* file, std::string* error) {
    std::vector<char> bytes(65536);
    unsigned int got = 1;
    while (got != 0) {
      const int code = x_fluvia_file_read(source.handle(), bytes.data(),
                                          static_cast<unsigned int>(bytes.size()), &got);
      if (code == FVFR_END_OF_FILE) {
        break;
      }
      if (code != FVFR_OK) {
        *error = source.explain("read", code);
        return false;
      }
      if (std::fwrite(bytes.data(), 1, got, file) != got) {
        *error = std::string("cannot write a temporary file: ") + std::strerror(errno);
        return false;
      }
      size_ += got;
    }
    return std::fflush(file) == 0;
  }

  int file_ = -1;
  long long size_ = 0;
};

class Check {
 public:
  Check(const CheckOptions& options, const Screen& screen)
      : options_(options),
        screen_(screen),
        seed_(options.seeded ? options.seed : std::random_device()()),
        random_(seed_) {}

  int run() {
    std::string error;
    if (!openAll(&error)) {
      return failed(kExitSource, error);
    }
    if (!source_.isLocal() && !source_.hasLength()) {
      return failed(kExitSource, "cannot check " + maskPassword(source_.name()) +
                                     ": a stream without a length cannot seek, and what is read "
                                     "after a step back may be bytes of another place");
    }
    if (source_.size() >= 0 && source_.size() != reference_.size()) {
      return failed(kExitDiffers, "the library says " + std::to_string(source_.size()) +
                                      " bytes, a plain read gives " +
                                      std::to_string(reference_.size()));
    }
    for (unsigned int round = 0; round < options_.count; ++round) {
      const int code = step(round);
      if (code != kExitOk) {
        return code;
      }
    }
    std::printf("%u reads after seeks, %lld bytes, %u seeks refused: all equal (seed %u)\n",
                options_.count, bytes_, refused_, seed_);
    return std::fflush(stdout) == 0 ? kExitOk
                                    : failed(kExitOutput, "cannot write to standard output");
  }

 private:
  // The handle that copies a URL is closed before the checked one is opened: a shared buffer would
  // return the same error twice.
  bool openAll(std::string* error) {
    if (!reference_.open(options_.source, options_.buffer, error) ||
        !source_.open(options_.source, options_.buffer, error)) {
      return false;
    }
    const int first = source_.connect();
    if (first != FVFR_OK) {
      *error = source_.explain("read", first);
    }
    return first == FVFR_OK;
  }

  int failed(int code, const std::string& error) const {
    screen_.fail(error + (code == kExitDiffers ? " (seed " + std::to_string(seed_) + ")" : ""));
    return code;
  }

  long long pick(long long most) {
    return std::uniform_int_distribution<long long>(0, most)(random_);
  }

  // Half of the targets are near the position, where buffered data is reused; the rest are
  // anywhere.
  long long target() {
    const long long size = reference_.size();
    if (pick(1) == 0) {
      return pick(size);
    }
    const long long span = 4LL * options_.readSize;
    const long long near = x_fluvia_file_offset(source_.handle()) - span + pick(2 * span);
    return std::clamp(near, 0LL, size);
  }

  int step(unsigned int round) {
    const long long wanted = target();
    long long now = 0;
    const int moved = x_fluvia_file_seek(source_.handle(), wanted, &now);
    if (moved == FVFR_SEEK_REFUSED) {
      ++refused_;
    } else if (moved != FVFR_OK && reference_.size() != 0) {
      return failed(kExitSource, source_.explain("seek in", moved));
    }
    const long long at = x_fluvia_file_offset(source_.handle());
    const auto asked = static_cast<unsigned int>(1 + pick(options_.readSize - 1));
    std::vector<char> got(asked);
    unsigned int count = 0;
    const int code = x_fluvia_file_read(source_.handle(), got.data(), asked, &count);
    if (code != FVFR_OK && code != FVFR_END_OF_FILE) {
      return failed(kExitSource, source_.explain("read", code));
    }
    return compare(round, at, asked, got, count);
  }

  int compare(unsigned int round, long long at, unsigned int asked, const std::vector<char>& got,
              unsigned int count) {
    const long long left = std::max(0LL, reference_.size() - at);
    const auto due = static_cast<unsigned int>(std::min(left, static_cast<long long>(asked)));
    const std::string where = "read " + std::to_string(round) + " of " + std::to_string(asked) +
                              " bytes at " + std::to_string(at);
    if (count != due) {
      return failed(kExitDiffers, where + " gave " + std::to_string(count) + " bytes, not " +
                                      std::to_string(due));
    }
    std::vector<char> expected(due);
    std::string error;
    if (!reference_.read(expected.data(), due, at, &error)) {
      return failed(kExitSource, error);
    }
    const auto differs = std::mismatch(expected.begin(), expected.end(), got.begin());
    if (differs.first != expected.end()) {
      return failed(kExitDiffers, where + " differs from a plain read at byte " +
                                      std::to_string(at + (differs.first - expected.begin())));
    }
    bytes_ += count;
    return kExitOk;
  }

  const CheckOptions& options_;
  const Screen& screen_;
  const unsigned int seed_;
  std::mt19937 random_;
  Reference reference_;
  Source source_;
  long long bytes_ = 0;
  unsigned int refused_ = 0;
};

}  // namespace

int runCheck(const CheckOptions& options, const Screen& screen) {
  return Check(options, screen).run();
}

}  // namespace tools
