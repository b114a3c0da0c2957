# shellcheck shell=bash
# A sample of what ./test --long torture does: what is below the library fails, call by call.
. scripts/sanitizers.sh
export ASAN_OPTIONS=$ASAN_OPTIONS:handle_abort=1
check "torture" build/asan/tests/torture/torture --points 10 --jobs $((2 * JOBS))
