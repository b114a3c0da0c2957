// read() and lseek(), for local files: the least cost of any way.
#include <fcntl.h>
#include <unistd.h>

#include "bench/common/Source.h"

namespace {

class FileSource : public bench::Source {
 public:
  bool open(const bench::Options&, const std::string& url) override {
    file = ::open(url.c_str(), O_RDONLY | O_CLOEXEC);
    return file >= 0;
  }
  long long read(char* buffer, size_t size) override {
    size_t done = 0;
    while (done < size) {
      const ssize_t got = ::read(file, buffer + done, size - done);
      if (got < 0) return -1;
      if (got == 0) break;
      done += static_cast<size_t>(got);
    }
    return static_cast<long long>(done);
  }
  bool seek(long long offset) override { return lseek(file, offset, SEEK_SET) == offset; }
  void abort() override {}  // never waits
  void close() override { ::close(file); }

 private:
  int file = -1;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runDriver(argc, argv, [](const bench::Options&) {
    return std::unique_ptr<bench::Source>(new FileSource);
  });
}
