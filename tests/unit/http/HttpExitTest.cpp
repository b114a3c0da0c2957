// exit() while transfers run.
#include <openssl/crypto.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/unit/http/ApiFile.h"

namespace {

void readOn(int handle) {
  std::string bytes(65536, '\0');
  unsigned int got = 0;
  while (x_fluvia_file_read(handle, &bytes[0], 65536, &got) == FVFR_OK) {
  }
}

// Streams over TLS on several threads, one of them silent, and exits.
[[noreturn]] void exitWhileStreaming() {
  // The library is used first, as in a player: so it initializes the crypto library.
  int first = 0;
  x_fluvia_file_open("http://127.0.0.1:1/", &first);
  static const support::TestCertificate own;
  auto* server = new support::FaultServer(own.certificate(), own.key());
  server->on("/run", support::serveRanges(1LL << 40));
  server->on("/silent", support::stallAfter(1LL << 40, 1000));
  for (const char* path : {"/run", "/silent"}) {
    int handle = 0;
    if (x_fluvia_file_open(server->url(path).c_str(), &handle) != FVFR_OK) _exit(3);
    std::thread(readOn, handle).detach();
    if (!server->waitForRequests(path, 1)) _exit(4);
  }
  exit(0);
}

// Runs at exit after the crypto library's own handler, if it has one.
void leaveAsCryptoIs() { _exit(OPENSSL_init_crypto(0, nullptr) == 1 ? 0 : 5); }

[[noreturn]] void exitAfterUse() {
  if (atexit(leaveAsCryptoIs) != 0) _exit(3);
  int handle = 0;
  if (x_fluvia_file_open("https://127.0.0.1:1/", &handle) != FVFR_OK) _exit(4);
  exit(1);
}

TEST(HttpExitDeathTest, LeavesTheCryptoLibraryToTransfersThatRun) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitAfterUse(), ::testing::ExitedWithCode(0), "");
}

TEST(HttpExitDeathTest, WhileTransfersRunIsClean) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (int round = 0; round < 5; ++round) {
    EXPECT_EXIT(exitWhileStreaming(), ::testing::ExitedWithCode(0), "");
  }
}

}  // namespace
