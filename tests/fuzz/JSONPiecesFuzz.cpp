// Any bytes, in pieces of any size, give the tree that they give as one text.
#include <algorithm>
#include <string>

#include "tests/fuzz/FuzzTarget.h"
#include "tests/support/TreeShape.h"
#include "webs/JSONReader.h"

namespace {

using webs::JSONReader;

// Whether every bracket outside quotes is closed at the end of text, and there was one.
bool isBalanced(const std::string& text) {
  bool quoted = false, seen = false;
  long long open = 0;
  for (const char c : text) {
    if (c == '"') quoted = !quoted;
    if (quoted || std::string("{}[]").find(c) == std::string::npos) continue;
    seen = true;
    open += c == '{' || c == '[' ? 1 : -1;
  }
  return seen && open <= 0 && !quoted;
}

// Whether the pieces make one document: only the last completes it. Blanks that come after a
// complete document are dropped, while in one text a malformed one may take them into a word.
bool isOneDocument(const std::string& text, size_t pieceSize) {
  for (size_t end = pieceSize; end < text.size(); end += pieceSize) {
    if (isBalanced(text.substr(0, end))) return false;
  }
  return true;
}

}  // namespace

// The first byte is the size of the pieces.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Checking every prefix takes time by the square of the size.
  if (size == 0 || size > 20000) return 0;
  const size_t pieceSize = std::max<size_t>(1, data[0]);
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  JSONReader inPieces;
  for (size_t at = 0; at < text.size(); at += pieceSize) {
    const std::string piece = text.substr(at, pieceSize);
    const int result = inPieces.streamIn(piece.data(), static_cast<int>(piece.size()), 0);
    FUZZ_CHECK(result <= 0 && result >= -5);
  }
  FUZZ_CHECK(inPieces.streamIn(nullptr, 0, 1) == 0);
  if (!isOneDocument(text, pieceSize)) return 0;
  JSONReader whole;
  whole.streamIn(text.data(), static_cast<int>(text.size()), 1);
  FUZZ_CHECK(shapeOf(whole) == shapeOf(inPieces));
  return 0;
}
