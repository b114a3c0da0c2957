// Sends any bytes through a socket to a handle that reads them.
//
// The first byte of an input decides how the handle is used; the rest are the responses, one for
// each connection, with "\n%%\n" between them. After the last one, connections are closed without a
// byte. Only this process is ever contacted, wherever a response redirects.
#include <arpa/inet.h>
#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "api/fluviafs.h"
#include "tests/ordeal/fuzz/FuzzTarget.h"
#include "util/Log.h"

namespace {

constexpr char kSeparator[] = "\n%%\n";
constexpr size_t kMostAnswers = 8;

// Serves connections on a port of 127.0.0.1, one after the other.
class AnswerServer {
 public:
  AnswerServer() : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    FUZZ_CHECK(bind(listener, reinterpret_cast<struct sockaddr*>(&address), length) == 0);
    FUZZ_CHECK(listen(listener, 64) == 0);
    FUZZ_CHECK(getsockname(listener, reinterpret_cast<struct sockaddr*>(&address), &length) == 0);
    listeningPort = ntohs(address.sin_port);
    std::thread([this] { serve(); }).detach();
  }

  int port() const { return listeningPort; }

  void answerWith(std::vector<std::string> bytes) {
    const std::lock_guard<std::mutex> guard(lock);
    answers = std::move(bytes);
    given = 0;
  }

 private:
  [[noreturn]] void serve() {
    for (;;) {
      const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
      if (connection < 0) continue;
      readHead(connection);
      const std::string bytes = next();
      size_t sent = 0;
      while (sent < bytes.size()) {
        const ssize_t n = send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) break;
        sent += static_cast<size_t>(n);
      }
      close(connection);
    }
  }

  static void readHead(int connection) {
    std::string head;
    char piece[4096];
    while (head.find("\r\n\r\n") == std::string::npos) {
      const ssize_t n = recv(connection, piece, sizeof piece, 0);
      if (n <= 0) return;
      head.append(piece, static_cast<size_t>(n));
    }
  }

  std::string next() {
    const std::lock_guard<std::mutex> guard(lock);
    return given < answers.size() ? answers[given++] : std::string();
  }

  const int listener;
  int listeningPort = 0;
  std::mutex lock;
  std::vector<std::string> answers;
  size_t given = 0;
};

AnswerServer& server() {
  static AnswerServer* const one = new AnswerServer();
  return *one;
}

// libcurl 7.88 reads freed memory if the response to a redirected request begins with a folded
// line. A fuzzer finds that at once, and it hides everything else.
std::string unfolded(std::string answer) {
  const size_t end = answer.find('\n');
  for (size_t at = end == std::string::npos ? answer.size() : end + 1;
       at < answer.size() && (answer[at] == ' ' || answer[at] == '\t'); ++at) {
    answer[at] = 'x';
  }
  return answer;
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> parts;
  size_t at = 0;
  while (parts.size() + 1 < kMostAnswers) {
    const size_t end = text.find(kSeparator, at);
    if (end == std::string::npos) break;
    parts.push_back(unfolded(text.substr(at, end - at)));
    at = end + strlen(kSeparator);
  }
  parts.push_back(unfolded(text.substr(at)));
  return parts;
}

void readSome(int handle, unsigned int size) {
  // A buffer of the exact size, so that a sanitizer notices a byte too many.
  std::vector<char> buffer(size);
  unsigned int got = 0;
  const int result = x_fluvia_file_read(handle, buffer.data(), size, &got);
  FUZZ_CHECK(got <= size);
  FUZZ_CHECK(result == 0 || result == -1 || result == -4 || result == -6 || result == -13 ||
             result == -17 || result == -21);
}

void useHandle(int handle, unsigned int plan) {
  if ((plan & 1) != 0) x_fluvia_file_size(handle);
  for (unsigned int size : {1u, 100u, 40000u}) readSome(handle, size);
  long long now = 0;
  if ((plan & 2) != 0) x_fluvia_file_seek(handle, (plan & 4) != 0 ? 10 : 100000, &now);
  readSome(handle, 1000);
  const long long size = x_fluvia_file_size(handle);
  if ((plan & 8) != 0 && size > 0) x_fluvia_file_seek(handle, size - 5, &now);
  readSome(handle, 10);
  char header[600];
  int length = 0;
  x_fluvia_file_http_get_header(handle, header, sizeof header, &length);
  FUZZ_CHECK(length >= 0 && length <= 8192);
  x_fluvia_file_http_get_server_name(handle);
  x_fluvia_file_http_get_content_type(handle);
  x_fluvia_file_http_get_download_status(handle);
}

}  // namespace

#pragma GCC visibility push(default)

// Redirects reach this process or nothing.
extern "C" int connect(int descriptor, const struct sockaddr* address, socklen_t length) {
  static const auto real = reinterpret_cast<decltype(&::connect)>(dlsym(RTLD_NEXT, "connect"));
  struct sockaddr_in inet = {};
  memcpy(&inet, address, std::min(sizeof inet, static_cast<size_t>(length)));
  if (address->sa_family != AF_INET ||
      inet.sin_port != htons(static_cast<uint16_t>(server().port())) ||
      inet.sin_addr.s_addr != htonl(INADDR_LOOPBACK)) {
    errno = ECONNREFUSED;
    return -1;
  }
  return real(descriptor, address, length);
}

extern "C" int getaddrinfo(const char*, const char*, const struct addrinfo*, struct addrinfo**) {
  return EAI_NONAME;
}

#pragma GCC visibility pop

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  util::LOG_LEV = -5;
  server().answerWith(split(std::string(reinterpret_cast<const char*>(data) + 1, size - 1)));
  const std::string url = "http://127.0.0.1:" + std::to_string(server().port()) + "/";
  int handle = 0;
  FUZZ_CHECK(x_fluvia_file_open_x(url.c_str(), &handle, (data[0] >> 4) * 32768) == 0);
  useHandle(handle, data[0]);
  FUZZ_CHECK(x_fluvia_file_close(handle) == 0);
  return 0;
}
