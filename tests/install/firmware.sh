#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Packs a build for the camera, unpacks it as a firmware's sysroot, and builds and runs a program against that, for MIPS32r2
# under emulation, by what docs/installing.md says: firmware.sh BUILD SDK WORK-DIRECTORY
set -euo pipefail
build=$1 sdk=$2 work=$3
here=$(cd "$(dirname "$0")" && pwd)
. "$here/page.sh"
fail() { echo "FAIL: $*" >&2; exit 1; }
rm -rf "$work"
mkdir -p "$work"/{bin,build,sysroot/usr/lib}
cd "$work"
ln -s "$build" build/board
cp "$sdk/lib/libjzdl.m.so" sysroot/usr/lib  # a firmware's tree has the runtime
cp "$here/motion.c" main.c
# The stand-in for the runtime is C++, and may need more than the library does.
printf '#!/bin/sh\nexec %s -march=mips32r2 "$@" -lstdc++\n' "$(command -v mipsel-linux-gnu-gcc)" >bin/mipsel-linux-gnu-gcc
chmod +x bin/mipsel-linux-gnu-gcc
export PATH=$work/bin:$PATH
# All but the configuring, which has been done.
bash -exc "$(page "A camera's firmware" | grep -v '^cmake -S')" >page.log 2>&1 || { cat page.log >&2; fail "the page's commands"; }
rm sysroot/usr/lib/libjzdl.m.so
export PKG_CONFIG_LIBDIR=$work/sysroot/usr/lib/pkgconfig PKG_CONFIG_SYSROOT_DIR=$work/sysroot
! grep -rlF -e "$build" -e "$sdk" sysroot || fail "the files above name a place of the build"
read -r -a flags <<<"$(pkg-config --cflags --libs kelnn-kit)"
[[ " ${flags[*]} " == *" -I$work/sysroot/usr/"* ]] || fail "pkg-config looks outside the sysroot: ${flags[*]}"

mips=(mipsel-linux-gnu-gcc -std=c99 -Wall -Werror)
run() { qemu-mipsel -L /usr/mipsel-linux-gnu "$@"; }
[ "$(run -E LD_LIBRARY_PATH="$work/sysroot/usr/lib:$sdk/lib" ./main | tail -n 1)" = "moved 1" ] || fail "shared"
"${mips[@]}" "$here/motion.c" -Isysroot/usr/include sysroot/usr/lib/libkelnn.a -Wl,--gc-sections -lm -o static
[ "$(run ./static | tail -n 1)" = "moved 1" ] || fail "static"

cmake -S "$here/find_package" -B cmake -G Ninja -DCMAKE_TOOLCHAIN_FILE="$here/../../cmake/mipsel-linux-gnu.cmake" \
  -Dkelnn_DIR="$work/sysroot/usr/lib/cmake/kelnn" -DCMAKE_EXE_LINKER_FLAGS="-L$sdk/lib -Wl,-rpath-link,$sdk/lib" \
  >cmake.log 2>&1 && cmake --build cmake >>cmake.log 2>&1 || { cat cmake.log >&2; fail "find_package"; }
[ "$(run -E LD_LIBRARY_PATH="$work/sysroot/usr/lib:$sdk/lib" cmake/stranger | tail -n 1)" = "moved 1" ] || fail "find_package"
