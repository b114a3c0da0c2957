# shellcheck shell=bash
# The Debian packages: looked at, and used by strangers, on amd64 and armhf; what callers were promised
# of the binary interface; the release.
check "lintian, symbols" scripts/checks/debs
check "binary interface" scripts/abi
check "packages in a clean Debian" tests/products/packages/install-amd64
check "packages for armhf" tests/products/packages/unpack-armhf
check "release" tests/products/packages/release
