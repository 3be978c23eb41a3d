#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Holds a built libkelnn.so against what it may export and what it may need: check_library.sh LIBRARY
set -euo pipefail
library=$1
here=$(dirname "$0")
fail() { echo "FAIL: $1" >&2; exit 1; }

symbols=$(nm -D --defined-only --with-symbol-versions "$library" | awk '$2 != "A" {print $3}' | LC_ALL=C sort)
exported=${symbols//@@KELNN_1.3/}
diff -u <(grep -v '^#' "$here/exports.txt" | LC_ALL=C sort) <(echo "$exported") ||
  fail "exported names differ from exports.txt (-) as shown (+)"

dynamic=$(readelf -d "$library")
# A sanitizer build needs its own runtime too.
unexpected=$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic" |
  grep -vE '^(libjzdl.*|libstdc\+\+|libm|libgcc_s|libc|lib(a|ub)san|ld-linux.*)\.so' || true)
[ -z "$unexpected" ] || fail "needs $unexpected"

soname=$(sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p' <<<"$dynamic")
[ "$soname" = libkelnn.so.1 ] || fail "SONAME is '$soname'"
[ "$(basename "$(readlink -f "$library")")" = libkelnn.so.1.3.19 ] || fail "the file is not versioned"
echo "exports $(wc -l <<<"$exported") names"
