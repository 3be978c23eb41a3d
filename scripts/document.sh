#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The reference as HTML, of the public headers, the pages for those who use them and the examples:
#   scripts/document.sh                                   in build/docs; installs Doxygen first
#   scripts/document.sh [--warnings-allowed] DIRECTORY
# Fails on anything that Doxygen has to say: an undocumented name, a parameter that the function does not have, a link that
# leads nowhere. It looks as Debian's package doxygen-awesome-css has it; without that, as Doxygen does.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
warnings=FAIL_ON_WARNINGS
if [ "${1:-}" = --warnings-allowed ]; then
  warnings=NO
  shift
fi
[ $# -gt 0 ] || "$root/scripts/install_packages.sh" docs
directory=${1:-$root/build/docs}
rm -rf "$directory/html"
mkdir -p "$directory"
directory=$(cd "$directory" && pwd)
cd "$root"

# A page for each example, named in the comment that it begins with.
for example in examples/*.c examples/*.cpp examples/*.py; do
  echo "/** @example ${example#examples/} */"
done >"$directory/examples.dox"
# The pages that links may lead to.
pages=$(grep -o 'docs/[a-z]*\.md' docs/Doxyfile | sed 's/docs.//; s/\.md//' | sort -u | tr '\n' ' ')
style=/usr/share/doxygen-awesome-css
{
  cat docs/Doxyfile
  echo "PROJECT_NUMBER = $(awk '/define KEL_NN_VERSION_/ { printf "%s%s", dot, $3; dot = "." }' include/kel_nn.h)"
  echo "WARN_AS_ERROR = $warnings"
  echo "INPUT += \"$directory/examples.dox\""
  echo "OUTPUT_DIRECTORY = \"$directory\""
  [ ! -d $style ] || echo "HTML_EXTRA_STYLESHEET = $style/doxygen-awesome.css $style/doxygen-awesome-sidebar-only.css"
} | KELNN_REFERENCE_PAGES=$pages doxygen -
echo "$directory/html/index.html"
