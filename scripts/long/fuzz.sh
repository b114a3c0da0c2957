# shellcheck shell=bash
# Each fuzz target for FUZZ_SECONDS (600), beginning with its stored corpus and the inputs of earlier runs.
# Inputs that break it are left in build/fuzz; executions and coverage in build/fuzz/NAME.log. The replay
# looks for leaks: here a search after each input would take most of the time.
FUZZ_SECONDS=${FUZZ_SECONDS:-600}

# name of the target, its folder in tests/ordeal/fuzz/corpus
FUZZ_TARGETS="XMLReaderFuzz:xml JSONReaderFuzz:json JSONPiecesFuzz:pieces ResponseHeadersFuzz:headers
HttpAnswerFuzz:answer ApiCallsFuzz:calls"

make_fuzz_targets() {
  # shellcheck disable=SC2046  # the words are meant to be split
  configure fuzz && build fuzz --target $(for pair in $FUZZ_TARGETS; do echo "${pair%:*}"; done)
}

fuzz() {
  local log=build/fuzz/$1.log
  mkdir -p "build/fuzz/found/$2"
  if "build/fuzz/tests/ordeal/fuzz/$1" -max_total_time="$FUZZ_SECONDS" -timeout=60 -detect_leaks=0 \
    -close_fd_mask=2 -max_len=4096 -rss_limit_mb=2048 -artifact_prefix="build/fuzz/$1-" \
    "build/fuzz/found/$2" "tests/ordeal/fuzz/corpus/$2" >"$log" 2>&1; then
    return 0
  fi
  tail -n 60 "$log"
  return 1
}

. scripts/sanitizers.sh
check "build fuzz" make_fuzz_targets
for pair in $FUZZ_TARGETS; do
  check "${pair%:*}" fuzz "${pair%:*}" "${pair#*:}"
done
