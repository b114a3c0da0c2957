#ifndef FLUVIAFS_TESTS_ORDEAL_MATRIX_CELL_H_
#define FLUVIAFS_TESTS_ORDEAL_MATRIX_CELL_H_

#include <cstddef>
#include <string>

namespace matrix {

// The measured client: reads a URL at offsets.
class Client {
 public:
  virtual ~Client() = default;
  // Returns false if it failed; why has the reason.
  virtual bool open(const std::string& url, std::string* why) = 0;
  // Reads at most count bytes at offset. Returns 0 at the end, and -1 if it failed; why has the
  // reason.
  virtual long readAt(long long offset, char* bytes, size_t count, std::string* why) = 0;
};

// The main function of a column's program:
//
//   PROGRAM URL SIZE sequential|middle|player
//
// Runs the trace and compares with the test pattern. Prints one line: "right SECONDS", or
// "failed SECONDS how", or "wrong SECONDS where". Returns 0, 1, 2.
int runCell(Client* client, int count, char** words);

}  // namespace matrix

#endif  // FLUVIAFS_TESTS_ORDEAL_MATRIX_CELL_H_
