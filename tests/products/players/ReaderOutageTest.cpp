// The element's reader while its server is away. examples/reopen has the rules and its own tests;
// these test how the reader applies them.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "SourceReader.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/Pattern.h"
#include "tests/support/Watchdog.h"

namespace {

using support::Behaviour;
using support::FaultServer;
using Outcome = SourceReader::Outcome;

constexpr int kLong = 30000;
// More than sockets and buffers take: a server that goes away cannot have sent all of it.
constexpr long long kSize = 16000000;
constexpr long long kStep = 65536;

// A server that goes away and comes back at the same address.
class Comes {
 public:
  explicit Comes(Behaviour behaviour) : server_(new FaultServer), port_(server_->port()) {
    server_->on("/film", std::move(behaviour));
  }
  void go() { server_.reset(); }
  FaultServer& comeBack(Behaviour behaviour) {
    server_ = std::make_unique<FaultServer>(port_);
    server_->on("/film", std::move(behaviour));
    return *server_;
  }
  FaultServer& server() { return *server_; }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/film"; }

 private:
  std::unique_ptr<FaultServer> server_;
  const int port_;
};

// The outage reports of a reader.
class Told {
 public:
  SourceReader::OutageObserver observer() {
    return [this](const SourceOutage& outage) {
      const std::lock_guard<std::mutex> guard(lock_);
      all_.push_back(outage);
      changed_.notify_all();
    };
  }
  bool waitFor(size_t count) {
    std::unique_lock<std::mutex> held(lock_);
    return changed_.wait_for(held, support::patienceOf(30), [&] { return all_.size() >= count; });
  }
  std::vector<SourceOutage> all() {
    const std::lock_guard<std::mutex> guard(lock_);
    return all_;
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  std::vector<SourceOutage> all_;
};

// Reads [from, to) in steps and compares. Returns the result of the last read.
Outcome readOn(SourceReader& reader, long long from, long long to) {
  for (long long at = from; at < to; at += kStep) {
    SourceReader::Piece piece;
    const auto size = static_cast<unsigned int>(std::min(kStep, to - at));
    const Outcome outcome = reader.read(at, size, &piece);
    if (outcome != Outcome::kDone) return outcome;
    EXPECT_EQ(piece.size, size) << "at " << at;
    EXPECT_EQ(
        support::firstDifference(static_cast<unsigned long long>(at), piece.data.get(), piece.size),
        -1)
        << "at " << at;
  }
  return Outcome::kDone;
}

SourceSettings withSmallBuffer() {
  SourceSettings settings;
  settings.bufferSize = 8 * FVFR_BUFFER_BLOCK;
  return settings;
}

TEST(SourceOutage, ReadGoesOnWhereItWasWhenTheServerIsBack) {
  Comes comes(support::serveRanges(kSize));
  Told told;
  SourceReader reader(comes.url(), withSmallBuffer(), told.observer());
  ASSERT_EQ(readOn(reader, 0, 10 * kStep), Outcome::kDone);
  comes.go();
  auto reading = std::async(std::launch::async, [&] { return readOn(reader, 10 * kStep, kSize); });
  ASSERT_TRUE(told.waitFor(3)) << "at once, after 0.5 and after 1 second";
  FaultServer& server = comes.comeBack(support::serveRanges(kSize));
  EXPECT_EQ(reading.get(), Outcome::kDone) << reader.explanation();
  const std::vector<SourceOutage> all = told.all();
  EXPECT_TRUE(all[0].waits);
  EXPECT_EQ(all[0].why, "the server refuses the connection");
  EXPECT_EQ(all[0].milliseconds, 0);
  EXPECT_EQ(all[1].milliseconds, 500);
  EXPECT_EQ(all[2].milliseconds, 1000);
  EXPECT_FALSE(all.back().waits);
  EXPECT_EQ(all.back().offset, all[0].offset);
  EXPECT_EQ(server.requests("/film").at(0).raw.find('#'), std::string::npos);
}

TEST(SourceOutage, SettingsReachTheServerAgain) {
  FaultServer server;
  server.on("/film", support::inTurn({support::answerStatus(503), support::serveRanges(kSize)}));
  SourceSettings settings;
  settings.cookie = "a=b";
  SourceReader reader(server.url("/film"), settings);
  EXPECT_EQ(readOn(reader, 0, kSize), Outcome::kDone) << reader.explanation();
  EXPECT_EQ(server.requests("/film").at(1).header("Cookie"), "a=b");
  EXPECT_EQ(reader.facts().size, kSize);
  EXPECT_TRUE(reader.facts().seekable);
}

TEST(SourceOutage, StatusesThatPassAreBorneAndOthersAreNot) {
  for (const int status : {408, 429, 500, 503}) {
    FaultServer server;
    server.on("/film",
              support::inTurn({support::answerStatus(status), support::serveRanges(200000)}));
    SourceReader reader(server.url("/film"), SourceSettings());
    EXPECT_EQ(readOn(reader, 0, 200000), Outcome::kDone) << status;
  }
  for (const int status : {401, 403, 404, 410}) {
    FaultServer server;
    server.on("/film",
              support::inTurn({support::answerStatus(status), support::serveRanges(200000)}));
    Told told;
    SourceReader reader(server.url("/film"), SourceSettings(), told.observer());
    EXPECT_EQ(readOn(reader, 0, 200000), Outcome::kFailed) << status;
    EXPECT_TRUE(told.all().empty()) << status;
  }
}

TEST(SourceOutage, WithoutSecondsNothingIsTriedAgain) {
  Comes comes(support::serveRanges(kSize));
  SourceSettings settings = withSmallBuffer();
  settings.reopen = 0;
  Told told;
  SourceReader reader(comes.url(), settings, told.observer());
  ASSERT_EQ(readOn(reader, 0, kStep), Outcome::kDone);
  comes.go();
  EXPECT_EQ(readOn(reader, kStep, kSize), Outcome::kFailed);
  EXPECT_TRUE(told.all().empty());
  EXPECT_EQ(reader.failure(), SourceFailure::kNotAvailable) << reader.explanation();
}

TEST(SourceOutage, EndsWhenItsSecondsAreOver) {
  Comes comes(support::serveRanges(kSize));
  SourceSettings settings = withSmallBuffer();
  settings.reopen = 1;
  Told told;
  SourceReader reader(comes.url(), settings, told.observer());
  ASSERT_EQ(readOn(reader, 0, kStep), Outcome::kDone);
  comes.go();
  EXPECT_EQ(readOn(reader, kStep, kSize), Outcome::kFailed);
  EXPECT_FALSE(told.all().empty());
  EXPECT_NE(reader.explanation().find("refuses"), std::string::npos) << reader.explanation();
}

// Bytes of another resource must never be returned as those of the first.
TEST(SourceOutage, ChangedResourceIsAnErrorForGood) {
  const std::string video = "Content-Type: video/mp4\r\n";
  const std::string page = "Content-Type: text/html\r\n";
  for (const bool longer : {true, false}) {
    Comes comes(support::serveRanges(kSize, video));
    Told told;
    SourceReader reader(comes.url(), withSmallBuffer(), told.observer());
    ASSERT_EQ(readOn(reader, 0, kStep), Outcome::kDone);
    comes.go();
    auto reading = std::async(std::launch::async, [&] { return readOn(reader, kStep, kSize); });
    ASSERT_TRUE(told.waitFor(2));
    FaultServer& server = comes.comeBack(longer ? support::serveRanges(kSize + 1, video)
                                                : support::serveRanges(kSize, page));
    server.setBase("/film", 77);
    EXPECT_EQ(reading.get(), Outcome::kFailed);
    EXPECT_NE(reader.explanation().find("the resource has changed"), std::string::npos)
        << reader.explanation();
    EXPECT_EQ(readOn(reader, 0, kStep), Outcome::kFailed);
  }
}

// The library itself connects again, before the reader knows of an outage.
TEST(SourceOutage, ServerThatRefusesTheOffsetHasAnotherResource) {
  FaultServer server;
  server.on("/film",
            support::inTurn({support::dropAfter(kSize, kSize / 2), support::answerStatus(416)}));
  Told told;
  SourceReader reader(server.url("/film"), withSmallBuffer(), told.observer());
  EXPECT_EQ(readOn(reader, 0, kSize), Outcome::kFailed);
  EXPECT_NE(reader.explanation().find("the resource has changed"), std::string::npos)
      << reader.explanation();
  EXPECT_TRUE(told.all().empty());
}

// Takes the fastest of a few: the machine may be busy.
TEST(SourceOutage, InterruptEndsTheWaitWithin50Milliseconds) {
  double best = 1e9;
  for (int i = 0; i < 5 && best >= 0.05; ++i) {
    Comes comes(support::serveRanges(kSize));
    Told told;
    SourceReader reader(comes.url(), withSmallBuffer(), told.observer());
    ASSERT_EQ(readOn(reader, 0, kStep), Outcome::kDone);
    comes.go();
    auto reading = std::async(std::launch::async, [&] { return readOn(reader, kStep, kSize); });
    ASSERT_TRUE(told.waitFor(3));
    const support::Stopwatch watch;
    reader.interrupt();
    const Outcome outcome = reading.get();
    best = std::min(best, watch.seconds());
    EXPECT_EQ(outcome, Outcome::kInterrupted);
    comes.comeBack(support::serveRanges(kSize));
    reader.resume();
    EXPECT_EQ(readOn(reader, 3 * kStep, kSize), Outcome::kDone) << "at once, at another place";
  }
  EXPECT_LT(best, 0.05);
}

TEST(SourceOutage, ReaderGoesWhileItWaits) {
  Comes comes(support::serveRanges(kSize));
  Told told;
  auto reader = std::make_unique<SourceReader>(comes.url(), withSmallBuffer(), told.observer());
  ASSERT_EQ(readOn(*reader, 0, kStep), Outcome::kDone);
  comes.go();
  auto reading = std::async(std::launch::async, [&] { return readOn(*reader, kStep, kSize); });
  ASSERT_TRUE(told.waitFor(3));
  reader->interrupt();
  EXPECT_EQ(reading.get(), Outcome::kInterrupted);
  reader.reset();
  comes.comeBack(support::serveRanges(kSize));
  SourceReader next(comes.url(), SourceSettings());
  ASSERT_TRUE(next.waitForFacts(kLong).known) << "the name is alive";
  EXPECT_EQ(readOn(next, 0, kSize), Outcome::kDone);
}

// More than the library would skip.
TEST(SourceOutage, StreamThatCannotSeekGoesOnToo) {
  FaultServer server;
  server.on("/live", support::inTurn({support::cutChunk(kSize, 2500000), support::answerStatus(503),
                                      support::serveChunked(kSize)}));
  Told told;
  SourceReader reader(server.url("/live"), SourceSettings(), told.observer());
  EXPECT_EQ(readOn(reader, 0, kSize), Outcome::kDone) << reader.explanation();
  EXPECT_GE(told.all().size(), 2u);
}

// A failed stream that another reader keeps open is shared by every open of its name.
TEST(SourceOutage, ReadersOfOneNameComeBackTogether) {
  Comes comes(support::serveRanges(kSize));
  Told told;
  SourceReader one(comes.url(), withSmallBuffer(), told.observer());
  ASSERT_EQ(readOn(one, 0, kStep), Outcome::kDone);
  SourceReader other(comes.url(), withSmallBuffer());
  ASSERT_EQ(readOn(other, 0, kStep), Outcome::kDone);
  comes.go();
  auto reading = std::async(std::launch::async, [&] { return readOn(one, kStep, kSize); });
  ASSERT_TRUE(told.waitFor(2));
  comes.comeBack(support::serveRanges(kSize));
  EXPECT_EQ(reading.get(), Outcome::kDone) << one.explanation();
  EXPECT_EQ(readOn(other, kStep, kSize), Outcome::kDone) << other.explanation();
}

}  // namespace
