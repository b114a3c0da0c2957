// The element's reader, without GStreamer.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "PausePoint.h"
#include "SourceReader.h"
#include "SourceThreads.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Pattern.h"
#include "tests/support/Pauses.h"
#include "tests/support/QueueProbe.h"
#include "tests/support/SlowLink.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "util/PausePoint.h"

#if defined(FLUVIA_PAUSE_POINTS)
// The pause points of the element's reader are held like those of the library.
extern "C" void fluvia_src_pause_point(const char* name) { util::pausePoint(name); }
#endif

namespace {

static_assert(SourceReader::kReadAheadMargin == util::BufferQueueProbe::kReadAheadMargin,
              "the element knows which seeks ask the server anew");

using support::FaultServer;
using Outcome = SourceReader::Outcome;

constexpr int kLong = 30000;

::testing::AssertionResult readsPattern(SourceReader& reader, long long offset, unsigned int size) {
  SourceReader::Piece piece;
  const Outcome outcome = reader.read(offset, size, &piece);
  if (outcome != Outcome::kDone) {
    return ::testing::AssertionFailure()
           << "outcome " << static_cast<int>(outcome) << ": " << reader.explanation();
  }
  if (piece.size != size) return ::testing::AssertionFailure() << piece.size << " bytes";
  const long long at = support::firstDifference(static_cast<unsigned long long>(offset),
                                                piece.data.get(), piece.size);
  if (at < 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "byte " << at << " is wrong";
}

TEST(SourceReader, ReadsAFileAnywhere) {
  const support::TemporaryFolder folder;
  SourceReader reader(folder.makePattern("file", 3000000), SourceSettings());
  const SourceFacts facts = reader.waitForFacts(kLong);
  EXPECT_TRUE(facts.known && !facts.failed && facts.seekable);
  EXPECT_EQ(facts.size, 3000000);
  EXPECT_TRUE(readsPattern(reader, 0, 65536));
  EXPECT_TRUE(readsPattern(reader, 2900000, 100000));
  EXPECT_TRUE(readsPattern(reader, 10, 5));
  SourceReader::Piece piece;
  EXPECT_EQ(reader.read(2999990, 100, &piece), Outcome::kDone);
  EXPECT_EQ(piece.size, 10u);
  EXPECT_EQ(reader.read(3000000, 100, &piece), Outcome::kEnd);
}

TEST(SourceReader, KnowsAStreamThatCannotSeek) {
  FaultServer server;
  server.on("/live", support::serveUntilClose(500000));
  SourceReader reader(server.url("/live"), SourceSettings());
  const SourceFacts facts = reader.waitForFacts(kLong);
  EXPECT_TRUE(facts.known && !facts.failed);
  EXPECT_FALSE(facts.seekable);
  for (long long at = 0; at < 500000; at += 50000) ASSERT_TRUE(readsPattern(reader, at, 50000));
}

TEST(SourceReader, EmptyFileEndsAtOnce) {
  const support::TemporaryFolder folder;
  SourceReader reader(folder.makePattern("empty", 0), SourceSettings());
  EXPECT_FALSE(reader.waitForFacts(kLong).failed);
  EXPECT_EQ(reader.facts().size, 0);
  SourceReader::Piece piece;
  EXPECT_EQ(reader.read(0, 100, &piece), Outcome::kEnd);
}

// Of a block that is not full yet; a read of the whole block would wait for it.
TEST(SourceReader, ReadsWhatHasArrived) {
  FaultServer server;
  server.on("/stalls", support::stallAfter(1000000, 20000));
  SourceReader reader(server.url("/stalls"), SourceSettings());
  long long at = 0;
  while (at < 20000) {
    SourceReader::Piece piece;
    ASSERT_EQ(reader.read(at, 1, 65536, &piece), Outcome::kDone);
    ASSERT_GE(piece.size, 1u);
    EXPECT_EQ(
        support::firstDifference(static_cast<unsigned long long>(at), piece.data.get(), piece.size),
        -1);
    at += piece.size;
  }
  EXPECT_EQ(at, 20000);
}

TEST(SourceReader, KnowsWhatTheMediumIs) {
  FaultServer server;
  server.on("/list", support::answerStatus(200, "#EXTM3U\n"));
  server.on("/film", support::serveRanges(100000));
  SourceReader list(server.url("/list"), SourceSettings());
  SourceReader film(server.url("/film"), SourceSettings());
  EXPECT_EQ(static_cast<int>(list.waitForFacts(kLong).medium), static_cast<int>(Medium::kPlaylist));
  EXPECT_EQ(static_cast<int>(film.waitForFacts(kLong).medium), static_cast<int>(Medium::kOther));
}

// A file behind a link of 100 ms and 20 Mbit/s.
class FarFile {
 public:
  FarFile(const std::string& head, size_t size) : bytes_(head) {
    bytes_.resize(size, 'x');
    server_.on("/file", support::serveFile(folder_.makeText("file", bytes_)));
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(link_.port()) + "/file"; }
  int requests() const { return server_.requestCount("/file"); }
  ::testing::AssertionResult isRead(SourceReader& reader, size_t offset, unsigned int size) const {
    SourceReader::Piece piece;
    if (reader.read(static_cast<long long>(offset), size, &piece) != Outcome::kDone) {
      return ::testing::AssertionFailure() << reader.explanation();
    }
    if (bytes_.compare(offset, size, piece.data.get(), piece.size) == 0) {
      return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "wrong bytes at " << offset;
  }

 private:
  std::string bytes_;
  const support::TemporaryFolder folder_;
  FaultServer server_;
  support::SlowLink link_{server_.port(), 100, 2500000};
};

std::string packets(size_t count) {
  std::string made;
  for (size_t i = 0; i < count; ++i) {
    made += std::string("\x47\x01\x00\x10", 4) + std::string(184, static_cast<char>(i));
  }
  return made;
}

// A demuxer looks for the last time stamp in pieces of 300 packets, the last one first.
TEST(SourceReader, LastPiecesOfATransportStreamAreOneRequest) {
  const size_t size = size_t{30000} * 188;
  const FarFile file(packets(30000), size);
  SourceReader reader(file.url(), SourceSettings());
  ASSERT_TRUE(file.isRead(reader, 0, 65536));
  EXPECT_TRUE(file.isRead(reader, size - 56400, 56400));
  EXPECT_TRUE(file.isRead(reader, size - 112800, 56400));
  EXPECT_EQ(file.requests(), 2);
}

std::string box(const std::string& type, const std::string& body) {
  const auto size = static_cast<unsigned char>(body.size() + 8);
  return std::string(3, '\0') + static_cast<char>(size) + type + body;
}

// A demuxer reads the index at the end, and then the beginning on to the second fragment before it
// takes the pictures of the first.
TEST(SourceReader, BeginningOfFragmentsSurvivesTheIndexAtTheEnd) {
  constexpr size_t kSecond = 350000;
  const std::string movie = box("mvhd", std::string(100, 'h')) + box("mvex", std::string(40, 'x'));
  const FarFile file(box("ftyp", "isom") + box("moov", movie), 6000000);
  SourceSettings settings;
  settings.bufferSize = 524288;
  SourceReader reader(file.url(), settings);
  ASSERT_TRUE(file.isRead(reader, 0, 100));
  EXPECT_TRUE(file.isRead(reader, 5999984, 16));
  EXPECT_TRUE(file.isRead(reader, 100, 600));
  EXPECT_EQ(file.requests(), 2);
  EXPECT_TRUE(file.isRead(reader, kSecond, 16));
  EXPECT_TRUE(file.isRead(reader, 700, 163748));
  EXPECT_TRUE(file.isRead(reader, kSecond - 12000, 200));
  EXPECT_EQ(file.requests(), 3);
}

// Otherwise the second reader would share the first one's buffer.
TEST(SourceReader, ReleasedReaderLetsTheNextOneAskTheServer) {
  FaultServer server;
  server.on("/list", support::serveRanges(3000));
  SourceReader first(server.url("/list"), SourceSettings());
  EXPECT_TRUE(readsPattern(first, 0, 3000));
  first.release();
  EXPECT_TRUE(first.isReleased());
  SourceReader second(server.url("/list"), SourceSettings());
  EXPECT_TRUE(readsPattern(second, 0, 3000));
  EXPECT_EQ(server.requestCount("/list"), 2);
  EXPECT_TRUE(readsPattern(first, 1000, 2000)) << "it opens the source again";
  EXPECT_FALSE(first.isReleased());
}

// Without the interrupt the read would fail after the library's own time limit.
TEST(SourceReader, InterruptEndsAReadThatWaits) {
  FaultServer server;
  server.on("/stalls", support::stallAfter(1000000, 100000));
  SourceReader reader(server.url("/stalls"), SourceSettings());
  EXPECT_TRUE(readsPattern(reader, 0, 50000));
  SourceReader::Piece piece;
  Outcome outcome = Outcome::kDone;
  std::thread waiting([&] { outcome = reader.read(50000, 200000, &piece); });
  reader.interrupt();
  waiting.join();
  EXPECT_EQ(outcome, Outcome::kInterrupted);
  EXPECT_EQ(reader.read(0, 100, &piece), Outcome::kInterrupted) << "until it is resumed";
  reader.resume();
  EXPECT_TRUE(readsPattern(reader, 1000, 50000)) << "what is held needs no server";
}

TEST(SourceReader, InterruptEndsTheWaitForFacts) {
  FaultServer server;
  server.on("/silent", support::staySilent());
  SourceReader reader(server.url("/silent"), SourceSettings());
  reader.interrupt();
  EXPECT_FALSE(reader.waitForFacts(kLong).known);
}

TEST(SourceReader, InterruptedReaderLeavesTheOtherOneOfItsResourceAlone) {
  FaultServer server;
  server.on("/drips", support::drip(400000, 20000, 30));
  SourceReader first(server.url("/drips"), SourceSettings());
  SourceReader second(server.url("/drips"), SourceSettings());
  std::thread breaking([&first] {
    SourceReader::Piece piece;
    for (int i = 0; i < 40; ++i) {
      std::thread waiting([&] { first.read(0, 300000, &piece); });
      first.interrupt();
      waiting.join();
      first.resume();
    }
  });
  for (long long at = 0; at < 400000; at += 40000) EXPECT_TRUE(readsPattern(second, at, 40000));
  breaking.join();
}

TEST(SourceReader, EveryFailureHasItsTextAndKind) {
  FaultServer server;
  server.on("/forbidden", support::answerStatus(403));
  const std::string nobody = "http://127.0.0.1:" + std::to_string(support::closedPort()) + "/film";
  const struct {
    std::string name;
    SourceFailure kind;
    std::string text;
    int status;
  } cases[] = {
      {server.url("/missing"), SourceFailure::kNotFound, "the server answered 404", 404},
      {server.url("/forbidden"), SourceFailure::kNotAuthorized, "the server answered 403", 403},
      {nobody, SourceFailure::kNotAvailable, "the server refuses the connection", 0},
      {"/nowhere/film.ts", SourceFailure::kNotFound, "No such file or directory", 0},
      {"/tmp", SourceFailure::kNotAvailable, "only regular files", 0},
  };
  SourceSettings settings;
  settings.reopen = 0;
  for (const auto& each : cases) {
    SourceReader reader(each.name, settings);
    EXPECT_TRUE(reader.waitForFacts(kLong).failed) << each.name;
    SourceReader::Piece piece;
    EXPECT_EQ(reader.read(0, 10, &piece), Outcome::kFailed) << each.name;
    EXPECT_EQ(reader.failure(), each.kind) << each.name;
    EXPECT_NE(reader.explanation().find(each.text), std::string::npos) << reader.explanation();
    EXPECT_EQ(reader.httpStatus(), each.status) << each.name;
  }
}

TEST(SourceReader, SilentServerIsATimeOut) {
  FaultServer server;
  server.on("/stalls",
            support::inTurn({support::stallAfter(1000000, 100000), support::staySilent()}));
  SourceSettings settings;
  settings.featureFlag = 1;
  settings.reopen = 0;
  SourceReader reader(server.url("/stalls"), settings);
  SourceReader::Piece piece;
  EXPECT_EQ(reader.read(0, 200000, &piece), Outcome::kFailed);
  EXPECT_EQ(reader.failure(), SourceFailure::kTimeout) << reader.explanation();
}

TEST(SourceReader, SettingsReachTheServer) {
  FaultServer server;
  server.on("/film", support::serveRanges(100000));
  SourceSettings settings;
  settings.userAgent = "player/1";
  settings.cookie = "a=b";
  SourceReader reader(server.url("/film"), settings);
  EXPECT_TRUE(readsPattern(reader, 0, 100000));
  EXPECT_EQ(server.requests("/film").at(0).header("User-Agent"), "player/1");
  EXPECT_EQ(server.requests("/film").at(0).header("Cookie"), "a=b");
}

// Reopening a name while its last handle is being closed waits inside the library. So the second
// reader waits for the first one's end on a thread of its own.
TEST(SourceReader, NameIsOpenedAgainAfterItWasClosed) {
  FaultServer server;
  server.on("/film", support::inTurn({support::staySilent(), support::serveRanges(100000)}));
  auto first = std::make_unique<SourceReader>(server.url("/film"), SourceSettings());
  ASSERT_TRUE(server.waitForRequests("/film", 1));
  first.reset();
  SourceReader second(server.url("/film"), SourceSettings());
  EXPECT_TRUE(readsPattern(second, 0, 100000));
}

#if defined(FLUVIA_PAUSE_POINTS)
// A player that was stopped before its source could open the name starts again.
TEST(SourceReader, ReaderThatLeftBeforeItOpenedIsNotWaitedFor) {
  FaultServer server;
  server.on("/film", support::serveRanges(100000));
  support::Pauses pauses;
  pauses.holdAt("SourceReader::run begun");
  auto first = std::make_unique<SourceReader>(server.url("/film"), SourceSettings());
  ASSERT_TRUE(pauses.reached("SourceReader::run begun"));
  first.reset();
  pauses.release("SourceReader::run begun");
  SourceReader second(server.url("/film"), SourceSettings());
  ASSERT_TRUE(second.waitForFacts(kLong).known) << "the name is dead";
  EXPECT_TRUE(readsPattern(second, 0, 100000));
  EXPECT_EQ(server.requestCount("/film"), 1) << "the first one has opened nothing";
}

TEST(SourceReader, ReadersThatLeaveWhileTheyWaitForACloseDoNotWaitForEachOther) {
  FaultServer server;
  server.on("/film", support::serveRanges(100000));
  support::Pauses pauses;
  pauses.holdAt("SourceReader::run before close");
  auto first = std::make_unique<SourceReader>(server.url("/film"), SourceSettings());
  ASSERT_TRUE(first->waitForFacts(kLong).known);
  first.reset();
  ASSERT_TRUE(pauses.reached("SourceReader::run before close"));
  auto second = std::make_unique<SourceReader>(server.url("/film"), SourceSettings());
  auto third = std::make_unique<SourceReader>(server.url("/film"), SourceSettings());
  second.reset();
  third.reset();
  SourceReader fourth(server.url("/film"), SourceSettings());
  EXPECT_FALSE(fourth.waitForFacts(1).known) << "waits for the close of the first";
  pauses.release("SourceReader::run before close");
  ASSERT_TRUE(fourth.waitForFacts(kLong).known) << "the name is dead";
  EXPECT_TRUE(readsPattern(fourth, 0, 100000));
}

// A stop while the worker has not entered its name yet, while it opens, and after its first bytes.
TEST(SourceReader, StartsAndStopsHeldAtEachPauseLeaveNothingBehind) {
  const std::string begun = "SourceReader::run begun";
  const std::string closing = "SourceReader::run before close";
  FaultServer server;
  server.on("/film", support::serveRanges(100000));
  const auto start = [&] {
    return std::make_unique<SourceReader>(server.url("/film"), SourceSettings());
  };
  support::Pauses pauses;
  pauses.holdAt(closing);
  EXPECT_TRUE(readsPattern(*start(), 0, 100000));
  ASSERT_TRUE(pauses.reached(closing));
  const int threadsBefore = support::threadCount();
  const int descriptorsBefore = support::descriptorCount();
  for (int i = 0; i < 100; ++i) {
    pauses.release(closing);
    pauses.holdAt(begun);
    pauses.holdAt(closing);
    auto reader = start();
    ASSERT_TRUE(pauses.reached(begun)) << i;
    if (i % 3 == 0) reader.reset();
    pauses.release(begun);
    if (i % 3 == 1) {
      ASSERT_TRUE(reader->waitForFacts(kLong).known) << i << ": the name is dead";
    }
    reader.reset();
    ASSERT_TRUE(pauses.reached(closing)) << i;
  }
  pauses.release(closing);
  EXPECT_TRUE(readsPattern(*start(), 0, 100000));
  const int threads = threadsBefore + static_cast<int>(SourceThreads::kKept);
  EXPECT_TRUE(support::eventually([&] { return support::threadCount() <= threads; }))
      << support::threadCount() << " threads after " << threadsBefore;
  EXPECT_TRUE(support::eventually([&] { return support::descriptorCount() <= descriptorsBefore; }))
      << support::descriptorCount() << " descriptors after " << descriptorsBefore;
}
#endif

TEST(SourceReader, LevelsTellWhatIsHeld) {
  const support::TemporaryFolder folder;
  SourceReader reader(folder.makePattern("file", 500000), SourceSettings());
  EXPECT_TRUE(readsPattern(reader, 0, 1000));
  EXPECT_TRUE(support::eventually([&] { return reader.levels().buffered == 499000; }));
  EXPECT_EQ(reader.levels().wanted, 499000);
}

// The rest of a stream of unknown length is known once all of it has arrived.
TEST(SourceReader, LevelsEndWithAStreamWithoutALength) {
  FaultServer server;
  server.on("/live", support::serveChunked(500000));
  SourceReader reader(server.url("/live"), SourceSettings());
  EXPECT_TRUE(readsPattern(reader, 0, 1000));
  EXPECT_TRUE(support::eventually([&] { return reader.levels().wanted == 499000; }))
      << reader.levels().wanted;
  EXPECT_EQ(reader.levels().buffered, 499000);
}

}  // namespace
