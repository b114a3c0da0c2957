#ifndef FLUVIAFS_WEBS_FILEREQUEST_H_
#define FLUVIAFS_WEBS_FILEREQUEST_H_

#include <string>

#include "util/BufferQueueProducer.h"

// The kinds of producers.
enum SourceType { SOURCE_LOCAL = 0, SOURCE_HTTP = 1 };

// Producer of one resource, identified by its path or URL; base of the local and the HTTP producer.
//
// Threads:   as util::BufferQueueProducer.
// Ownership: owned by the shared file that made it; the receiver is not owned.
class FileRequest : public util::BufferQueueProducer {
 public:
  explicit FileRequest(const std::string& resource);
  ~FileRequest() override;
  FileRequest(const FileRequest&) = delete;
  FileRequest& operator=(const FileRequest&) = delete;

  void setOutput(util::BufferQueueDataReceiver* receiver) override;

  // A SourceType.
  virtual int getType() = 0;
  // Prepares the source. Returns false if the resource cannot be used.
  virtual bool initialize() = 0;
  // Removes the receiver.
  virtual void unsetOutput();

 protected:
  std::string url;
  util::BufferQueueDataReceiver* out;
};

#endif  // FLUVIAFS_WEBS_FILEREQUEST_H_
