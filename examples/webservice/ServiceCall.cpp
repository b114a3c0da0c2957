#include "ServiceCall.h"

#include <cctype>

ServiceCall::ServiceCall(webs::MethodResponse* response, const std::string& base)
    : response_(response), base_(base) {
  session_.initialize(response_, base_);
  session_.buildParam2URL(true);
}

int ServiceCall::call(const Parameters& parameters) {
  // The session appends the parameters unchanged: this function adds the "?" and the encoding.
  for (const auto& [name, value] : parameters) {
    session_.pushParam(name, percentEncoded(value), webs::VALUE_STRING);
  }
  // The transfer does not call the response itself: reset() prepares the response, and
  // finishReceive() ends the document and interprets it.
  session_.reset();
  const int result = session_.executeGet(base_ + "?", 0, 0, 0);
  response_->finishReceive();
  return result;
}

std::string percentEncoded(const std::string& text) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string made;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0 || c == '-' || c == '.' || c == '_' || c == '~') {
      made += c;
    } else {
      made += '%';
      made += kDigits[byte >> 4];
      made += kDigits[byte & 15];
    }
  }
  return made;
}
