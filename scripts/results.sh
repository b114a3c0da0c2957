# shellcheck shell=bash
# How ./test counts; to be sourced after scripts/common.sh.

PASSED=0
FAILED=0
STARTED=$SECONDS
COMPLETE=no

# told NAME PASSED FAILED SKIPPED: adds up and prints the part's line.
told() {
  PASSED=$((PASSED + $2))
  FAILED=$((FAILED + $3))
  local line
  line=$(printf '%5ds  %-28s %4d passed' $((SECONDS - STARTED)) "$1" "$2")
  [ "$3" -eq 0 ] || line="$line, $3 FAILED"
  [ "$4" -eq 0 ] || line="$line, $4 skipped"
  echo "$line"
}

# check NAME COMMAND...: one check; its output is shown only when it fails.
check() {
  local name=$1
  shift
  if quietly "$@"; then
    told "$name" 1 0 0
  else
    told "$name" 0 1 0
  fi
}

# attribute NAME FILE: a number from the head of a JUnit file.
attribute() {
  tr '\n' ' ' <"$2" | sed -n "s/.*<testsuite [^>]*[[:space:]]$1=\"\([0-9]*\)\".*/\1/p"
}

# run_ctest PRESET [ctest options]: runs the tests of a build; shows what failed.
run_ctest() {
  local preset=$1
  shift
  local tree=build/$preset
  rm -f "$tree/junit.xml"
  # Most tests wait rather than compute, so more run at a time than there are processors.
  ctest --test-dir "$tree" -j $((2 * JOBS)) --output-on-failure --no-tests=error \
    --output-junit junit.xml "$@" >"$tree/ctest.log" 2>&1 || true
  if [ ! -s "$tree/junit.xml" ]; then
    cat "$tree/ctest.log" >&2
    told "tests in $preset" 0 1 0
    return
  fi
  local tests failures skipped
  tests=$(attribute tests "$tree/junit.xml")
  failures=$(attribute failures "$tree/junit.xml")
  skipped=$(($(attribute skipped "$tree/junit.xml") + $(attribute disabled "$tree/junit.xml")))
  if [ "$failures" -ne 0 ]; then
    grep -vE '^ *[0-9]+/[0-9]+ Test +#.* Passed |^ *Start +[0-9]+: |^Internal ctest' \
      "$tree/ctest.log" >&2 || true
  fi
  told "tests in $preset" $((tests - failures - skipped)) "$failures" "$skipped"
}

# tree_to_test: the name of what is committed, when that is all there is.
tree_to_test() {
  if [ -z "$(git status --porcelain 2>&1)" ]; then
    git rev-parse 'HEAD^{tree}'
  fi
}

# remember_green TREE: scripts/release wants to know that all tests of a tree have passed. It must have
# been the same from first to last.
remember_green() {
  if [ "$FAILED" -eq 0 ] && [ -n "$1" ] && [ "$(tree_to_test)" = "$1" ]; then
    echo "$1" >build/tested
  fi
}

# sum_up: the last line, whatever happened before. For the EXIT trap.
sum_up() {
  if [ "$COMPLETE" != yes ]; then
    echo "The run ended early." >&2
    FAILED=$((FAILED + 1))
  fi
  echo "$PASSED passed, $FAILED failed"
  [ "$FAILED" -eq 0 ] || exit 1
  exit 0
}
