#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the Debian packages of a directory into an empty Debian 12 with everything that they depend on, by apt, and runs
# what they brought there: whole_root.sh DIRECTORY-OF-PACKAGES. As root; takes minutes and the network, so that no test runs it:
# packages.sh does the same without the packages of others.
set -euo pipefail
packages=$(realpath "$1")
root=$(cd "$(dirname "$0")/../.." && pwd)
empty=$(mktemp -d)
trap 'rm -rf "$empty"' EXIT
# How this machine's apt reaches the archive (a proxy, say) is how the new system's does.
mmdebstrap --quiet --variant=apt --include=ca-certificates \
  --customize-hook='grep -lisE "^ *acquire" /etc/apt/apt.conf.d/* | xargs -r cp -t "$1"/etc/apt/apt.conf.d/' \
  --customize-hook="mkdir \"\$1\"/kelnn && cp $packages/*.deb $root/examples/pictures/both_faces.png \"\$1\"/kelnn/" \
  --customize-hook='chroot "$1" sh -ec "apt-get update; apt-get install -y --no-install-recommends /kelnn/*.deb" >&2' \
  --customize-hook='chroot "$1" sh -ec "
    cd /kelnn; kelnn doctor; kelnn faces both_faces.png; python3 -m kelnn doctor; test -s /usr/share/doc/libkelnn-doc/html/index.html
    apt-get purge -y kelnn libkelnn1 kelnn-models >/dev/null 2>&1; ! find /usr -iname \"*kelnn*\" -not -path \"*doc*\" | grep ." ' \
  bookworm "$empty/root.tar"
