# shellcheck shell=bash
# A sample of what ./test --long torture does: what is below the library fails, call by call.
. scripts/sanitizers.sh
# Whole stacks, also through libraries without frame pointers: a leak is judged by its stack.
export ASAN_OPTIONS=$ASAN_OPTIONS:handle_abort=1:fast_unwind_on_malloc=0
check "torture" build/asan/tests/ordeal/torture/torture --points 7 --jobs $((2 * JOBS))
