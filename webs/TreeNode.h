#ifndef FLUVIAFS_WEBS_TREENODE_H_
#define FLUVIAFS_WEBS_TREENODE_H_

#include <stack>
#include <string>
#include <utility>
#include <vector>

#include "util/NeverDestroyed.h"
#include "webs/NodeName.h"

namespace webs {

// The last failed lookup of a tree node: which operation failed, and a code.
//
// Threads: not locked; belongs to the node that holds it.
struct TreeNodeError {
  // No failure yet: code 0, empty message.
  TreeNodeError() = default;
  ~TreeNodeError() = default;
  TreeNodeError(const TreeNodeError&) = default;
  TreeNodeError& operator=(const TreeNodeError&) = default;

  // Stores both; the next failure overwrites them.
  void error(const std::string& text, int number) {
    message = text;
    code = number;
  }

  int code = 0;
  std::string message;
};

// A node of a parsed XML or JSON body: key, text value, attributes and ordered children.
//
// Nodes and attribute objects are recycled through two process-wide stacks (the stations), so that
// repeated parsing does not allocate. Nothing here recurses: a hostile body may nest as deep as it
// likes.
//
// Threads:   not locked. All trees share the stations, their counters and the comparison function,
//            so trees are built, searched and cleared by one thread at a time.
// Ownership: a node owns its children and its attributes. Pointers to either stay valid until the
//            node is cleared or destroyed, or the child removed; after that they may point into
//            another tree.
// Invariant: children and attributes hold no null pointers.
class TreeNode {
 public:
  // first is the attribute's name, second its value.
  using Attribute = std::pair<std::string, std::string>;
  // Gets (the node's string, the searched string); true when they match.
  using CompareFunction = bool (*)(const std::string&, const std::string&);

  // Returned by failed lookups of a value; never destroyed.
  static const std::string& EMPTY_STRING;

  // Creates an empty node. Does not add it to the parent (null for a root); see createSubEntry.
  explicit TreeNode(TreeNode* above);
  TreeNode(TreeNode* above, const std::string& name);
  TreeNode(const TreeNode&) = delete;
  TreeNode& operator=(const TreeNode&) = delete;
  // Returns children and attributes to the stations.
  virtual ~TreeNode();
  // Returns the whole subtree and the attributes to the stations, children before their parent and
  // in order. Empties value and key and resets the parent. leafFlag and error do not change.
  virtual void clear();

  // Installs a comparison that extends every lookup, e.g. to ignore case; exact equality always
  // matches too. Null removes it.
  static void setCompareFunction(CompareFunction function);

  // Returns a recycled or new node without parent, owned by the caller. A recycled one keeps its
  // old leafFlag and error.
  static TreeNode* getFreeEntry();
  // Returns the node to the station. Keeps (and clears) it while at most 99 nodes exist, destroys
  // it otherwise. Null is never kept, but counts as a destroyed node above the threshold.
  static void releaseEntry(TreeNode* node);
  // Same for attribute objects; their strings are empty again.
  static Attribute* getFreeAttriObject();
  static void releaseAttribute(Attribute* attribute);
  // Destroys everything in the stations. The counters do not change; this is intentional.
  static void clean();

  // Appends a child; owned by this node.
  TreeNode* createSubEntry(const std::string& name);
  // Appends an attribute, also when one of that name exists; owned by this node.
  Attribute* createSubAttribute(const std::string& name, const std::string& text);
  // Changes the first attribute of that name to text, in double quotes unless raw. Returns false
  // and adds nothing when there is none.
  bool setAttribute(const std::string& name, const std::string& text, bool raw);

  void setLeafValue(std::string text, bool flag);
  // As setLeafValue(getValue() + text, flag), without copying what is already there.
  void appendLeafValue(const char* text, bool flag);
  void setKey(const std::string& name);
  const std::string& getKey() const { return key.get(); }
  const std::string& getValue() const { return value; }
  // An extra flag of the value: the JSON reader's "was quoted", false from the XML reader.
  bool getLeafFlag() const { return leafFlag; }
  void setParent(TreeNode* above) { parent = above; }
  TreeNode* getParent() const { return parent; }
  // The last failed lookup that ended in this node.
  const TreeNodeError& getError() const { return error; }

  // The decimal number at the start of the value: 0 without one, the nearest int if out of range.
  int getIntegerValue() const;
  // True if that number is not zero. So "true" is false, and callers rely on it.
  bool getBoolValue() const;

  int numberOfElem() const { return static_cast<int>(children.size()); }
  // Child i of [0, numberOfElem()); not checked.
  TreeNode* getElem(int i) { return children[static_cast<size_t>(i)]; }
  TreeNode* getElem(int i) const { return children[static_cast<size_t>(i)]; }
  int numberOfAttr() const { return static_cast<int>(attributes.size()); }
  // Attribute i of [0, numberOfAttr()); not checked.
  Attribute* getAttribute(int i) const { return attributes[static_cast<size_t>(i)]; }
  // Value of the first attribute of that name, or EMPTY_STRING.
  const std::string& getAttrValue(const std::string& name) const;

  // This node if its key matches, else the first direct child whose key does, else null.
  TreeNode* getElem(const std::string& name);
  // The first node, depth first, whose key matches; without byKey the first leaf whose value does.
  // Null if none.
  TreeNode* findElem(const std::string& text, bool byKey);
  // The first leaf, depth first, that matches both. Null if none; every node that was tried then
  // stores the failure in its error.
  TreeNode* findElem(const std::string& name, const std::string& text);
  // Same for a literal, which would otherwise convert to bool and search for a key.
  TreeNode* findElem(const std::string& name, const char* text);
  // Value of the first node, depth first, whose key matches, or an empty string.
  std::string findValue(const std::string& name);
  // The leaf at the end of a chain of only children. Null if a node has several; that node stores
  // the failure in its error.
  TreeNode* findSoleLeaf();
  // The child after current, or the first one for null. Null after the last one and if current is
  // not a child.
  TreeNode* getNextSubElem(TreeNode* current) const;
  // Releases a child with its subtree. Returns false if it is not a child of this node.
  bool removeElem(TreeNode* child);

  // Append the subtree's text to out. Nothing is escaped, indented or broken into lines.
  void toXMLContent(std::vector<unsigned char>* out) const;
  // A node without parent is preceded by "key = " unless its key is empty or "req". A node whose
  // first child's key begins with '[' becomes an array.
  void toJSONContent(std::vector<unsigned char>* out) const;

 protected:
  static CompareFunction strCompare;
  // Never destroyed: a reader may be cleared by a destructor that runs at exit.
  static util::NeverDestroyed<std::stack<TreeNode*>> entryStation;
  // Nodes that getFreeEntry created and releaseEntry did not destroy.
  static int entryCreatedNum;
  static util::NeverDestroyed<std::stack<Attribute*>> attrStation;
  static int attrCreatedNum;

 private:
  static bool matches(const std::string& own, const std::string& searched);
  bool isLeafWith(const std::string& name, const std::string& text) const;
  Attribute* findAttribute(const std::string& name) const;
  void releaseContent();

  std::vector<Attribute*> attributes;
  std::string value;
  bool leafFlag = false;
  NodeName key;
  TreeNode* parent;
  TreeNodeError error;
  std::vector<TreeNode*> children;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_TREENODE_H_
