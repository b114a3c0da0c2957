// Random calls on HTTP resources whose connections break, compared with plain arrays.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <random>
#include <thread>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/ApiModel.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Watchdog.h"

namespace {

using support::Behaviour;
using support::Caller;
using support::FaultServer;
using support::Resource;

struct Model {
  int bufferSize;
  int threads;
  int calls;  // of each thread, in the short run
  const char* name;
};

void PrintTo(const Model& model, std::ostream* out) { *out << model.name; }

// Some bytes of the asked range, then the end of the connection; seldom a reset, seldom all of it.
Behaviour breakOften(long long size, unsigned int seed) {
  return [=](support::Exchange& exchange) {
    std::mt19937 random(seed + static_cast<unsigned int>(exchange.number()));
    const long long some = 1 + static_cast<long long>(random() % 150000);
    switch (random() % 8) {
      case 0:
      case 1:
        support::serveRanges(size)(exchange);
        break;
      case 2:
        support::overDeliver(size)(exchange);
        break;
      case 3:
        support::ignoreRanges(size)(exchange);
        break;
      default:
        support::dropAfter(size, some)(exchange);
    }
  };
}

class HttpModel : public ::testing::TestWithParam<Model> {};

TEST_P(HttpModel, AgreesWithPlainArrays) {
  const Model& model = GetParam();
  const int calls = support::scaled(model.calls);
  const unsigned int seed = support::seedOr(std::random_device()());
  SCOPED_TRACE("FLUVIA_SEED=" + std::to_string(seed));
  printf("FLUVIA_SEED=%u\n", seed);
  fflush(stdout);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere < 0 || dup2(nowhere, 2) < 0) abort();  // libcurl tells of every request
  FaultServer server;
  std::vector<Resource> resources;
  for (const long long size : {1, 100, 32768, 65536, 100000, 300000, 1200000}) {
    const std::string path = "/" + std::to_string(size);
    server.on(path, breakOften(size, seed));
    resources.push_back({server.url(path), size, 0});
  }
  std::vector<std::thread> threads;
  std::vector<std::string> wrong(static_cast<size_t>(model.threads));
  std::atomic<int> made{0};
  support::Watchdog watchdog(60, [&] {
    const std::string state = std::to_string(made) + " calls made, seed " + std::to_string(seed);
    printf("%s\n", state.c_str());
    fflush(stdout);
    return state;
  });
  for (int i = 0; i < model.threads; ++i) {
    threads.emplace_back([&, i] {
      Caller caller(resources, model.bufferSize, seed + static_cast<unsigned int>(i),
                    model.threads == 1);
      std::string& mine = wrong[static_cast<size_t>(i)];
      for (int step = 0; step < calls && mine.empty(); ++step) {
        mine = caller.step();
        if (++made % 64 == 0) watchdog.at("calls");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string& fault : wrong) EXPECT_EQ(fault, "");
  EXPECT_GT(server.connectionCount(), calls / 20) << "hardly anything broke";
  printf("%d calls, %d connections\n", made.load(), server.connectionCount());
}

std::string nameOf(const ::testing::TestParamInfo<Model>& parameter) {
  return parameter.param.name;
}

INSTANTIATE_TEST_SUITE_P(All, HttpModel,
                         ::testing::Values(Model{65536, 1, 2000, "OneCallerTwoBlocks"},
                                           Model{98304, 1, 2000, "OneCallerThreeBlocks"},
                                           Model{2097152, 1, 2000, "OneCallerManyBlocks"},
                                           Model{65536, 4, 400, "FourCallersTwoBlocks"},
                                           Model{98304, 4, 300, "FourCallersThreeBlocks"},
                                           Model{2097152, 4, 300, "FourCallersManyBlocks"}),
                         nameOf);

}  // namespace
