#ifndef FLUVIAFS_TOOLS_OUTPUT_H_
#define FLUVIAFS_TOOLS_OUTPUT_H_

#include <openssl/evp.h>

#include <memory>
#include <string>

namespace tools {

// Where cat puts the bytes: standard output or a file; and, when asked, their SHA-256.
//
// Threads: one at a time.
class Output {
 public:
  Output() = default;
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // Opens the file (created or emptied), or standard output when path is empty. digest: also
  // compute the SHA-256. False with *error set on failure.
  bool open(const std::string& path, bool digest, std::string* error);
  // Writes all of it; waits as long as the receiver takes. False with *error set on failure.
  bool write(const char* data, unsigned int size, std::string* error);
  // Makes sure that everything arrived. False with *error set on failure.
  bool finish(std::string* error);
  // The SHA-256 of everything written, as 64 hexadecimal digits. Call once, after the last write.
  std::string sha256();

 private:
  using Digest = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

  bool failed(std::string* error) const;

  int file_ = -1;
  std::string name_ = "standard output";
  bool owned_ = false;
  Digest digest_{nullptr, EVP_MD_CTX_free};
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_OUTPUT_H_
