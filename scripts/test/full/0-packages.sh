# shellcheck shell=bash
# The packages of the other parts of this folder, and the roots of ARM, of the box and of the trial of the
# packages: begun before everything else, since a download mostly waits. The part of the players awaits them.

# All at once: each call of apt takes ten seconds.
install_packages() {
  scripts/install-dependencies players arm servers debs box counts docs trace
}
get_packages_and_roots() {
  install_packages && scripts/arm-sysroot && scripts/box/make && tests/products/packages/make-root
}

# sudo may ask for a password, which it cannot do in the background. A failure is reported there.
[ "$(id -u)" -eq 0 ] || install_packages || true
behind "packages and roots" get_packages_and_roots
