// Any bytes, as one whole text, through the JSON reader and everything that walks its tree.
#include <string>
#include <vector>

#include "tests/ordeal/fuzz/FuzzTarget.h"
#include "tests/support/TreeShape.h"
#include "webs/JSONReader.h"

namespace {

using webs::JSONReader;

void lookAround(JSONReader* reader) {
  reader->findElem("\"a\"", true);
  reader->findElem("v", false);
  reader->findElem("\"a\"", "v");
  reader->findSoleLeaf();
  reader->findValue("\"a\"");
  xmlOf(*reader);
}

// Calls the scanner directly, so that its stacks are those that the last text left.
void scanTwice(const char* text, int size) {
  JSONReader reader;
  webs::JSONParser parser(&reader);
  for (int round = 0; round < 2; round++) {
    const int result = parser.parse(text, size, 1);
    FUZZ_CHECK(result <= 0 && result >= -5);
  }
  shapeOf(reader);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  const int length = static_cast<int>(size);
  JSONReader reader;
  const int result = reader.streamIn(text, length, 1);
  FUZZ_CHECK(result <= 0 && result >= -5);
  lookAround(&reader);
  const std::string shape = shapeOf(reader);
  // The written text can be read again, whatever it contains.
  const std::string written = textOf(*reader.getRawData(""));
  reader.streamIn(written.data(), static_cast<int>(written.size()), 1);
  // And the reader is as good as new.
  reader.clear();
  FUZZ_CHECK(reader.streamIn(text, length, 1) == result);
  FUZZ_CHECK(shapeOf(reader) == shape);
  scanTwice(text, length);
  return 0;
}
