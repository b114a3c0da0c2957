#include "Output.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tools {

Output::~Output() {
  if (owned_) {
    close(file_);
  }
}

bool Output::failed(std::string* error) const {
  *error = "cannot write " + name_ + ": " + std::strerror(errno);
  return false;
}

bool Output::open(const std::string& path, bool digest, std::string* error) {
  file_ = STDOUT_FILENO;
  if (!path.empty()) {
    name_ = path;
    file_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file_ < 0) {
      return failed(error);
    }
    owned_ = true;
  }
  if (digest) {
    digest_.reset(EVP_MD_CTX_new());
    if (digest_ == nullptr || EVP_DigestInit_ex(digest_.get(), EVP_sha256(), nullptr) != 1) {
      *error = "cannot compute a SHA-256: the cryptography library refuses";
      return false;
    }
  }
  return true;
}

bool Output::write(const char* data, unsigned int size, std::string* error) {
  if (digest_ != nullptr && EVP_DigestUpdate(digest_.get(), data, size) != 1) {
    *error = "cannot compute a SHA-256: the cryptography library refuses";
    return false;
  }
  while (size != 0) {
    const ssize_t written = ::write(file_, data, size);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written < 0) {
      return failed(error);
    }
    data += written;
    size -= static_cast<unsigned int>(written);
  }
  return true;
}

bool Output::finish(std::string* error) {
  if (!owned_) {
    return true;
  }
  owned_ = false;
  return close(file_) == 0 || failed(error);
}

std::string Output::sha256() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
  unsigned int length = 0;
  if (digest_ == nullptr || EVP_DigestFinal_ex(digest_.get(), sum.data(), &length) != 1) {
    return "";
  }
  std::string text;
  for (unsigned int i = 0; i < length; ++i) {
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", sum[i]);
    text += digits.data();
  }
  return text;
}

}  // namespace tools
