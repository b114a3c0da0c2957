#include "bench/common/Connections.h"

#include <dirent.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>

namespace bench {

namespace {

// Returns false if the descriptor is not an open TCP connection.
bool inform(int descriptor, struct tcp_info* info) {
  socklen_t size = sizeof *info;
  return getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, info, &size) == 0 &&
         info->tcpi_state == TCP_ESTABLISHED;
}

}  // namespace

long long Connections::longestSilence(Clock::time_point now) {
  if (now >= nextFind) {
    find();
    nextFind = now + std::chrono::seconds(1);
  }
  long long longest = -1;
  for (const int descriptor : sockets) {
    struct tcp_info info = {};
    if (!inform(descriptor, &info)) continue;
    longest = std::max(longest, static_cast<long long>(info.tcpi_last_data_recv));
  }
  return longest;
}

void Connections::find() {
  sockets.clear();
  DIR* folder = opendir("/proc/self/fd");
  if (folder == nullptr) return;
  while (const struct dirent* entry = readdir(folder)) {
    char* end = nullptr;
    const long descriptor = strtol(entry->d_name, &end, 10);
    struct tcp_info info = {};
    if (end != entry->d_name && inform(static_cast<int>(descriptor), &info)) {
      sockets.push_back(static_cast<int>(descriptor));
    }
  }
  closedir(folder);
}

}  // namespace bench
