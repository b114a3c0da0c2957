#include "webs/JSONParser.h"

#include "webs/TreeReader.h"

namespace webs {
namespace {

const int NO_BODY = -1;
const int NOT_AN_OBJECT = -2;
const int VALUE_NOT_ENDED = -3;
const int NO_OBJECT_AFTER_COMMA = -4;
const int NOT_AN_ARRAY = -5;
const int STOPPED = -6;

// The key of a body without a name.
const char UNNAMED[] = "req";

// Names are at most 511 characters long. Without the limit, names that grow by one character per
// empty member would take memory quadratic in the body's size.
const size_t MAX_ARRAY_MARK = NodeName::MAX_SHARED;

}  // namespace

bool NotBlankChar(char c) {
  return c != ' ' && c != 'b' && c != '\f' && c != '\n' && c != '\r' && c != '\t';
}

bool IsWordEnd(char c) { return c == '=' || c == '{' || c == ' ' || c == ':' || c == ','; }

bool IsKeyValueEnd(char c) { return c == ',' || c == '}'; }

// The scanner's position; every scan stops at the end.
struct JSONParser::Text {
  const char* at;
  const char* end;

  bool isAtEnd() const { return at == end; }
  bool isAt(char c) const { return at != end && *at == c; }
  void skipBlanks() {
    while (at != end && !NotBlankChar(*at)) ++at;
  }
  std::string takeWord() {
    const char* from = at;
    while (at != end && !IsWordEnd(*at)) ++at;
    return std::string(from, at);
  }
};

JSONParser::JSONParser(TreeReader* receiver) : reader(receiver) {}

int JSONParser::parse(const char* text, int length, int) {
  if (text == nullptr || length <= 0) return 0;
  Text rest{text, text + length};
  stopped = false;
  keyOpen = false;
  int result = beginRoot(rest);
  while (result == 0 && !stopped && !rest.isAtEnd() && !marks.empty()) result = step(rest);
  if (stopped) result = STOPPED;
  offset = static_cast<int>(rest.at - text);
  if (result == 0) closeName();
  return result;
}

void JSONParser::reset() {
  names = {};
  marks = {};
  arrayMemberEnd();
}

void JSONParser::nextArrayMember() {
  if (arrayMark.size() < MAX_ARRAY_MARK) arrayMark += '[';
}

void JSONParser::arrayMemberEnd() { arrayMark.clear(); }

bool JSONParser::isArrayMember(const std::string& name) const {
  return !name.empty() && name[0] == '[';
}

void JSONParser::printMarks() {}

int JSONParser::beginRoot(Text& text) {
  text.skipBlanks();
  if (text.isAtEnd()) return NO_BODY;
  if (text.isAt('{') || text.isAt('[')) {
    openName(UNNAMED);
  } else {
    openName(text.takeWord());
    text.skipBlanks();
    if (!text.isAt('=')) return NO_BODY;
    ++text.at;
    text.skipBlanks();
    if (!text.isAt('{') && !text.isAt('[')) return NO_BODY;
  }
  marks.push(*text.at++);
  return 0;
}

// One step, determined by the innermost open mark. Requires text left and an open mark.
int JSONParser::step(Text& text) {
  switch (marks.top()) {
    case '{':
      return inObject(text);
    case ',':
      return afterComma(text);
    case '[':
      return inArray(text);
    case ':':
      return inPair(text);
    default:
      return atObjectEnd(text);
  }
}

int JSONParser::inObject(Text& text) {
  text.skipBlanks();
  if (text.isAt('}')) return closeEmptyObject(text);
  if (!text.isAtEnd()) readKey(text);
  return 0;
}

int JSONParser::afterComma(Text& text) {
  text.skipBlanks();
  if (text.isAtEnd()) return 0;
  popMark();
  if (text.isAt('{')) {
    beginMember(text);
  } else {
    readKey(text);
  }
  return 0;
}

// Handles only the first member, and one after an empty member.
int JSONParser::inArray(Text& text) {
  const bool another = text.isAt(',');
  if (another) ++text.at;
  text.skipBlanks();
  if (!text.isAt('{')) return another ? NO_OBJECT_AFTER_COMMA : NOT_AN_OBJECT;
  beginMember(text);
  return 0;
}

int JSONParser::inPair(Text& text) {
  text.skipBlanks();
  if (text.isAtEnd()) return 0;
  if (text.isAt('[') || text.isAt('{')) {
    marks.push(*text.at++);
    return 0;
  }
  const bool quoted = text.isAt('"');
  const char* from = quoted ? text.at + 1 : text.at;
  // The first character of an unquoted value is not examined.
  ++text.at;
  while (!text.isAtEnd() && !(quoted ? *text.at == '"' : IsWordEnd(*text.at))) ++text.at;
  reader->readNodeValue(std::string(from, text.at).c_str(), quoted);
  if (quoted && !text.isAtEnd()) ++text.at;
  closeName();
  popMark();
  return endPair(text);
}

// Moves to the end of the pair and leaves its mark. Does not skip a '}': atObjectEnd is next.
int JSONParser::endPair(Text& text) {
  while (!text.isAtEnd() && !IsKeyValueEnd(*text.at)) ++text.at;
  if (text.isAtEnd()) return VALUE_NOT_ENDED;
  marks.push(*text.at);
  if (text.isAt(',')) ++text.at;
  return 0;
}

// At the '}' after a pair: its own mark and the '{' are on top.
int JSONParser::atObjectEnd(Text& text) {
  const bool last = text.at + 1 == text.end;
  if (last && names.empty()) {
    ++text.at;
    return 0;
  }
  closeName();
  if (!last) arrayMemberEnd();
  popMark();
  popMark();
  popKeyMark();
  ++text.at;
  text.skipBlanks();
  if (text.isAt(']')) return closeArray(text);
  if (text.isAt(',')) nextInObject(text);
  return 0;
}

// At the '}' of an object without pairs, or after an object or array that ended one.
int JSONParser::closeEmptyObject(Text& text) {
  closeName();
  popMark();
  popKeyMark();
  ++text.at;
  text.skipBlanks();
  if (text.isAt(']') && isTop('[')) return closeArray(text);
  if (text.isAt(',') && isTop('{')) nextInObject(text);
  return 0;
}

// At the ']' after a member.
int JSONParser::closeArray(Text& text) {
  if (!isTop('[')) {
    arrayMemberEnd();
    return NOT_AN_ARRAY;
  }
  popMark();
  const bool hasKey = isTop(':');
  popMark();
  ++text.at;
  text.skipBlanks();
  if (hasKey) {
    closeName();
    if (text.isAt(',')) ++text.at;
  } else if (text.isAt(',')) {
    closeName();
    marks.push(',');
  }
  return 0;
}

// At the ',' after an object.
void JSONParser::nextInObject(Text& text) {
  arrayMemberEnd();
  marks.push(',');
  ++text.at;
}

// Quotes around a key stay part of it. Without a ':' the text ends here.
void JSONParser::readKey(Text& text) {
  openName(text.takeWord());
  while (!text.isAtEnd() && !text.isAt(':')) ++text.at;
  keyOpen = text.isAtEnd();
  if (keyOpen) return;
  marks.push(':');
  ++text.at;
}

// At the '{' of an array member.
void JSONParser::beginMember(Text& text) {
  marks.push('{');
  ++text.at;
  nextArrayMember();
  openName(arrayMark);
}

void JSONParser::openName(const std::string& name) {
  names.push(NodeName(name));
  reader->readNodeBegin(name.c_str(), false);
}

// Closes the innermost open node; does nothing if none is open.
void JSONParser::closeName() {
  if (names.empty()) return;
  reader->readNodeEnd(names.top().get().c_str());
  names.pop();
}

void JSONParser::popMark() {
  if (!marks.empty()) marks.pop();
}

// An object was the value of a key: this closes the key.
void JSONParser::popKeyMark() {
  if (isTop(':')) marks.pop();
}

bool JSONParser::isTop(char mark) const { return !marks.empty() && marks.top() == mark; }

}  // namespace webs
