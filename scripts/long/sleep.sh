# shellcheck shell=bash
# A player that sleeps for a minute and reads on.
make_exhaustion() {
  configure release -DFLUVIA_TESTS=ON && build release --target exhaustion_tests
}

check "build exhaustion" make_exhaustion
export FLUVIA_SLEEP_SECONDS=60
run_ctest release -R Time.ReaderThatSlept
unset FLUVIA_SLEEP_SECONDS
