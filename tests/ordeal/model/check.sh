#!/bin/bash
# Checks the models of restarts with spin, and checks that the models notice each part left out.
#
#   tests/ordeal/model/check.sh [--all]
#
# --all: also in the large sizes, which takes minutes and some GiB. Prints a line for each run with its states
# and its errors. Exit code 1 if one has another result than expected.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
searches=()
begun=0
shown=0
bad=0
# The large sizes need all the memory.
at_once=$(($(nproc) + 1))
[ "${1:-}" != --all ] || at_once=1
# A search of some seconds ends before the compiler could optimise it.
optimise=-O0

# run_search FOLDER WANTED DEFINES...: writes its line of output to FOLDER/line.
run_search() {
  local folder=$1 wanted=$2 errors states kind=(-DSAFETY) how=()
  shift 2
  if [[ " $* " == *" -DLIVE "* ]]; then
    kind=(-DNFAIR=3)
    how=(-a -f)
  fi
  local model=$PWD/queue.pml
  cd "$folder"
  spin "$@" -a "$model" >spin.log
  gcc "$optimise" -w "${kind[@]}" -DVECTORSZ=2048 -DCOLLAPSE -DMEMLIM=6000 -o pan pan.c
  ./pan "${how[@]}" -m400000 -w24 >pan.log
  errors=$(sed -n 's/.*errors: \([0-9]*\)$/\1/p' pan.log)
  states=$(sed -n 's/^ *\([0-9.e+]*\) states, stored.*/\1/p' pan.log)
  # A truncated search has proved nothing.
  if [ "$errors" != "$wanted" ] || grep -qE "out of memory|max search depth" pan.log; then
    {
      echo "WRONG: wanted $wanted"
      cat pan.log
    } >wrong
  fi
  echo "$* : $states states, $errors errors" >line
}

# show: waits for the oldest search that is not shown yet.
show() {
  local folder=$work/$((shown + 1))
  wait "${searches[shown]}" || true
  shown=$((shown + 1))
  # If spin, the compiler or the search itself failed, there is no line.
  if [ -e "$folder/wrong" ] || [ ! -e "$folder/line" ]; then
    bad=1
    cat "$folder/wrong" 2>/dev/null || cat "$folder"/*.log
  fi
  cat "$folder/line" 2>/dev/null || echo "search $shown has not ended"
  rm -rf "$folder"
}

# search WANTED DEFINES...: the whole state space; WANTED errors (0, or 1 for the first one). With -DLIVE it
# looks for reads that never end, in runs that are fair to every process.
search() {
  if [ $((begun - shown)) -ge "$at_once" ]; then
    show
  fi
  begun=$((begun + 1))
  mkdir "$work/$begun"
  run_search "$work/$begun" "$@" &
  searches+=($!)
}

# A run without failures below the library.
sound=(-DEARLY=0 -DNO_MEMORY=0 -DNO_THREAD=0 -DNOT_OPENED=0)
# Nor in connections, with reads of one chunk.
calm=(-DSHORT_READS -DFAILURES=0 -DEARLY=0 -DNO_MEMORY=0)

# The producer of a URL.
search 0 -DPATIENT
for fault in 2 3 17; do search 1 -DPATIENT "-DFAULT=$fault"; done
search 1 -DPATIENT -DREADS=1 -DFAULT=1
for fault in 4 5 21 22; do search 1 -DREADS=1 "-DFAULT=$fault"; done
search 1 -DPATIENT "${calm[@]}" -DFAULT=23
search 1 -DPATIENT "${calm[@]}" -DFAULT=25
# Connections that fail one after the other end the stream.
failing=(-DPATIENT -DREADS=1 -DSHORT_READS -DFAILURES=30 -DEARLY=0 -DNO_MEMORY=0)
search 0 "${failing[@]}"
search 1 "${failing[@]}" -DFAULT=6

# Large enough for a stream that continues where its reader does not need it.
far=(-DPATIENT -DCHUNKS=4 -DROOM=3 "${calm[@]}")
search 0 "${far[@]}"
for fault in 18 19 20; do search 1 "${far[@]}" "-DFAULT=$fault"; done
search 0 "${far[@]}" -DLIVE -DENDLESS
for fault in 18 19; do search 1 "${far[@]}" -DLIVE -DENDLESS "-DFAULT=$fault"; done

# The producer of a local file.
optimise=-O1
search 0 -DLOCAL -DPATIENT -DREADS=1
optimise=-O0
for fault in 2 7 9 12 13 14 15 17; do
  search 1 -DLOCAL -DPATIENT -DREADS=1 "-DFAULT=$fault"
done
for fault in 4 5 8; do search 1 -DLOCAL -DREADS=1 "${sound[@]}" "-DFAULT=$fault"; done
for fault in 10 11 16; do search 1 -DLOCAL -DPATIENT "${sound[@]}" "-DFAULT=$fault"; done

if [ "${1:-}" = --all ]; then
  optimise=-O2
  search 0 -DPATIENT -DENGINES=2
  search 0 -DREADS=1
  search 0
  search 1 "${calm[@]}" -DFAULT=24
  search 0 -DPATIENT -DCHUNKS=4 -DROOM=3
  search 0 -DPATIENT -DCHUNKS=5 -DROOM=3 -DSHORT_READS -DEARLY=0 -DNO_MEMORY=0
  search 0 -DPATIENT -DCHUNKS=5 -DROOM=3 -DSHORT_READS -DEARLY=0 -DNO_MEMORY=0 -DMARGIN=1
  search 0 -DLOCAL -DPATIENT -DREADS=1 -DCHUNKS=4 -DROOM=3 -DSHORT_READS
  # Every read ends: with all failures, in a larger size, with a close at any time.
  search 0 -DPATIENT -DLIVE
  search 0 -DPATIENT -DCHUNKS=4 -DROOM=3 -DLIVE -DENDLESS
  search 0 -DPATIENT -DCHUNKS=5 -DROOM=3 "${calm[@]}" -DLIVE -DENDLESS
  search 0 -DREADS=1 -DCHUNKS=4 -DROOM=3 -DSHORT_READS -DNO_MEMORY=0 -DLIVE -DENDLESS
  search 0 -DLOCAL -DPATIENT -DREADS=1 -DSHORT_READS "${sound[@]}" -UEARLY -DLIVE
  search 0 -DLOCAL -DPATIENT
  search 0 -DLOCAL -DPATIENT -DREADS=1 -DENGINES=2
  # A close at any time: the failures below, one kind at a time.
  search 0 -DLOCAL -DREADS=1 "${sound[@]}"
  search 0 -DLOCAL -DREADS=1 -DSHORT_READS "${sound[@]}" -UEARLY
  search 0 -DLOCAL -DREADS=1 -DSHORT_READS "${sound[@]}" -UNO_MEMORY
  search 0 -DLOCAL -DREADS=1 -DSHORT_READS "${sound[@]}" -UNO_THREAD -UNOT_OPENED
fi
while [ "$shown" -lt "$begun" ]; do
  show
done
exit "$bad"
