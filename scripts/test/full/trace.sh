# shellcheck shell=bash
# The page of fluvia trace in a real browser.
make_trace() {
  configure release -DFLUVIA_TESTS=ON && build release --target fluvia trace_scene
}
check "build of the trace" make_trace
check "trace in a browser" timeout --kill-after=10 180 tests/products/tools/trace.sh build/release
