# shellcheck shell=bash
# Shared by the scripts that run in the box (scripts/arm-box); to be sourced in the folder of the repository.
set -euo pipefail
export TMPDIR=/root

# An emulated processor is about ten times slower.
export FLUVIA_PATIENCE=10

begin() {
  echo "== $* ($(cut -d ' ' -f 1 /proc/uptime) s)"
}

# Installs as the device's owner does: dpkg refuses packages whose libraries the box lacks.
install_packages() {
  begin install
  dpkg --install build/packages/{libfluviafs0,fluviafs-tools}_*_armhf.deb
  fluvia --version
}

# transfers NAME: a test with a real server, using the installed command.
transfers() {
  begin "transfers: $1"
  FLUVIA=/usr/bin/fluvia "tests/products/servers/$1"
}

# tests PROGRAM [FILTER]: of the build with UBSan. At least one test must match.
tests() {
  begin "tests: $*"
  local name=${1##*/}
  local report=$TMPDIR/$name.xml
  rm -f "$report"
  timeout --kill-after=10 2400 "build/armv7-ubsan/tests/$1" --gtest_brief=1 \
    --gtest_filter="${2:-*}" --gtest_output="xml:$report" 2>"$TMPDIR/$name.log" || {
    echo "$name ended with $?"
    grep -E "^\[  FAILED|Failure|runtime error" "$TMPDIR/$name.log" | head -n 40
    return 1
  }
  grep -q '<testsuites tests="[1-9]' "$report"
}

# one_test PROGRAM TEST: prints its output if it fails.
one_test() {
  local log=$TMPDIR/test.$BASHPID code=0
  timeout --kill-after=10 900 "build/armv7-ubsan/tests/$1" --gtest_brief=1 --gtest_filter="$2" >"$log" 2>&1 ||
    code=$?
  if [ "$code" -ne 0 ]; then
    echo "FAILED ($code): $2"
    tail -n 30 "$log"
  fi
  rm -f "$log"
  return "$code"
}
export -f one_test

# each_test PROGRAM [FILTER]: every test in a process of its own, as on the host; some need it. Most wait
# rather than compute: four at a time. At least one test must match.
each_test() {
  begin "each test: $*"
  local names
  names=$("build/armv7-ubsan/tests/$1" --gtest_list_tests --gtest_filter="${2:-*}" |
    awk '/^[^ ]/ {suite = $1} /^ / {print suite $1}')
  [ -n "$names" ] || return 1
  # shellcheck disable=SC2016  # the inner shell expands it
  xargs -P 4 -I '{}' bash -c 'one_test "$0" "$1"' "$1" '{}' <<<"$names" || return 1
  echo "$(wc -l <<<"$names") tests of $1 passed"
}

# attempt COMMAND...: continues after a failure, which bad records.
bad=0
attempt() {
  "$@" || {
    echo "FAILED: $*"
    # shellcheck disable=SC2034  # used by the sourcing script
    bad=1
  }
}
