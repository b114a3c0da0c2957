#include <gtest/gtest.h>

#include "tests/support/TreeShape.h"
#include "webs/JSONReader.h"

namespace {

using webs::JSONReader;
using webs::TreeNode;
using webs::TreeReader;

int feed(JSONReader* reader, const std::string& text, bool isFinal = false) {
  // A copy of the exact size, so that a sanitizer notices a read past the end.
  const std::vector<char> copy(text.begin(), text.end());
  return reader->streamIn(copy.data(), static_cast<int>(copy.size()), isFinal ? 1 : 0);
}

int finish(JSONReader* reader) { return reader->streamIn(nullptr, 0, 1); }

TEST(JSONReader, ObjectBecomesATree) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "{\"a\":\"x\"}"), 0);
  EXPECT_EQ(reader.getKey(), "req");
  ASSERT_EQ(reader.numberOfElem(), 1);
  EXPECT_EQ(reader.getElem(0)->getKey(), "\"a\"");
  EXPECT_EQ(reader.getElem(0)->getValue(), "x");
  EXPECT_TRUE(reader.getElem(0)->getLeafFlag());
}

TEST(JSONReader, BodyMayHaveAName) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "data = {\"a\":\"x\"}"), 0);
  EXPECT_EQ(shapeOf(reader), "data{\"a\":\"x\"}");
}

TEST(JSONReader, NestedContainersGiveTheRightTree) {
  const std::pair<const char*, const char*> cases[] = {
      {"[{\"a\":\"1\"},{\"a\":\"2\"}]", "req{[{\"a\":\"1\"} [{\"a\":\"2\"}}"},
      {"{\"o\":{\"k\":\"v\"}}", "req{\"o\"{\"k\":\"v\"}}"},
      {"{\"o\":{},\"z\":\"w\"}", "req{\"o\" \"z\":\"w\"}"},
      {"{\"l\":[{\"a\":\"1\"}],\"z\":\"w\"}", "req{\"l\"{[{\"a\":\"1\"}} \"z\":\"w\"}"},
      {"[{\"o\":{\"k\":\"v\"}},{\"a\":\"2\"}]", "req{[{\"o\"{\"k\":\"v\"}} [{\"a\":\"2\"}}"},
      {"[{}]", "req{[}"},
      {"[{},{\"a\":\"1\"}]", "req{[ [[{\"a\":\"1\"}}"},
      {"{\"l\":[{\"m\":[{\"a\":\"1\"}]}],\"z\":\"w\"}",
       "req{\"l\"{[{\"m\"{[[{\"a\":\"1\"}}}} \"z\":\"w\"}"}};
  for (const auto& [text, shape] : cases) {
    JSONReader reader;
    EXPECT_EQ(feed(&reader, text), 0) << text;
    EXPECT_EQ(shapeOf(reader), shape) << text;
  }
}

TEST(JSONReader, ValueLosesItsLeadingBs) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "{\"a\":bbig ,\"c\":\"big\"}"), 0);
  EXPECT_EQ(shapeOf(reader), "req{\"a\":'ig' \"c\":\"big\"}");
}

TEST(JSONReader, AWholeTextIsScannedAtOnce) {
  const std::pair<const char*, int> cases[] = {{"abc", -1},        {" ", -1},
                                               {"[]", -2},         {"{\"a\":1}", -3},
                                               {"[{},1]", -4},     {"{\"a\":\"x\"}]", -5},
                                               {"{\"a\":\"x", -3}, {"{\"a\":\"x\"}", 0}};
  for (const auto& [text, result] : cases) {
    JSONReader reader;
    EXPECT_EQ(feed(&reader, text, true), result) << text;
  }
}

TEST(JSONReader, BalancedTextNeedsNoFinalCall) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "{\"a\":1}"), -3);
  EXPECT_EQ(shapeOf(reader), "req{\"a\":'1}'}");
  reader.clear();
  EXPECT_EQ(feed(&reader, "[]"), -2) << "the next body";
  EXPECT_EQ(shapeOf(reader), "req");
}

TEST(JSONReader, EverySplitGivesTheTreeOfTheWhole) {
  const std::string texts[] = {
      "data = {\"o\":{\"k\":\"v}{\"},\"l\":[{\"a\":1 ,\"c\":\"]\"},{}],\"z\":\"\"}",
      "[{\"a\":\"1\"},{\"o\":{\"k\":\"v\"}}]\n", " {\"a\":\"x\",}", "{\"a\":\"unclosed",
      "bare words", "{\"a\":\"x\\\"y\"}",
      // Text after the last bracket, some of which the scanner reads.
      "data = {\"a\":\"x\"};", "{\"a\":\"x\"}\n-- end", "{\"a\":\"x\"} ]", "{\"a\":\"x\"}b,{}",
      "[{\"a\":\"1\"}],{\"c\":\"2\"}", "{\"a\":\"x\"}{\"c\":\"y\"}", "{\"a\":1}\n}",
      "[1] {\"a\":\"x\"}", "{}{ \"a\""};
  for (const std::string& text : texts) {
    JSONReader whole;
    feed(&whole, text, true);
    for (size_t first = 0; first <= text.size(); first++) {
      for (size_t second = first; second <= text.size(); second++) {
        JSONReader reader;
        feed(&reader, text.substr(0, first));
        feed(&reader, text.substr(first, second - first));
        feed(&reader, text.substr(second));
        EXPECT_EQ(finish(&reader), 0);
        ASSERT_EQ(shapeOf(reader), shapeOf(whole)) << text << " at " << first << ", " << second;
      }
    }
  }
}

TEST(JSONReader, OpenPiecesGiveZeroAndNoTree) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "data"), 0);
  EXPECT_EQ(feed(&reader, " = {\"a\":\"}"), 0);
  EXPECT_EQ(reader.numberOfElem(), 0);
  EXPECT_EQ(feed(&reader, "\"}"), 0);
  EXPECT_EQ(shapeOf(reader), "data{\"a\":\"}\"}");
}

TEST(JSONReader, FinalPieceIsScannedThoughBracketsAreOpen) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "{\"a\":\"x\","), 0);
  EXPECT_EQ(feed(&reader, "\"c\":\"y", true), -3);
  EXPECT_EQ(shapeOf(reader), "req{\"a\":\"x\" \"c\":\"y\"}");
}

TEST(JSONReader, EmptyFinalCallReturnsZeroAndScansWhatIsOpen) {
  JSONReader reader;
  EXPECT_EQ(finish(&reader), 0);
  EXPECT_EQ(shapeOf(reader), "");
  EXPECT_EQ(feed(&reader, "{\"a\":\"x"), 0);
  EXPECT_EQ(reader.streamIn("", 0, 0), 0);
  EXPECT_EQ(reader.numberOfElem(), 0);
  EXPECT_EQ(finish(&reader), 0);
  EXPECT_EQ(shapeOf(reader), "req{\"a\":\"x\"}");
}

TEST(JSONReader, BlanksAfterADocumentDoNothing) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "{\"a\":\"x\"}"), 0);
  EXPECT_EQ(feed(&reader, "\r\n\t "), 0);
  EXPECT_EQ(feed(&reader, " ", true), 0);
  EXPECT_EQ(finish(&reader), 0);
  EXPECT_EQ(feed(&reader, "\n"), 0);
  EXPECT_EQ(finish(&reader), 0);
  EXPECT_EQ(shapeOf(reader), "req{\"a\":\"x\"}");
}

// The bytes that a transfer brings after the document may come in a separate piece.
TEST(JSONReader, RestBehindADocumentIsDroppedAtTheEnd) {
  for (const char* rest : {";", "\n-- end", "]", "{\"c\":", "{\"c\":\"y\"}", "x = {}"}) {
    JSONReader reader;
    EXPECT_EQ(feed(&reader, "data = {\"a\":\"x\"}"), 0);
    EXPECT_EQ(feed(&reader, rest), 0) << rest;
    EXPECT_EQ(shapeOf(reader), "data{\"a\":\"x\"}") << rest;
    EXPECT_EQ(finish(&reader), 0) << rest;
    EXPECT_EQ(shapeOf(reader), "data{\"a\":\"x\"}") << rest;
  }
}

TEST(JSONReader, RestThatChangesTheTreeDoesSoAtTheEnd) {
  JSONReader whole, reader;
  const std::string first = "{\"a\":1}", second = "\n,\"c\":\"y\"}";
  feed(&whole, first + second, true);
  EXPECT_EQ(feed(&reader, first), -3);
  EXPECT_EQ(feed(&reader, second), 0);
  EXPECT_EQ(finish(&reader), 0);
  EXPECT_EQ(shapeOf(reader), shapeOf(whole));
}

TEST(JSONReader, FinalPieceBehindADocumentGivesTheResultOfTheWhole) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "{\"a\":\"x\"}"), 0);
  EXPECT_EQ(feed(&reader, "]", true), -5);
  EXPECT_EQ(shapeOf(reader), "req{\"a\":\"x\"}");
}

TEST(JSONReader, NextBodyReplacesTheTree) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "{\"a\":\"x\"}", true), 0);
  EXPECT_EQ(feed(&reader, "{\"c\":"), 0);
  EXPECT_EQ(shapeOf(reader), "req{\"a\":\"x\"}") << "until it is complete";
  EXPECT_EQ(feed(&reader, "\"y\"}"), 0);
  EXPECT_EQ(shapeOf(reader), "req{\"c\":\"y\"}");
}

TEST(JSONReader, NextBodyKnowsNothingOfTheLast) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "[{},1]", true), -4);
  EXPECT_EQ(feed(&reader, "[{\"a\":\"1\"}]", true), 0);
  EXPECT_EQ(shapeOf(reader), "req{[{\"a\":\"1\"}}");
}

TEST(JSONReader, OffsetIsWhereTheScanStopped) {
  const std::pair<const char*, int> cases[] = {
      {"abc", 3}, {"[ 1]", 2},   {"{\"a\":1}", 7},        {"[{},1]", 4},
      {" ", 1},   {"x ( {}", 2}, {"{\"a\":\"x\"} ]", 10}, {"{}", 2}};
  for (const auto& [text, offset] : cases) {
    JSONReader reader;
    feed(&reader, text, true);
    EXPECT_EQ(reader.getOffset(), offset) << text;
  }
}

TEST(JSONReader, ClearForgetsThatADocumentWasComplete) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "{}", true), 0);
  reader.clear();
  EXPECT_EQ(feed(&reader, " ", true), -1) << "only blanks are no document";
}

TEST(JSONReader, ClearForgetsWhatWasGathered) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "[{\"a\":\"x\","), 0);
  reader.clear();
  EXPECT_EQ(feed(&reader, "{\"c\":\"y\"}"), 0);
  EXPECT_EQ(shapeOf(reader), "req{\"c\":\"y\"}");
}

TEST(JSONReader, ClearServesBothBasesAndForgetsWhatIsOpen) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "[1]"), -2);
  static_cast<TreeNode*>(&reader)->clear();
  EXPECT_EQ(shapeOf(reader), "");
  EXPECT_EQ(feed(&reader, "[{\"a\":\"1\"}]"), 0);
  EXPECT_EQ(shapeOf(reader), "req{[{\"a\":\"1\"}}");
  static_cast<TreeReader*>(&reader)->clear();
  EXPECT_EQ(shapeOf(reader), "");
  reader.readNodeValue("dropped", true);
  reader.readNodeEnd("none");
  reader.readNodeBegin("name", true);
  EXPECT_EQ(shapeOf(reader), "name") << "the first node is the root, which is never quoted";
}

TEST(JSONReader, InitializeAndReadyReadDoNothing) {
  JSONReader reader;
  EXPECT_EQ(feed(&reader, "{\"a\":"), 0);
  reader.initialize();
  reader.readyRead();
  EXPECT_EQ(feed(&reader, "\"x\"}"), 0);
  EXPECT_EQ(shapeOf(reader), "req{\"a\":\"x\"}");
}

TEST(JSONReader, ReadEntryAddsALeaf) {
  JSONReader reader;
  reader.readNodeBegin("req", false);
  reader.readEntry("a", "1", true, false);
  reader.readEntry("c", "x", false, true);
  EXPECT_EQ(shapeOf(reader), "req{\"a\":'1' c:\"x\"}");
}

TEST(JSONReader, RawDataIsTheTextWithoutPrefix) {
  JSONReader reader;
  EXPECT_EQ(textOf(*reader.getRawData("prefix")), "{}");
  EXPECT_EQ(feed(&reader, "data = {\"a\":\"x\", \"n\":1 ,\"l\":[{},{\"k\":\"v\"}]}"), 0);
  const std::string text = "data = {\"a\":\"x\",\"n\":1 ,\"l\":[{},{\"k\":\"v\"}]}";
  EXPECT_EQ(textOf(*reader.getRawData("prefix")), text);
  EXPECT_EQ(textOf(*reader.getRawData("")), text) << "nothing of the last call is left";
}

TEST(JSONReader, DestructorReleasesTheTree) {
  Stations::startFresh();
  {
    JSONReader reader;
    feed(&reader, "{\"a\":\"x\",\"o\":{\"k\":\"v\"}}");
  }
  EXPECT_EQ(Stations::nodesKept(), 3u);
}

}  // namespace
