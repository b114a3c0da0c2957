#include "webs/JSONReader.h"

#include <algorithm>
#include <climits>

namespace webs {

JSONReader::JSONReader() : TreeNode(nullptr), parser(this) {}

JSONReader::~JSONReader() { TreeNode::clear(); }

int JSONReader::streamIn(const char* text, int length, int isFinal) {
  const bool empty = text == nullptr || length <= 0;
  if (complete) {
    if (empty || std::none_of(text, text + length, NotBlankChar)) return 0;
    complete = false;
  }
  if (empty) {
    if (isFinal != 0 && !gathered.empty()) {
      parseWhole(gathered.data(), static_cast<int>(gathered.size()), isFinal);
    }
    return 0;
  }
  countBrackets(text, length);
  const bool ready = isFinal != 0 || isWhole();
  if (ready && gathered.empty()) return parseWhole(text, length, isFinal);
  if (gathered.size() > static_cast<size_t>(INT_MAX - length)) {
    forgetText();
    return -1;
  }
  gathered.append(text, static_cast<size_t>(length));
  if (!ready) return 0;
  return parseWhole(gathered.data(), static_cast<int>(gathered.size()), isFinal);
}

void JSONReader::countBrackets(const char* text, int length) {
  for (const char* at = text; at != text + length; ++at) {
    if (*at == '"') inQuotes = !inQuotes;
    if (inQuotes) continue;
    if (*at == '{' || *at == '[') {
      ++openBrackets;
    } else if (*at == '}' || *at == ']') {
      closingSeen = true;
      --openBrackets;
    }
  }
}

// Each document is scanned once, from its beginning and onto an empty tree.
int JSONReader::parseWhole(const char* text, int length, int isFinal) {
  TreeNode::clear();
  current = nullptr;
  parser.reset();
  const int result = parser.parse(text, length, isFinal);
  forgetText();
  complete = true;
  return result;
}

void JSONReader::forgetText() {
  std::string().swap(gathered);
  closingSeen = false;
  inQuotes = false;
  openBrackets = 0;
}

void JSONReader::initialize() {}

void JSONReader::readyRead() {}

void JSONReader::clear() {
  TreeNode::clear();
  current = nullptr;
  parser.reset();
  forgetText();
  complete = false;
}

void JSONReader::readNodeBegin(const char* name, bool quoteIt) {
  if (current == nullptr) {
    setKey(name);
    current = this;
  } else {
    current = current->createSubEntry(quoteIt ? '"' + std::string(name) + '"' : name);
  }
}

void JSONReader::readNodeEnd(const char*) {
  if (current != nullptr) current = current->getParent();
}

void JSONReader::readNodeValue(const char* text, bool quoted) {
  if (current != nullptr) current->setLeafValue(text, quoted);
}

void JSONReader::readEntry(const char* name, const char* text, bool quoteName, bool quoteValue) {
  readNodeBegin(name, quoteName);
  readNodeValue(text, quoteValue);
  readNodeEnd("");
}

std::vector<unsigned char>* JSONReader::getRawData(const std::string&) {
  rawData.clear();
  toJSONContent(&rawData);
  return &rawData;
}

}  // namespace webs
