# shellcheck shell=bash
# The Debian packages: made, looked at, and used by strangers, on amd64 and armhf; what callers were
# promised of the binary interface; the release.
make_packages() {
  # The root that the packages are tried in is made meanwhile: one waits for servers, the other computes.
  tests/packages/make-root &
  local root=$!
  scripts/make-packages
  local result=$?
  wait "$root" && [ "$result" -eq 0 ]
}

check "packages for packages" scripts/install-packages packages arm
check "make the packages" make_packages
check "lintian, symbols" scripts/checks/packages
check "binary interface" scripts/abi
check "packages in a clean Debian" tests/packages/install-amd64
check "packages for armhf" tests/packages/unpack-armhf
check "release" tests/packages/release
