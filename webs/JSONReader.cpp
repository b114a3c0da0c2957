#include "webs/JSONReader.h"

#include <algorithm>
#include <climits>
#include <utility>

namespace webs {
namespace {

const int NO_BODY = -1;
const int TOO_LARGE = -6;

}  // namespace

JSONReader::JSONReader() : TreeNode(nullptr), parser(this) {}

JSONReader::~JSONReader() { TreeNode::clear(); }

int JSONReader::streamIn(const char* text, int length, int isFinal) {
  const bool empty = text == nullptr || length <= 0;
  if (ended) {
    if (empty || std::none_of(text, text + length, NotBlankChar)) return 0;
    ended = false;
  }
  if (empty) {
    if (isFinal != 0 && !gathered.empty()) endBody();
    return 0;
  }
  if (isFinal != 0 && gathered.empty()) {
    ended = true;
    return scan(text, length);
  }
  const int refused = gather(text, length);
  if (refused != 0) return refused;
  if (isFinal != 0) return endBody();
  if (scanned > 0 || !isWhole()) return 0;
  scanned = gathered.size();
  const int result = scan(gathered.data(), static_cast<int>(scanned));
  closed = result == 0 && parser.isDone();
  return result;
}

// Returns 0, or the code of the refusal; the gathered text is then dropped.
int JSONReader::gather(const char* text, int length) {
  int refused = 0;
  if (gathered.size() > static_cast<size_t>(INT_MAX - length)) refused = NO_BODY;
  // Text that was scanned is counted with its tree.
  if (!mayHold(gathered.size() - scanned + static_cast<size_t>(length))) refused = TOO_LARGE;
  if (refused != 0) {
    forgetText();
    return refused;
  }
  countBrackets(text, length);
  gathered.append(text, static_cast<size_t>(length));
  return 0;
}

int JSONReader::endBody() {
  int result = 0;
  if (scanned == 0 || tailMatters()) {
    result = scan(gathered.data(), static_cast<int>(gathered.size()));
  }
  forgetText();
  ended = true;
  return result;
}

// True if the tree of the whole body may differ from that of the scanned part. Once the outermost
// bracket is closed, the scanner only checks what follows next, for a ',' or ']'.
bool JSONReader::tailMatters() const {
  if (scanned == gathered.size()) return false;
  if (!closed) return true;
  const auto tail = gathered.begin() + static_cast<std::string::difference_type>(scanned);
  const auto next = std::find_if(tail, gathered.end(), NotBlankChar);
  return next != gathered.end() && (*next == ',' || *next == ']');
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

// Each body is scanned from its beginning and into an empty tree. Its text is kept meanwhile.
int JSONReader::scan(const char* text, int length) {
  emptyTree();
  if (!takeText(static_cast<size_t>(length))) return TOO_LARGE;
  return parser.parse(text, length, 1);
}

void JSONReader::emptyTree() {
  TreeNode::clear();
  current = nullptr;
  parser.reset();
  forgetTree();
}

void JSONReader::forgetText() {
  std::string().swap(gathered);
  scanned = 0;
  closed = false;
  closingSeen = false;
  inQuotes = false;
  openBrackets = 0;
}

void JSONReader::initialize() {}

void JSONReader::readyRead() {}

void JSONReader::clear() {
  emptyTree();
  forgetText();
  ended = false;
}

void JSONReader::readNodeBegin(const char* name, bool quoteIt) {
  const std::string given = quoteIt && current != nullptr ? '"' + std::string(name) + '"' : name;
  if (!takeNode(given)) {
    parser.stop();
  } else if (current == nullptr) {
    setKey(given);
    current = this;
  } else {
    current = current->createSubEntry(given);
  }
}

void JSONReader::readNodeEnd(const char*) {
  if (current != nullptr) current = current->getParent();
}

void JSONReader::readNodeValue(const char* text, bool quoted) {
  if (current == nullptr) return;
  std::string given = text;
  if (takeText(given.size())) {
    current->setLeafValue(std::move(given), quoted);
  } else {
    parser.stop();
  }
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
