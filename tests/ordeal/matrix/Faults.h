#ifndef FLUVIAFS_TESTS_ORDEAL_MATRIX_FAULTS_H_
#define FLUVIAFS_TESTS_ORDEAL_MATRIX_FAULTS_H_

#include <functional>
#include <string>
#include <vector>

#include "tests/support/FaultServer.h"

namespace matrix {

enum Trace { kSequential, kMiddle, kPlayer, kTraces };
const char* nameOf(Trace trace);

// A row of the matrix.
struct Fault {
  std::string words;
  long long size;  // bytes that a client has to deliver
  // How "/fault" answers; "/behind" serves ranges. Made anew for each cell.
  std::function<support::Behaviour()> behaviour;
  // What our cells must show: empty for right bytes, else the beginning of how they fail; behind a
  // '~' that or right bytes, as it comes; '|' stands between two that may come...
  std::string expected[kTraces];
  // ...and why that is so.
  std::string reason;
  enum Kind { kAnswer, kTls, kRefused, kFull, kOneAtATime } kind = kAnswer;
  bool flagged = false;  // with feature flag 1
};

std::vector<Fault> allFaults();

}  // namespace matrix

#endif  // FLUVIAFS_TESTS_ORDEAL_MATRIX_FAULTS_H_
