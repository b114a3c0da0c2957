#ifndef FLUVIAFS_WEBS_JSONPARSER_H_
#define FLUVIAFS_WEBS_JSONPARSER_H_

#include <stack>
#include <string>

#include "webs/NodeName.h"

namespace webs {

class TreeReader;

// True if the scanner does not skip c. It skips the letter 'b'. This is intentional: keys and
// values lose their leading b's, and callers rely on it.
bool NotBlankChar(char c);
// '=', '{', ' ', ':' and ',' end a key or an unquoted value. '}' does not: a number needs a blank
// or a comma after it.
bool IsWordEnd(char c);
// ',' and '}' end a pair.
bool IsKeyValueEnd(char c);

// A small scanner for bodies like {"key":"value"}, [{..},{..}] and name = {..}.
//
// It scans a whole text once and calls the reader's readNodeBegin, readNodeValue and readNodeEnd.
// It is lenient rather than complete, see docs/json.md. On any text it stays inside the text and
// its stacks and does not recurse.
//
// Threads:   one thread at a time.
// Ownership: the reader is not owned and must outlive the parser's use.
class JSONParser {
 public:
  explicit JSONParser(TreeReader* receiver);
  virtual ~JSONParser() = default;

  // Scans text[0, length). Returns 0 on success and for an empty text, or
  //   -1  the body starts neither with '{' or '[' nor with a word, '=' and one of them
  //   -2  an array member is not an object
  //   -3  no ',' or '}' follows a value
  //   -4  no '{' follows a ',' in an array
  //   -5  a ']' closes something other than an array
  //   -6  stop() was called meanwhile
  // isFinal is not used. The stacks are emptied neither before nor after the scan: see reset().
  int parse(const char* text, int length, int isFinal);
  // Discards all open nodes and marks.
  void reset();
  // Ends the scan; the reader may call it from inside parse().
  void stop() { stopped = true; }
  // Offset at which the last parse() stopped: the position of the error, or the end of the text.
  int getOffset() const { return offset; }
  // True if the last parse() found the end of the outermost bracket, and nothing open after it.
  bool isDone() const { return marks.empty() && !keyOpen; }

  // Makes the name of the next array member: one '[' longer, up to 511.
  void nextArrayMember();
  void arrayMemberEnd();
  bool isArrayMember(const std::string& name) const;
  // Does nothing.
  void printMarks();

 private:
  struct Text;
  int beginRoot(Text& text);
  int step(Text& text);
  int inObject(Text& text);
  int afterComma(Text& text);
  int inArray(Text& text);
  int inPair(Text& text);
  int atObjectEnd(Text& text);
  int closeEmptyObject(Text& text);
  int closeArray(Text& text);
  int endPair(Text& text);
  void readKey(Text& text);
  void beginMember(Text& text);
  void openName(const std::string& name);
  void closeName();
  void nextInObject(Text& text);
  void popMark();
  void popKeyMark();
  bool isTop(char mark) const;

  TreeReader* reader;
  // Keys of the open nodes.
  std::stack<NodeName> names;
  // Open structural characters: '{', '[', ':', ',' and '}'.
  std::stack<char> marks;
  // Name of the last array member.
  std::string arrayMark;
  int offset = 0;
  bool stopped = false;
  // The text ended inside a key, which has no mark.
  bool keyOpen = false;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_JSONPARSER_H_
