// Any bytes, in pieces of any size, give the same tree as in one text.
#include <algorithm>
#include <string>

#include "tests/ordeal/fuzz/FuzzTarget.h"
#include "tests/support/TreeShape.h"
#include "webs/JSONReader.h"

using webs::JSONReader;

// The first byte is the size of the pieces.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t pieceSize = std::max<size_t>(1, data[0]);
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  JSONReader inPieces;
  for (size_t at = 0; at < text.size(); at += pieceSize) {
    const std::string piece = text.substr(at, pieceSize);
    const int result = inPieces.streamIn(piece.data(), static_cast<int>(piece.size()), 0);
    FUZZ_CHECK(result <= 0 && result >= -5);
  }
  FUZZ_CHECK(inPieces.streamIn(nullptr, 0, 1) == 0);
  JSONReader whole;
  whole.streamIn(text.data(), static_cast<int>(text.size()), 1);
  FUZZ_CHECK(shapeOf(whole) == shapeOf(inPieces));
  return 0;
}
