#include "webs/FileRequestAdaptor.h"

#include "util/Log.h"
#include "webs/FileRequest.h"
#include "webs/HttpFileRequest.h"
#include "webs/LocalFileRequest.h"

FileRequest* FileRequestAdaptor::createFileRequest(const std::string& url) {
  if (url.find("http://") != std::string::npos || url.find("https://") != std::string::npos) {
    return new webs::HttpFileRequest(url);
  }
  if (url.find('/') != std::string::npos) return new LocalFileRequest(url);
  return nullptr;
}

void FileRequestAdaptor::releaseFileRequest(FileRequest* request) {
  FLUVIA_LOG(1, "begin to release FileRequest");
  request->release();
  FLUVIA_LOG(1, "end to release FileRequest");
  delete request;
  FLUVIA_LOG(1, "Deleted request");
}
