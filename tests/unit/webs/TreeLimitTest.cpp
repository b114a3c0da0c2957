#include <gtest/gtest.h>

#include "tests/support/CapturedStderr.h"
#include "tests/support/TreeShape.h"
#include "webs/JSONReader.h"
#include "webs/MethodResponse.h"
#include "webs/XMLReader.h"

namespace {

using support::CapturedStderr;
using webs::JSONReader;
using webs::MethodResponse;
using webs::TreeNode;
using webs::TreeReader;
using webs::XMLReader;

const int XML_OK = 1;
const int XML_ERROR = 0;
const int JSON_FULL = -6;
// More than the bytes counted for a node with a short name.
const long long NODE_BYTES = sizeof(TreeNode) + 32;

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; i++) all += text;
  return all;
}

int feed(TreeReader* reader, const std::string& text, bool isFinal) {
  return reader->streamIn(text.data(), static_cast<int>(text.size()), isFinal ? 1 : 0);
}

// The only line that is logged when that limit is exceeded.
std::vector<std::string> lineOf(long long nodes, long long bytes) {
  return {"refuse: the tree exceeds its limit of " + std::to_string(nodes) + " nodes and " +
          std::to_string(bytes) + " bytes"};
}

class TreeLimitXML : public testing::Test {
 protected:
  void SetUp() override { reader.initialize(); }
  // Expects that a document needs at least `least` and at most `most` bytes.
  void expectBytes(const std::string& text, long long least, long long most) {
    for (const long long bytes : {least - 1, most}) {
      reader.clear();
      reader.readyRead();
      reader.setTreeLimit(0, bytes);
      EXPECT_EQ(feed(&reader, text, true), bytes == most ? XML_OK : XML_ERROR) << bytes;
    }
  }
  CapturedStderr log{-4};
  XMLReader reader;
};

TEST_F(TreeLimitXML, NodesUpToTheLimitAreTaken) {
  reader.setTreeLimit(4, 0);
  EXPECT_EQ(feed(&reader, "<a><b/><c/><d/></a>", true), XML_OK);
  EXPECT_FALSE(reader.isTreeFull());
  EXPECT_TRUE(log.ownMessages().empty());
}

TEST_F(TreeLimitXML, OneNodeMoreIsAParseError) {
  reader.setTreeLimit(4, 0);
  EXPECT_EQ(feed(&reader, "<a><b/><c/><d/><e x='1'>text</e><f/></a>", true), XML_ERROR);
  EXPECT_TRUE(reader.isTreeFull());
  EXPECT_EQ(shapeOf(reader), "{a{b c d}}");
  EXPECT_EQ(reader.getProblem().substr(0, 42), "the tree exceeds its limit at line 1, colu");
  EXPECT_EQ(feed(&reader, "<g/>", false), XML_ERROR);
  EXPECT_EQ(log.ownMessages(), lineOf(4, 0));
}

TEST_F(TreeLimitXML, EmptiedTreeTakesAsManyAgain) {
  reader.setTreeLimit(2, 0);
  EXPECT_EQ(feed(&reader, "<a><b/><c/></a>", true), XML_ERROR);
  reader.readyRead();
  EXPECT_EQ(feed(&reader, "<a/>", true), XML_ERROR) << "the tree is not empty yet";
  reader.clear();
  reader.readyRead();
  EXPECT_EQ(feed(&reader, "<a><b/></a>", true), XML_OK);
  reader.readyRead();
  EXPECT_EQ(feed(&reader, "<c/>", true), XML_ERROR) << "the documents share the tree";
}

TEST_F(TreeLimitXML, NodesTextAndAttributesCountAsBytes) {
  expectBytes("<a/>", sizeof(TreeNode), NODE_BYTES);
  expectBytes("<a>" + std::string(5000, 'x') + "</a>", 5000, 5000 + NODE_BYTES);
  expectBytes("<a>" + repeated("line\n", 1000) + "</a>", 5000, 5000 + NODE_BYTES);
  expectBytes("<a x='" + std::string(5000, 'x') + "'/>", 5000 + sizeof(TreeNode::Attribute),
              5000 + 2 * NODE_BYTES);
  expectBytes("<" + std::string(5000, 'n') + "/>", 5000, 5000 + NODE_BYTES);
  expectBytes("<a>" + repeated("<i/>", 1000) + "</a>", 1000 * sizeof(TreeNode), 1001 * NODE_BYTES);
}

// expat buffers a tag until it ends.
TEST_F(TreeLimitXML, TextThatWaitsToBeParsedCounts) {
  reader.setTreeLimit(0, 20000);
  EXPECT_EQ(feed(&reader, "<a>" + repeated("<!-- no part of the tree -->", 2000), false), XML_OK);
  int pieces = 0;
  std::string piece = "<b x='" + std::string(994, 'x');
  while (pieces < 100 && feed(&reader, piece, false) == XML_OK) {
    pieces++;
    piece.assign(1000, 'x');
  }
  EXPECT_EQ(pieces, 19);
  EXPECT_TRUE(reader.isTreeFull());
  EXPECT_EQ(feed(&reader, "'/></a>", true), XML_ERROR);
  EXPECT_EQ(log.ownMessages(), lineOf(0, 20000));
}

TEST_F(TreeLimitXML, ThereIsNoneToBeginWith) {
  EXPECT_EQ(feed(&reader, "<a>" + repeated("<i/>", 50000) + "</a>", true), XML_OK);
}

TEST(TreeLimitJSON, OneNodeMoreIsAParseError) {
  CapturedStderr log(-4);
  JSONReader reader;
  reader.setTreeLimit(3, 0);
  EXPECT_EQ(feed(&reader, "{\"a\":\"x\",\"c\":\"y\"}", true), 0);
  EXPECT_TRUE(log.ownMessages().empty());
  EXPECT_EQ(feed(&reader, "{\"a\":\"x\",\"c\":\"y\",\"d\":\"z\"}", true), JSON_FULL);
  EXPECT_EQ(shapeOf(reader), "req{\"a\":\"x\" \"c\":\"y\"}");
  EXPECT_TRUE(reader.isTreeFull());
  EXPECT_EQ(log.ownMessages(), lineOf(3, 0));
  EXPECT_EQ(feed(&reader, "[{}]", true), 0) << "the next body has a tree of its own";
}

TEST(TreeLimitJSON, ScanEndsWhereTheTreeIsFull) {
  CapturedStderr log(-4);
  JSONReader reader;
  reader.setTreeLimit(100, 0);
  const std::string text = "[{}" + repeated(",{}", 100000) + "]";
  EXPECT_EQ(feed(&reader, text, true), JSON_FULL);
  EXPECT_EQ(reader.numberOfElem(), 99);
  EXPECT_LT(reader.getOffset(), 400);
}

TEST(TreeLimitJSON, NodesValuesAndTheBodyCountAsBytes) {
  const std::string value(5000, 'x');
  const std::string text = "{\"a\":\"" + value + "\"}";
  const long long most = static_cast<long long>(text.size()) + 5000 + 2 * NODE_BYTES;
  for (const long long bytes : {9999LL, most}) {
    CapturedStderr log(-4);
    JSONReader reader;
    reader.setTreeLimit(0, bytes);
    EXPECT_EQ(feed(&reader, text, true), bytes == most ? 0 : JSON_FULL);
    reader.clear();
    EXPECT_EQ(feed(&reader, text, false), bytes == most ? 0 : JSON_FULL);
    EXPECT_EQ(feed(&reader, "\n", false), bytes == most ? 0 : JSON_FULL);
  }
}

TEST(TreeLimitJSON, GatheredTextIsGivenUpAtTheLimit) {
  CapturedStderr log(-4);
  JSONReader reader;
  reader.setTreeLimit(0, 10000);
  int pieces = 0;
  while (pieces < 100 && feed(&reader, "{" + std::string(999, ' '), false) == 0) pieces++;
  EXPECT_EQ(pieces, 10);
  EXPECT_EQ(feed(&reader, "}", false), JSON_FULL);
  EXPECT_EQ(reader.streamIn(nullptr, 0, 1), 0);
  EXPECT_EQ(shapeOf(reader), "");
  EXPECT_EQ(log.ownMessages(), lineOf(0, 10000));
  reader.clear();
  EXPECT_EQ(feed(&reader, "[{}]", true), 0);
}

// Keeps the data passed to processResult().
class Seen : public MethodResponse {
 public:
  explicit Seen(TreeNode* tree) : root(tree) {}
  void processResult() override { shape = shapeOf(*root); }
  std::string shape = "not called";

 private:
  TreeNode* root;
};

void call(MethodResponse* response, const std::vector<std::string>& pieces) {
  response->readyReceive();
  for (std::string piece : pieces) {
    const int size = static_cast<int>(piece.size());
    ASSERT_EQ(response->receive(piece.data(), size, nullptr, 1), size) << "the transfer goes on";
  }
  response->finishReceive();
}

TEST(TreeLimitResponse, CallThatExceedsItGoesAsAMalformedOne) {
  CapturedStderr log(-4);
  XMLReader xml;
  Seen response(&xml);
  response.setTreeLimit(3, 1000000);
  response.initialize(&xml);
  call(&response, {"<a><b/>", "<c/><d/>", "<e/></a>"});
  EXPECT_EQ(response.shape, "{a{b c}}");
  EXPECT_EQ(log.ownMessages(), lineOf(3, 1000000));
  call(&response, {"<a><b/>", "<c/></a>"});
  EXPECT_EQ(response.shape, "{a{b c}}");
  EXPECT_EQ(log.ownMessages().size(), 1u) << "the next call begins anew";
}

TEST(TreeLimitResponse, ReaderThatWasSwitchedToGetsItToo) {
  CapturedStderr log(-4);
  JSONReader json;
  Seen response(&json);
  response.setTreeLimit(2, 0);
  response.switchReader(&json);
  call(&response, {"{\"a\":\"x\",", "\"c\":\"y\"}"});
  EXPECT_EQ(response.shape, "req{\"a\":\"x\"}");
  response.setTreeLimit(0, 0);
  call(&response, {"{\"a\":\"x\",", "\"c\":\"y\"}"});
  EXPECT_EQ(response.shape, "req{\"a\":\"x\" \"c\":\"y\"}");
}

TEST(TreeLimitResponse, HoldsForTheFirstBodyAfterInitialize) {
  CapturedStderr log(-4);
  XMLReader xml;
  MethodResponse response;
  response.setTreeLimit(1, 0);
  response.initialize(&xml);
  std::string body = "<a><c/></a>";
  response.receive(body.data(), static_cast<int>(body.size()), nullptr, 1);
  EXPECT_EQ(shapeOf(xml), "{a}");
}

TEST(TreeLimitResponse, IsAMillionNodesUnlessSet) {
  CapturedStderr log(-4);
  XMLReader xml;
  MethodResponse response;
  response.initialize(&xml);
  const std::string elements = repeated("<i/>", 100000);
  std::vector<std::string> pieces(10, elements);
  pieces.insert(pieces.begin(), "<a>");
  call(&response, pieces);
  ASSERT_EQ(xml.numberOfElem(), 1);
  EXPECT_EQ(xml.getElem(0)->numberOfElem(), 999999);
  EXPECT_EQ(log.ownMessages(), lineOf(1000000, 256 * 1024 * 1024));
}

}  // namespace
