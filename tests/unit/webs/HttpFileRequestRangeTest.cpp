// Servers that treat a range in their own way.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/IsPattern.h"

namespace {

using support::FaultServer;
using support::isPattern;
using support::ProducerProbe;
using Events = std::vector<int>;

constexpr long long kSize = 200000;
constexpr long long kOffset = 98304;

// A second run from kOffset, with a response by behaviour. Returns the delivered bytes.
std::string secondRun(const support::Behaviour& behaviour, const Events& expected,
                      long long count = 0) {
  FaultServer server;
  server.on("/a", support::inTurn({support::serveRanges(kSize), behaviour}));
  ProducerProbe probe(server.url("/a"));
  probe.run(1, 0, 0);
  EXPECT_EQ(probe.run(2, kOffset, count), expected);
  EXPECT_TRUE(probe.producer.isRandomAccess()) << "learnt once";
  EXPECT_EQ(probe.producer.getContentSize(), kSize) << "learnt once";
  return probe.receiver.body().substr(kSize);
}

TEST(HttpFileRequestRange, IgnoredRangeIsSkippedTo) {
  EXPECT_TRUE(isPattern(secondRun(support::ignoreRanges(kSize), {3}), kOffset, kSize - kOffset));
}

TEST(HttpFileRequestRange, IgnoredRangeWithoutALengthIsSkippedTo) {
  EXPECT_TRUE(isPattern(secondRun(support::serveChunked(kSize), {3}), kOffset, kSize - kOffset));
}

TEST(HttpFileRequestRange, RestCalled200IsTakenAsItIs) {
  EXPECT_TRUE(
      isPattern(secondRun(support::serveRestAs200(kSize, true), {3}), kOffset, kSize - kOffset));
  EXPECT_TRUE(
      isPattern(secondRun(support::serveRestAs200(kSize, false), {3}), kOffset, kSize - kOffset));
  EXPECT_TRUE(
      isPattern(secondRun(support::serveRestAs200(kSize, false), {3}, 32768), kOffset, 32768));
}

TEST(HttpFileRequestRange, PartialAnswerThatStartsBeforeIsTrimmed) {
  EXPECT_TRUE(
      isPattern(secondRun(support::startBeside(kSize, -5000), {3}), kOffset, kSize - kOffset));
}

TEST(HttpFileRequestRange, PartialAnswerThatStartsAfterIsAnError) {
  support::CapturedStderr log(0);
  EXPECT_EQ(secondRun(support::startBeside(kSize, 5000), {1, 7}), "");
  EXPECT_TRUE(log.has("receive: http error 206"));
}

// The line decides where the body begins, even if the status is 200.
TEST(HttpFileRequestRange, WholeAnswerThatStartsBeforeIsTrimmed) {
  EXPECT_TRUE(
      isPattern(secondRun(support::startBeside(kSize, -5000, 200), {3}), kOffset, kSize - kOffset));
}

TEST(HttpFileRequestRange, WholeAnswerThatStartsAfterIsAnError) {
  EXPECT_EQ(secondRun(support::startBeside(kSize, 5000, 200), {1, 7}), "");
}

TEST(HttpFileRequestRange, ErrorPagesOfLaterRunsAreNotDelivered) {
  EXPECT_EQ(secondRun(support::answerStatus(404), {5}), "");
  EXPECT_EQ(secondRun(support::answerStatus(503), {6}), "");
  EXPECT_EQ(secondRun(support::answerStatus(416), {5}), "");
  EXPECT_EQ(secondRun(support::answerStatus(300), {1, 7}), "");
}

TEST(HttpFileRequestRange, BodilessAnswerOfALaterRunIsAPartialEnd) {
  EXPECT_EQ(secondRun(support::answerStatus(204), {3}), "");
}

}  // namespace
