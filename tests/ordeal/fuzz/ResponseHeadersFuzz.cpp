// Any bytes as the header lines of a response, through all functions that read them.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/ordeal/fuzz/FuzzTarget.h"
#include "util/Log.h"
#include "webs/MethodRequest.h"

namespace {

using webs::MethodRequest;

class Nobody : public webs::Requestor {
 public:
  int receive(void*, int size, void*, int) override { return size; }
  void readyReceive() override {}
  void finishReceive() override {}
};

// One call for each line, as in a transfer.
void feedLines(MethodRequest* session, const std::string& text) {
  size_t at = 0;
  while (at < text.size()) {
    const size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
    // A copy of the exact size, so that a sanitizer notices a read beyond it.
    const std::vector<char> line(text.begin() + static_cast<long>(at),
                                 text.begin() + static_cast<long>(end));
    FUZZ_CHECK(session->headerContentIn(line.data(), 1, line.size()) == line.size());
    at = end;
  }
}

void lookAt(MethodRequest* session) {
  session->checkFromContentLength();
  session->seekAbleCheckFromResponse();
  session->getSizeFromResponseRange();
  long long first = 0;
  session->getStartFromResponseRange(&first);
  session->getServerName();
  session->getContentType();
  for (const int size : {0, 1, 100, 8192, 10000}) {
    std::vector<char> copy(static_cast<size_t>(size));
    int length = 0;
    FUZZ_CHECK(session->getResponseHeader(copy.data(), size, &length) == 0);
    FUZZ_CHECK(length >= 0 && length <= 8192);
  }
}

void copyValues(const std::string& text) {
  size_t at = 0;
  while (at < text.size()) {
    const size_t end = std::min(text.find('\n', at), text.size());
    char* value = webs::_copy_header_value(text.substr(at, end - at).c_str());
    FUZZ_CHECK(value != nullptr);
    std::free(value);
    at = end + 1;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Below every message: printing them would take most of the time.
  util::LOG_LEV = -5;
  const std::string text(reinterpret_cast<const char*>(data), size);
  Nobody nobody;
  MethodRequest session;
  session.initialize(&nobody, "");
  feedLines(&session, text);
  lookAt(&session);
  copyValues(text);
  return 0;
}
