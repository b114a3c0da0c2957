#include <gtest/gtest.h>

#include "tests/support/TreeShape.h"
#include "webs/JSONParser.h"
#include "webs/TreeReader.h"

namespace {

using webs::JSONParser;

// Records the scanner's reports: (name for a beginning, ) for an end, 'value' or "value".
class Recorder : public webs::TreeReader {
 public:
  int streamIn(const char*, int, int) override { return 0; }
  void initialize() override {}
  void clear() override {}
  void readNodeBegin(const char* name, bool flag) override {
    calls += '(' + std::string(name);
    flagged = flagged || flag;
  }
  void readNodeEnd(const char*) override { calls += ')'; }
  void readNodeValue(const char* text, bool quoted) override {
    const char quote = quoted ? '"' : '\'';
    calls += quote + std::string(text) + quote;
  }
  void readyRead() override {}
  std::vector<unsigned char>* getRawData(const std::string&) override { return nullptr; }

  std::string calls;
  bool flagged = false;
};

struct Case {
  const char* text;
  int result;
  const char* calls;
};

void PrintTo(const Case& c, std::ostream* out) { *out << c.text; }

class JSONParserScan : public testing::TestWithParam<Case> {};

TEST_P(JSONParserScan, ReportsWhatItMeets) {
  Recorder recorder;
  JSONParser parser(&recorder);
  // A copy of the exact size, so that a sanitizer notices a read past the end.
  const std::string given = GetParam().text;
  const std::vector<char> text(given.begin(), given.end());
  EXPECT_EQ(parser.parse(text.data(), static_cast<int>(text.size()), 1), GetParam().result);
  EXPECT_EQ(recorder.calls, GetParam().calls);
  EXPECT_FALSE(recorder.flagged) << "keys hold their own quotes";
}

INSTANTIATE_TEST_SUITE_P(
    Objects, JSONParserScan,
    testing::Values(Case{"{}", 0, "(req)"}, Case{" \n{ \t}\r\n", 0, "(req)"},
                    Case{"{\"a\":\"x\"}", 0, "(req(\"a\"\"x\"))"},
                    Case{"{\"a\":\"x\",\"c\":\"\"}", 0, "(req(\"a\"\"x\")(\"c\"\"\"))"},
                    Case{"{ \"a\" : \"x\" , \"c\" : \"y\" } ", 0, "(req(\"a\"\"x\")(\"c\"\"y\"))"},
                    Case{"data = {\"a\":\"x\"}", 0, "(data(\"a\"\"x\"))"},
                    Case{"data={\"a\":\"x\"}", 0, "(data(\"a\"\"x\"))"}, Case{"= {}", 0, "()"},
                    Case{"data = [{}]", 0, "(data([))"},
                    Case{"{\"o\":{\"k\":\"v\"}}", 0, "(req(\"o\"(\"k\"\"v\")))"},
                    Case{"{\"o\":{},\"z\":\"w\"}", 0, "(req(\"o\")(\"z\"\"w\"))"},
                    Case{"{\"o\":{\"p\":{}}}", 0, "(req(\"o\"(\"p\")))"},
                    Case{"{\"o\":{\"k\":\"v\"},\"z\":\"w\"}", 0,
                         "(req(\"o\"(\"k\"\"v\"))(\"z\"\"w\"))"},
                    Case{"{\"o\":{\"p\":{\"k\":\"v\"}},\"z\":{}}", 0,
                         "(req(\"o\"(\"p\"(\"k\"\"v\")))(\"z\"))"}));

INSTANTIATE_TEST_SUITE_P(
    Arrays, JSONParserScan,
    testing::Values(
        Case{"[{\"a\":\"1\"},{\"a\":\"2\"}]", 0, "(req([(\"a\"\"1\"))([(\"a\"\"2\")))"},
        Case{"[ {\"a\":\"1\"} , {\"a\":\"2\"} ] ", 0, "(req([(\"a\"\"1\"))([(\"a\"\"2\")))"},
        Case{"[{}]", 0, "(req([))"}, Case{"[ { } ]", 0, "(req([))"},
        Case{"[{},{\"a\":\"1\"}]", 0, "(req([)([[(\"a\"\"1\")))"},
        Case{"[{\"a\":\"1\"},{}]", 0, "(req([(\"a\"\"1\"))([))"},
        Case{"{\"l\":[{\"a\":\"1\"}],\"z\":\"w\"}", 0, "(req(\"l\"([(\"a\"\"1\")))(\"z\"\"w\"))"},
        Case{"{\"l\":[{\"a\":\"1\"}] , \"z\":\"w\"}", 0, "(req(\"l\"([(\"a\"\"1\")))(\"z\"\"w\"))"},
        Case{"{\"l\":[{}],\"z\":\"w\"}", 0, "(req(\"l\"([))(\"z\"\"w\"))"},
        Case{"{\"l\":[{\"a\":\"1\"}]}", 0, "(req(\"l\"([(\"a\"\"1\"))))"},
        Case{"[{\"o\":{\"k\":\"v\"}},{\"a\":\"2\"}]", 0,
             "(req([(\"o\"(\"k\"\"v\")))([(\"a\"\"2\")))"},
        Case{"[{\"l\":[{\"a\":\"1\"},{\"a\":\"2\"}]},{\"a\":\"3\"}]", 0,
             "(req([(\"l\"([[(\"a\"\"1\"))([(\"a\"\"2\"))))([(\"a\"\"3\")))"},
        Case{"{\"l\":[{\"m\":[{\"a\":\"1\"}]}],\"z\":\"w\"}", 0,
             "(req(\"l\"([(\"m\"([[(\"a\"\"1\")))))(\"z\"\"w\"))"}));

INSTANTIATE_TEST_SUITE_P(Oddities, JSONParserScan,
                         testing::Values(Case{"{\"a\":1}", -3, "(req(\"a\"'1}')"},
                                         Case{"{\"a\":1 ,\"c\":2 }", 0,
                                              "(req(\"a\"'1')(\"c\"'2'))"},
                                         Case{"{\"a\":1,\"c\":2 }", 0, "(req(\"a\"'1')(\"c\"'2'))"},
                                         Case{"{\"a\":bbig }", 0, "(req(\"a\"'ig'))"},
                                         Case{"{big:\"b\"}", 0, "(req(ig\"b\"))"},
                                         Case{"{\"a\": b\"x\"}", 0, "(req(\"a\"\"x\"))"},
                                         Case{"body = {\"a\":\"x\"}", 0, "(ody(\"a\"\"x\"))"},
                                         Case{"{\"a\":\"x\\\"y\"}", 0, "(req(\"a\"\"x\\\"))"},
                                         Case{"{\"a\":\"x\",}", 0, "(req(\"a\"\"x\")(})"},
                                         Case{"{\"a b\":\"x\"}", 0, "(req(\"a\"x\"))"},
                                         Case{"{\"a\":\"{x,y}\"}", 0, "(req(\"a\"\"{x,y}\"))"},
                                         Case{"{\"a\":,\"c\":1 }", 0, "(req(\"a\"',\"c\"'))"},
                                         Case{"{} trailing", 0, "(req)"},
                                         Case{"[{\"a\":\"1\"}", 0, "(req([(\"a\"\"1\")))"},
                                         Case{"{\"a\":\"x\"},{}", 0, "(req(\"a\"\"x\"))([)"}));

INSTANTIATE_TEST_SUITE_P(
    Errors, JSONParserScan,
    testing::Values(Case{"abc", -1, "(abc"}, Case{"abc = ", -1, "(abc"},
                    Case{"abc = x", -1, "(abc"}, Case{" ", -1, ""}, Case{"bbb\n", -1, ""},
                    Case{"\"a\":\"x\"", -1, "(\"a\""}, Case{"[]", -2, "(req"},
                    Case{"[1,2]", -2, "(req"}, Case{"[\"a\"]", -2, "(req"}, Case{"[ ", -2, "(req"},
                    Case{"[[]]", -2, "(req"}, Case{"{\"a\":\"x\"", -3, "(req(\"a\"\"x\")"},
                    Case{"{\"a\":\"x", -3, "(req(\"a\"\"x\")"},
                    Case{"{\"a\":\"", -3, "(req(\"a\"\"\")"}, Case{"[{},1]", -4, "(req([)"},
                    Case{"[{},", -4, "(req([)"}, Case{"{\"a\":\"x\"}]", -5, "(req(\"a\"\"x\"))"},
                    Case{"{\"o\":{\"k\":\"v\"}]", -5, "(req(\"o\"(\"k\"\"v\"))"}));

INSTANTIATE_TEST_SUITE_P(Truncated, JSONParserScan,
                         testing::Values(Case{"{", 0, "(req)"}, Case{"[", 0, "(req)"},
                                         Case{"{\"a\"", 0, "(req(\"a\")"},
                                         Case{"{\"a\":", 0, "(req(\"a\")"},
                                         Case{"{\"a\": ", 0, "(req(\"a\")"},
                                         Case{"{\"a\":{", 0, "(req(\"a\")"},
                                         Case{"{\"a\":\"x\",", 0, "(req(\"a\"\"x\"))"},
                                         Case{"{\"a\":\"x\", ", 0, "(req(\"a\"\"x\"))"},
                                         Case{"[{\"a\":\"1\"},", 0, "(req([(\"a\"\"1\")))"}));

TEST(JSONParser, EmptyCallReportsNothing) {
  Recorder recorder;
  JSONParser parser(&recorder);
  EXPECT_EQ(parser.parse(nullptr, 0, 1), 0);
  EXPECT_EQ(parser.parse("{}", 0, 0), 0);
  EXPECT_EQ(parser.parse("{}", -1, 0), 0);
  EXPECT_EQ(recorder.calls, "");
}

TEST(JSONParser, StopsAtTheGivenLength) {
  Recorder recorder;
  JSONParser parser(&recorder);
  EXPECT_EQ(parser.parse("{}{\"a\":\"x\"}", 2, 1), 0);
  EXPECT_EQ(recorder.calls, "(req)");
}

TEST(JSONParser, LongKeysAndValuesAreKeptWhole) {
  const std::string key(5000, 'k'), value(70000, 'v');
  const std::string text = "{\"" + key + "\":\"" + value + "\",u:" + value + " }";
  Recorder recorder;
  JSONParser parser(&recorder);
  EXPECT_EQ(parser.parse(text.data(), static_cast<int>(text.size()), 1), 0);
  EXPECT_EQ(recorder.calls, "(req(\"" + key + "\"\"" + value + "\")(u'" + value + "'))");
}

// The state left open by an error must not make the next scan fail.
TEST(JSONParser, ScansOnWithWhatAnErrorLeftOpen) {
  const char* texts[] = {"[1",
                         "{\"a\":\"x",
                         "]",
                         "}",
                         "}}}]]]",
                         ",,",
                         "{\"a\":1}",
                         "[{},",
                         "{\"o\":[{",
                         "x = [{\"a\":{}]",
                         "{\"a\":\"x\"}]",
                         "{}",
                         "[{}]"};
  Recorder recorder;
  JSONParser parser(&recorder);
  for (int round = 0; round < 3; round++) {
    for (const char* text : texts) {
      const int result = parser.parse(text, static_cast<int>(std::string(text).size()), 1);
      EXPECT_LE(result, 0);
      EXPECT_GE(result, -5);
    }
  }
  parser.reset();
  recorder.calls.clear();
  EXPECT_EQ(parser.parse("[{}]", 4, 1), 0);
  EXPECT_EQ(recorder.calls, "(req([))");
}

// A text that ends with a member does not reset the names of members; reset() does.
TEST(JSONParser, NamesOfMembersGoOnAfterATextThatEndsWithOne) {
  Recorder recorder;
  JSONParser parser(&recorder);
  EXPECT_EQ(parser.parse("[{\"a\":\"1\"}", 10, 1), 0);
  recorder.calls.clear();
  EXPECT_EQ(parser.parse("[{}]", 4, 1), 0);
  EXPECT_EQ(recorder.calls, "(req([[))");
  parser.reset();
  recorder.calls.clear();
  EXPECT_EQ(parser.parse("[{}]", 4, 1), 0);
  EXPECT_EQ(recorder.calls, "(req([))");
}

TEST(JSONParser, NamesOfEmptyMembersStopGrowing) {
  std::string text = "[{}";
  for (int i = 0; i < 20000; i++) text += ",{}";
  text += "]";
  Recorder recorder;
  JSONParser parser(&recorder);
  EXPECT_EQ(parser.parse(text.data(), static_cast<int>(text.size()), 1), 0);
  const std::string longest = '(' + std::string(511, '[') + ')';
  EXPECT_EQ(recorder.calls.find(std::string(512, '[')), std::string::npos);
  EXPECT_EQ(recorder.calls.substr(recorder.calls.size() - longest.size() - 1), longest + ')');
}

TEST(JSONParser, ArrayMembersAreThoseNamedByBrackets) {
  JSONParser parser(nullptr);
  EXPECT_TRUE(parser.isArrayMember("["));
  EXPECT_TRUE(parser.isArrayMember("[["));
  EXPECT_FALSE(parser.isArrayMember(""));
  EXPECT_FALSE(parser.isArrayMember("a["));
}

TEST(JSONParserCharacters, BAndBlanksAreBlank) {
  for (const char c : {' ', 'b', '\f', '\n', '\r', '\t'}) EXPECT_FALSE(webs::NotBlankChar(c)) << c;
  for (const char c : {'a', 'B', '\b', '\v', '\0', '{'}) EXPECT_TRUE(webs::NotBlankChar(c)) << c;
}

TEST(JSONParserCharacters, WordsAndPairsEnd) {
  const std::string wordEnds = "={ :,", pairEnds = ",}";
  for (int i = 0; i < 256; i++) {
    const char c = static_cast<char>(i);
    EXPECT_EQ(webs::IsWordEnd(c), wordEnds.find(c) != std::string::npos) << i;
    EXPECT_EQ(webs::IsKeyValueEnd(c), pairEnds.find(c) != std::string::npos) << i;
  }
}

}  // namespace
