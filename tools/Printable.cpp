#include "Printable.h"

#include <algorithm>

namespace tools {
namespace {

using Distance = std::string::difference_type;

struct Character {
  unsigned int code;
  // Bytes; 0 if it is not UTF-8.
  size_t length;
};

unsigned int byteAt(const std::string& text, size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

Character decoded(const std::string& text, size_t at) {
  static const unsigned int kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  const unsigned int lead = byteAt(text, at);
  if (lead < 0x80) return {lead, 1};
  const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC0 || lead > 0xF7) return {lead, 0};
  unsigned int code = lead & (0x7Fu >> length);
  for (size_t i = 1; i < length; i++) {
    const unsigned int next = byteAt(text, at + i);
    if ((next & 0xC0) != 0x80) return {lead, 0};
    code = code << 6 | (next & 0x3F);
  }
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < kLeast[length] || code > 0x10FFFF || surrogate) return {lead, 0};
  return {code, length};
}

// Most characters: letters, digits and marks of ASCII.
bool isPlain(char c) { return c >= 0x20 && c < 0x7F && c != '\\'; }

bool steersTheTerminal(unsigned int code) {
  return (code >= 0x80 && code <= 0x9F) || code == 0x061C || code == 0x200E || code == 0x200F ||
         (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

std::string escaped(char kind, unsigned int code, int digits) {
  std::string made = {'\\', kind};
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
    made += "0123456789abcdef"[code >> shift & 15];
  }
  return made;
}

std::string escapedAscii(char c) {
  switch (c) {
    case '\n':
      return "\\n";
    case '\t':
      return "\\t";
    case '\\':
      return "\\\\";
    default:
      break;
  }
  const auto code = static_cast<unsigned char>(c);
  return code < 0x20 || code == 0x7F ? escaped('x', code, 2) : std::string(1, c);
}

}  // namespace

std::string printable(const std::string& text) {
  std::string made;
  for (size_t at = 0; at < text.size();) {
    const auto special =
        std::find_if_not(text.begin() + static_cast<Distance>(at), text.end(), isPlain);
    const size_t plain = static_cast<size_t>(special - text.begin()) - at;
    made.append(text, at, plain);
    at += plain;
    if (at == text.size()) break;
    const Character next = decoded(text, at);
    if (next.length == 0) {
      made += escaped('x', next.code, 2);
    } else if (next.length == 1) {
      made += escapedAscii(text[at]);
    } else if (steersTheTerminal(next.code)) {
      made += escaped('u', next.code, 4);
    } else {
      made.append(text, at, next.length);
    }
    at += next.length > 0 ? next.length : 1;
  }
  return made;
}

std::string quoted(const std::string& text) {
  std::string made = "\"";
  for (const char c : printable(text)) {
    if (c == '"') made += '\\';
    made += c;
  }
  return made + '"';
}

std::string characterAt(const std::string& text, size_t at) {
  const size_t length = decoded(text, at).length;
  return text.substr(at, length > 0 ? length : 1);
}

}  // namespace tools
