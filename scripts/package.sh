#!/usr/bin/env bash
# Builds the Debian package with Debian's hardening flags into PACKAGE_DIR
# (default build-package/) and prints the path of the .deb.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${PACKAGE_DIR:-$root/build-package}
# Files and directories in the package get 0644 and 0755, whatever the
# caller's umask.
umask 022
export DEB_BUILD_MAINT_OPTIONS=${DEB_BUILD_MAINT_OPTIONS:-hardening=+all}
cppflags=$(dpkg-buildflags --get CPPFLAGS)
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=None \
    -DCMAKE_C_FLAGS="$(dpkg-buildflags --get CFLAGS) $cppflags" \
    -DCMAKE_CXX_FLAGS="$(dpkg-buildflags --get CXXFLAGS) $cppflags" \
    -DCMAKE_EXE_LINKER_FLAGS="$(dpkg-buildflags --get LDFLAGS)" \
    -DCMAKE_MODULE_LINKER_FLAGS="$(dpkg-buildflags --get LDFLAGS)" \
    -DCMAKE_INSTALL_PREFIX=/usr -DCORVANTA_TESTS=OFF -DCORVANTA_BENCH=OFF \
    -DCORVANTA_WERROR=ON "$@" >/dev/null
cmake --build "$build" -j "$(nproc)" --target corvanta-monitor corvanta_package_docs corvanta_status_icon_files >&2
rm -f "$build"/*.deb
(cd "$build" && cpack -G DEB >&2)
ls "$build"/*.deb
