#ifndef FLUVIAFS_WEBS_XMLREADER_H_
#define FLUVIAFS_WEBS_XMLREADER_H_

#include <string>
#include <vector>

#include "webs/TreeNode.h"
#include "webs/TreeReader.h"

struct XML_ParserStruct;

namespace webs {

// XML by expat. The reader is the root of the tree it builds (empty key, no parent); the document's
// element is its child. The flags of TreeReader mean nothing here and are stored as false.
//
// Use:       initialize() once, then for each document clear(), readyRead() and streamIn() until
//            done. After malformed or truncated text only clear() and readyRead() make it usable.
// Threads:   as TreeReader.
// Ownership: owns its parser. Its destructor also empties the stations, which other trees use too.
// Failure:   streamIn returns expat's status, 0 on an error; what was built until then stays.
class XMLReader : public TreeReader, public TreeNode {
 public:
  XMLReader();
  ~XMLReader() override;

  // Returns 1 (XML_STATUS_OK) or 0 (XML_STATUS_ERROR), also 0 before initialize() or readyRead().
  int streamIn(const char* data, int len, int isFinal) override;
  // Only the first call does something; it replaces a parser that readyRead() made.
  void initialize() override;
  // Empties the tree and goes back to the root; the parser is not touched.
  void clear() override;
  void readNodeBegin(const char* name, bool flag) override;
  // Goes back to the parent; the name is not checked.
  void readNodeEnd(const char* name) override;
  // Appends to the current node's value.
  void readNodeValue(const char* text, bool flag) override;
  // Replaces the parser by a new one.
  void readyRead() override;
  // prefix, then the XML declaration, then the elements.
  std::vector<unsigned char>* getRawData(const std::string& prefix) override;

  // Adds an attribute to the current node.
  void readEntryAttri(const std::string& name, const std::string& text, bool flag);
  // Adds each pair of name, value, name, value, ..., null.
  void readEntryAttris(const char** attrs);

 private:
  static void startElem(void* userData, const char* name, const char** attrs);
  static void endElem(void* userData, const char* name);
  static void data(void* userData, const char* s, int len);
  void createParser();
  void freeParser();
  void stopParser();

  XML_ParserStruct* parser = nullptr;
  TreeNode* current;
  std::vector<unsigned char> rawData;
  bool initialized = false;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_XMLREADER_H_
