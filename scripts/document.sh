#!/usr/bin/env bash
# The public headers as HTML, in build/docs/html. Fails on anything that Doxygen has to say: an
# undocumented name, a parameter that the function does not have.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install_packages.sh docs
mkdir -p build/docs
doxygen docs/Doxyfile
echo "build/docs/html/index.html"
