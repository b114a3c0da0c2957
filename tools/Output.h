#ifndef FLUVIAFS_TOOLS_OUTPUT_H_
#define FLUVIAFS_TOOLS_OUTPUT_H_

#include <openssl/evp.h>

#include <memory>
#include <string>

namespace tools {

// Writes the bytes of cat to standard output or a file, and can compute their SHA-256.
//
// Threads: one at a time.
class Output {
 public:
  Output() = default;
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // Opens the file (created or truncated), or standard output if path is empty. digest: also
  // computes the SHA-256. Returns false with *error set on failure.
  bool open(const std::string& path, bool digest, std::string* error);
  // Writes all bytes; waits as long as the receiver takes. Returns false with *error set on
  // failure.
  bool write(const char* data, unsigned int size, std::string* error);
  // Flushes and checks that everything was written. Returns false with *error set on failure.
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
