#include <gtest/gtest.h>

#include "tests/support/TreeShape.h"
#include "webs/JSONReader.h"
#include "webs/NodeName.h"

namespace {

using webs::NodeName;

TEST(NodeName, LongRunsOfBracketsShareOneText) {
  for (const size_t length : {size_t{16}, size_t{100}, size_t{511}}) {
    const std::string run(length, '[');
    const NodeName one(run), other(run);
    EXPECT_EQ(one.get(), run);
    EXPECT_EQ(&one.get(), &other.get()) << length;
  }
}

TEST(NodeName, EveryOtherNameIsItsOwn) {
  for (const std::string& name :
       {std::string(), std::string("["), std::string(15, '['), std::string(512, '['),
        std::string(20, '[') + "a", std::string(20, 'a')}) {
    const NodeName one(name), other(name);
    EXPECT_EQ(one.get(), name);
    EXPECT_NE(&one.get(), &other.get()) << name;
  }
}

TEST(NodeName, ChangesBetweenBoth) {
  const std::string run(100, '[');
  NodeName name("a");
  name.set(run);
  EXPECT_EQ(name.get(), run);
  name.set("c");
  EXPECT_EQ(name.get(), "c");
  name.set(run);
  NodeName copy = name;
  name.clear();
  EXPECT_EQ(name.get(), "");
  EXPECT_EQ(copy.get(), run);
}

// Twenty thousand names of 511 characters took 10 MB.
TEST(NodeName, MembersOfAnArrayShareTheirs) {
  std::string text = "[{}";
  for (int i = 0; i < 20000; i++) text += ",{}";
  text += "]";
  webs::JSONReader reader;
  ASSERT_EQ(reader.streamIn(text.data(), static_cast<int>(text.size()), 1), 0);
  const std::string* last = &reader.getElem(20000)->getKey();
  EXPECT_EQ(*last, std::string(511, '['));
  for (int i = 511; i < 20000; i++) ASSERT_EQ(&reader.getElem(i)->getKey(), last) << i;
}

}  // namespace
