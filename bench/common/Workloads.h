#ifndef FLUVIAFS_BENCH_COMMON_WORKLOADS_H_
#define FLUVIAFS_BENCH_COMMON_WORKLOADS_H_

#include <string>

#include "bench/common/Reader.h"
#include "bench/common/Source.h"

namespace bench {

// The result of a workload.
struct Outcome {
  Histogram operations;
  long long bytes = 0;
  // Runs from before the workload until after it, unless the workload starts and stops it.
  Measurement measurement;
  std::string more;  // further figures, for Measurement::print()
};

// A workload. Returns false after an error, which it has printed.
using Workload = bool (*)(const Options&, SourceMaker, Outcome*);
// Returns null for an unknown name.
Workload findWorkload(const std::string& name);

// The workload for one reader that is open at 0.
using OneReader = bool (*)(const Options&, Reader*);
bool withOneReader(const Options& options, SourceMaker make, Outcome* outcome, OneReader work);

// Several readers, each on its thread (Readers.cpp).
bool readers(const Options& options, SourceMaker make, Outcome* outcome);
// How long close, abort and seek take while the server is silent (Silent.cpp).
bool silent(const Options& options, SourceMaker make, Outcome* outcome);
// Reads at a player's pace (Play.cpp).
bool play(const Options& options, SourceMaker make, Outcome* outcome);

}  // namespace bench

#endif  // FLUVIAFS_BENCH_COMMON_WORKLOADS_H_
