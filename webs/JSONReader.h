#ifndef FLUVIAFS_WEBS_JSONREADER_H_
#define FLUVIAFS_WEBS_JSONREADER_H_

#include <string>
#include <vector>

#include "webs/JSONParser.h"
#include "webs/TreeLimit.h"
#include "webs/TreeNode.h"
#include "webs/TreeReader.h"

namespace webs {

// JSON by the library's own scanner; docs/json.md describes what it accepts. The reader is the root
// of the tree that it builds: its key is "req" or the body's name. Keys of children include their
// quotes, members of arrays are named by runs of '['. A leaf's flag says whether its value was
// quoted.
//
// The scanner needs a whole text, but a transfer delivers pieces. All pieces from clear(), or from
// the end of the last body, up to the final call form one body. They are gathered, and scanned once
// every bracket outside quotes is closed. The final call ends the body: the tree is then the same
// as for the body in one piece, wherever its pieces ended. It scans once more if what came last can
// change the tree.
//
// Use:       clear() before each body, then streamIn() until done.
// Threads:   as TreeReader.
class JSONReader : public TreeNode, public TreeReader, public TreeLimit {
 public:
  JSONReader();
  ~JSONReader() override;

  // Returns what JSONParser::parse returned for the body if this call scanned it: the piece that
  // closes its last bracket, and a final call with text. Returns 0 from every other call: a piece
  // that leaves brackets open, pieces after the closing one, an empty final call, and blanks after
  // a body's end. Returns -1, and drops the gathered text, if that would exceed INT_MAX bytes; -6
  // if the text or the tree exceeds its limit (TreeLimit).
  int streamIn(const char* text, int length, int isFinal) override;
  // Offset at which the last scan stopped: the position of the error, or the end of the body.
  int getOffset() const { return parser.getOffset(); }
  // Do nothing.
  void initialize() override;
  void readyRead() override;
  // Empties the tree and drops the gathered text and all open nodes.
  void clear() override;
  // Without a current node the root takes the name (never quoted) and becomes the current node.
  // Otherwise a new child does, its name in double quotes if quoteIt.
  void readNodeBegin(const char* name, bool quoteIt) override;
  // Returns to the parent; the name is not checked.
  void readNodeEnd(const char* name) override;
  // Replaces the current node's value.
  void readNodeValue(const char* text, bool quoted) override;
  // Adds a leaf in one call.
  void readEntry(const char* name, const char* text, bool quoteName, bool quoteValue);
  // The tree's JSON text; the prefix is ignored.
  std::vector<unsigned char>* getRawData(const std::string& prefix) override;

 private:
  void countBrackets(const char* text, int length);
  bool isWhole() const { return closingSeen && openBrackets <= 0 && !inQuotes; }
  int gather(const char* text, int length);
  int endBody();
  bool tailMatters() const;
  int scan(const char* text, int length);
  void emptyTree();
  void forgetText();

  std::vector<unsigned char> rawData;
  JSONParser parser;
  TreeNode* current = nullptr;
  // The body received so far, until it ends.
  std::string gathered;
  // Bytes of it that were scanned: 0, or all that had arrived when its brackets were closed.
  size_t scanned = 0;
  // True if that scan found the end of the outermost bracket.
  bool closed = false;
  bool closingSeen = false;
  bool inQuotes = false;
  // Number of '{' and '[' minus '}' and ']' in gathered, outside quotes.
  long long openBrackets = 0;
  // The tree belongs to a body that has ended.
  bool ended = false;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_JSONREADER_H_
