// The library itself.
#include "api/fluviafs.h"
#include "bench/common/Source.h"

namespace {

class OurSource : public bench::Source {
 public:
  bool open(const bench::Options& options, const std::string& url) override {
    if (x_fluvia_file_open_x(url.c_str(), &handle, options.buffer) != FVFR_OK) return false;
    return options.ca.empty() || x_fluvia_file_http_set_CA(handle, options.ca.c_str()) == FVFR_OK;
  }
  long long read(char* buffer, size_t size) override {
    unsigned int got = 0;
    const int result = x_fluvia_file_read(handle, buffer, static_cast<unsigned int>(size), &got);
    if (result == FVFR_END_OF_FILE) return 0;
    return result == FVFR_OK ? static_cast<long long>(got) : result;
  }
  bool seek(long long offset) override {
    long long now = -1;
    return x_fluvia_file_seek(handle, offset, &now) == FVFR_OK && now == offset;
  }
  void abort() override { x_fluvia_file_read_abort(handle, 0); }
  void close() override { x_fluvia_file_close(handle); }
  bool closesWhileReading() const override { return true; }
  long long buffered() override { return x_fluvia_file_bufferedSize(handle); }

 private:
  int handle = 0;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runDriver(argc, argv, [](const bench::Options&) {
    return std::unique_ptr<bench::Source>(new OurSource);
  });
}
