// A stream that survives the outages of its server.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "api/fluviafs.h"
#include "examples/reopen/fluvia_stream.h"
#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Pattern.h"
#include "tests/support/Watchdog.h"

namespace {

using namespace support;
using Clock = std::chrono::steady_clock;

// More than sockets and the buffer can store, so that a server that goes away still has unsent
// bytes.
constexpr long long kSize = 16000000;

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

// A stream and its notices.
class Streamed {
 public:
  explicit Streamed(const std::string& name, int seconds = FLUVIA_OUTAGE_SECONDS) {
    FluviaStreamSettings settings = FLUVIA_STREAM_SETTINGS;
    settings.seconds = seconds;
    settings.apply = [](int, void* data) {
      auto* self = static_cast<Streamed*>(data);
      ++self->applied;
      if (self->onApply) self->onApply();
    };
    settings.notice = [](FluviaStreamNotice, const char* text, void* data) {
      auto* self = static_cast<Streamed*>(data);
      self->notices.emplace_back(text);
      self->questions = 0;
      ++self->told;
      if (self->onNotice) self->onNotice();
    };
    settings.unwanted = [](void* data) {
      auto* self = static_cast<Streamed*>(data);
      ++self->questions;
      return self->told < self->wantedNotices ? 0 : 1;
    };
    settings.data = this;
    EXPECT_EQ(fluvia_stream_open(&stream, name.c_str(), &settings), FVFR_OK);
  }
  ~Streamed() { fluvia_stream_close(&stream); }
  Streamed(const Streamed&) = delete;
  Streamed& operator=(const Streamed&) = delete;

  // Reads up to the offset to. Returns the result of the last read. Every byte must be the
  // pattern's.
  int readTo(long long to) {
    std::vector<char> bytes(32768);
    int result = FVFR_OK;
    while (result == FVFR_OK && fluvia_stream_position(stream) < to) {
      const long long at = fluvia_stream_position(stream);
      const auto asked = static_cast<unsigned int>(std::min<long long>(32768, to - at));
      unsigned int got = 0;
      result = fluvia_stream_read(stream, bytes.data(), asked, &got);
      EXPECT_EQ(firstDifference(static_cast<unsigned long long>(at), bytes.data(), got), -1)
          << "from " << at;
    }
    return result;
  }

  FluviaStream* stream = nullptr;
  std::vector<std::string> notices;  // used by the reading thread only
  std::atomic<int> told{0};
  std::atomic<int> questions{0};         // whether it is wanted, since the last notice
  std::atomic<int> wantedNotices{1000};  // so many are waited for
  std::function<void()> onNotice;
  std::function<void()> onApply;
  int applied = 0;
};

// A server that can go away and come back at the same address.
class Comes {
 public:
  explicit Comes(Behaviour behaviour) : server_(new FaultServer), port_(server_->port()) {
    server_->on("/film", std::move(behaviour));
  }
  void go() { server_.reset(); }
  void comeBack(Behaviour behaviour) {
    server_ = std::make_unique<FaultServer>(port_);
    server_->on("/film", std::move(behaviour));
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/film"; }
  FaultServer& server() { return *server_; }

 private:
  std::unique_ptr<FaultServer> server_;
  const int port_;
};

TEST(FluviaStream, GoesOnWhereItWasWhenTheServerIsBack) {
  Comes server(serveRanges(kSize));
  Streamed film(server.url());
  ASSERT_EQ(film.readTo(1000000), FVFR_OK);
  server.go();
  film.onNotice = [&] {
    if (film.told == 3) server.comeBack(serveRanges(kSize));
  };
  ASSERT_EQ(film.readTo(kSize), FVFR_OK);
  EXPECT_EQ(film.readTo(kSize + 1), FVFR_END_OF_FILE);
  ASSERT_GE(film.notices.size(), 4u);
  EXPECT_EQ(film.notices[2], "the server refuses the connection; trying again in 1.0 s");
  EXPECT_EQ(film.notices.back().substr(0, 17), "going on at byte ");
  EXPECT_EQ(film.applied, 1 + film.told - 1) << "settings are made for every handle";
}

TEST(FluviaStream, SeekDuringAnOutageIsWhereItGoesOn) {
  Comes server(serveRanges(kSize));
  Streamed film(server.url());
  ASSERT_EQ(film.readTo(100000), FVFR_OK);
  server.go();
  film.onNotice = [&] {
    if (film.told == 2) server.comeBack(serveRanges(kSize));
  };
  ASSERT_EQ(fluvia_stream_seek(film.stream, 15500000), FVFR_OK);
  ASSERT_EQ(film.readTo(kSize), FVFR_OK);
  EXPECT_EQ(film.notices.back(), "going on at byte 15500000");
}

TEST(FluviaStream, BytesOfAFailingReadAreDelivered) {
  FaultServer server;
  server.on("/film", inTurn({dropAfter(kSize, 500000), answerStatus(403)}));
  Streamed film(server.url("/film"));
  std::vector<char> bytes(600000);
  unsigned int got = 0;
  ASSERT_EQ(fluvia_stream_read(film.stream, bytes.data(), 600000, &got), FVFR_OK);
  EXPECT_GT(got, 0u);
  EXPECT_LE(got, 500000u);
  EXPECT_EQ(firstDifference(0, bytes.data(), got), -1);
  EXPECT_NE(fluvia_stream_read(film.stream, bytes.data(), 600000, &got), FVFR_OK);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(fluvia_stream_status(film.stream), 403);
  EXPECT_STREQ(fluvia_stream_problem(film.stream), "the server answered 403");
}

TEST(FluviaStream, ErrorsAtTheStartAreBorneToo) {
  FaultServer server;
  server.on("/film", inTurn({answerStatus(503), answerRaw("HTTP/1.1 200 OK\r\nCont"),
                             answerStatus(429), serveRanges(kSize)}));
  Streamed film(server.url("/film"));
  EXPECT_EQ(film.readTo(kSize), FVFR_OK);
  ASSERT_EQ(film.notices.size(), 4u);
  EXPECT_EQ(film.notices[0], "the server answered 503; trying again in 0.0 s");
}

TEST(FluviaStream, FinalStatusEndsAtOnceAndForGood) {
  FaultServer server;
  server.on("/film", answerStatus(404));
  Streamed film(server.url("/film"));
  EXPECT_EQ(fluvia_stream_connect(film.stream), FVFR_NOT_FOUND);
  EXPECT_EQ(fluvia_stream_status(film.stream), 404);
  EXPECT_EQ(fluvia_stream_connect(film.stream), FVFR_NOT_FOUND);
  EXPECT_FALSE(fluvia_stream_is_seekable(film.stream));
  EXPECT_EQ(fluvia_stream_size(film.stream), -1);
  EXPECT_EQ(film.notices, std::vector<std::string>{"the server answered 404"});
  EXPECT_EQ(server.requestCount("/film"), 1);
}

TEST(FluviaStream, WithoutSecondsNothingIsTriedAgain) {
  Comes server(serveRanges(kSize));
  Streamed film(server.url(), 0);
  ASSERT_EQ(film.readTo(100000), FVFR_OK);
  server.go();
  EXPECT_NE(film.readTo(kSize), FVFR_OK);
  EXPECT_EQ(film.notices, std::vector<std::string>{"the server refuses the connection"});
}

TEST(FluviaStream, GivesUpWhenItsSecondsAreOver) {
  Comes server(serveRanges(kSize));
  Streamed film(server.url(), 1);
  ASSERT_EQ(film.readTo(100000), FVFR_OK);
  server.go();
  EXPECT_NE(film.readTo(kSize), FVFR_OK);
  EXPECT_EQ(fluvia_stream_status(film.stream), FVFR_DOWNLOAD_REFUSED);
  // At once, after half a second and at the end of the second.
  EXPECT_GE(film.notices.size(), 2u);
  EXPECT_LE(film.notices.size(), 4u);
  EXPECT_EQ(film.notices.back(), "the server refuses the connection");
}

// Another resource under the name: its bytes must never be returned as those of the first.
TEST(FluviaStream, ChangedResourceIsAnErrorForGood) {
  for (const bool longer : {true, false}) {
    const std::string video = "Content-Type: video/mp4\r\n";
    Comes server(serveRanges(kSize, video));
    Streamed film(server.url());
    ASSERT_EQ(film.readTo(100000), FVFR_OK);
    server.go();
    film.onNotice = [&] {
      if (film.told != 1) return;
      server.comeBack(longer ? serveRanges(kSize + 1, video)
                             : serveRanges(kSize, "Content-Type: text/html\r\n"));
      server.server().setBase("/film", 77);
    };
    EXPECT_EQ(film.readTo(kSize), FLUVIA_STREAM_CHANGED);
    EXPECT_STREQ(fluvia_stream_problem(film.stream), "the resource has changed");
    EXPECT_EQ(film.notices.back(), "the resource has changed");
    EXPECT_EQ(film.readTo(kSize), FLUVIA_STREAM_CHANGED) << "and does not go on";
    EXPECT_EQ(fluvia_stream_seek(film.stream, 0), FLUVIA_STREAM_CHANGED);
  }
}

// A read of the whole block would wait for the rest of it.
TEST(FluviaStream, ReadSomeReturnsWhatHasArrived) {
  FaultServer server;
  server.on("/film", stallAfter(kSize, 20000));
  Streamed film(server.url("/film"));
  std::vector<char> bytes(65536);
  long long at = 0;
  while (at < 16384) {
    unsigned int got = 0;
    ASSERT_EQ(fluvia_stream_read_some(film.stream, bytes.data(), 65536, &got), FVFR_OK);
    EXPECT_GE(got, 4096u);
    EXPECT_EQ(firstDifference(static_cast<unsigned long long>(at), bytes.data(), got), -1);
    at += got;
  }
  EXPECT_LE(at, 20000);
}

// Small pieces cost a fast reader time, so they are for the first bytes only.
TEST(FluviaStream, ReadSomeWaitsForMoreTheMoreWasRead) {
  FaultServer server;
  server.on("/film", drip(1600000, 3000, 1));
  Streamed film(server.url("/film"));
  std::vector<char> bytes(65536);
  for (long long at = 0; at < 1500000;) {
    unsigned int got = 0;
    ASSERT_EQ(fluvia_stream_read_some(film.stream, bytes.data(), 65536, &got), FVFR_OK);
    EXPECT_GE(got, std::min<long long>(65536, std::max<long long>(4096, at / 16)));
    at += got;
  }
  ASSERT_EQ(fluvia_stream_seek(film.stream, 100000), FVFR_OK);
  ASSERT_EQ(film.readTo(200000), FVFR_OK);
}

// The library itself connects again, before the stream knows of an outage.
TEST(FluviaStream, ServerThatRefusesTheOffsetHasAnotherResource) {
  FaultServer server;
  server.on("/film", inTurn({dropAfter(kSize, kSize / 2), answerStatus(416)}));
  Streamed film(server.url("/film"));
  EXPECT_EQ(film.readTo(kSize), FLUVIA_STREAM_CHANGED);
  ASSERT_EQ(film.notices.size(), 1u);
  EXPECT_EQ(film.notices.back(), "the resource has changed");
}

// Its bytes are reread from the beginning, more than the library would skip.
TEST(FluviaStream, StreamThatCannotSeekGoesOnToo) {
  FaultServer server;
  server.on("/live", inTurn({cutChunk(kSize, 2500000), answerStatus(503), serveChunked(kSize)}));
  Streamed live(server.url("/live"));
  EXPECT_EQ(live.readTo(kSize), FVFR_OK);
  EXPECT_EQ(live.readTo(kSize + 1), FVFR_END_OF_FILE);
  EXPECT_EQ(live.notices.size(), 2u);
}

// The library would read the bytes of another place without an error.
TEST(FluviaStream, SeekIsRefusedWhereTheStreamCannotButToTheBeginning) {
  FaultServer server;
  server.on("/live", serveChunked(kSize));
  Streamed live(server.url("/live"));
  ASSERT_EQ(live.readTo(3000000), FVFR_OK);
  EXPECT_FALSE(fluvia_stream_is_seekable(live.stream));
  EXPECT_EQ(fluvia_stream_seek(live.stream, 1000), FVFR_SEEK_REFUSED);
  EXPECT_EQ(fluvia_stream_seek(live.stream, 3000000), FVFR_OK);
  EXPECT_EQ(live.readTo(3500000), FVFR_OK);
  EXPECT_EQ(server.requestCount("/live"), 1);
  EXPECT_EQ(fluvia_stream_seek(live.stream, 0), FVFR_OK) << "by a request of its own";
  EXPECT_EQ(live.readTo(kSize), FVFR_OK);
  EXPECT_EQ(server.requestCount("/live"), 2);
}

// Ten seconds of silence end the transfer; the stream starts another.
TEST(FluviaStream, SilenceIsAnOutage) {
  FaultServer server;
  server.on("/film", inTurn({stallAfter(kSize, 1000000), serveRanges(kSize)}));
  Streamed film(server.url("/film"));
  EXPECT_EQ(film.readTo(kSize), FVFR_OK);
  ASSERT_EQ(film.notices.size(), 2u);
  EXPECT_EQ(film.notices[0], "the server has fallen silent; trying again in 0.0 s");
}

// Two streams of one name, one after the other: the failed handle of one does not keep the other
// from continuing.
TEST(FluviaStream, StreamsOfOneNameComeBackTogether) {
  Comes server(serveRanges(kSize));
  Streamed one(server.url());
  ASSERT_EQ(one.readTo(100000), FVFR_OK);
  Streamed other(server.url());
  ASSERT_EQ(other.readTo(200000), FVFR_OK);
  server.go();
  one.onNotice = [&] {
    if (one.told == 1) server.comeBack(serveRanges(kSize));
  };
  EXPECT_EQ(one.readTo(kSize), FVFR_OK);
  EXPECT_EQ(other.readTo(kSize), FVFR_OK);
}

// Seconds from end() to the end of a call that waits in a pause of a second. The fastest of a few:
// the machine may be busy.
double secondsToEndAPause(const std::function<void(Streamed*)>& end) {
  double best = 1e9;
  for (int i = 0; i < 5 && best >= 0.05; ++i) {
    Comes server(serveRanges(kSize));
    Streamed film(server.url());
    EXPECT_EQ(film.readTo(100000), FVFR_OK);
    server.go();
    int result = FVFR_OK;
    std::thread reading([&] { result = film.readTo(kSize); });
    EXPECT_TRUE(eventually([&] { return film.told >= 3 && film.questions >= 1; }));
    const auto begin = Clock::now();
    end(&film);
    reading.join();
    best = std::min(best, secondsSince(begin));
    EXPECT_EQ(result, FLUVIA_STREAM_ABORTED);
    EXPECT_EQ(film.told, 3);
    EXPECT_EQ(film.readTo(kSize), FLUVIA_STREAM_ABORTED);
  }
  return best;
}

TEST(FluviaStream, AbortEndsTheWaitBetweenTriesWithin50Milliseconds) {
  EXPECT_LT(secondsToEndAPause([](Streamed* film) { fluvia_stream_abort(film->stream); }), 0.05);
}

TEST(FluviaStream, AbortEndsAReadThatWaitsForBytes) {
  FaultServer server;
  server.on("/film", stallAfter(kSize, 100000));
  Streamed film(server.url("/film"));
  ASSERT_EQ(film.readTo(90000), FVFR_OK);
  int result = FVFR_OK;
  const CapturedStderr log(2);
  std::thread reading([&] { result = film.readTo(kSize); });
  ASSERT_TRUE(eventually([&] {
    return log.text().find("wait and feeding = false, begin index") != std::string::npos;
  }));
  const auto begin = Clock::now();
  fluvia_stream_abort(film.stream);
  reading.join();
  EXPECT_EQ(result, FLUVIA_STREAM_ABORTED);
  EXPECT_LT(secondsSince(begin), patience(5)) << "it was not the library's time limit";
}

// An open of a name that is open and silent blocks every call of the library for ten seconds.
TEST(FluviaStream, AbortDoesNotWaitWhileTheLibraryIsHeldUp) {
  FaultServer server;
  server.on("/silent", staySilent());
  server.on("/film", stallAfter(kSize, 100000));
  Streamed film(server.url("/film"));
  ASSERT_EQ(film.readTo(90000), FVFR_OK);
  std::thread reading([&] { film.readTo(kSize); });
  int first = 0;
  ASSERT_EQ(x_fluvia_file_open(server.url("/silent").c_str(), &first), FVFR_OK);
  std::thread asking([&] { x_fluvia_file_size(first); });
  ASSERT_TRUE(server.waitForRequests("/silent", 1));
  const CapturedStderr log(1);
  std::thread holding([&] {
    int second = 0;
    if (x_fluvia_file_open(server.url("/silent").c_str(), &second) == FVFR_OK) {
      x_fluvia_file_close(second);
    }
  });
  ASSERT_TRUE(eventually([&] { return log.has("randomAccessable: begin to read"); }));
  const auto begin = Clock::now();
  fluvia_stream_abort(film.stream);
  EXPECT_LT(secondsSince(begin), patience(5));
  server.on("/silent", answerStatus(404));
  server.endConnections();
  reading.join();
  holding.join();
  asking.join();
  x_fluvia_file_close(first);
}

TEST(FluviaStream, CallThatIsNotWantedEndsAndTheNextOneTriesOn) {
  Comes server(serveRanges(kSize));
  Streamed film(server.url());
  ASSERT_EQ(film.readTo(100000), FVFR_OK);
  server.go();
  film.wantedNotices = 3;
  EXPECT_EQ(film.readTo(kSize), FLUVIA_STREAM_ABORTED);
  EXPECT_EQ(film.told, 3);
  film.wantedNotices = 1000;
  server.comeBack(serveRanges(kSize));
  EXPECT_EQ(film.readTo(kSize), FVFR_OK);
}

TEST(FluviaStream, CallThatBecomesUnwantedInAPauseEndsWithin50Milliseconds) {
  EXPECT_LT(secondsToEndAPause([](Streamed* film) { film->wantedNotices = 0; }), 0.05);
}

// Up to where it was the bytes are read again and dropped.
TEST(FluviaStream, CallThatBecomesUnwantedOnTheWayBackEnds) {
  FaultServer server;
  server.on("/live", inTurn({cutChunk(kSize, 2500000), answerStatus(503), serveChunked(kSize)}));
  Streamed live(server.url("/live"));
  live.onApply = [&] {
    if (live.applied == 2) live.wantedNotices = 0;
  };
  EXPECT_EQ(live.readTo(kSize), FLUVIA_STREAM_ABORTED);
  live.wantedNotices = 1000;
  EXPECT_EQ(live.readTo(kSize), FVFR_OK);
  EXPECT_EQ(server.requestCount("/live"), 3) << "it goes on with the connection it has";
}

// A stream that cannot seek has one position, that of whoever reads.
TEST(FluviaStream, IsolatedStreamHasADownloadOfItsOwn) {
  FaultServer server;
  server.on("/live", serveChunked(kSize));
  FluviaStreamSettings settings = FLUVIA_STREAM_SETTINGS;
  settings.isolated = 1;
  std::vector<FluviaStream*> streams(2);
  std::vector<char> bytes(32768);
  unsigned int got = 0;
  for (FluviaStream*& stream : streams) {
    ASSERT_EQ(fluvia_stream_open(&stream, server.url("/live").c_str(), &settings), FVFR_OK);
    for (long long at = 0; at < 4000000; at += got) {
      ASSERT_EQ(fluvia_stream_read(stream, bytes.data(), 32768, &got), FVFR_OK);
      ASSERT_EQ(firstDifference(static_cast<unsigned long long>(at), bytes.data(), got), -1);
    }
  }
  EXPECT_EQ(server.requestCount("/live"), 2);
  for (FluviaStream*& stream : streams) fluvia_stream_close(&stream);
}

TEST(FluviaStream, GoesOnWhereItsHandleWasReadTo) {
  FaultServer server;
  server.on("/film", inTurn({dropAfter(kSize, 3000000), answerStatus(503), serveRanges(kSize)}));
  Streamed film(server.url("/film"));
  ASSERT_EQ(fluvia_stream_connect(film.stream), FVFR_OK);
  std::vector<char> bytes(100000);
  unsigned int got = 0;
  const int handle = fluvia_stream_handle(film.stream);
  ASSERT_EQ(x_fluvia_file_read(handle, bytes.data(), 100000, &got), FVFR_OK);
  fluvia_stream_set_position(film.stream, 100000);
  EXPECT_EQ(film.readTo(kSize), FVFR_OK);
  EXPECT_NE(fluvia_stream_handle(film.stream), 0);
}

TEST(FluviaStream, StartConnectsAndCostsNoByteAndNoRequest) {
  FaultServer server;
  for (const long long size : {1LL, 2LL, 3000000LL}) {
    const std::string path = "/film" + std::to_string(size);
    server.on(path, serveRanges(size));
    Streamed film(server.url(path));
    fluvia_stream_start(film.stream);
    fluvia_stream_start(film.stream);
    ASSERT_TRUE(server.waitForRequests(path, 1)) << "nobody reads";
    EXPECT_EQ(film.readTo(size + 1), FVFR_END_OF_FILE);
    EXPECT_EQ(fluvia_stream_position(film.stream), size);
    EXPECT_EQ(server.requestCount(path), 1) << size;
  }
}

TEST(FluviaStream, StartThatFailsIsTriedAgainByTheReader) {
  FaultServer server;
  server.on("/film", inTurn({answerStatus(503), answerStatus(503), serveRanges(100000)}));
  Streamed film(server.url("/film"));
  fluvia_stream_start(film.stream);
  EXPECT_EQ(film.readTo(100000), FVFR_OK);
}

TEST(FluviaStream, StartWaitsForNothingAndNeitherDoesClose) {
  FaultServer server;
  server.on("/silent", staySilent());
  const auto begin = Clock::now();
  {
    Streamed film(server.url("/silent"));
    fluvia_stream_start(film.stream);
    ASSERT_TRUE(server.waitForRequests("/silent", 1));
  }
  EXPECT_LT(secondsSince(begin), patience(5)) << "the library would wait for ten";
}

TEST(FluviaStream, RefusesWhatTheLibraryRefuses) {
  FluviaStream* stream = nullptr;
  const FluviaStreamSettings settings = FLUVIA_STREAM_SETTINGS;
  EXPECT_EQ(fluvia_stream_open(&stream, "ftp://server/film", &settings), FVFR_FAILED);
  EXPECT_EQ(stream, nullptr);
  fluvia_stream_close(&stream);
}

}  // namespace
