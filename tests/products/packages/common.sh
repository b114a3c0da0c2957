# shellcheck shell=bash
# For the trials of the packages; to be sourced.

# say WHAT: the step that follows, for whoever reads the output of a failure.
say() {
  echo "== $*"
}

# compare EXPECTED COMMAND...: the standard output of the command is the file.
compare() {
  local expected=$1
  shift
  echo "+ $*"
  timeout --kill-after=5 60 "$@" | cmp - "$expected"
}
