#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the Debian packages of the library, the command line, the Python module, the sample networks and the reference and
# installs them:
#   scripts/install.sh              on a fresh Debian 12, as root
#   scripts/install.sh --only-build leaves them in build/packages/
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/packages
log=$build.log

scripts/install_packages.sh build docs packages
mkdir -p build
rm -f $build/*.deb
echo "Building (the log is $log)"
{
  cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr &&
    cmake --build $build &&
    cpack --config $build/CPackConfig.cmake -G DEB -B $build
} >"$log" 2>&1 || {
  tail -n 40 "$log" >&2
  exit 1
}
ls $build/*.deb
[ "${1:-}" != --only-build ] || exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "install.sh: now, as root: apt-get install ./$build/*.deb" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get install -y --no-install-recommends --reinstall --allow-downgrades ./$build/*.deb >>"$log" 2>&1 || {
  tail -n 40 "$log" >&2
  exit 1
}
kelnn doctor 2>/dev/null | tail -n 1
echo "Installed. kelnn faces photo.jpg; man kelnn"
