#ifndef FLUVIAFS_WEBS_TREEREADER_H_
#define FLUVIAFS_WEBS_TREEREADER_H_

#include <string>
#include <vector>

namespace webs {

// A streaming parser that turns a body, handed in piece by piece, into a tree of TreeNode.
//
// The parser behind streamIn reports what it meets through readNodeBegin, readNodeValue and
// readNodeEnd, which grow the tree under a cursor, the current node.
//
// Threads:   one thread at a time; all readers share the stations of TreeNode, so one thread at a
//            time for all of them.
// Ownership: text handed in is not kept.
class TreeReader {
 public:
  // Takes len bytes (0 or more; data may be null for 0); isFinal is not 0 for the end of the
  // document. What is returned is the parser's own status.
  virtual int streamIn(const char* data, int len, int isFinal) = 0;
  // Prepares the reader once, before its first document.
  virtual void initialize() = 0;
  // Empties the tree.
  virtual void clear() = 0;
  virtual void readNodeBegin(const char* name, bool flag) = 0;
  virtual void readNodeEnd(const char* name) = 0;
  virtual void readNodeValue(const char* text, bool flag) = 0;
  // Prepares the parser for a new document; the tree is not cleared.
  virtual void readyRead() = 0;
  // The tree as text, prefix first if the format has a place for it. Owned by the reader, valid
  // until the next call or clear().
  virtual std::vector<unsigned char>* getRawData(const std::string& prefix) = 0;
  virtual ~TreeReader() = default;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_TREEREADER_H_
