#!/bin/bash
# Checks the model of restarts with spin, and that the check notices what must not be left out.
#
#   tests/model/check.sh [--all]
#
# --all: also with a close at any time, which takes minutes and 2 GiB. Prints a line for each run with
# its states and its errors. Exit code 1 when one has come out otherwise than it should.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bad=0

# search WANTED DEFINES...: the whole state space; WANTED errors (0, or 1 for the first one).
search() {
  local wanted=$1 errors states
  shift
  mkdir -p "$work/run"
  (cd "$work/run" && spin "$@" -a "$OLDPWD/restart.pml" >spin.log && \
    gcc -O2 -w -DSAFETY -DVECTORSZ=2048 -DCOLLAPSE -DMEMLIM=6000 -o pan pan.c)
  (cd "$work/run" && ./pan -m400000 -w24 >pan.log)
  errors=$(sed -n 's/.*errors: \([0-9]*\)$/\1/p' "$work/run/pan.log")
  states=$(sed -n 's/^ *\([0-9]*\) states, stored.*/\1/p' "$work/run/pan.log")
  # A search that was cut short has proved nothing.
  if [ "$errors" != "$wanted" ] || grep -qE "out of memory|max search depth" "$work/run/pan.log"; then
    bad=1
    echo "WRONG: wanted $wanted"
    cat "$work/run/pan.log"
  fi
  echo "$* : $states states, $errors errors"
}

search 0 -DPATIENT -DREADS=1
for fault in 1 2 3 6; do search 1 -DPATIENT "-DFAULT=$fault"; done
for fault in 4 5; do search 1 -DREADS=1 "-DFAULT=$fault"; done
if [ "${1:-}" = --all ]; then
  search 0 -DPATIENT
  search 0 -DPATIENT -DENGINES=2
  search 0 -DREADS=1
  search 0
fi
exit "$bad"
