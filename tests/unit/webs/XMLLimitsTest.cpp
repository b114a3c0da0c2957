// How large a few bytes of a document may become: entities, attributes of a DTD, and the places of
// errors. The documents are parsed on a small stack.
#include <gtest/gtest.h>

#include "tests/support/CapturedStderr.h"
#include "tests/support/SmallStack.h"
#include "tests/support/TreeShape.h"
#include "webs/XMLReader.h"

namespace {

using support::CapturedStderr;
using support::onSmallStack;
using webs::EntityNesting;
using webs::XMLReader;

const int OK = 1;
const int ERROR = 0;

const char DEEP[] = "stopParser: the document declares too many entities, or nests them too deep";
const char UNFOLDS[] = "the document unfolds to many times its size";

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; i++) all += text;
  return all;
}

struct Outcome {
  int status = -1;
  std::string shape, problem;
  int nodes = 0;
  std::vector<std::string> log;
};

Outcome parsed(const std::string& text) {
  Outcome outcome;
  onSmallStack([&] {
    Stations::startFresh();
    CapturedStderr log(-4);
    XMLReader reader;
    reader.initialize();
    outcome.status = reader.streamIn(text.data(), static_cast<int>(text.size()), 1);
    outcome.nodes = Stations::nodesCreated();
    if (outcome.nodes < 1000) outcome.shape = shapeOf(reader);
    outcome.problem = reader.getProblem();
    outcome.log = log.ownMessages();
  });
  return outcome;
}

void expectRefused(const Outcome& outcome, const std::string& line) {
  EXPECT_EQ(outcome.status, ERROR);
  ASSERT_EQ(outcome.log.size(), 1u) << "one line tells why";
  EXPECT_NE(outcome.log[0].find(line), std::string::npos) << outcome.log[0];
}

// Entities e1 = text to eLEVELS, each of which repeats the previous one so many times.
std::string entities(int levels, const std::string& text, int times = 1) {
  std::string all = "<!ENTITY e1 '" + text + "'>";
  for (int i = 2; i <= levels; i++) {
    const std::string one = "&e" + std::to_string(i - 1) + ";";
    all += "<!ENTITY e" + std::to_string(i) + " '" + repeated(one, times) + "'>";
  }
  return all;
}

// A document whose element has the last entity: as its content, in an attribute, or in an attribute
// that the DTD adds.
enum class Place { CONTENT, ATTRIBUTE, DEFAULT };

std::string documentOf(const std::string& declarations, int last, Place place) {
  const std::string one = "&e" + std::to_string(last) + ";";
  const std::string begin = "<!DOCTYPE l [" + declarations;
  if (place == Place::CONTENT) return begin + "]><l>" + one + "</l>";
  if (place == Place::ATTRIBUTE) return begin + "]><l x='" + one + "'/>";
  return begin + "<!ATTLIST l x CDATA '" + one + "'>]><l/>";
}

class XMLReaderEntityChain : public testing::TestWithParam<Place> {};

// 729 in content and 1781 in an attribute overflow the stack in expat 2.5.0.
TEST_P(XMLReaderEntityChain, CannotOverflowTheStack) {
  for (const int levels : {EntityNesting::MAX_LEVELS + 1, 800, 1000}) {
    expectRefused(parsed(documentOf(entities(levels, "x"), levels, GetParam())), DEEP);
  }
}

TEST_P(XMLReaderEntityChain, IsReplacedUpToTheLimit) {
  const int levels = EntityNesting::MAX_LEVELS;
  const Outcome outcome = parsed(documentOf(entities(levels, "x"), levels, GetParam()));
  EXPECT_EQ(outcome.status, OK) << outcome.problem;
  EXPECT_EQ(outcome.shape, GetParam() == Place::CONTENT ? "{l:'x'}" : "{l@x=x}");
  EXPECT_EQ(outcome.problem, "");
  EXPECT_TRUE(outcome.log.empty());
}

INSTANTIATE_TEST_SUITE_P(Place, XMLReaderEntityChain,
                         testing::Values(Place::CONTENT, Place::ATTRIBUTE, Place::DEFAULT));

TEST(XMLReaderEntityLimits, TooManyAreRefusedThoughNoneIsUsed) {
  std::string some;
  for (int i = 0; i < EntityNesting::MAX_ENTITIES; i++) {
    some += "<!ENTITY a" + std::to_string(i) + " 'x'>";
  }
  EXPECT_EQ(parsed("<!DOCTYPE l [" + some + "]><l/>").status, OK);
  expectRefused(parsed("<!DOCTYPE l [" + some + "<!ENTITY more 'x'>]><l/>"), DEEP);
}

TEST(XMLReaderEntityLimits, OnlyEntitiesWithATextOfTheirOwnCount) {
  std::string others;
  for (int i = 0; i <= EntityNesting::MAX_ENTITIES; i++) {
    const std::string name = "a" + std::to_string(i);
    others += "<!ENTITY " + name + " SYSTEM 'file'><!ENTITY % " + name + " 'x'>";
    others += "<!ENTITY first 'declared again'>";
  }
  EXPECT_EQ(parsed("<!DOCTYPE l [" + others + "]><l>&first;</l>").shape, "{l:'declared again'}");
}

TEST(XMLReaderEntityLimits, NextDocumentCountsAnew) {
  XMLReader reader;
  reader.initialize();
  const std::string text = documentOf(entities(EntityNesting::MAX_LEVELS, "x"),
                                      EntityNesting::MAX_LEVELS, Place::CONTENT);
  for (int i = 0; i < 40; i++) {
    EXPECT_EQ(reader.streamIn(text.data(), static_cast<int>(text.size()), 1), OK);
    reader.clear();
    reader.readyRead();
  }
}

// Some 400 bytes that expat expands to two million elements, 369 MB.
TEST(XMLReaderUnfolding, EntitiesOfElementsAreRefused) {
  const std::string text = documentOf(entities(7, "<i/>", 11), 7, Place::CONTENT);
  EXPECT_LT(text.size(), 520u);
  const Outcome outcome = parsed(text);
  expectRefused(outcome, UNFOLDS);
  EXPECT_LE(outcome.nodes, XMLReader::MAX_UNFOLDED / 4 + 2);
}

// Half a million bytes each: expat alone would begin to check at 8 MiB.
TEST(XMLReaderUnfolding, WhatOnlyTheParserSeesIsRefusedToo) {
  const std::string tenTimes = entities(6, "12345", 10);
  expectRefused(parsed(documentOf(tenTimes, 6, Place::ATTRIBUTE)), UNFOLDS);
  expectRefused(parsed(documentOf(entities(6, "", 10), 6, Place::CONTENT)), UNFOLDS);
  const Outcome less = parsed(documentOf(tenTimes, 5, Place::ATTRIBUTE));
  EXPECT_EQ(less.status, OK) << "50,000 bytes are not many";
}

TEST(XMLReaderUnfolding, AttributesThatADtdAddsAreRefused) {
  const std::string begin =
      "<!DOCTYPE l [<!ATTLIST i x CDATA '" + repeated("0123456789", 100) + "'>]><l>";
  EXPECT_EQ(parsed(begin + repeated("<i/>", 200) + "</l>").status, OK);
  const Outcome outcome = parsed(begin + repeated("<i/>", 5000) + "</l>");
  expectRefused(outcome, std::string("stopParser: ") + UNFOLDS);
  EXPECT_LT(outcome.nodes, 300);
}

TEST(XMLReaderUnfolding, LargeDocumentsMayUseEntities) {
  const std::string begin = "<!DOCTYPE l [<!ENTITY who 'The Company of the Long Name'>]><l>";
  const std::string line = "<p>Written by &who; for whoever reads it.</p>";
  const Outcome outcome = parsed(begin + repeated(line, 20000) + "</l>");
  EXPECT_EQ(outcome.status, OK) << outcome.problem;
  EXPECT_EQ(outcome.nodes, 20001);
}

// The rest of a document cannot compensate for an expansion at its beginning, in one piece or in
// many.
TEST(XMLReaderUnfolding, WhatIsRefusedDoesNotDependOnPieces) {
  const std::string added = "<!DOCTYPE l [<!ATTLIST i x CDATA '" + repeated("x", 1000) + "'>]><l>";
  const std::string text = added + repeated("<i/>", 500) + repeated("plain text\n", 50000) + "</l>";
  for (const size_t size : {text.size(), size_t{1000}, size_t{10}}) {
    CapturedStderr log(-4);
    XMLReader reader;
    reader.initialize();
    int status = OK;
    for (size_t at = 0; at < text.size() && status == OK; at += size) {
      const std::string piece = text.substr(at, size);
      status = reader.streamIn(piece.data(), static_cast<int>(piece.size()), 0);
    }
    EXPECT_EQ(status, ERROR) << "in pieces of " << size;
    EXPECT_LT(reader.getElem(0)->numberOfElem(), 300) << "in pieces of " << size;
  }
}

// An encoding with fewer bytes than UTF-8 is no expansion.
TEST(XMLReaderUnfolding, EncodingsMakeNoDifference) {
  std::string wide = "\xFF\xFE<";
  wide += std::string("\0a\0>\0", 5);
  wide += repeated("\x2D\x4E", 400000) + std::string("<\0/\0a\0>\0", 8);
  const Outcome outcome = parsed(wide);
  EXPECT_EQ(outcome.status, OK) << outcome.problem;
  const std::string latin = "<?xml version='1.0' encoding='ISO-8859-1'?><a>";
  EXPECT_EQ(parsed(latin + repeated("\xE9", 600000) + "</a>").status, OK);
}

TEST(XMLReaderProblem, NamesReasonLineAndColumn) {
  EXPECT_EQ(parsed("<a>\n  <b>1</c>\n</a>").problem, "mismatched tag at line 2, column 9");
  EXPECT_EQ(parsed("").problem, "no element found at line 1, column 1");
  EXPECT_EQ(parsed("<a/>").problem, "");
  EXPECT_EQ(parsed("<?xml version='1.0' encoding='x-klingon'?>\n<a/>").problem,
            "unknown encoding \"x-klingon\" at line 1, column 31");
  EXPECT_EQ(parsed(documentOf(entities(70, "x"), 70, Place::CONTENT)).problem.substr(0, 40),
            std::string(DEEP).substr(12, 40));
}

TEST(XMLReaderProblem, FirstOneStaysUntilTheNextDocument) {
  XMLReader reader;
  EXPECT_EQ(reader.getProblem(), "");
  reader.initialize();
  EXPECT_EQ(reader.streamIn("<a></b>", 7, 0), ERROR);
  EXPECT_EQ(reader.streamIn("more", 4, 1), ERROR);
  EXPECT_EQ(reader.getProblem(), "mismatched tag at line 1, column 6");
  reader.readyRead();
  EXPECT_EQ(reader.getProblem(), "");
}

}  // namespace
