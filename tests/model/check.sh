#!/bin/bash
# Checks the models of restarts with spin, and that the check notices what must not be left out.
#
#   tests/model/check.sh [--all]
#
# --all: also in the large sizes, which takes minutes and some GiB. Prints a line for each run with
# its states and its errors. Exit code 1 when one has come out otherwise than it should.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bad=0
# A search of some seconds is over sooner than the compiler has made it fast.
optimise=-O0

# search WANTED DEFINES...: the whole state space; WANTED errors (0, or 1 for the first one).
search() {
  local wanted=$1 errors states
  shift
  mkdir -p "$work/run"
  (cd "$work/run" && spin "$@" -a "$OLDPWD/queue.pml" >spin.log && \
    gcc "$optimise" -w -DSAFETY -DVECTORSZ=2048 -DCOLLAPSE -DMEMLIM=6000 -o pan pan.c)
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

# A run in which nothing below fails.
sound=(-DEARLY=0 -DNO_MEMORY=0 -DNO_THREAD=0 -DNOT_OPENED=0)

# The producer of a URL.
search 0 -DPATIENT
for fault in 1 2 3 6 17; do search 1 -DPATIENT "-DFAULT=$fault"; done
for fault in 4 5; do search 1 -DREADS=1 "-DFAULT=$fault"; done

# That of a local file.
optimise=-O1
search 0 -DLOCAL -DPATIENT -DREADS=1
optimise=-O0
for fault in 2 7 9 12 13 14 15 16 17; do
  search 1 -DLOCAL -DPATIENT -DREADS=1 "-DFAULT=$fault"
done
for fault in 4 5 8; do search 1 -DLOCAL -DREADS=1 "${sound[@]}" "-DFAULT=$fault"; done
for fault in 10 11; do search 1 -DLOCAL -DPATIENT "${sound[@]}" "-DFAULT=$fault"; done

if [ "${1:-}" = --all ]; then
  optimise=-O2
  search 0 -DPATIENT -DENGINES=2
  search 0 -DREADS=1
  search 0
  search 0 -DLOCAL -DPATIENT
  search 0 -DLOCAL -DPATIENT -DREADS=1 -DENGINES=2
  # A close at any time: what fails below, one kind at a time.
  search 0 -DLOCAL -DREADS=1 "${sound[@]}"
  search 0 -DLOCAL -DREADS=1 -DSHORT_READS "${sound[@]}" -UEARLY
  search 0 -DLOCAL -DREADS=1 -DSHORT_READS "${sound[@]}" -UNO_MEMORY
  search 0 -DLOCAL -DREADS=1 -DSHORT_READS "${sound[@]}" -UNO_THREAD -UNOT_OPENED
fi
exit "$bad"
