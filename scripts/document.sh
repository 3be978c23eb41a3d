#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The public headers as HTML: scripts/document.sh [DIRECTORY]   (default: build/docs). Fails on anything that Doxygen
# has to say: an undocumented name, a parameter that the function does not have.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
directory=${1:-$root/build/docs}
mkdir -p "$directory"
directory=$(cd "$directory" && pwd)
cd "$root"
scripts/install_packages.sh docs
{ cat docs/Doxyfile; echo "OUTPUT_DIRECTORY = \"$directory\""; } | doxygen -
echo "$directory/html/index.html"
