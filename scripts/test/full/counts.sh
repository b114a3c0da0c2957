# shellcheck shell=bash
# The instructions of a block on its way through the queue, against the figure in bench/hot. The drivers of the
# bench are only built: what they measure takes hours.
DRIVERS=(bench-ours bench-ring bench-floor bench-get bench-file bench-idle bench-kernel bench-make-file
  bench-slow-link)

make_bench() {
  quietly cmake --preset release -B build/counts -DFLUVIA_BENCH=ON -DFLUVIA_TESTS=OFF \
    -DFLUVIA_PLAYERS=OFF && quietly cmake --build build/counts --target hot-path "${DRIVERS[@]}" \
    -j "$JOBS"
}

check "build the bench" make_bench
check "instructions of a block" bench/hot/check build/counts/bench/hot-path
check "instructions are repeatable" bench/hot/check --repeat build/counts/bench/hot-path
