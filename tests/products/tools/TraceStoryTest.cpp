#include <curl/curl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "ConnectionEnd.h"
#include "PageText.h"
#include "TraceStory.h"
#include "tests/products/tools/TraceLog.h"
#include "tests/support/QueueProbe.h"
#include "webs/TransferResult.h"

namespace {

using support::captured;
using support::kFilm;
using support::kSound;
using support::Log;
using support::Traced;
using tools::Connection;
using tools::Happening;
using tools::Lane;
using tools::Wait;

constexpr bool areSame(int ours, int real) { return ours == real; }
static_assert(areSame(tools::RUN_STALLED, webs::TRANSFER_STALLED), "the library's");
static_assert(areSame(tools::RUN_BROKEN, webs::TRANSFER_BROKEN), "the library's");
static_assert(areSame(tools::RUN_COMPLETE, webs::TRANSFER_OK), "the library's");
static_assert(areSame(tools::RUN_UNKNOWN_HOST, webs::TRANSFER_UNKNOWN_HOST), "the library's");
static_assert(areSame(tools::RUN_NOT_CONNECTED, webs::TRANSFER_NOT_CONNECTED), "the library's");
static_assert(areSame(tools::RUN_PARTIAL, webs::TRANSFER_PARTIAL), "the library's");
static_assert(areSame(tools::RUN_WRITE_REFUSED, webs::TRANSFER_WRITE_REFUSED), "the library's");
static_assert(areSame(tools::RUN_TIMED_OUT, webs::TRANSFER_TIMED_OUT), "the library's");
static_assert(areSame(tools::RUN_ABORTED, webs::TRANSFER_ABORTED), "the library's");
static_assert(areSame(tools::RUN_FIRST_ERROR_STATUS, webs::FIRST_ERROR_STATUS), "the library's");
static_assert(areSame(tools::RUN_TLS_REFUSED, CURLE_SSL_CONNECT_ERROR), "libcurl's");
static_assert(areSame(tools::RUN_REDIRECTED_TOO_OFTEN, CURLE_TOO_MANY_REDIRECTS), "libcurl's");
static_assert(areSame(tools::RUN_NO_ANSWER, CURLE_GOT_NOTHING), "libcurl's");
static_assert(areSame(tools::RUN_NOT_SENT, CURLE_SEND_ERROR), "libcurl's");
static_assert(areSame(tools::RUN_NOT_RECEIVED, CURLE_RECV_ERROR), "libcurl's");
static_assert(areSame(tools::RUN_NOT_TRUSTED, CURLE_PEER_FAILED_VERIFICATION), "libcurl's");
static_assert(tools::kReadAheadMargin == util::BufferQueueProbe::kReadAheadMargin,
              "a wait is for another connection where the library starts one");

bool happened(const Lane& lane, Happening::Kind kind, const std::string& text) {
  return std::any_of(
      lane.happenings().begin(), lane.happenings().end(),
      [&](const Happening& happening) { return happening.kind == kind && happening.text == text; });
}

// A real log: the server cuts the first connection at 70000 and is silent for 0.4 s in the second.
TEST(TraceStory, CapturedLogTellsOfTheCutAndTheSilence) {
  const Traced traced(captured("cut.log"));
  ASSERT_EQ(traced.story.lanes().size(), 1u);
  const Lane& lane = traced.lane();
  EXPECT_EQ(lane.name(), "http://127.0.0.1:18233/film.ts");
  EXPECT_EQ(lane.size(), 120000);
  ASSERT_EQ(lane.connections().size(), 2u);
  const Connection& first = lane.connections()[0];
  EXPECT_FALSE(first.ranged);
  EXPECT_EQ(first.status, 200);
  EXPECT_EQ(first.got, 70000);
  EXPECT_EQ(first.code, 18);
  EXPECT_EQ(first.outcome, Connection::Outcome::kFailed);
  EXPECT_EQ(first.event, 3);
  const Connection& second = lane.connections()[1];
  EXPECT_TRUE(second.ranged);
  EXPECT_EQ(second.from, 70000);
  EXPECT_EQ(second.status, 206);
  EXPECT_EQ(second.got, 50000);
  EXPECT_EQ(second.outcome, Connection::Outcome::kEndedByUs);
  EXPECT_EQ(second.address, "127.0.0.1");
  const auto longest = std::max_element(
      lane.waits().begin(), lane.waits().end(),
      [](const Wait& one, const Wait& other) { return one.waited < other.waited; });
  ASSERT_NE(longest, lane.waits().end());
  EXPECT_GT(longest->waited, 0.39);
  EXPECT_LT(longest->waited, 0.42);
  EXPECT_GT(longest->shares[Wait::kSilent], 0.3);
  ASSERT_EQ(lane.readers().size(), 1u);
  const auto& positions = lane.readers()[0].positions.points();
  ASSERT_GE(positions.size(), 2u);
  EXPECT_EQ(positions[positions.size() - 2].value, 120000) << "where it was when it was closed";
  EXPECT_TRUE(traced.story.hasTracing());
  EXPECT_TRUE(traced.story.hasDumps());
}

// Cut anywhere: an earlier end changes nothing before it.
TEST(TraceStory, CapturedLogMayBeCutAnywhere) {
  const std::string log = captured("cut.log");
  for (size_t size = 0; size < log.size(); size += 997) {
    const Traced traced(log.substr(0, size));
    for (const Lane& lane : traced.story.lanes()) {
      EXPECT_LE(lane.connections().size(), 2u);
      for (const Connection& connection : lane.connections()) EXPECT_LE(connection.got, 70000);
    }
    const Traced end(log.substr(size));
    EXPECT_FALSE(end.page().empty());
  }
}

TEST(TraceStory, HandlesOfOneNameShareALane) {
  Log log;
  log.open(0, 10, kFilm, 1).open(1, 11, kFilm, 2).open(2, 11, kSound, 3);
  log.beginRead(5, 10, 1, 0).beginRead(6, 11, 2, 1000);
  log.endRead(8, 11, 100, 1100).endRead(9, 10, 50, 50);
  log.beginRead(10, 11, 3, 7).endRead(11, 11, 1, 8);
  const Traced traced(log);
  ASSERT_EQ(traced.story.lanes().size(), 2u);
  ASSERT_EQ(traced.lane(0).readers().size(), 2u);
  EXPECT_EQ(traced.lane(0).readers()[0].position, 50);
  EXPECT_EQ(traced.lane(0).readers()[1].position, 1100);
  EXPECT_EQ(traced.lane(1).readers()[0].position, 8);
}

TEST(TraceStory, WorkerThreadsAreKnownByWhatTheyFetch) {
  Log log;
  log.open(0, 10, kFilm, 1).open(0, 10, kSound, 2);
  log.connect(1, 20, kFilm, 0).connect(1, 21, kSound, 0);
  log.data(2, 20, 0, 0, 100).data(3, 21, 0, 0, 7).data(4, 20, 0, 0, 200);
  log.disconnect(9, 21, 0, 200);
  const Traced traced(log);
  EXPECT_EQ(traced.lane(0).connections()[0].got, 300);
  EXPECT_EQ(traced.lane(0).connections()[0].outcome, Connection::Outcome::kRunning);
  EXPECT_EQ(traced.lane(1).connections()[0].got, 7);
  EXPECT_EQ(traced.lane(1).connections()[0].outcome, Connection::Outcome::kComplete);
  EXPECT_EQ(traced.lane(0).heads().points().back().value, 200);
}

TEST(TraceStory, HeldIsWhatTheBlocksHold) {
  Log log;
  log.open(0, 10, kFilm, 1).connect(1, 20, kFilm, 0);
  log.stored(2, 20, 0, 0, 32768).stored(3, 20, 1, 32768, 100);
  log.line(5, 20, "streamIn", "new block 0 begin from 65536");
  log.line(6, 20, "streamIn", "wtblock:0, usedSize:50, rdTail block:1");
  const Traced traced(log);
  const auto& columns = traced.lane().holdings().columns();
  ASSERT_GE(columns.size(), 4u);
  ASSERT_EQ(columns[1].held.size(), 1u) << "neighbours are one stretch";
  EXPECT_EQ(columns[1].held[0].end, 32868);
  EXPECT_EQ(columns[2].held[0].begin, 32768) << "a block that is used again has lost what it held";
  ASSERT_EQ(columns[3].held.size(), 2u);
  EXPECT_EQ(columns[3].held[1].begin, 65536);
  EXPECT_EQ(columns[3].held[1].end, 65586);
}

TEST(TraceStory, DumpCorrectsWhatIsHeld) {
  Log log;
  log.open(0, 10, kFilm, 1).connect(1, 20, kFilm, 0);
  log.stored(2, 20, 0, 0, 32768).stored(2, 20, 1, 32768, 32768);
  log.line(3, 20, "dumpBuffer", "begin to dump buffer");
  log.line(3, 20, "dumpBuffer", "------------------------------");
  log.line(3, 20, "dumpBuffer", "readOffset=0, read:0, read id=0, wtHead id=2, wtHead:98304");
  log.line(3, 20, "dumpBuffer", "s  2:     98304 ~     98400");
  log.line(3, 20, "dumpBuffer", "------------------------------");
  const Traced traced(log);
  const auto& held = traced.lane().holdings().columns().back().held;
  ASSERT_EQ(held.size(), 2u) << "block 1 is not in the dump, block 0 need not be";
  EXPECT_EQ(held[0].end, 32768);
  EXPECT_EQ(held[1].begin, 98304);
  EXPECT_EQ(held[1].end, 98400);
}

// Counts the work and not the time: 25 MB of such a log took minutes.
TEST(TraceStory, WorkOfALineDoesNotGrowWithTheBlocks) {
  constexpr int kStored = 20000;
  Log log;
  log.open(0, 10, kFilm, 1).connect(0, 20, kFilm, 0);
  for (int i = 0; i < kStored; ++i) log.stored(1 + i, 20, i % 4096, i * 65536LL, 32768);
  const Traced traced(log);
  EXPECT_LE(traced.lane().blocks().looks(), 20LL * kStored);
  EXPECT_LE(traced.lane().holdings().columns().back().held.size(), 12u);
}

TEST(TraceStory, WaitHasItsReasonFromTheConnection) {
  Log log;
  log.open(0, 10, kFilm, 1).beginRead(0, 10, 1, 0).wait(0, 10, 0);
  log.connect(100, 20, kFilm, 0).data(400, 20, 0, 0, 10).data(450, 20, 0, 0, 20);
  log.data(1450, 20, 0, 0, 30).wake(1500, 10).endRead(1500, 10, 30, 30);
  const Traced traced(log);
  ASSERT_EQ(traced.lane().waits().size(), 1u);
  const Wait& wait = traced.lane().waits()[0];
  EXPECT_NEAR(wait.waited, 1.5, 1e-9);
  EXPECT_NEAR(wait.shares[Wait::kNoConnection], 0.1, 1e-9);
  EXPECT_NEAR(wait.shares[Wait::kNoAnswer], 0.3, 1e-9);
  EXPECT_NEAR(wait.shares[Wait::kFlowing], 0.1, 1e-9);
  EXPECT_NEAR(wait.shares[Wait::kSilent], 1.0, 1e-9);
  EXPECT_EQ(tools::whyWaited(traced.lane(), wait),
            "the connection was silent; for 300 ms the server had not answered yet");
  EXPECT_EQ(tools::whyWaitedShortly(wait), "server silent");
}

TEST(TraceStory, WaitAheadOfTheMarginIsForAnotherConnection) {
  Log log;
  log.open(0, 10, kFilm, 1).connect(0, 20, kFilm, 0).data(1, 20, 0, 0, 10);
  log.beginRead(10, 10, 1, 200000).wait(10, 10, 200000).data(110, 20, 0, 0, 20).wake(110, 10);
  log.endRead(110, 10, 10, 200010);
  const Traced traced(log);
  ASSERT_EQ(traced.lane().waits().size(), 1u);
  EXPECT_NEAR(traced.lane().waits()[0].shares[Wait::kElsewhere], 0.1, 1e-9);
}

TEST(TraceStory, WaitAfterASeekSaysSo) {
  Log log;
  log.open(0, 10, kFilm, 1).connect(0, 20, kFilm, 0).data(1, 20, 0, 0, 10);
  log.line(10, 10, "x_fluvia_file_seek", "x_fluvia_file_seek begin(handle: 1, offset: 9000000)");
  log.line(10, 10, "x_fluvia_file_seek", "x_fluvia_file_seek end(curOffset: 9000000)");
  log.beginRead(10, 10, 1, 9000000).wait(10, 10, 9000000);
  log.data(100, 20, 0, 0, 20).disconnect(110, 20, 23, 206).connect(110, 20, kFilm, 9000000);
  log.data(150, 20, 1, 9000000, 10).wake(150, 10).endRead(150, 10, 10, 9000010);
  const Traced traced(log);
  ASSERT_EQ(traced.lane().waits().size(), 1u);
  const Wait& wait = traced.lane().waits()[0];
  EXPECT_TRUE(wait.afterSeek);
  EXPECT_EQ(wait.endedConnection, 0);
  EXPECT_NEAR(wait.shares[Wait::kElsewhere], 0.1, 1e-9)
      << "the first connection brought other bytes";
  EXPECT_NEAR(wait.shares[Wait::kNoAnswer], 0.04, 1e-9);
  EXPECT_TRUE(happened(traced.lane(), Happening::Kind::kSeek, "seek from 0 to 9000000"));
}

TEST(TraceStory, NearWaitsAreOneAndFarOnesAreNot) {
  Log log;
  log.open(0, 10, kFilm, 1).beginRead(0, 10, 1, 0);
  log.wait(0, 10, 0).wake(10, 10).wait(12, 10, 1).wake(20, 10);
  log.wait(100, 10, 2).wake(110, 10);
  log.wait(125, 10, 2).wake(126, 10);
  const Traced traced(log);
  ASSERT_EQ(traced.lane().waits().size(), 3u);
  EXPECT_NEAR(traced.lane().waits()[0].waited, 0.018, 1e-9);
  EXPECT_NEAR(traced.lane().waits()[0].end, 0.020, 1e-9);
  EXPECT_NEAR(traced.lane().waits()[2].begin, 0.125, 1e-9) << "a longer gap than both waits";
}

TEST(TraceStory, AsynchronousReadIsTheOldestOfItsSize) {
  Log log;
  log.open(0, 10, kFilm, 1).open(0, 10, kSound, 2);
  const std::string issue = "x_fluvia_file_read_async";
  log.line(1, 10, issue, "before x_fluvia_file_read_async(handle: 2, size: 512)");
  log.line(1, 10, issue, "end x_fluvia_file_read_async(reqID: 1)");
  log.line(1, 10, issue, "before x_fluvia_file_read_async(handle: 1, size: 512)");
  log.line(2, 30, "perform", "(((((((((((( request count :512: & buffer is: 0x1))))))))))))");
  log.line(2, 30, "read", "seek:  1 , offset =100, curOffset = 100");
  log.line(3, 31, "perform", "(((((((((((( request count :512: & buffer is: 0x2))))))))))))");
  log.line(3, 31, "read", "seek:  1 , offset =0, curOffset = 0");
  log.line(4, 31, "read", "readcount:512, readoffset:512, filesize:0");
  log.line(4, 10, issue, "end x_fluvia_file_read_async(reqID: 2)");
  log.line(5, 31, "perform", "async read 2 ok in perform ((((((()))))))");
  log.line(5, 30, "read", "readcount:12, readoffset:112, filesize:0");
  log.line(5, 30, "perform", "async read 1 ok in perform ((((((()))))))");
  const Traced traced(log);
  EXPECT_EQ(traced.lane(0).readers()[0].position, 512);
  EXPECT_EQ(traced.lane(1).readers()[0].position, 112);
}

TEST(TraceStory, WriterIsHeldBackWhileTheBufferIsFull) {
  Log log;
  log.open(0, 10, kFilm, 1).connect(0, 20, kFilm, 0).data(1, 20, 0, 0, 10);
  log.line(100, 20, "streamIn", "wait in streamIn")
      .line(600, 20, "streamIn", "wake up  in streamIn");
  log.line(800, 20, "streamIn", "wait in streamIn").disconnect(900, 20, 23, 200);
  const Traced traced(log);
  EXPECT_NEAR(traced.lane().connections()[0].heldBack, 0.6, 1e-9);
  ASSERT_EQ(traced.lane().pauses().size(), 2u);
  EXPECT_NEAR(traced.lane().pauses()[0].end, 0.6, 1e-9);
}

// The library aborts a silent connection after its limit, or earlier for a reader that was aborted.
TEST(TraceStory, TellsWhoGaveASilentConnectionUp) {
  Log log;
  log.open(0, 10, kFilm, 1).connect(0, 20, kFilm, 0);
  log.disconnect(2000, 20, 42, 200).line(2000, 20, "sendRequest", "errorCode:-1");
  log.connect(2001, 20, kFilm, 0);
  log.disconnect(12000, 20, 42, 200).line(12000, 20, "sendRequest", "errorCode:-2");
  const Traced traced(log);
  const auto& connections = traced.lane().connections();
  ASSERT_EQ(connections.size(), 2u);
  EXPECT_EQ(connections[0].outcome, Connection::Outcome::kFailed);
  EXPECT_EQ(tools::shownEnd(connections[0]),
            "given up by the library: a reader was broken off, the server was silent, libcurl 42");
  EXPECT_EQ(connections[1].outcome, Connection::Outcome::kFailed);
  EXPECT_EQ(tools::shownEnd(connections[1]),
            "given up by the library: the server was silent, libcurl 42");
}

TEST(TraceStory, GivenUpConnectionsAndErrorsAreProblems) {
  Log log;
  log.open(0, 10, kFilm, 1).beginRead(0, 10, 1, 0).connect(0, 20, kFilm, 0);
  log.disconnect(4000, 20, 42, 200).line(4000, 20, "sendRequest", "errorCode:-2");
  log.line(4000, 20, "notifyStreamException", "stream event 4");
  log.line(4000, 20, "notifyStreamException", "reset stream cause of timeout");
  log.connect(4001, 20, kFilm, 0).disconnect(4100, 20, 0, 404);
  log.line(4100, 20, "notifyStreamException", "File not found");
  log.endRead(4200, 10, 0, 0, -4);
  const Traced traced(log);
  const auto& connections = traced.lane().connections();
  ASSERT_EQ(connections.size(), 2u);
  EXPECT_EQ(connections[0].outcome, Connection::Outcome::kFailed);
  EXPECT_EQ(tools::shownEnd(connections[0]),
            "given up by the library: the server was silent, libcurl 42");
  EXPECT_EQ(connections[0].event, 4);
  EXPECT_EQ(connections[1].outcome, Connection::Outcome::kFailed) << "an error page is no content";
  EXPECT_TRUE(happened(traced.lane(), Happening::Kind::kRestart, "reset stream cause of timeout"));
  EXPECT_TRUE(happened(traced.lane(), Happening::Kind::kProblem, "File not found"));
  EXPECT_TRUE(happened(traced.lane(), Happening::Kind::kProblem, "a read gave -4"));
}

TEST(TraceStory, BytesOfLocalFilesBelongToTheOnlyOne) {
  Log one;
  one.open(0, 10, "/film.ts", 1);
  one.line(1, 20, "perform", "local read begin version: 0, count:0, ");
  one.stored(2, 20, 0, 0, 500)
      .line(3, 20, "perform", "LocalFileRequest::perform finished, count:0");
  const Traced alone(one);
  ASSERT_EQ(alone.lane().connections().size(), 1u);
  EXPECT_EQ(alone.lane().connections()[0].outcome, Connection::Outcome::kComplete);
  EXPECT_EQ(alone.lane().heads().points().back().value, 500);

  Log two;
  two.open(0, 10, "/film.ts", 1).open(0, 10, "/sound.ts", 2).stored(2, 20, 0, 0, 500);
  const Traced both(two);
  EXPECT_TRUE(both.lane(0).heads().points().empty()) << "nobody can tell which it is";
  EXPECT_TRUE(both.lane(1).heads().points().empty());
  EXPECT_EQ(both.story.homeless(), 1);
}

TEST(TraceStory, AnotherProcessBehindTheFirstBeginsAnew) {
  Log log;
  log.open(5000, 10, kFilm, 1).connect(5000, 20, kFilm, 0).data(6000, 20, 0, 0, 10);
  log.open(0, 10, kFilm, 1).beginRead(10, 10, 1, 0).endRead(20, 10, 5, 5);
  const Traced traced(log);
  ASSERT_EQ(traced.story.lanes().size(), 1u);
  EXPECT_NEAR(traced.story.duration(), 1 + 1 + 0.02, 1e-9) << "a second apart";
  EXPECT_EQ(traced.lane().readers()[0].position, 5);
  EXPECT_TRUE(happened(traced.lane(), Happening::Kind::kNote,
                       "another run of a program begins in the log"));
}

TEST(TraceStory, ErrorsOnlyStillShowTheConnections) {
  Log log;
  log.line(0, 20, "executeGet",
           "handle:0x1, PFFFF begin to perform(url: http://h/film.ts, start: 0, end: 99)");
  log.disconnect(50, 20, 7, 0);
  const Traced traced(log);
  ASSERT_EQ(traced.story.lanes().size(), 1u);
  EXPECT_EQ(tools::shownRange(traced.lane().connections()[0]), "0-99");
  EXPECT_EQ(tools::shownEnd(traced.lane().connections()[0]), "cannot connect, libcurl 7");
  EXPECT_NE(traced.page().find("no lines of level 2"), std::string::npos);
}

}  // namespace
