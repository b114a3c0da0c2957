#ifndef FLUVIAFS_WEBS_METHODRESPONSE_H_
#define FLUVIAFS_WEBS_METHODRESPONSE_H_

#include <string>

#include "webs/Requestor.h"

namespace webs {

class TreeNode;
class TreeReader;

// The receiving side of a web-service call: feeds the body into a tree reader and stores the
// outcome. A derived class reads the tree in processResult and sets success, code and message.
//
// Use:       initialize() once with a reader, then per call readyReceive(), receive() for each
//            piece, finishReceive().
// Threads:   the transfer's thread; the outcome is read after the transfer.
// Ownership: the reader is not owned and must outlive the response's use.
class MethodResponse : public Requestor {
 public:
  MethodResponse();

  // Feeds one piece to the reader. Returns size whatever the parser returned, so that the transfer
  // continues. Needs a reader. handle and version are ignored.
  int receive(void* data, int size, void* handle, int version) override;
  // Clears the last outcome and tree. Needs a reader.
  void readyReceive() override;
  // Ends the document, then calls processResult(). Needs a reader.
  void finishReceive() override;
  ~MethodResponse() override = default;
  // Interprets the tree. Does nothing here.
  virtual void processResult();

  // switchReader(), then the reader's initialize() if there is one.
  void initialize(TreeReader* treeReader);
  // Only replaces the reader. Null leaves the response without one.
  void switchReader(TreeReader* treeReader);

  // Limits the tree of one call: nodes, and bytes as TreeLimit counts them (for a JSON body
  // including its text); 0 or less means no limit. A call that exceeds the limit behaves as one
  // with a malformed body: the reader accepts no more, the tree keeps what it has by then, and
  // processResult() is called at the end. Applies to readers that are a TreeLimit, as both of the
  // library's are; the reader keeps the limit.
  void setTreeLimit(long long nodes, long long bytes);
  static constexpr long long DEFAULT_NODES = 1000000;
  static constexpr long long DEFAULT_BYTES = 256LL * 1024 * 1024;

  bool isSuccess() const { return success; }
  // Valid until the next call begins.
  const std::string& getErrorCode() const { return errorCode; }
  const std::string& getErrorMsg() const { return errorMsg; }
  // Returns null: only derived responses know where their result is.
  TreeNode* findResultStruct() const;

 protected:
  TreeReader* reader = nullptr;
  bool success = false;
  std::string errorCode;
  std::string errorMsg;

 private:
  void limitReader();

  long long maxNodes = DEFAULT_NODES;
  long long maxBytes = DEFAULT_BYTES;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_METHODRESPONSE_H_
