# shellcheck shell=bash
# The instructions of a block on its way through the queue, against the figure in bench/hot.

make_hot_path() {
  quietly cmake --preset release -B build/counts -DFLUVIA_BENCH=ON -DFLUVIA_TESTS=OFF \
    -DFLUVIA_PLAYERS=OFF && quietly cmake --build build/counts --target hot-path -j "$JOBS"
}

check "build hot path" make_hot_path
check "instructions of a block" bench/hot/check build/counts/bench/hot-path
check "instructions are repeatable" bench/hot/check --repeat build/counts/bench/hot-path
