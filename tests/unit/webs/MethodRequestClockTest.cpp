// A session's time limits: transfers that receive nothing, and their speed.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <string>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/Pattern.h"
#include "tests/support/SessionProbe.h"
#include "tests/support/Watchdog.h"

namespace {

// The error of the wall clock in seconds.
std::atomic<long> clockError{0};
// The fixed time that the clock shows, in microseconds; 0 while it runs.
std::atomic<long long> heldClock{0};

}  // namespace

// Replaces the C library's function for the session.
extern "C" __attribute__((visibility("default"))) int gettimeofday(struct timeval* time,
                                                                   void* zone) noexcept {
  using Function = int (*)(struct timeval*, void*);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "gettimeofday"));
  const int result = real(time, zone);
  const long long held = heldClock;
  if (held != 0) {
    time->tv_sec = static_cast<time_t>(held / 1000000);
    time->tv_usec = static_cast<suseconds_t>(held % 1000000);
  }
  time->tv_sec += clockError;
  return result;
}

namespace {

using support::FaultServer;
using support::SessionProbe;

// --- stalls -------------------------------------------------------------------------------------

// The session gives up a transfer with that result, after at least and at most that many seconds.
void expectGivenUp(SessionProbe* probe, const support::Behaviour& behaviour, int result,
                   double least, double most) {
  FaultServer server;
  server.on("/s", behaviour);
  const support::Stopwatch watch;
  EXPECT_EQ(probe->get(server.url("/s")), result);
  EXPECT_GE(watch.seconds(), least);
  EXPECT_LT(watch.seconds(), support::patience(most));
}

TEST(MethodRequestStall, SilenceBeforeTheFirstByteEndsAfterTenSeconds) {
  support::CapturedStderr log(2);
  SessionProbe probe(1);
  // The short time-outs are for the data phase.
  expectGivenUp(&probe, support::staySilent(), -2, 9.99, 13);
  EXPECT_NE(log.text().find(" s No data in, don't wait anymaore..."), std::string::npos);
  EXPECT_NE(log.text().find(" s No data in\n"), std::string::npos);
}

TEST(MethodRequestStall, SilenceMidBodyEndsAfterTenSeconds) {
  SessionProbe probe;
  expectGivenUp(&probe, support::stallAfter(100000, 1000), -2, 9.99, 13);
}

TEST(MethodRequestStall, ShortTimeoutsEndSilenceMidBodyAfterFourSeconds) {
  support::CapturedStderr log(2);
  SessionProbe probe(1);
  expectGivenUp(&probe, support::stallAfter(100000, 1000), -2, 3.99, 7);
  EXPECT_NE(log.text().find("Too long time no data comes, the connection is die, disconnect"),
            std::string::npos);
  EXPECT_NE(log.text().find("The http connection speed is low and "), std::string::npos);
}

TEST(MethodRequestStall, BreakEndsAStallAfterTwoSecondsOnce) {
  FaultServer server;
  server.on("/s", support::stallAfter(100000, 1000));
  support::CapturedStderr log(2);
  SessionProbe probe(1);
  probe.session.setBreak();
  expectGivenUp(&probe, support::stallAfter(100000, 1000), -1, 1.99, 5);
  EXPECT_NE(log.text().find(" s no data comes, customer cancel read"), std::string::npos);
  EXPECT_EQ(probe.get(server.url("/s")), -2) << "the request was used up";
}

TEST(MethodRequestStall, BreakEndsTheConnectionPhaseToo) {
  SessionProbe probe;
  probe.session.setBreak();
  expectGivenUp(&probe, support::staySilent(), -1, 1.99, 5);
}

TEST(MethodRequestStall, ClockSetBackStartsTheWatchAgain) {
  FaultServer server;
  server.on("/s", support::stallAfter(100000, 1000));
  SessionProbe probe(1);
  probe.start(server.url("/s"));
  ASSERT_TRUE(probe.receiver.waitForBytes(1000));
  support::CapturedStderr log(-4);
  const support::Stopwatch watch;
  EXPECT_TRUE(support::eventually(
      [&] { return log.text().find("connection speed is low") != std::string::npos; }));
  clockError = -1000;
  EXPECT_EQ(probe.join(), -2);
  clockError = 0;
  EXPECT_LT(watch.seconds(), support::patience(12)) << "a watch that counts backwards never ends";
}

TEST(MethodRequestStall, DripKeepsATransferAlive) {
  FaultServer server;
  server.on("/d", support::drip(6, 1, 900));
  SessionProbe probe(1);
  EXPECT_EQ(probe.get(server.url("/d")), 0);
  EXPECT_EQ(probe.receiver.body(), support::pattern(0, 6));
}

// --- speed --------------------------------------------------------------------------------------

// A session whose clock advances only while bytes come, each at its time.
class TimedProbe : public SessionProbe {
 public:
  explicit TimedProbe(int microsecondsPerByte) {
    heldClock = 1600000000LL * 1000000;
    receiver.onPiece = [microsecondsPerByte](void*, int size) {
      heldClock += static_cast<long long>(size) * microsecondsPerByte;
      return size;
    };
  }
  ~TimedProbe() { heldClock = 0; }

  // Serves the resource in pieces, each sent when the previous one was received.
  support::Behaviour serveInPieces(long long size, long long piece) {
    return [this, size, piece](support::Exchange& exchange) {
      exchange.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n");
      for (long long at = 0; at < size; at += piece) {
        if (!exchange.sendPattern(at, piece)) return;
        if (!receiver.waitForBytes(static_cast<size_t>(at + piece))) return;
      }
    };
  }
};

TEST(MethodRequestSpeed, ReportsTheAverageUntilAWindowHasClosed) {
  TimedProbe probe(150);
  FaultServer server;
  server.on("/a", probe.serveInPieces(3000, 1000));
  support::CapturedStderr log(0);
  EXPECT_EQ(probe.get(server.url("/a")), 0);
  EXPECT_EQ(probe.session.getSpeed(), 6666) << "3000 bytes in 450 ms";
  EXPECT_NE(log.text().find(", show cal_avg_speed :6666\n"), std::string::npos) << log.text();
}

TEST(MethodRequestSpeed, ReportsTheSmoothedRateOnceAWindowHasClosed) {
  TimedProbe probe(100);
  FaultServer server;
  server.on("/a", probe.serveInPieces(15000, 1000));
  support::CapturedStderr log(0);
  EXPECT_EQ(probe.get(server.url("/a")), 0);
  // The first piece opens a window. The eleventh closes it a second later and belongs to the next
  // one.
  EXPECT_EQ(probe.session.getSpeed(), 9000);
  EXPECT_NE(log.text().find("show dash_speed :9000  cal_avg_speed :10000\n"), std::string::npos)
      << log.text();
  EXPECT_NE(log.text().find(" Bytes/s, im_speed is 9000 Bytes/s"), std::string::npos) << log.text();
}

TEST(MethodRequestSpeed, NothingYetIsLibcurlsFigure) {
  support::CapturedStderr log(0);
  SessionProbe probe;
  EXPECT_EQ(probe.session.getSpeed(), 0);
  EXPECT_NE(log.text().find("show avg_speed :0"), std::string::npos);
}

TEST(MethodRequestSpeed, CapHoldsOnTheAverage) {
  FaultServer server;
  server.on("/a", support::serveRanges(200000));
  SessionProbe probe;
  probe.session.setSpeed(100000);
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/a")), 0);
  EXPECT_GE(watch.seconds(), 1.95);
  EXPECT_LT(watch.seconds(), support::patience(5));
}

}  // namespace
