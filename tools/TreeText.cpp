#include "TreeText.h"

#include "Printable.h"
#include "webs/JSONReader.h"
#include "webs/TreeWalk.h"
#include "webs/XMLReader.h"

namespace tools {
namespace {

const char kByteOrderMark[] = "\xEF\xBB\xBF";
const char kBlanks[] = " \t\r\n\f\v";
// Output is passed on in pieces of at least this size.
const size_t kPiece = 65536;
// Deeper nodes are not indented further: otherwise the text would grow with the square of the
// depth.
const int kMaxIndent = 40;

bool isBlank(const std::string& text) {
  return text.find_first_not_of(kBlanks) == std::string::npos;
}

std::string lineOf(const webs::TreeNode& node) {
  std::string line = node.getKey().empty() ? "(no key)" : printable(node.getKey());
  for (int i = 0; i < node.numberOfAttr(); i++) {
    const webs::TreeNode::Attribute* attribute = node.getAttribute(i);
    line += " @" + printable(attribute->first) + "=" + quoted(attribute->second);
  }
  const std::string& value = node.getValue();
  // Between elements there is often only their indentation.
  if (value.empty() || (node.numberOfElem() > 0 && isBlank(value))) return line;
  return line + " = " + (node.getLeafFlag() ? quoted(value) : printable(value));
}

std::string indentOf(int depth) {
  if (depth <= kMaxIndent) return std::string(static_cast<size_t>(depth) * 2, ' ');
  return std::string(size_t{2} * kMaxIndent, ' ') + '(' + std::to_string(depth) + ") ";
}

std::string jsonReason(int result) {
  switch (result) {
    case -1:
      return "it begins neither with '{' or '[' nor with a name, '=' and one of them";
    case -2:
      return "an array holds something else than an object";
    case -3:
      return "no ',' or '}' follows a value (after a number, a blank or a comma must come first)";
    case -4:
      return "no '{' follows a ',' in an array";
    case -5:
      return "a ']' closes something else than an array";
    default:
      return "the tree exceeds its limit";
  }
}

// Describes the problem with its offset, counted from 0, and the text there.
std::string jsonProblem(int result, const std::string& body, int offset) {
  if (result == 0) return "";
  std::string text = jsonReason(result) + ", at byte " + std::to_string(offset);
  const auto at = static_cast<size_t>(offset);
  if (at >= body.size()) return text + ", the end";
  return text + ", '" + printable(characterAt(body, at)) + "'";
}

bool begins(const std::string& body, const std::string& with) {
  return body.compare(0, with.size(), with) == 0;
}

// True if the first character that is not blank is '<', in UTF-16; low is the index of a
// character's lower byte.
bool isWideXml(const std::string& body, size_t low) {
  for (size_t at = 2; at + 1 < body.size(); at += 2) {
    if (body[at + 1 - low] != 0) return false;
    const char c = body[at + low];
    if (c == '<') return true;
    if (c == 0 || std::string(kBlanks).find(c) == std::string::npos) return false;
  }
  return false;
}

}  // namespace

BodyKind kindOf(const std::string& body) {
  // Without a mark, XML in UTF-16 must begin with '<'.
  if (begins(body, "\xFF\xFE") && isWideXml(body, 0)) return BodyKind::kXml;
  if (begins(body, "\xFE\xFF") && isWideXml(body, 1)) return BodyKind::kXml;
  if (begins(body, std::string("\0<", 2))) return BodyKind::kXml;
  const size_t begin = begins(body, kByteOrderMark) ? 3 : 0;
  const size_t first = body.find_first_not_of(kBlanks, begin);
  return first != std::string::npos && body[first] == '<' ? BodyKind::kXml : BodyKind::kJson;
}

ParsedBody::ParsedBody(const std::string& body, long long limit) : kind_(kindOf(body)) {
  if (kind_ == BodyKind::kXml) {
    readXml(body, limit);
  } else {
    readJson(body, limit);
  }
}

void ParsedBody::readXml(const std::string& body, long long limit) {
  auto reader = std::make_unique<webs::XMLReader>();
  reader->setTreeLimit(0, limit);
  reader->initialize();
  if (reader->streamIn(body.data(), static_cast<int>(body.size()), 1) != 1) {
    error_ = printable(reader->getProblem()) + "; the tree is shown as far as it goes";
  }
  full_ = reader->isTreeFull();
  root_ = reader.get();
  reader_ = std::move(reader);
}

void ParsedBody::readJson(const std::string& body, long long limit) {
  auto reader = std::make_unique<webs::JSONReader>();
  reader->setTreeLimit(0, limit);
  reader->initialize();
  const int result = reader->streamIn(body.data(), static_cast<int>(body.size()), 1);
  if (body.empty()) {
    error_ = "it is empty";
  } else if (result == -1 && begins(body, kByteOrderMark)) {
    error_ = "it begins with a byte order mark, which JSON must not";
  } else {
    error_ = jsonProblem(result, body, reader->getOffset());
  }
  full_ = reader->isTreeFull();
  root_ = reader.get();
  reader_ = std::move(reader);
}

bool ParsedBody::writeIndented(const Sink& sink) const {
  std::string text;
  // The root of an XML tree only contains the document's element.
  const bool rootShown = !root_->getKey().empty();
  int depth = rootShown ? 0 : -1;
  const webs::TreeNode* stoppedAt = walkTree(
      root_,
      [&](const webs::TreeNode* node, const webs::TreeNode*, int) {
        if (depth >= 0) text += indentOf(depth) + lineOf(*node) + '\n';
        depth++;
        if (text.size() < kPiece) return false;
        const bool refused = !sink(text.data(), text.size());
        text.clear();
        return refused;
      },
      [&depth](const webs::TreeNode*) { depth--; });
  return stoppedAt == nullptr && sink(text.data(), text.size());
}

std::string ParsedBody::indented() const {
  std::string text;
  writeIndented([&text](const char* piece, size_t size) {
    text.append(piece, size);
    return true;
  });
  return text;
}

const std::vector<unsigned char>& ParsedBody::written() const { return *reader_->getRawData(""); }

}  // namespace tools
