// Random calls on HTTP resources whose connections break, compared with plain arrays.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/ApiModel.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/QueueProbe.h"
#include "tests/support/SilentStderr.h"
#include "tests/support/Watchdog.h"

namespace {

using support::CallersPlan;
using support::FaultServer;
using support::Resource;

// For any factor (FLUVIA_MODEL_FACTOR), the callers continue until the server has cut this many
// responses short and this many bytes have been compared. A run that does not reach both has tested
// nothing. One response is cut for about 20 to 200 calls.
constexpr int kFewestCuts = 20;
constexpr long long kFewestBytes = 1000000;
constexpr int kMostCalls = 20000;

class HttpModel : public ::testing::TestWithParam<CallersPlan> {};

TEST_P(HttpModel, AgreesWithPlainArrays) {
  const unsigned int seed = support::printedSeed();
  support::silenceStderr();
  // No reader may depend on the clock that ends the pause of a transfer without room.
  util::BufferQueueProbe::setLongestPause(3600000);
  std::atomic<int> cut{0};
  FaultServer server;
  std::vector<Resource> resources;
  for (const long long size : {1, 100, 32768, 65536, 100000, 300000, 1200000}) {
    const std::string path = "/" + std::to_string(size);
    server.on(path, support::breakOften(size, seed, 2, false, &cut));
    resources.push_back({server.url(path), size, 0});
  }
  int calls = 0;
  long long bytes = 0;
  std::string wrong;
  for (unsigned int round = 0; wrong.empty(); ++round) {
    const support::CallersResult result =
        support::runCallers(GetParam(), resources, seed + 1000 * round);
    calls += result.calls;
    bytes += result.bytesCompared;
    wrong = result.wrong;
    if (calls >= kMostCalls || (cut >= kFewestCuts && bytes >= kFewestBytes)) break;
  }
  util::BufferQueueProbe::resetLongestPause();
  printf("%d calls, %lld bytes, %d connections, %d answers cut\n", calls, bytes,
         server.connectionCount(), cut.load());
  EXPECT_EQ(wrong, "");
  EXPECT_GE(cut, kFewestCuts) << "hardly anything broke";
  EXPECT_GE(bytes, kFewestBytes) << "hardly anything was read";
}

std::string nameOf(const ::testing::TestParamInfo<CallersPlan>& parameter) {
  return parameter.param.name;
}

INSTANTIATE_TEST_SUITE_P(All, HttpModel,
                         ::testing::Values(CallersPlan{65536, 1, 2000, "OneCallerTwoBlocks"},
                                           CallersPlan{98304, 1, 2000, "OneCallerThreeBlocks"},
                                           CallersPlan{262144, 1, 2000, "OneCallerEightBlocks"},
                                           CallersPlan{2097152, 1, 2000, "OneCallerManyBlocks"},
                                           CallersPlan{65536, 4, 400, "FourCallersTwoBlocks"},
                                           CallersPlan{98304, 4, 300, "FourCallersThreeBlocks"},
                                           CallersPlan{262144, 4, 300, "FourCallersEightBlocks"},
                                           CallersPlan{2097152, 4, 300, "FourCallersManyBlocks"}),
                         nameOf);

}  // namespace
