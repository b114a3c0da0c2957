#include <gtest/gtest.h>

#include "tests/support/TreeShape.h"
#include "webs/JSONReader.h"
#include "webs/MethodResponse.h"
#include "webs/XMLReader.h"

namespace {

using webs::JSONReader;
using webs::MethodResponse;
using webs::TreeNode;
using webs::XMLReader;

// Succeeds if the tree has a node "state" of value "ok"; fails with the value of "reason".
class StateResponse : public MethodResponse {
 public:
  explicit StateResponse(TreeNode* tree) : root(tree) {}
  void processResult() override {
    processed++;
    success = root->findElem("state", "ok") != nullptr;
    if (success) return;
    errorCode = root->findValue("code");
    errorMsg = root->findValue("reason");
  }
  int processed = 0;

 private:
  TreeNode* root;
};

int receive(MethodResponse* response, std::string piece) {
  return response->receive(piece.data(), static_cast<int>(piece.size()), nullptr, 7);
}

void call(MethodResponse* response, const std::vector<std::string>& pieces) {
  response->readyReceive();
  for (const std::string& piece : pieces) {
    ASSERT_EQ(receive(response, piece), static_cast<int>(piece.size()));
  }
  response->finishReceive();
}

TEST(MethodResponse, StartsWithoutAnOutcome) {
  MethodResponse response;
  response.initialize(nullptr);
  EXPECT_FALSE(response.isSuccess());
  EXPECT_EQ(response.getErrorCode(), "");
  EXPECT_EQ(response.getErrorMsg(), "");
  EXPECT_EQ(response.findResultStruct(), nullptr);
}

TEST(MethodResponse, ThreePiecesOfXmlGiveTheTreeOfOne) {
  XMLReader reader;
  MethodResponse response;
  response.initialize(&reader);
  call(&response, {"<r><state>ok</state></r>"});
  const std::string whole = shapeOf(reader);
  EXPECT_EQ(whole, "{r{state:'ok'}}");
  call(&response, {"<r><st", "ate>o", "k</state></r>"});
  EXPECT_EQ(shapeOf(reader), whole);
}

TEST(MethodResponse, ThreePiecesOfJsonGiveTheTreeOfOne) {
  JSONReader reader;
  MethodResponse response;
  response.initialize(&reader);
  call(&response, {"{\"state\":\"ok\",\"n\":1 }"});
  const std::string whole = shapeOf(reader);
  EXPECT_EQ(whole, "req{\"state\":\"ok\" \"n\":'1'}");
  call(&response, {"{\"st", "ate\":\"o", "k\",\"n\":1 }"});
  EXPECT_EQ(shapeOf(reader), whole);
  call(&response, {"{\"state\":\"ok\"", ",\"n\":1 }", ";\n-- end"});
  EXPECT_EQ(shapeOf(reader), whole);
}

TEST(MethodResponse, DerivedResponseSetsTheOutcomeAtTheEnd) {
  XMLReader reader;
  StateResponse response(&reader);
  response.initialize(&reader);
  response.readyReceive();
  receive(&response, "<r><state>ok</state></r>");
  EXPECT_FALSE(response.isSuccess());
  response.finishReceive();
  EXPECT_TRUE(response.isSuccess());
  EXPECT_EQ(response.processed, 1);
}

TEST(MethodResponse, ReadyReceiveForgetsTheLastCall) {
  XMLReader reader;
  StateResponse response(&reader);
  response.initialize(&reader);
  call(&response, {"<r><code>12</code><reason>busy</reason></r>"});
  EXPECT_FALSE(response.isSuccess());
  EXPECT_EQ(response.getErrorCode(), "12");
  EXPECT_EQ(response.getErrorMsg(), "busy");
  response.readyReceive();
  EXPECT_EQ(reader.numberOfElem(), 0);
  EXPECT_EQ(response.getErrorCode(), "");
  EXPECT_EQ(response.getErrorMsg(), "");
  call(&response, {"<r><state>ok</state></r>"});
  EXPECT_TRUE(response.isSuccess());
  response.readyReceive();
  EXPECT_FALSE(response.isSuccess());
}

TEST(MethodResponse, ParseErrorsDoNotEndTheTransfer) {
  XMLReader xml;
  StateResponse response(&xml);
  response.initialize(&xml);
  call(&response, {"<r><state>ok</wrong>", "more", ""});
  EXPECT_TRUE(response.isSuccess()) << "the response decides by the tree as far as it was built";
  EXPECT_EQ(response.processed, 1);
  JSONReader json;
  response.switchReader(&json);
  call(&response, {"]]]", "no json at all", ""});
  EXPECT_EQ(response.processed, 2);
}

TEST(MethodResponse, SwitchReaderDoesNotInitialize) {
  XMLReader reader;
  MethodResponse response;
  response.switchReader(&reader);
  EXPECT_EQ(receive(&response, "<a/>"), 4);
  EXPECT_EQ(reader.numberOfElem(), 0) << "the reader has no parser yet";
  response.initialize(&reader);
  receive(&response, "<a/>");
  EXPECT_EQ(reader.numberOfElem(), 1);
}

}  // namespace
