# shellcheck shell=bash
# The model of restarts, which the part of the product began.
await "model of restarts"
