# shellcheck shell=bash
# A 32-bit ARM system, booted, with the packages and tests that the parts before have built: what user
# emulation under this machine's kernel cannot show. What is longer is in scripts/long/box.sh.
check "box: install, transfer, exit" scripts/arm-box --limit 900 tests/products/box/short
