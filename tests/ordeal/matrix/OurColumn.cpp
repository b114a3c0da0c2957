// The matrix's column of this library. FLUVIA_FEATUREFLAG of the environment is set on the handle.
#include <cstdlib>

#include "api/fluviafs.h"
#include "tests/ordeal/matrix/Cell.h"
#include "tests/support/SilentStderr.h"

namespace {

class OurClient : public matrix::Client {
 public:
  ~OurClient() override { x_fluvia_file_close(handle); }

  bool open(const std::string& url, std::string* why) override {
    const int result = x_fluvia_file_open(url.c_str(), &handle);
    *why = "open " + std::to_string(result);
    const char* flag = getenv("FLUVIA_FEATUREFLAG");
    if (flag != nullptr) x_fluvia_file_set_featureflag(handle, atoi(flag));
    return result == FVFR_OK;
  }

  long readAt(long long offset, char* bytes, size_t count, std::string* why) override {
    if (x_fluvia_file_offset(handle) != offset) {
      long long now = 0;
      const int moved = x_fluvia_file_seek(handle, offset, &now);
      if (moved != FVFR_OK) {
        // The read reports why there is no size.
        unsigned int none = 0;
        char byte = 0;
        const int reason = x_fluvia_file_read(handle, &byte, 1, &none);
        *why = "seek " + std::to_string(moved);
        if (reason != FVFR_OK) *why += ", read " + std::to_string(reason);
        const int status = x_fluvia_file_http_get_download_status(handle);
        if (status != 0) *why += ", status " + std::to_string(status);
        return -1;
      }
    }
    unsigned int got = 0;
    const int result = x_fluvia_file_read(handle, bytes, static_cast<unsigned int>(count), &got);
    if (result == FVFR_OK) return static_cast<long>(got);
    if (result == FVFR_END_OF_FILE) return 0;
    *why = "read " + std::to_string(result) + ", status " +
           std::to_string(x_fluvia_file_http_get_download_status(handle));
    return -1;
  }

 private:
  int handle = 0;
};

}  // namespace

int main(int count, char** words) {
  support::silenceStderr();
  OurClient client;
  return matrix::runCell(&client, count, words);
}
