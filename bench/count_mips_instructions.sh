#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Counts the instructions that a program built for MIPS executes, in all and by function:
#
#     bench/count_mips_instructions.sh PROGRAM [ARGUMENT...]
#
# The program's own output stays as it is; the counts follow on standard error. They are the same in every
# run of the same binary. Link statically (-static) to see the C library's functions by name, and keep a
# function out of line ([[gnu::noinline]]) to have it counted on its own. Build for MIPS with
# -DCMAKE_TOOLCHAIN_FILE=cmake/mipsel-linux-gnu.cmake. Needs gcc, c++filt and qemu-user (written for 7.2).
set -euo pipefail
[ $# -ge 1 ] || { sed -n '3,/^set/{/^#/s/^# \{0,1\}//p}' "$0" >&2; exit 2; }
here="$(cd "$(dirname "$0")" && pwd)"
plugin="$here/../build/mips_instruction_counter.so"
if [ ! "$plugin" -nt "$here/mips_instruction_counter.c" ]; then
  mkdir -p "$(dirname "$plugin")"
  gcc -std=c11 -O2 -Wall -Wextra -fPIC -shared -o "$plugin" "$here/mips_instruction_counter.c"
fi
exec qemu-mipsel -L "${QEMU_LD_PREFIX:-/usr/mipsel-linux-gnu}" -plugin "$plugin" "$@" 2> >(c++filt >&2)
