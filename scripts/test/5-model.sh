# shellcheck shell=bash
# The model of restarts, which the part of the ordeals began.
await "model of restarts"
