#ifndef FLUVIAFS_WEBS_TREEREADER_H_
#define FLUVIAFS_WEBS_TREEREADER_H_

#include <string>
#include <vector>

namespace webs {

// A streaming parser that builds a tree of TreeNode from a body, which arrives in pieces.
//
// The parser behind streamIn reports through readNodeBegin, readNodeValue and readNodeEnd. They
// extend the tree at a cursor, the current node.
//
// Threads:   one thread at a time; all readers share the stations of TreeNode, so one thread at a
//            time for all of them.
// Ownership: input text is not kept.
class TreeReader {
 public:
  // Takes len bytes (0 or more; data may be null for 0). isFinal is non-zero at the end of the
  // document. Returns the parser's own status.
  virtual int streamIn(const char* data, int len, int isFinal) = 0;
  // Prepares the reader once, before its first document.
  virtual void initialize() = 0;
  // Empties the tree.
  virtual void clear() = 0;
  virtual void readNodeBegin(const char* name, bool flag) = 0;
  virtual void readNodeEnd(const char* name) = 0;
  virtual void readNodeValue(const char* text, bool flag) = 0;
  // Prepares the parser for a new document; does not clear the tree.
  virtual void readyRead() = 0;
  // Returns the tree as text, after prefix if the format has a place for it. Owned by the reader,
  // valid until the next call or clear().
  virtual std::vector<unsigned char>* getRawData(const std::string& prefix) = 0;
  virtual ~TreeReader() = default;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_TREEREADER_H_
