#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Names the sources without the line that says under which licence they are; silent when there are none.
set -euo pipefail
cd "$(dirname "$0")/.."
without=$(git ls-files '*.c' '*.cpp' '*.h' '*.hpp' '*.py' '*.pyi' '*.sh' '*.awk' '*.cmake' '*.in' '*.map' '*Doxyfile' '*CMakeLists.txt' '*meson.build' |
  while read -r file; do
    [ ! -s "$file" ] || head -n 2 "$file" | grep -q 'SPDX-License-Identifier: Apache-2.0' || echo "$file"
  done)
[ -z "$without" ] || { printf 'no SPDX line in:\n%s\n' "$without" >&2; exit 1; }
