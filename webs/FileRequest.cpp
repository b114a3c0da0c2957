#include "webs/FileRequest.h"

#include "util/Log.h"

FileRequest::FileRequest(const std::string& resource) : out(nullptr) {
  FLUVIA_LOG(1, "FileRequest construction");
  url = resource;
}

FileRequest::~FileRequest() = default;

void FileRequest::setOutput(util::BufferQueueDataReceiver* receiver) { out = receiver; }

void FileRequest::unsetOutput() { out = nullptr; }
