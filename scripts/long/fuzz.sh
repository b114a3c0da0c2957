# shellcheck shell=bash
# Each fuzz target for 60 s, beginning with its stored corpus. What breaks it is left in build/fuzz.

# name of the target, its folder in tests/fuzz/corpus
FUZZ_TARGETS="XMLReaderFuzz:xml JSONReaderFuzz:json JSONPiecesFuzz:pieces ResponseHeadersFuzz:headers"

make_fuzz_targets() {
  # shellcheck disable=SC2046  # the words are meant to be split
  configure fuzz && build fuzz --target $(for pair in $FUZZ_TARGETS; do echo "${pair%:*}"; done)
}

fuzz() {
  mkdir -p "build/fuzz/found/$2"
  "build/fuzz/tests/fuzz/$1" -max_total_time=60 -max_len=4096 -rss_limit_mb=2048 \
    -artifact_prefix="build/fuzz/$1-" "build/fuzz/found/$2" "tests/fuzz/corpus/$2"
}

check "build fuzz" make_fuzz_targets
for pair in $FUZZ_TARGETS; do
  check "${pair%:*}" fuzz "${pair%:*}" "${pair#*:}"
done
