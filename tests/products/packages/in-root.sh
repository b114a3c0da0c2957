#!/bin/bash
# Tries the packages as a new user would: run in a Debian that has nothing of ours.
#
#   in-root.sh VERSION URL     URL is the file /trial/sample on a server
#
# The packages and the files of the trial are in /trial.
set -euo pipefail
cd /trial
# shellcheck disable=SC1091  # there when it runs
. /trial/common.sh
export DEBIAN_FRONTEND=noninteractive LC_ALL=C
version=$1
url=$2
sample=/trial/sample

install() {
  echo "+ install $*"
  apt-get -o APT::Sandbox::User=root -o DPkg::Use-Pty=false install -y --no-install-recommends "$@"
}

say "what a user installs"
if ldconfig -p | grep fluvia; then
  echo "this root is not clean" >&2
  exit 1
fi
install ./libfluviafs0_*.deb ./fluviafs-tools_*.deb
ldconfig -p | grep -F libfluviafs.so.0
[ "$(fluvia --version)" = "fluvia $version" ]
fluvia-mount --help >help
compare "$sample" fluvia cat "$sample"
compare "$sample" fluvia cat "$url"
gzip -t /usr/share/man/man1/fluvia.1.gz /usr/share/man/man1/fluvia-mount.1.gz
[ -s /usr/share/doc/libfluviafs0/copyright ]
for package in libfluviafs0 fluviafs-tools; do
  dpkg-query --show --showformat='${Depends}\n' "$package" | grep -F 'libcurl4 (>= 7.87.0)'
done

say "the GStreamer plugin"
install ./gstreamer1.0-fluvia_*.deb gstreamer1.0-tools
gst-inspect-1.0 fluviasrc >inspected
grep -F "$version" inspected
gst-launch-1.0 --quiet fluviasrc location="$url" ! filesink location=played
cmp played "$sample"

say "what a programmer installs"
install ./libfluviafs-dev_*.deb cmake
[ "$(pkg-config --modversion fluviafs)" = "$version" ]
# shellcheck disable=SC2046  # the flags are meant to be split
gcc -std=c99 -Wall -Werror example.c -o by-pkg-config $(pkg-config --cflags --libs fluviafs)
cmake -S stranger -B by-cmake -DEXAMPLE=/trial/example.c -DWANTED="$version"
cmake --build by-cmake
for example in ./by-pkg-config by-cmake/example; do
  compare "$sample" "$example" "$sample"
  compare "$sample" "$example" "$url"
done

say "nothing stays behind"
dpkg --purge libfluviafs-dev gstreamer1.0-fluvia fluviafs-tools libfluviafs0
if find / -xdev -path /trial -prune -o -path /proc -prune -o -path '*/apt/archives/*' -prune -o \
  -name '*fluvia*' -print | grep . || ldconfig -p | grep fluvia; then
  echo "these were left" >&2
  exit 1
fi
