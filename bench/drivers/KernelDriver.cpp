// The kernel's cost of delivering the bytes: receives them in bursts, like those of a player with a
// large buffer, into the same memory each time, and drops them. "play" over http only.
#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

#include "bench/common/Source.h"
#include "bench/drivers/Curl.h"

namespace {

class KernelSource : public bench::Source {
 public:
  bool open(const bench::Options& options, const std::string& url) override {
    resourceSize = options.size;
    burst = options.buffer / 16 * 7;  // the library's burst
    ahead = options.buffer;
    curl = bench::makeCurl(options, url, nullptr, nullptr);
    if (curl == nullptr) return false;
    curl_easy_setopt(curl, CURLOPT_CONNECT_ONLY, 1L);
    if (curl_easy_perform(curl) != CURLE_OK ||
        curl_easy_getinfo(curl, CURLINFO_ACTIVESOCKET, &connection) != CURLE_OK) {
      return false;
    }
    // libcurl's sockets are non-blocking.
    if (fcntl(connection, F_SETFL, fcntl(connection, F_GETFL) & ~O_NONBLOCK) != 0) return false;
    const size_t path = url.find('/', url.find("://") + 3);
    const std::string request =
        "GET " + (path == std::string::npos ? "/" : url.substr(path)) + " HTTP/1.0\r\n\r\n";
    return send(connection, request.data(), request.size(), 0) ==
           static_cast<ssize_t>(request.size());
  }
  long long read(char*, size_t size) override {
    const long long end = std::min(resourceSize, position + static_cast<long long>(size));
    // Once less than the rest of the buffer is ahead, the whole buffer is refilled.
    const long long goal = received < end + ahead - burst ? end + ahead : received;
    while (received < std::min(resourceSize, goal)) {
      const size_t room = static_cast<size_t>(std::min(resourceSize, goal) - received);
      const ssize_t got = recv(connection, memory.data(), std::min(memory.size(), room), 0);
      if (got <= 0) return -1;
      received += got;
    }
    const long long count = end - position;
    position = end;
    return count;
  }
  bool seek(long long offset) override { return offset == position; }
  void abort() override { shutdown(connection, SHUT_RDWR); }
  void close() override {
    curl_easy_cleanup(curl);
    curl = nullptr;
  }
  bool givesBytes() const override { return false; }

 private:
  CURL* curl = nullptr;
  curl_socket_t connection = CURL_SOCKET_BAD;
  long long resourceSize = 0;
  long long position = 0;
  long long received = 0;  // with the headers, which are few
  long long burst = 0;
  long long ahead = 0;
  std::array<char, 65536> memory;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runDriver(argc, argv, [](const bench::Options& options) {
    const bool fits = options.workload == "play" && options.url.rfind("http://", 0) == 0;
    return std::unique_ptr<bench::Source>(fits ? new KernelSource : nullptr);
  });
}
