#include <gtest/gtest.h>

#include "tests/support/TreeShape.h"
#include "tools/Printable.h"
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

// Each character of the text in UTF-16, after the byte order mark.
std::string wide(const std::string& text, bool bigEndian) {
  std::string made = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (const char c : text) made += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
  return made;
}

TEST(TreeText, Utf16IsXmlToo) {
  for (const bool bigEndian : {false, true}) {
    const std::string text = wide(" \r\n<a x='1'>v</a>", bigEndian);
    EXPECT_EQ(tools::kindOf(text), BodyKind::kXml);
    EXPECT_EQ(tools::kindOf(text.substr(0, 3)), BodyKind::kJson);
    EXPECT_EQ(tools::kindOf(wide("{\"a\":\"<\"}", bigEndian)), BodyKind::kJson);
    const ParsedBody body(wide("<a x='1'>v</a>", bigEndian));
    EXPECT_EQ(body.error(), "");
    EXPECT_EQ(body.indented(), "a @x=\"1\" = v\n");
    EXPECT_EQ(ParsedBody(wide("<a/>", bigEndian).substr(2)).kind(), BodyKind::kXml);
  }
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

TEST(TreeText, LineEndAndTwoCharactersThatLookLikeOneDiffer) {
  const ParsedBody body("{\"a\":\"x\ny\",\"c\":\"x\\ny\"}");
  EXPECT_EQ(body.indented(), "req\n  \"a\" = \"x\\ny\"\n  \"c\" = \"x\\\\ny\"\n");
}

TEST(TreeText, QuotesInAValueDoNotLookLikeItsEnd) {
  const ParsedBody body("<a x='1\" @y=\"2'>\"v\"</a>");
  EXPECT_EQ(body.indented(), "a @x=\"1\\\" @y=\\\"2\" = \"v\"\n");
}

TEST(Printable, LeavesTextInUtf8AsItIs) {
  for (const char* text : {"", "a \"quoted\" word", "\u00E4\u00DF\u20AC", "\u05D0\u0627",
                           "\U0001F600", "\u00A0", "\uFFFD", "\U0010FFFF"}) {
    EXPECT_EQ(tools::printable(text), text);
  }
}

TEST(Printable, EscapesControlsOfEverySort) {
  EXPECT_EQ(tools::printable("\u0080\u0085\u009B\u009F"), "\\u0080\\u0085\\u009b\\u009f");
  EXPECT_EQ(tools::printable("\u061C\u200E\u200F"), "\\u061c\\u200e\\u200f");
  EXPECT_EQ(tools::printable("\u202A\u202B\u202C\u202D\u202E"),
            "\\u202a\\u202b\\u202c\\u202d\\u202e");
  EXPECT_EQ(tools::printable("\u2066\u2067\u2068\u2069"), "\\u2066\\u2067\\u2068\\u2069");
  EXPECT_EQ(tools::printable("\u2028\u2029"), "\\u2028\\u2029");
}

// An old terminal treats the byte 9b as the beginning of a command.
TEST(Printable, EscapesBytesThatAreNoUtf8) {
  EXPECT_EQ(tools::printable("\x9B"
                             "2J"),
            "\\x9b2J");
  EXPECT_EQ(tools::printable("\xC3"), "\\xc3") << "cut short";
  EXPECT_EQ(tools::printable("\xC3(\xE2\x82"), "\\xc3(\\xe2\\x82");
  EXPECT_EQ(tools::printable("\xC1\x9B"), "\\xc1\\x9b") << "too long for what it says";
  EXPECT_EQ(tools::printable("\xE0\x82\x9B"), "\\xe0\\x82\\x9b") << "too long for what it says";
  EXPECT_EQ(tools::printable("\xED\xA0\x80"), "\\xed\\xa0\\x80") << "half of a pair";
  EXPECT_EQ(tools::printable("\xF4\x90\x80\x80\xFF"), "\\xf4\\x90\\x80\\x80\\xff") << "beyond all";
}

TEST(TreeText, WritesBackTheKindThatWasRead) {
  EXPECT_EQ(textOf(ParsedBody("<a><b/></a>").written()),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a><b/></a>");
  EXPECT_EQ(textOf(ParsedBody("data={ \"a\" : 1 }").written()), "data = {\"a\":1 }");
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

TEST(TreeText, XmlErrorsHaveReasonLineAndColumn) {
  const std::string rest = "; the tree is shown as far as it goes";
  EXPECT_EQ(ParsedBody("<a>\n<b></c>").error(), "mismatched tag at line 2, column 6" + rest);
  EXPECT_EQ(ParsedBody("<?xml version='1.0' encoding='x-\x62ig'?><a/>").error(),
            "unknown encoding \"x-big\" at line 1, column 31" + rest);
}

TEST(TreeText, JsonErrorsHaveTheOffsetAndTheCharacter) {
  const std::pair<const char*, const char*> cases[] = {
      {"{\"l\":[ 7]}", "an array holds something else than an object, at byte 7, '7'"},
      {"[\u20AC]", "an array holds something else than an object, at byte 1, '\u20AC'"},
      {"[\n\x1B]", "an array holds something else than an object, at byte 2, '\\x1b'"},
      {"{\"a\":\"x\"}]", "a ']' closes something else than an array, at byte 9, ']'"},
      {"[{},1]", "no '{' follows a ',' in an array, at byte 4, '1'"},
      {"\xEF\xBB\xBF{}", "it begins with a byte order mark, which JSON must not"}};
  for (const auto& [text, error] : cases) EXPECT_EQ(ParsedBody(text).error(), error);
  EXPECT_NE(ParsedBody("{\"a\":1}").error().find("at byte 7, the end"), std::string::npos);
}

TEST(TreeText, TreeIsLimited) {
  const std::string xml = "<a>" + std::string(5000, 'x') + "</a>", json = "{\"a\":\"" + xml + "\"}";
  for (const std::string& text : {xml, json}) {
    EXPECT_FALSE(ParsedBody(text).isTooLarge());
    EXPECT_FALSE(ParsedBody(text, 20000).isTooLarge());
    const ParsedBody body(text, 5000);
    EXPECT_TRUE(body.isTooLarge());
    EXPECT_NE(body.error().find("exceeds its limit"), std::string::npos) << body.error();
  }
}

TEST(TreeText, TextIsHandedOnInPieces) {
  std::string elements = "<a>";
  for (int i = 0; i < 50000; i++) elements += "<i>value</i>";
  const ParsedBody body(elements + "</a>");
  std::string text;
  int pieces = 0;
  const auto take = [&](const char* piece, size_t size) {
    text.append(piece, size);
    pieces++;
    EXPECT_LT(size, 70000u);
    return true;
  };
  EXPECT_TRUE(body.writeIndented(take));
  EXPECT_GT(pieces, 9);
  EXPECT_EQ(text, body.indented());
  pieces = 0;
  EXPECT_FALSE(body.writeIndented([&pieces](const char*, size_t) { return ++pieces < 3; }));
  EXPECT_EQ(pieces, 3);
}

TEST(TreeText, IndentationEndsSomewhere) {
  std::string deep;
  for (int i = 0; i < 20000; i++) deep += "<a>";
  const std::string text = ParsedBody(deep).indented();
  EXPECT_LT(text.size(), 20000u * 100);
  EXPECT_NE(text.find("(19999) a\n"), std::string::npos);
}

}  // namespace
