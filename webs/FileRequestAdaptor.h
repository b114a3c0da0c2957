#ifndef FLUVIAFS_WEBS_FILEREQUESTADAPTOR_H_
#define FLUVIAFS_WEBS_FILEREQUESTADAPTOR_H_

#include <string>

class FileRequest;

// Creates the producer of a resource from its name, and destroys it.
class FileRequestAdaptor {
 public:
  // Returns a producer, not yet initialised, owned by the caller: HTTP if the name contains
  // "http://" or "https://" anywhere, else local if it contains "/". Null otherwise.
  static FileRequest* createFileRequest(const std::string& url);
  // Stops and deletes a producer; request must not be null.
  static void releaseFileRequest(FileRequest* request);
};

#endif  // FLUVIAFS_WEBS_FILEREQUESTADAPTOR_H_
