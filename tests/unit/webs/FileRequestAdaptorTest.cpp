// The producer for each kind of name.
#include <gtest/gtest.h>

#include "tests/support/CapturedStderr.h"
#include "webs/FileRequest.h"
#include "webs/FileRequestAdaptor.h"

namespace {

constexpr int kNone = -1;
constexpr int kLocal = 0;
constexpr int kHttp = 1;

int typeOf(const std::string& url) {
  FileRequest* request = FileRequestAdaptor::createFileRequest(url);
  if (request == nullptr) return kNone;
  const int type = request->getType();
  FileRequestAdaptor::releaseFileRequest(request);
  return type;
}

class FileRequestAdaptorTest : public testing::Test {
 protected:
  const support::CapturedStderr log{1};
};

TEST_F(FileRequestAdaptorTest, NameWithASchemeAnywhereIsHttp) {
  for (const char* url :
       {"http://a/b", "https://a/b", "xhttp://y", "/a/http://b", "http://", "/cache/https://x"}) {
    EXPECT_EQ(typeOf(url), kHttp) << url;
  }
}

TEST_F(FileRequestAdaptorTest, OtherNameWithASlashIsLocal) {
  for (const char* url : {"/a/b", "file:///x", "/", "a/b", "HTTP://a", "ftp://a", "http:/a"}) {
    EXPECT_EQ(typeOf(url), kLocal) << url;
  }
}

TEST_F(FileRequestAdaptorTest, NameWithNeitherHasNoProducer) {
  for (const char* url : {"", "a", "http:", "https:", "c:\\a"})
    EXPECT_EQ(typeOf(url), kNone) << url;
}

TEST_F(FileRequestAdaptorTest, ReleaseLogsItsSteps) {
  FileRequest* request = FileRequestAdaptor::createFileRequest("/a");
  ASSERT_NE(request, nullptr);
  const support::CapturedStderr steps(1);
  FileRequestAdaptor::releaseFileRequest(request);
  const std::vector<std::string> all = steps.messages();
  ASSERT_GE(all.size(), 6u);
  EXPECT_EQ(all[0], "releaseFileRequest: begin to release FileRequest");
  EXPECT_EQ(all[1], "release: file relsease begin");
  EXPECT_EQ(all[2], "release: file relsease end");
  EXPECT_EQ(all[3], "releaseFileRequest: end to release FileRequest");
  EXPECT_EQ(all[4], "~LocalFileRequest: 1");
  EXPECT_EQ(all.back(), "releaseFileRequest: Deleted request");
}

}  // namespace
