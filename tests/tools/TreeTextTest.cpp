#include <gtest/gtest.h>

#include "tools/TreeText.h"

namespace {

using tools::BodyKind;
using tools::ParsedBody;

TEST(TreeText, FirstCharacterTellsTheKind) {
  EXPECT_EQ(tools::kindOf("<a/>"), BodyKind::kXml);
  EXPECT_EQ(tools::kindOf(" \r\n\t<a/>"), BodyKind::kXml);
  EXPECT_EQ(tools::kindOf("\xEF\xBB\xBF<a/>"), BodyKind::kXml);
  EXPECT_EQ(tools::kindOf("{\"a\":\"<\"}"), BodyKind::kJson);
  EXPECT_EQ(tools::kindOf("data = {}"), BodyKind::kJson);
  EXPECT_EQ(tools::kindOf(""), BodyKind::kJson);
}

TEST(TreeText, XmlIsShownFromTheDocumentElement) {
  const ParsedBody body("<a x=\"1\">\n  <b>v</b>\n  <c/>\n</a>");
  EXPECT_EQ(body.error(), "");
  EXPECT_EQ(body.indented(), "a @x=\"1\"\n  b = v\n  c\n");
}

TEST(TreeText, JsonIsShownFromItsRoot) {
  const ParsedBody body("{\"a\":\"x\",\"n\":1 ,\"l\":[{\"k\":\"\"},{}]}");
  EXPECT_EQ(body.error(), "");
  EXPECT_EQ(body.indented(),
            "req\n  \"a\" = \"x\"\n  \"n\" = 1\n  \"l\"\n    [\n      \"k\"\n    [\n");
}

TEST(TreeText, ControlCharactersDoNotReachTheTerminal) {
  const ParsedBody body("{\"a\":\"line\nnext\ttab\x1B[2J\x7F\"}");
  EXPECT_EQ(body.indented(), "req\n  \"a\" = \"line\\nnext\\ttab\\x1b[2J\\x7f\"\n");
}

TEST(TreeText, WritesBackTheKindThatWasRead) {
  EXPECT_EQ(ParsedBody("<a><b/></a>").written(),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a><b/></a>");
  EXPECT_EQ(ParsedBody("data={ \"a\" : 1 }").written(), "data = {\"a\":1 }");
}

TEST(TreeText, ErrorsHaveASentenceAndTheTreeSoFar) {
  const ParsedBody xml("<a><b>1</b></wrong>");
  EXPECT_NE(xml.error(), "");
  EXPECT_EQ(xml.indented(), "a\n  b = 1\n");
  const char* broken[] = {"", "abc", "[]", "{\"a\":1}", "[{},1]", "{\"a\":\"x\"}]"};
  std::string last = "none";
  for (const char* text : broken) {
    const std::string error = ParsedBody(text).error();
    EXPECT_NE(error, "") << text;
    EXPECT_NE(error, last) << text;
    last = error;
  }
}

TEST(TreeText, IndentationEndsSomewhere) {
  std::string deep;
  for (int i = 0; i < 20000; i++) deep += "<a>";
  const std::string text = ParsedBody(deep).indented();
  EXPECT_LT(text.size(), 20000u * 100);
  EXPECT_NE(text.find("(19999) a\n"), std::string::npos);
}

}  // namespace
