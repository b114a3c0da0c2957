#include "TreeText.h"

#include <algorithm>

#include "webs/JSONReader.h"
#include "webs/TreeWalk.h"
#include "webs/XMLReader.h"

namespace tools {
namespace {

const char kByteOrderMark[] = "\xEF\xBB\xBF";
const char kBlanks[] = " \t\r\n\f\v";
// Deeper nodes are not indented further: the text would grow by the square of the depth.
const int kMaxIndent = 40;

bool isBlank(const std::string& text) {
  return text.find_first_not_of(kBlanks) == std::string::npos;
}

// Text from a stranger must not reach the terminal's control sequences, and must stay on its line.
std::string printable(const std::string& text) {
  static const char kDigits[] = "0123456789abcdef";
  std::string made;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      made += "\\n";
    } else if (c == '\t') {
      made += "\\t";
    } else if (byte < 0x20 || byte == 0x7F) {
      made += std::string("\\x") + kDigits[byte >> 4] + kDigits[byte & 15];
    } else {
      made += c;
    }
  }
  return made;
}

std::string lineOf(const webs::TreeNode& node) {
  std::string line = node.getKey().empty() ? "(no key)" : printable(node.getKey());
  for (int i = 0; i < node.numberOfAttr(); i++) {
    const webs::TreeNode::Attribute* attribute = node.getAttribute(i);
    line += " @" + printable(attribute->first) + "=\"" + printable(attribute->second) + '"';
  }
  const std::string& value = node.getValue();
  // Between elements there is often nothing but their indentation.
  if (value.empty() || (node.numberOfElem() > 0 && isBlank(value))) return line;
  const std::string shown = printable(value);
  return line + " = " + (node.getLeafFlag() ? '"' + shown + '"' : shown);
}

std::string indentOf(int depth) {
  if (depth <= kMaxIndent) return std::string(static_cast<size_t>(depth) * 2, ' ');
  return std::string(size_t{2} * kMaxIndent, ' ') + '(' + std::to_string(depth) + ") ";
}

std::string jsonProblem(int result) {
  switch (result) {
    case 0:
      return "";
    case -1:
      return "it begins neither with '{' or '[' nor with a name, '=' and one of them";
    case -2:
      return "an array holds something else than an object";
    case -3:
      return "no ',' or '}' follows a value (after a number, a blank or a comma must come first)";
    case -4:
      return "no '{' follows a ',' in an array";
    default:
      return "a ']' closes something else than an array";
  }
}

}  // namespace

BodyKind kindOf(const std::string& body) {
  const size_t begin = body.compare(0, 3, kByteOrderMark) == 0 ? 3 : 0;
  const size_t first = body.find_first_not_of(kBlanks, begin);
  return first != std::string::npos && body[first] == '<' ? BodyKind::kXml : BodyKind::kJson;
}

ParsedBody::ParsedBody(const std::string& body) : kind_(kindOf(body)) {
  const int size = static_cast<int>(body.size());
  if (kind_ == BodyKind::kXml) {
    auto reader = std::make_unique<webs::XMLReader>();
    root_ = reader.get();
    reader_ = std::move(reader);
    reader_->initialize();
    if (reader_->streamIn(body.data(), size, 1) != 1) {
      error_ = "it is not well-formed XML; the tree is shown as far as it goes";
    }
    return;
  }
  auto reader = std::make_unique<webs::JSONReader>();
  root_ = reader.get();
  reader_ = std::move(reader);
  reader_->initialize();
  error_ = body.empty() ? "it is empty" : jsonProblem(reader_->streamIn(body.data(), size, 1));
}

std::string ParsedBody::indented() const {
  std::string text;
  // The root of an XML tree only holds the document's element.
  const bool rootShown = !root_->getKey().empty();
  int depth = rootShown ? 0 : -1;
  walkTree(
      root_,
      [&](const webs::TreeNode* node, const webs::TreeNode*, int) {
        if (depth >= 0) text += indentOf(depth) + lineOf(*node) + '\n';
        depth++;
        return false;
      },
      [&depth](const webs::TreeNode*) { depth--; });
  return text;
}

std::string ParsedBody::written() const {
  const std::vector<unsigned char>* bytes = reader_->getRawData("");
  return std::string(bytes->begin(), bytes->end());
}

}  // namespace tools
