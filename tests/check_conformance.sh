#!/usr/bin/env bash
# Holds docs/conformance.md against the interface and the tests: check_conformance.sh TEST_PROGRAM...
# Every exported name has a row; every test that is named exists.
set -euo pipefail
here=$(dirname "$0")
page=$here/../docs/conformance.md
failed=0
complain() { echo "FAIL: $1" >&2; failed=1; }

while read -r name; do
  grep -qE "^\|.*\`$name\`" "$page" || complain "no row for $name"
done < <(grep -v '^#' "$here/exports.txt")

# "Suite." and, indented, its tests, as "Suite.Test"
tests=$("$@" --gtest_list_tests | sed 's/ *#.*//' | awk '/^ / { print suite $1; next } { suite = $1 }')
while read -r pattern; do
  [[ $pattern == *.* ]] || continue
  expression="^${pattern//./\\.}$"
  grep -qE "${expression//\*/.*}" <<<"$tests" || complain "no test $pattern"
done < <(awk -F'|' '/^\|/ { print $4 }' "$page" | grep -oE '`[^`]+`' | tr -d '`')
exit "$failed"
