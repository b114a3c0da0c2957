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
  long long size;  // bytes that a client must deliver
  // The behaviour of "/fault"; "/behind" serves ranges. Created for each cell.
  std::function<support::Behaviour()> behaviour;
  // The expected result of our cells: empty for right bytes, else the beginning of the failure.
  // After a '~' that or right bytes, at random; '|' separates alternatives...
  std::string expected[kTraces];
  // ...and the reason for it.
  std::string reason;
  enum Kind { kAnswer, kTls, kRefused, kFull, kOneAtATime } kind = kAnswer;
  bool flagged = false;  // with feature flag 1
};

std::vector<Fault> allFaults();

}  // namespace matrix

#endif  // FLUVIAFS_TESTS_ORDEAL_MATRIX_FAULTS_H_
