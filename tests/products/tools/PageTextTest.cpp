#include <gtest/gtest.h>

#include "PageText.h"

namespace {

TEST(PageText, SizesAndTimesForPeople) {
  EXPECT_EQ(tools::shownBytes(1023), "1023 B");
  EXPECT_EQ(tools::shownBytes(1536), "1.50 KiB");
  EXPECT_EQ(tools::shownBytes(20LL << 30), "20.0 GiB");
  EXPECT_EQ(tools::shownSeconds(0.0124), "12 ms");
  EXPECT_EQ(tools::shownSeconds(1.5), "1.50 s");
  EXPECT_EQ(tools::htmlText("a<b>\x01\xC3\xA4\xED\xA0\x80"),
            "a&lt;b&gt;\xEF\xBF\xBD\xC3\xA4\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(tools::withoutPassword("http://u:p@h:1/a@b"), "http://***@h:1/a@b");
  EXPECT_EQ(tools::withoutPassword("http://h/a@b"), "http://h/a@b");
  EXPECT_EQ(tools::withoutPassword("/a@b://c@d/"), "/a@b://***@d/");
}

}  // namespace
