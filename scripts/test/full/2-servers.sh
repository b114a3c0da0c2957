# shellcheck shell=bash
# The servers people use, each in a folder of its own on loopback.
check "packages of the servers" scripts/install-packages servers
for test in tests/servers/*; do
  case $test in
    *.sh | *.cpp) ;;
    *) check "server $(basename "$test")" timeout --kill-after=10 120 "$test" ;;
  esac
done
