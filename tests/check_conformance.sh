#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Holds docs/conformance.md against the interface and the tests' sources, of which not all are built everywhere:
# every exported name has a row; every test that is named exists.
set -euo pipefail
here=$(dirname "$0")
page=$here/../docs/conformance.md
failed=0
complain() { echo "FAIL: $1" >&2; failed=1; }

while read -r name; do
  grep -qE "^\|.*\`$name\`" "$page" || complain "no row for $name"
done < <(grep -v '^#' "$here/exports.txt")

# As "Suite.Test".
tests=$(cat "$here"/*/test_*.cpp | tr '\n' ' ' | grep -oE '\bTEST(_F|_P)?\( *\w+, *\w+ *\)' | sed -E 's/.*\( *(\w+), *(\w+) *\)/\1.\2/')
while read -r pattern; do
  [[ $pattern == *.* ]] || continue
  expression="^${pattern//./\\.}$"
  grep -qE "${expression//\*/.*}" <<<"$tests" || complain "no test $pattern"
done < <(awk -F'|' '/^\|/ { print $4 }' "$page" | grep -oE '`[^`]+`' | tr -d '`')
exit "$failed"
