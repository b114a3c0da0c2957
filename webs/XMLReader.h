#ifndef FLUVIAFS_WEBS_XMLREADER_H_
#define FLUVIAFS_WEBS_XMLREADER_H_

#include <string>
#include <vector>

#include "webs/EntityNesting.h"
#include "webs/TreeLimit.h"
#include "webs/TreeNode.h"
#include "webs/TreeReader.h"

struct XML_ParserStruct;

namespace webs {

// XML by expat. The reader is the root of the tree that it builds (empty key, no parent); the
// document's element is its child. The flags of TreeReader are not used here and are stored as
// false.
//
// Use:       initialize() once, then for each document clear(), readyRead() and streamIn() until
//            done. After malformed or truncated text only clear() and readyRead() make it usable
//            again.
// Threads:   as TreeReader.
// Ownership: owns its parser. Its destructor also empties the stations, which other trees share.
// Failure:   streamIn returns expat's status, 0 on an error; the tree built so far stays.
// Refused:   the reader stops expat, so that the status is 0, and logs the reason at level -4, if
//            - there are too many entities or they nest too deep (EntityNesting);
//            - the document, with entities replaced and attributes that a DTD adds, is larger than
//              MAX_UNFOLDED bytes and than MAX_FACTOR times its text;
//            - the tree exceeds its limit (TreeLimit), counting text that expat still holds.
class XMLReader : public TreeReader, public TreeNode, public TreeLimit {
 public:
  // Enough for ordinary use of entities. 256 KiB of the smallest elements take 13 MB.
  static constexpr long long MAX_UNFOLDED = 256 * 1024LL;
  static constexpr int MAX_FACTOR = 8;

  XMLReader();
  ~XMLReader() override;

  // Returns 1 (XML_STATUS_OK) or 0 (XML_STATUS_ERROR), also 0 before initialize() or readyRead().
  int streamIn(const char* data, int len, int isFinal) override;
  // Only the first call has an effect; it replaces a parser that readyRead() created.
  void initialize() override;
  // Empties the tree and returns to the root; does not change the parser.
  void clear() override;
  void readNodeBegin(const char* name, bool flag) override;
  // Returns to the parent; the name is not checked.
  void readNodeEnd(const char* name) override;
  // Appends to the current node's value.
  void readNodeValue(const char* text, bool flag) override;
  // Replaces the parser by a new one.
  void readyRead() override;
  // prefix, then the XML declaration, then the elements.
  std::vector<unsigned char>* getRawData(const std::string& prefix) override;

  // The error that ended the document, with line and column, both from 1. Empty if there was none.
  // May contain parts of the document's own text.
  const std::string& getProblem() const { return problem; }

  // Adds an attribute to the current node.
  void readEntryAttri(const std::string& name, const std::string& text, bool flag);
  // Adds each pair of name, value, name, value, ..., null.
  void readEntryAttris(const char** attrs);

 private:
  static void startElem(void* userData, const char* name, const char** attrs);
  static void endElem(void* userData, const char* name);
  static void data(void* userData, const char* s, int len);
  static void entity(void* userData, const char* name, int isParameter, const char* text, int len,
                     const char* base, const char* systemId, const char* publicId,
                     const char* notation);
  static void declaration(void* userData, const char* version, const char* encodingName,
                          int standalone);
  template <typename Work>
  static void guarded(void* userData, Work work);
  void createParser();
  void freeParser();
  void stopParser(const char* why);
  void stopUnfolding();
  void countUnfolded(size_t size);
  void countElement(const char* name, const char** attrs);
  bool holdsTooMuch();
  void noteProblem();

  XML_ParserStruct* parser = nullptr;
  TreeNode* current;
  std::vector<unsigned char> rawData;
  bool initialized = false;
  // Entities of the current document.
  EntityNesting entities;
  long long received = 0;
  // Offset of the first byte that expat holds, as far as expat has reported it.
  long long parsed = 0;
  // Size of the document up to the last callback, and the size that it unfolded to.
  long long reported = 0;
  long long unfolded = 0;
  // Why the reader itself stopped the parser; null if it did not.
  const char* refusal = nullptr;
  std::string encoding;
  std::string problem;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_XMLREADER_H_
