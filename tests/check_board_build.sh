#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds libkelnn.so as for the camera: MIPS32r2, against an SDK directory with include/ and lib/libjzdl.m.so (here the
# scripted runtime in the SDK's clothes), and checks what comes out. check_board_build.sh SOURCE-DIR WORK-DIR
set -euo pipefail
source_dir=$1
work=$2
rm -rf "$work"
mkdir -p "$work/sdk/include" "$work/sdk/lib"
cp "$source_dir/plat/host/include/jzdl.h" "$work/sdk/include/"
mipsel-linux-gnu-g++ -std=c++17 -O1 -fPIC -shared -march=mips32r2 -I"$work/sdk/include" -I"$source_dir/tests" \
  "$source_dir/tests/support/scripted_runtime.cpp" -o "$work/sdk/lib/libjzdl.m.so"
cmake -S "$source_dir" -B "$work/build" -G Ninja -DKEL_NN_WERROR=ON -DKEL_NN_RUNTIME_SDK="$work/sdk" \
  -DCMAKE_TOOLCHAIN_FILE="$source_dir/cmake/mipsel-linux-gnu.cmake" -DCMAKE_SKIP_RPATH=ON  # no path of the build counts
cmake --build "$work/build"
"$source_dir/tests/check_library.sh" "$work/build/libkelnn.so"
"$source_dir/tests/check_recorder.sh" "$work/build/libkelnn_record.so"
"$source_dir/tests/check_hardening.sh" "$work/build/libkelnn.so" "$work/build/libkelnn_record.so"
readelf -h "$work/build/libkelnn.so" | grep -q 'Machine:.*MIPS'
mipsel-linux-gnu-size "$work/build/libkelnn.so"
"$source_dir/tests/install/firmware.sh" "$work/build" "$work/sdk" "$work/firmware"
