# shellcheck shell=bash
# The booted 32-bit ARM system, which the part of ARM began.
await "box: install, transfer, exit"
