# shellcheck shell=bash
# Everything below the library fails, one call at a time, then everything from one call on. More than
# 500 calls are sampled, with a fixed seed. The counts are left in build/torture-*.log.
. scripts/sanitizers.sh
# Whole stacks, also through libraries without frame pointers: leaks are recognised by their stacks.
export ASAN_OPTIONS=$ASAN_OPTIONS:handle_abort=1:fast_unwind_on_malloc=0

make_torture() {
  configure asan -DFLUVIA_TESTS=ON && build asan --target torture
}

# torture_with NAME options: shows the table while it runs.
torture_with() {
  local log=build/torture-$1.log
  shift
  if build/asan/tests/ordeal/torture/torture --jobs "$JOBS" "$@" | tee "$log"; then
    told "torture $*" "$(sed -n 's/^\([0-9]*\) runs, .*/\1/p' "$log")" 0 0
  else
    told "torture $*" 0 1 0
  fi
}

check "build torture" make_torture
set -o pipefail
torture_with once --points 500
torture_with on --points 200 --length 0
