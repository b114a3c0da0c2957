#include <gtest/gtest.h>

#include <string>

#include "TracePage.h"
#include "tests/products/tools/TraceLog.h"

namespace {

using support::captured;
using support::Log;
using support::Traced;

TEST(TracePage, NothingOfTheLogIsMarkup) {
  const std::string evil = "http://user:secret@h/</script><img src=x onerror=alert(1)>&\"'\xFF";
  Log log;
  log.open(0, 10, evil, 1).connect(1, 20, evil, 0).disconnect(2, 20, 7, 0);
  const std::string page = Traced(log).page();
  EXPECT_EQ(page.find("<img"), std::string::npos);
  EXPECT_EQ(page.find("secret"), std::string::npos);
  EXPECT_NE(page.find("http://***@h/\\u003c/script>"), std::string::npos);
  size_t scripts = 0;
  for (size_t at = page.find("</script"); at != std::string::npos;
       at = page.find("</script", at + 1)) {
    ++scripts;
  }
  EXPECT_EQ(scripts, 2u);
  EXPECT_EQ(page.find('\xFF'), std::string::npos);
}

TEST(TracePage, NeedsNothingBesideItself) {
  const std::string page = Traced(captured("cut.log")).page();
  for (const char* outside : {"src=", "href=", "@import", "url(", "fetch(", "XMLHttpRequest"}) {
    EXPECT_EQ(page.find(outside), std::string::npos) << outside;
  }
}

TEST(TracePage, EmptyLogSaysSo) {
  EXPECT_NE(Traced(std::string()).page().find("has no line of the library"), std::string::npos);
  EXPECT_NE(Traced(std::string("hello\n")).page().find("has no line of the library"),
            std::string::npos);
}

TEST(TracePage, StaysSmallHoweverLongTheLogIs) {
  Log log;
  for (int lane = 0; lane < 30; ++lane) {
    log.open(0, 10 + lane, "http://h/" + std::to_string(lane), 1 + lane);
  }
  constexpr int kTurns = 6000;
  for (int i = 0; i < kTurns; ++i) {
    const int lane = i % 3;
    const std::string name = "http://h/" + std::to_string(lane);
    log.connect(i * 10, 100 + lane, name, i).data(i * 10, 100 + lane, i % 64, i * 70000LL, 100);
    log.beginRead(i * 10, 10 + lane, 1 + lane, i * 100).wait(i * 10, 10 + lane, i);
    log.wake(i * 10 + 1 + i % 8, 10 + lane).endRead(i * 10 + 9, 10 + lane, 1, i);
    log.disconnect(i * 10 + 9, 100 + lane, 0, 200);
  }
  ASSERT_GT(log.text().size(), 3u << 20);
  const Traced traced(log);
  EXPECT_LT(traced.page().size(), 4u << 20);
  EXPECT_EQ(traced.story.moreLanes(), 6);
  EXPECT_EQ(
      static_cast<long long>(traced.lane().connections().size()) + traced.lane().moreConnections(),
      kTurns / 3);
  EXPECT_GT(traced.lane().shortWaits(), 0) << "short waits are counted where they are not shown";
}

}  // namespace
