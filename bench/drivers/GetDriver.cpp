// One ranged GET a read, over a kept connection.
#include <algorithm>
#include <cstring>
#include <string>

#include "bench/common/Source.h"
#include "bench/drivers/Curl.h"

namespace {

class GetSource : public bench::Source {
 public:
  bool open(const bench::Options& options, const std::string& url) override {
    resourceSize = options.size;
    curl = bench::makeCurl(options, url, store, this);
    if (curl == nullptr) return false;
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, watch);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, this);
    return true;
  }
  long long read(char* buffer, size_t size) override {
    const long long left = std::max(0LL, resourceSize - position);
    room = static_cast<size_t>(std::min(left, static_cast<long long>(size)));
    if (room == 0) return 0;
    const std::string range = std::to_string(position) + "-" +
                              std::to_string(position + static_cast<long long>(room) - 1);
    curl_easy_setopt(curl, CURLOPT_RANGE, range.c_str());
    target = buffer;
    got = 0;
    if (curl_easy_perform(curl) != CURLE_OK) return -1;
    position += static_cast<long long>(got);
    return static_cast<long long>(got);
  }
  bool seek(long long offset) override {
    position = offset;
    return true;
  }
  void abort() override { __atomic_store_n(&aborted, true, __ATOMIC_RELAXED); }
  void close() override {
    curl_easy_cleanup(curl);
    curl = nullptr;
  }

 private:
  static size_t store(char* data, size_t, size_t size, void* receiver) {
    GetSource* self = static_cast<GetSource*>(receiver);
    if (size > self->room - self->got) return 0;  // not the requested range
    memcpy(self->target + self->got, data, size);
    self->got += size;
    return size;
  }
  static int watch(void* receiver, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return __atomic_load_n(&static_cast<GetSource*>(receiver)->aborted, __ATOMIC_RELAXED) ? 1 : 0;
  }

  CURL* curl = nullptr;
  char* target = nullptr;
  size_t room = 0;
  size_t got = 0;
  long long position = 0;
  long long resourceSize = 0;
  bool aborted = false;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runDriver(argc, argv, [](const bench::Options&) {
    return std::unique_ptr<bench::Source>(new GetSource);
  });
}
