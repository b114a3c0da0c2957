// Any bytes, in pieces of any size, through the XML reader and everything that walks its tree.
#include <algorithm>
#include <string>

#include "tests/ordeal/fuzz/FuzzTarget.h"
#include "tests/support/TreeShape.h"
#include "webs/XMLReader.h"

namespace {

using webs::XMLReader;

int feed(XMLReader* reader, const std::string& text, size_t pieceSize) {
  for (size_t at = 0; at < text.size(); at += pieceSize) {
    const std::string piece = text.substr(at, pieceSize);
    if (reader->streamIn(piece.data(), static_cast<int>(piece.size()), 0) != 1) return 0;
  }
  return reader->streamIn(nullptr, 0, 1);
}

void lookAround(XMLReader* reader) {
  reader->findElem("a", true);
  reader->findElem("v", false);
  reader->findElem("a", "v");
  reader->findSoleLeaf();
  reader->findValue("a");
  jsonOf(*reader);
}

}  // namespace

// The first byte is the size of the pieces.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t pieceSize = std::max<size_t>(1, data[0]);
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  XMLReader reader;
  reader.initialize();
  const int whole = feed(&reader, text, text.size() + 1);
  const std::string shape = shapeOf(reader);
  lookAround(&reader);
  // The written text need not be well-formed: nothing is escaped.
  const std::string written = textOf(*reader.getRawData(""));
  reader.clear();
  reader.readyRead();
  const int inPieces = feed(&reader, text, pieceSize);
  FUZZ_CHECK(inPieces == whole);
  // An error may come before or after the last text of the broken document.
  FUZZ_CHECK(whole != 1 || shapeOf(reader) == shape);
  reader.clear();
  reader.readyRead();
  feed(&reader, written, written.size() + 1);
  return 0;
}
