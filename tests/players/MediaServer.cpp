// Serves the files of a folder on loopback, with faults, until its standard input ends.
//
//   media-server [--plain | --tls] [--drop BYTES] FOLDER
//
// Prints its address, and with --tls on a second line the file of its certificate. With --drop
// every connection ends after that many bytes of body. At the end it prints for each file that was
// asked for: requests, bytes of body, name.
#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"

namespace {

std::vector<std::string> filesIn(const std::string& folder) {
  std::vector<std::string> names;
  DIR* opened = opendir(folder.c_str());
  if (opened == nullptr) return names;
  while (const struct dirent* entry = readdir(opened)) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  closedir(opened);
  return names;
}

void waitForEndOfInput() {
  char ignored[64];
  while (read(STDIN_FILENO, ignored, sizeof ignored) > 0) {
  }
}

}  // namespace

int main(int argc, char** argv) {
  bool tls = false;
  long long drop = -1;
  std::string folder;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--tls") == 0) {
      tls = true;
    } else if (strcmp(argv[i], "--drop") == 0 && i + 1 < argc) {
      drop = atoll(argv[++i]);
    } else if (strcmp(argv[i], "--plain") != 0) {
      folder = argv[i];
    }
  }
  const std::vector<std::string> names = filesIn(folder);
  if (names.empty()) {
    fprintf(stderr, "usage: media-server [--plain | --tls] [--drop BYTES] FOLDER\n");
    return 2;
  }
  support::TestCertificate certificate;
  const auto server =
      tls ? std::make_unique<support::FaultServer>(certificate.certificate(), certificate.key())
          : std::make_unique<support::FaultServer>();
  for (const std::string& name : names) {
    server->on("/" + name, support::serveFile(folder + "/" + name, drop));
  }
  printf("%s\n", server->url("").c_str());
  if (tls) printf("%s\n", certificate.certificate().c_str());
  fflush(stdout);
  waitForEndOfInput();
  for (const std::string& name : names) {
    const int requests = server->requestCount("/" + name);
    if (requests > 0) {
      printf("%d %lld %s\n", requests, server->bodyBytes("/" + name), name.c_str());
    }
  }
  return 0;
}
