#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>

#include "tests/support/TreeShape.h"
#include "webs/XMLReader.h"

namespace {

using webs::TreeNode;
using webs::TreeReader;
using webs::XMLReader;

const char DECLARATION[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const int OK = 1;
const int ERROR = 0;

int feed(TreeReader* reader, const std::string& text, bool isFinal) {
  return reader->streamIn(text.data(), static_cast<int>(text.size()), isFinal ? 1 : 0);
}

class XMLReaderTest : public testing::Test {
 protected:
  void SetUp() override { reader.initialize(); }
  XMLReader reader;
};

TEST_F(XMLReaderTest, DocumentBecomesATree) {
  ASSERT_EQ(feed(&reader, "<a x=\"1\">hi<b/>there</a>", true), OK);
  ASSERT_EQ(reader.numberOfElem(), 1);
  TreeNode* a = reader.getElem(0);
  EXPECT_EQ(a->getKey(), "a");
  EXPECT_EQ(a->getAttrValue("x"), "1");
  EXPECT_EQ(a->getValue(), "hithere");
  ASSERT_EQ(a->numberOfElem(), 1);
  EXPECT_EQ(a->getElem(0)->getKey(), "b");
  EXPECT_EQ(a->getElem(0)->getValue(), "");
  EXPECT_EQ(reader.getKey(), "");
  EXPECT_EQ(reader.getParent(), nullptr);
}

TEST_F(XMLReaderTest, TextSplitOverPiecesIsJoined) {
  for (const char* piece : {"<a", ">he", "l", "lo</", "a>"})
    ASSERT_EQ(feed(&reader, piece, false), OK);
  ASSERT_EQ(feed(&reader, "", true), OK);
  EXPECT_EQ(shapeOf(reader), "{a:'hello'}");
}

TEST_F(XMLReaderTest, BlanksBetweenElementsBelongToTheParent) {
  ASSERT_EQ(feed(&reader, "<a> <b>1</b>\n<c/></a>", true), OK);
  EXPECT_EQ(shapeOf(reader), "{a:' \n'{b:'1' c}}");
}

TEST_F(XMLReaderTest, AttributesAndTextAreDecoded) {
  ASSERT_EQ(feed(&reader, "<a x='&lt;&quot;'>&amp;<![CDATA[<raw>]]>&#65;</a>", true), OK);
  EXPECT_EQ(shapeOf(reader), "{a@x=<\":'&<raw>A'}");
}

TEST_F(XMLReaderTest, FlagOfALeafIsFalse) {
  TreeNode* used = reader.createSubEntry("old");
  used->setLeafValue("v", true);
  reader.clear();
  ASSERT_EQ(feed(&reader, "<a>v</a>", true), OK);
  ASSERT_EQ(reader.getElem(0), used);
  EXPECT_FALSE(used->getLeafFlag());
}

TEST_F(XMLReaderTest, MalformedTextKeepsWhatWasBuilt) {
  EXPECT_EQ(feed(&reader, "<a><b>1</b></x>", false), ERROR);
  EXPECT_EQ(shapeOf(reader), "{a{b:'1'}}");
}

TEST_F(XMLReaderTest, NeedsClearAndReadyReadAfterATruncatedDocument) {
  EXPECT_EQ(feed(&reader, "<a><b>", true), ERROR);
  EXPECT_EQ(feed(&reader, "<c/>", true), ERROR) << "the parser is still in the old document";
  reader.clear();
  reader.readyRead();
  EXPECT_EQ(feed(&reader, "<c/>", true), OK);
  EXPECT_EQ(shapeOf(reader), "{c}");
}

TEST_F(XMLReaderTest, ReadyReadLeavesTheTree) {
  ASSERT_EQ(feed(&reader, "<a/>", true), OK);
  reader.readyRead();
  EXPECT_EQ(shapeOf(reader), "{a}");
  ASSERT_EQ(feed(&reader, "<b/>", true), OK);
  EXPECT_EQ(shapeOf(reader), "{a b}");
}

TEST_F(XMLReaderTest, SecondInitializeDoesNothing) {
  ASSERT_EQ(feed(&reader, "<a>", false), OK);
  reader.initialize();
  EXPECT_EQ(feed(&reader, "</a>", true), OK) << "the parser is still in the document";
}

TEST(XMLReader, RefusesTextBeforeItIsPrepared) {
  XMLReader reader;
  EXPECT_EQ(feed(&reader, "<a/>", true), ERROR);
  EXPECT_EQ(feed(&reader, "", true), ERROR);
}

TEST(XMLReader, ReadyReadPreparesTooAndInitializeReplacesItsParser) {
  XMLReader reader;
  reader.readyRead();
  ASSERT_EQ(feed(&reader, "<a>", false), OK);
  reader.initialize();
  reader.clear();
  EXPECT_EQ(feed(&reader, "<b/>", true), OK) << "a new document";
  EXPECT_EQ(shapeOf(reader), "{b}");
}

TEST_F(XMLReaderTest, ClearServesBothBases) {
  TreeNode* asNode = &reader;
  TreeReader* asReader = &reader;
  ASSERT_EQ(feed(&reader, "<a><b>", false), OK);
  asNode->clear();
  EXPECT_EQ(reader.numberOfElem(), 0);
  ASSERT_EQ(feed(&reader, "<c>", false), OK);
  EXPECT_EQ(shapeOf(reader), "{c}") << "the root is current again";
  asReader->clear();
  EXPECT_EQ(reader.numberOfElem(), 0);
}

TEST_F(XMLReaderTest, AnEndTooManyDropsWhatFollows) {
  reader.readNodeEnd("a");
  reader.readNodeEnd("a");
  reader.readNodeValue("text", false);
  reader.readEntryAttri("x", "1", false);
  reader.readNodeBegin("a", false);
  EXPECT_EQ(shapeOf(reader), "");
  reader.clear();
  reader.readNodeBegin("a", false);
  EXPECT_EQ(shapeOf(reader), "{a}");
}

TEST_F(XMLReaderTest, ClearInsideADocumentCannotCrashIt) {
  ASSERT_EQ(feed(&reader, "<a><b>", false), OK);
  reader.clear();
  EXPECT_EQ(feed(&reader, "</b></a>", true), OK);
  EXPECT_EQ(shapeOf(reader), "");
}

TEST_F(XMLReaderTest, RawDataIsPrefixDeclarationElements) {
  ASSERT_EQ(sizeof(DECLARATION) - 1, 38u);
  ASSERT_EQ(feed(&reader, "<a x=\"1\"><b/><c>v</c></a>", true), OK);
  const std::string elements = "<a x=\"1\"><b/><c>v</c></a>";
  EXPECT_EQ(textOf(*reader.getRawData("")), DECLARATION + elements);
  EXPECT_EQ(textOf(*reader.getRawData("data=")), "data=" + (DECLARATION + elements))
      << "the prefix comes before the declaration, and nothing of the last call is left";
}

TEST_F(XMLReaderTest, RawDataOfAnEmptyTreeIsTheDeclaration) {
  EXPECT_EQ(textOf(*reader.getRawData("")), DECLARATION);
}

TEST(XMLReader, DestructorEmptiesTheStations) {
  Stations::startFresh();
  auto reader = std::make_unique<XMLReader>();
  reader->initialize();
  ASSERT_EQ(feed(reader.get(), "<a x='1'><b/></a>", true), OK);
  reader.reset();
  EXPECT_EQ(Stations::nodesKept(), 0u);
  EXPECT_EQ(Stations::attributesKept(), 0u);
  EXPECT_EQ(Stations::nodesCreated(), 2);
}

// The stations outlive every reader, even this one, which is destroyed after main().
TEST(XMLReader, MayDieAtExit) {
  static XMLReader reader;
  reader.initialize();
  EXPECT_EQ(feed(&reader, "<a x='1'><b/></a>", true), OK);
}

// Throws in one of its operations, and counts elements.
class ThrowingReader : public XMLReader {
 public:
  enum Where { NOWHERE, BEGIN, END, VALUE };
  explicit ThrowingReader(Where place) : where(place) { initialize(); }
  void readNodeBegin(const char* name, bool flag) override {
    begun++;
    if (where == BEGIN) throw std::bad_alloc();
    XMLReader::readNodeBegin(name, flag);
  }
  void readNodeEnd(const char* name) override {
    if (where == END) throw std::runtime_error("end");
    XMLReader::readNodeEnd(name);
  }
  void readNodeValue(const char* text, bool flag) override {
    if (where == VALUE) throw 1;
    XMLReader::readNodeValue(text, flag);
  }
  int begun = 0;

 private:
  const Where where;
};

TEST(XMLReader, DerivedReaderIsCalledThroughTheSlots) {
  ThrowingReader reader(ThrowingReader::NOWHERE);
  EXPECT_EQ(feed(&reader, "<a><b/></a>", true), OK);
  EXPECT_EQ(reader.begun, 2);
}

TEST(XMLReader, ExceptionOfACallbackIsAParseError) {
  for (const auto where : {ThrowingReader::BEGIN, ThrowingReader::END, ThrowingReader::VALUE}) {
    ThrowingReader reader(where);
    EXPECT_EQ(feed(&reader, "<a>text</a>", true), ERROR) << where;
    reader.clear();
    reader.readyRead();
    EXPECT_EQ(feed(&reader, "<a>text</a>", true), ERROR) << where;
  }
}

TEST_F(XMLReaderTest, EntityBombIsAnError) {
  std::string bomb = "<!DOCTYPE a [<!ENTITY e0 \"0123456789\">";
  for (int i = 1; i < 10; i++) {
    const std::string last = "&e" + std::to_string(i - 1) + ";";
    bomb += "<!ENTITY e" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; j++) bomb += last;
    bomb += "\">";
  }
  EXPECT_EQ(feed(&reader, bomb + "]><a>&e9;</a>", true), ERROR);
}

}  // namespace
