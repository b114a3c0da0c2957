# shellcheck shell=bash
# The Debian repository for mmdebstrap: that of this machine; to be sourced.

DEBIAN_SUITE=bookworm

# debian_repository: this machine's source of the suite, as a line of sources.list. Updates are left out:
# programs built with the release run with them, and mirrors are not always complete for all architectures.
debian_repository() {
  local address
  # shellcheck disable=SC2016  # apt expands them
  address=$(apt-get indextargets --format '$(ORIGIN) $(CODENAME) $(COMPONENT) $(REPO_URI)' \
    'Created-By: Packages' | awk -v suite="$DEBIAN_SUITE" \
    '$1 == "Debian" && $2 == suite && $3 == "main" && !found++ {print $4}')
  echo "deb ${address:-http://deb.debian.org/debian} $DEBIAN_SUITE main"
}

# debian_apt_options: the options with which this machine reaches its mirrors, as lines of apt.conf.
debian_apt_options() {
  apt-config dump | grep -E '^Acquire::(https?|Check-|Retries|ForceIPv)' || true
  echo 'APT::Install-Recommends "false";'
}
