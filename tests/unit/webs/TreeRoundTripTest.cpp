// Tree to text to tree, with random trees that each format can represent.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>

#include "tests/support/TreeShape.h"
#include "tests/support/Watchdog.h"
#include "webs/JSONReader.h"
#include "webs/TreeWalk.h"
#include "webs/XMLReader.h"

namespace {

using webs::JSONReader;
using webs::TreeNode;
using webs::XMLReader;

// 100,000 of each format, in parts that run in parallel.
const int PARTS = 4;
const int TREES_OF_A_PART = 25000;
// Nodes at this depth get no children.
const int MAX_DEPTH = 5;

// A different seed every time, unless FLUVIA_SEED is set.
unsigned int newSeed() { return support::seedOr(std::random_device()()); }

class Dice {
 public:
  explicit Dice(unsigned int start) : engine(start) {}
  // One of [0, sides).
  int roll(int sides) { return std::uniform_int_distribution<int>(0, sides - 1)(engine); }
  bool oneIn(int sides) { return roll(sides) == 0; }
  // Between least and most pieces from alphabet.
  std::string text(const std::vector<std::string>& alphabet, int least, int most) {
    std::string made;
    const int count = least + roll(most - least + 1);
    for (int i = 0; i < count; i++) {
      made += alphabet[static_cast<size_t>(roll(static_cast<int>(alphabet.size())))];
    }
    return made;
  }

 private:
  std::mt19937 engine;
};

std::vector<std::string> letters(const std::string& characters) {
  std::vector<std::string> all;
  for (const char c : characters) all.emplace_back(1, c);
  return all;
}

// Names, attributes and leaf texts without markup; text only in nodes without children.
class XmlMaker {
 public:
  explicit XmlMaker(Dice* d) : dice(d) {}

  void fill(TreeNode* node, int depth) {
    for (int i = dice->roll(3); i > 0; i--) {
      node->createSubAttribute(name() + std::to_string(i), dice->text(values, 0, 6));
    }
    const int count = depth < MAX_DEPTH ? dice->roll(4) : 0;
    for (int i = 0; i < count; i++) fill(node->createSubEntry(name()), depth + 1);
    if (count == 0) node->setLeafValue(dice->text(texts, 0, 8), false);
  }
  std::string name() { return dice->text(firsts, 1, 1) + dice->text(names, 0, 4); }

 private:
  Dice* dice;
  const std::vector<std::string> firsts = letters("abzXYZ_:");
  const std::vector<std::string> names = letters("abcXYZ019._-:");
  const std::vector<std::string> values = letters("ab 019'>;/=[]{}#%");
  const std::vector<std::string> texts = {
      "a", "b", " ", "\n",       "\t",           "0",  "\"", "'",  "/",
      "=", "{", ":", "\xC3\xA9", "\xE2\x82\xAC", "lt", ";",  "[x", "\xF0\x9F\x8E\xAC"};
};

// Keys with their quotes, quoted values without quotes inside, unquoted ones that end where the
// scanner ends them.
class JsonMaker {
 public:
  explicit JsonMaker(Dice* d) : dice(d) {}

  void fillRoot(TreeNode* root) {
    root->setKey(dice->oneIn(2) ? "req" : dice->text(rootFirsts, 1, 1) + dice->text(words, 0, 3));
    if (dice->oneIn(3)) {
      fillArray(root, 1);
    } else {
      fillObject(root, 1);
    }
  }

 private:
  void fillObject(TreeNode* node, int depth) {
    for (int i = dice->roll(4); i > 0; i--) fillPair(node->createSubEntry(key()), depth);
  }
  void fillArray(TreeNode* node, int depth) {
    std::string member;
    for (int i = 1 + dice->roll(3); i > 0; i--) {
      member += '[';
      fillObject(node->createSubEntry(member), depth + 1);
    }
  }
  void fillPair(TreeNode* node, int depth) {
    const int kind = depth < MAX_DEPTH ? dice->roll(5) : 3 + dice->roll(2);
    if (kind == 0) return fillArray(node, depth + 1);
    if (kind == 1) return fillObject(node, depth + 1);
    const bool quoted = dice->oneIn(2);
    const std::string text =
        quoted ? dice->text(values, 0, 8) : dice->text(valueFirsts, 1, 1) + dice->text(words, 0, 6);
    node->setLeafValue(text, quoted);
  }
  std::string key() {
    if (dice->oneIn(4)) return dice->text(keyFirsts, 1, 1) + dice->text(words, 0, 4);
    return '"' + dice->text(keys, 0, 6) + '"';
  }

  Dice* dice;
  const std::vector<std::string> rootFirsts = letters("acz_1");
  const std::vector<std::string> keyFirsts = letters("aczXYZ_019'");
  const std::vector<std::string> valueFirsts = letters("acz019-.]");
  const std::vector<std::string> words = letters("abcXYZ019'[]/\n\t.-");
  const std::vector<std::string> keys = letters("abcXYZ019'[]}/\\\n.-");
  const std::vector<std::string> values = letters("ab 019'>;/=[]{},:\n\\");
};

// The scanner has its own numbers for the members of arrays. Flags of empty leaves and of nodes
// with children have no meaning.
void normalise(TreeNode* root) {
  walkTree(
      root,
      [](TreeNode* node, TreeNode*, int) {
        if (node->getKey().compare(0, 1, "[") == 0) node->setKey("[");
        if (node->getValue().empty() || node->numberOfElem() > 0) node->setLeafValue("", false);
        return false;
      },
      [](TreeNode*) {});
}

class TreeNodeRoundTrip : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Part, TreeNodeRoundTrip, testing::Range(0, PARTS));

TEST_P(TreeNodeRoundTrip, XmlComesBackAsItWas) {
  const unsigned int start = newSeed();
  SCOPED_TRACE("FLUVIA_SEED=" + std::to_string(start));
  printf("FLUVIA_SEED=%u\n", start);
  Dice dice(start + static_cast<unsigned int>(GetParam()));
  XmlMaker maker(&dice);
  XMLReader reader;
  reader.initialize();
  for (int i = 0; i < support::scaled(TREES_OF_A_PART); i++) {
    TreeNode document(nullptr);
    maker.fill(document.createSubEntry(maker.name()), 1);
    std::vector<unsigned char> text;
    document.toXMLContent(&text);
    reader.clear();
    reader.readyRead();
    // One time in four in two pieces.
    const int cut = dice.oneIn(4) ? dice.roll(static_cast<int>(text.size())) : 0;
    const char* data = reinterpret_cast<const char*>(text.data());
    ASSERT_EQ(reader.streamIn(data, cut, 0), 1) << textOf(text);
    ASSERT_EQ(reader.streamIn(data + cut, static_cast<int>(text.size()) - cut, 1), 1)
        << "tree " << i << ": " << textOf(text);
    ASSERT_EQ(shapeOf(reader), shapeOf(document)) << "tree " << i << ": " << textOf(text);
  }
}

TEST_P(TreeNodeRoundTrip, JsonComesBackAsItWas) {
  const unsigned int start = newSeed();
  SCOPED_TRACE("FLUVIA_SEED=" + std::to_string(start));
  printf("FLUVIA_SEED=%u\n", start);
  Dice dice(start + static_cast<unsigned int>(GetParam()));
  JsonMaker maker(&dice);
  JSONReader reader;
  for (int i = 0; i < support::scaled(TREES_OF_A_PART); i++) {
    TreeNode document(nullptr);
    maker.fillRoot(&document);
    const std::string text = jsonOf(document);
    ASSERT_EQ(reader.streamIn(text.data(), static_cast<int>(text.size()), 1), 0)
        << "tree " << i << ": " << text;
    const std::string again = jsonOf(reader);
    normalise(&document);
    normalise(&reader);
    ASSERT_EQ(shapeOf(reader), shapeOf(document)) << "tree " << i << ": " << text;
    // An empty object that is a value comes back as an empty text, so the second text may differ
    // from the first; later texts are all the same.
    reader.clear();
    ASSERT_EQ(reader.streamIn(again.data(), static_cast<int>(again.size()), 1), 0) << again;
    ASSERT_EQ(jsonOf(reader), again) << "tree " << i;
    reader.clear();
  }
}

}  // namespace
