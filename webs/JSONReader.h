#ifndef FLUVIAFS_WEBS_JSONREADER_H_
#define FLUVIAFS_WEBS_JSONREADER_H_

#include <string>
#include <vector>

#include "webs/JSONParser.h"
#include "webs/TreeNode.h"
#include "webs/TreeReader.h"

namespace webs {

// JSON by the library's own scanner; docs/json.md says what it takes. The reader is the root of the
// tree it builds: its key is "req" or the body's name. Keys of children hold their quotes, members
// of arrays are named by runs of '['. A leaf's flag says whether its value was quoted.
//
// The scanner needs a whole text, a transfer delivers pieces: pieces are gathered until every
// bracket outside quotes is closed, or until the final call.
//
// Use:       clear() before each document, then streamIn() until done.
// Threads:   as TreeReader.
class JSONReader : public TreeNode, public TreeReader {
 public:
  JSONReader();
  ~JSONReader() override;

  // Returns 0 for a piece that leaves the document open, for the empty final call and for blanks
  // after a complete document; otherwise what JSONParser::parse returned for the whole document,
  // whose tree then replaces the one before. Anything else after a complete document begins the
  // next one. Returns -1, and forgets what it gathered, when that would exceed INT_MAX bytes.
  int streamIn(const char* text, int length, int isFinal) override;
  // Do nothing.
  void initialize() override;
  void readyRead() override;
  // Empties the tree and forgets what was gathered and what was open.
  void clear() override;
  // Without a current node the root takes the name (never quoted) and is the current node.
  // Otherwise a child does, its name in double quotes if quoteIt.
  void readNodeBegin(const char* name, bool quoteIt) override;
  // Goes back to the parent; the name is not checked.
  void readNodeEnd(const char* name) override;
  // Replaces the current node's value.
  void readNodeValue(const char* text, bool quoted) override;
  // A leaf in one call.
  void readEntry(const char* name, const char* text, bool quoteName, bool quoteValue);
  // The tree's JSON text; the prefix is ignored.
  std::vector<unsigned char>* getRawData(const std::string& prefix) override;

 private:
  void countBrackets(const char* text, int length);
  bool isWhole() const { return closingSeen && openBrackets <= 0 && !inQuotes; }
  int parseWhole(const char* text, int length, int isFinal);
  void forgetText();

  std::vector<unsigned char> rawData;
  JSONParser parser;
  TreeNode* current = nullptr;
  // The beginning of a document that is still open.
  std::string gathered;
  bool closingSeen = false;
  bool inQuotes = false;
  // '{' and '[' less '}' and ']', outside quotes, in gathered.
  long long openBrackets = 0;
  // The latest document was parsed.
  bool complete = false;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_JSONREADER_H_
