# shellcheck shell=bash
# The model of restarts, in its small size.
check "model of restarts" tests/model/check.sh
