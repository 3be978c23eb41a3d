#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Programs and libraries that ship are hardened as docs/security.md says: check_hardening.sh [--checked] FILE...
# --checked: their compiler was told to guard stacks and to call the C library's checking functions.
set -euo pipefail
checked=
[ "$1" != --checked ] || { checked=1; shift; }
failed=0
complain() { echo "FAIL: $1" >&2; failed=1; }
for file in "$@"; do
  segments=$(readelf -lW "$file") dynamic=$(readelf -dW "$file") symbols=$(readelf --dyn-syms -W "$file")
  grep -q GNU_RELRO <<<"$segments" || complain "$file: what the loader fills in stays writable"
  grep -qE 'BIND_NOW|FLAGS_1.*NOW' <<<"$dynamic" || complain "$file: functions are bound late, so their addresses stay writable"
  grep -qE 'GNU_STACK .* RW +0x' <<<"$segments" || complain "$file: the stack may hold code"
  ! grep -qE 'TEXTREL' <<<"$dynamic" || complain "$file: code is changed when it is loaded"
  ! grep -qE '^ *LOAD .* RWE ' <<<"$segments" || complain "$file: a segment can be written and run"
  [ -n "$checked" ] || continue
  grep -q ' __stack_chk_fail' <<<"$symbols" || complain "$file: no stack is guarded"
  grep -qE ' __[a-z]+_chk' <<<"$symbols" || complain "$file: no call is checked"
done
[ "$failed" = 0 ] && echo "$# files"
exit "$failed"
