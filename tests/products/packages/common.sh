# shellcheck shell=bash
# For the trials of the packages; to be sourced.

# say WHAT: prints the next step, for readers of a failure's output.
say() {
  echo "== $*"
}

# compare EXPECTED COMMAND...: the command's standard output must equal the file.
compare() {
  local expected=$1
  shift
  echo "+ $*"
  timeout --kill-after=5 60 "$@" | cmp - "$expected"
}
