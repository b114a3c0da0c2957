// docs/json.md has a table of bodies, each with its result and its tree. Every row must be true.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/support/TreeShape.h"
#include "webs/JSONReader.h"

namespace {

using webs::JSONReader;

struct Row {
  int line;
  std::string body, result, tree;
};

void PrintTo(const Row& row, std::ostream* out) { *out << "line " << row.line << ": " << row.body; }

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// The value of a cell: the text between its backquotes, with the signs for invisible characters.
std::string meant(const std::string& cell) {
  const size_t first = cell.find('`'), last = cell.rfind('`');
  if (first == last) return cell.substr(1, cell.size() - 2);
  std::string text = cell.substr(first + 1, last - first - 1);
  text = replaced(text, "\u240A", "\n");
  text = replaced(text, "\u2409", "\t");
  return replaced(text, "<BOM>", "\uFEFF");
}

// The rows of all tables below "## What services send".
std::vector<Row> rowsOfThePage() {
  std::ifstream page(FLUVIA_JSON_PAGE);
  std::vector<Row> rows;
  std::string line;
  bool below = false;
  for (int number = 1; std::getline(page, line); number++) {
    if (line.compare(0, 3, "## ") == 0) below = line == "## What services send";
    if (!below || line.compare(0, 3, "| `") != 0) continue;
    std::vector<std::string> cells;
    size_t begin = 1;
    for (size_t end = line.find('|', begin); end != std::string::npos;
         end = line.find('|', begin)) {
      cells.push_back(meant(line.substr(begin, end - begin)));
      begin = end + 1;
    }
    if (cells.size() == 4) rows.push_back({number, cells[0], cells[1], cells[2]});
  }
  return rows;
}

class JSONPage : public testing::TestWithParam<Row> {};

TEST_P(JSONPage, RowIsTrue) {
  const Row& row = GetParam();
  JSONReader reader;
  const int result = reader.streamIn(row.body.data(), static_cast<int>(row.body.size()), 1);
  EXPECT_EQ(std::to_string(result), row.result);
  EXPECT_EQ(shapeOf(reader), row.tree);
}

TEST_P(JSONPage, PiecesGiveTheSameTree) {
  const std::string& body = GetParam().body;
  for (size_t size = 1; size <= body.size(); size++) {
    JSONReader reader;
    for (size_t at = 0; at < body.size(); at += size) {
      const std::string piece = body.substr(at, size);
      reader.streamIn(piece.data(), static_cast<int>(piece.size()), 0);
    }
    reader.streamIn(nullptr, 0, 1);
    EXPECT_EQ(shapeOf(reader), GetParam().tree) << "in pieces of " << size;
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, JSONPage, testing::ValuesIn(rowsOfThePage()));

TEST(JSONPageTest, HasItsRows) { EXPECT_GE(rowsOfThePage().size(), 50u); }

}  // namespace
