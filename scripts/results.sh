# shellcheck shell=bash
# The counts of ./test; to be sourced after scripts/common.sh.

PASSED=0
FAILED=0
SKIPPED=0
# Skips that are not in tests/skips.txt.
UNEXPECTED=0
STARTED=$SECONDS
COMPLETE=no
# Checks that run in the background: the process group of each, and the file with its output.
declare -A BEGUN=() OUTPUT=()

# told NAME PASSED FAILED SKIPPED: adds the counts up and prints the part's line.
told() {
  PASSED=$((PASSED + $2))
  FAILED=$((FAILED + $3))
  SKIPPED=$((SKIPPED + $4))
  local line
  line=$(printf '%5ds  %-28s %4d passed' $((SECONDS - STARTED)) "$1" "$2")
  [ "$3" -eq 0 ] || line="$line, $3 FAILED"
  [ "$4" -eq 0 ] || line="$line, $4 skipped"
  echo "$line"
}

# check NAME COMMAND...: one check; its output is shown only if it fails.
check() {
  local name=$1
  shift
  if quietly "$@"; then
    told "$name" 1 0 0
  else
    told "$name" 0 1 0
  fi
}

# begin NICENESS NAME COMMAND...: a check in a process group of its own.
begin() {
  local niceness=$1 name=$2
  shift 2
  mkdir -p build
  OUTPUT[$name]=$(mktemp build/begun.XXXXXX)
  set -m
  quietly "$@" >/dev/null 2>"${OUTPUT[$name]}" &
  BEGUN[$name]=$!
  set +m
  [ "$niceness" -eq 0 ] || share_of "$name" "$niceness"
}

# share_of NAME NICENESS: sets it for all processes of a check that was begun. It may have ended already.
share_of() {
  renice -n "$2" -g "${BEGUN[$1]}" >/dev/null 2>&1 || true
}

# behind NAME COMMAND...: begins a check that computes, while the next ones mostly wait. It gets the
# processor time that the others leave. await reports its result, and gives it the same share as others: on a
# busy machine it would never end. Only root can do that, so for anybody else it has more from the beginning.
behind() {
  local niceness=19
  [ "$(id -u)" -eq 0 ] || niceness=5
  begin "$niceness" "$@"
}

# beside NAME COMMAND...: begins a check that mostly waits, once fewer than two for each processor run. await
# reports its result.
beside() {
  while [ "$(jobs -rp | wc -l)" -ge $((2 * JOBS)) ]; do
    wait -n || true
  done
  begin 0 "$@"
}

# await NAME: waits for the check begun under that name and reports its result.
await() {
  local result=0
  [ "$(id -u)" -ne 0 ] || share_of "$1" 0
  wait "${BEGUN[$1]}" || result=1
  cat "${OUTPUT[$1]}" >&2
  rm -f "${OUTPUT[$1]}"
  unset "BEGUN[$1]" "OUTPUT[$1]"
  told "$1" $((1 - result)) "$result" 0
}

# end_begun: ends the checks that were not awaited. Fails if there was any.
end_begun() {
  local name
  [ "${#BEGUN[@]}" -gt 0 ] || return 0
  for name in "${!BEGUN[@]}"; do
    kill -TERM -- "-${BEGUN[$name]}" 2>/dev/null || true
    rm -f "${OUTPUT[$name]}"
  done
  return 1
}

# show_lines: shows the lines that scripts/junit.py prints for a run, from standard input.
show_lines() {
  local line name
  while read -r line; do
    [ -n "$line" ] || continue
    echo "        $line"
    name=${line#skipped: }
    if [ "$name" != "$line" ] && ! grep -qxF "${name%%: *}" tests/skips.txt; then
      UNEXPECTED=$((UNEXPECTED + 1))
    fi
  done
}

# run_ctest PRESET [ctest options]: runs the tests of a build; shows the failures, and why tests were skipped.
run_ctest() {
  local preset=$1
  shift
  local tree=build/$preset code=0 result counts
  rm -f "$tree/junit.xml"
  # Most tests wait rather than compute, so more run at a time than there are processors.
  ctest --test-dir "$tree" -j $((2 * JOBS)) --output-on-failure --no-tests=error \
    --output-junit junit.xml "$@" >"$tree/ctest.log" 2>&1 || code=$?
  if ! result=$(scripts/junit.py "$tree/junit.xml" "$code" 2>&1); then
    cat "$tree/ctest.log" >&2
    echo "$result" >&2
    told "tests in $preset" 0 1 0
    return
  fi
  read -r -a counts <<<"$result"
  if [ "${counts[1]}" -ne 0 ]; then
    grep -vE '^ *[0-9]+/[0-9]+ Test +#.* Passed |^ *Start +[0-9]+: |^Internal ctest' \
      "$tree/ctest.log" >&2 || true
  fi
  told "tests in $preset" "${counts[@]}"
  show_lines <<<"$(tail -n +2 <<<"$result")"
}

# tree_to_test: the name of the committed tree, if nothing else has changed.
tree_to_test() {
  if [ -z "$(git status --porcelain 2>&1)" ]; then
    git rev-parse 'HEAD^{tree}'
  fi
}

# remember_green TREE: records for scripts/release that all tests of a tree have passed. The tree must have
# been the same from first to last.
remember_green() {
  if [ "$FAILED" -eq 0 ] && [ "$UNEXPECTED" -eq 0 ] && [ -n "$1" ] && [ "$(tree_to_test)" = "$1" ]; then
    echo "$1" >build/tested
  fi
}

# sum_up: prints the last line, in any case. For the EXIT trap.
sum_up() {
  if ! end_begun || [ "$COMPLETE" != yes ]; then
    echo "The run ended early." >&2
    FAILED=$((FAILED + 1))
  fi
  echo "$PASSED passed, $FAILED failed, $SKIPPED skipped"
  [ "$FAILED" -eq 0 ] || exit 1
  exit 0
}
