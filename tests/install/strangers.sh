#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs a build into an empty prefix, moves that, and builds and runs programs against it as outsiders do:
# strangers.sh BUILD WORK-DIRECTORY CC CXX
set -euo pipefail
build=$1 work=$2
export CC=$3 CXX=$4
root=$(cd "$(dirname "$0")/../.." && pwd)
here=$root/tests/install
rm -rf "$work"
mkdir -p "$work"
cd "$work"

fail() { echo "FAIL: $*" >&2; exit 1; }
step() { echo "--- $*"; }
# expect TEXT COMMAND...: the command succeeds and prints the text.
expect() {
  local text=$1 printed
  shift
  printed=$("$@" 2>&1) || { echo "$printed" >&2; fail "exit code $? of $*"; }
  grep -qF -- "$text" <<<"$printed" || { echo "$printed" >&2; fail "no \"$text\" from $*"; }
}
configure() { cmake -G Ninja "$@" >cmake.log 2>&1 || { cat cmake.log >&2; fail "cmake $*"; }; }

step "installed, and moved"
cmake --install "$build" --prefix "$work/first" >install.log
mv first "moved prefix"
prefix=$work/"moved prefix"
lib=$(dirname "$(find "$prefix" -name libkelnn.so)")
if grep -rlF -e "$work/first" -e "$root" "$prefix/include" "$lib/pkgconfig" "$lib/cmake"; then
  fail "the files above name a place of the build"
fi
for file in "$lib"/libkelnn.so "$lib"/kelnn/*.so* "$prefix"/bin/*; do
  run_path=$(readelf -d "$file" | sed -n 's/.*(RUNPATH).*\[\(.*\)\]/\1/p')
  [ -z "$run_path" ] || [[ $run_path == '$ORIGIN'* ]] || fail "$file has the run path $run_path"
done

step "C99, pkg-config"
export PKG_CONFIG_PATH="$lib/pkgconfig"
# pkg-config escapes the blanks in a path for a shell.
eval "flags=($(pkg-config --cflags --libs kelnn-kit))"
for program in sound_steps detect_persons; do
  "$CC" -std=c99 -pedantic -Wall -Wextra -Werror "$root/examples/$program.c" -o "$program" "${flags[@]}" -lm
done
export LD_LIBRARY_PATH=$lib
expect "0 of 19008 bytes differ" ./sound_steps 2500
unset LD_LIBRARY_PATH

step "C++17, find_package; a copy of examples/"
cp -r "$root/examples" copied
configure -S copied -B copied/build -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Debug
cmake --build copied/build >build.log 2>&1 || { cat build.log >&2; fail "examples/ does not build as a copy"; }
expect "0 of 19008 bytes differ" copied/build/sound_steps 2500
configure -S "$here/find_package" -B find_package -DCMAKE_PREFIX_PATH="$prefix"
cmake --build find_package >build.log 2>&1 || { cat build.log >&2; fail "find_package/ does not build"; }
expect "moved 1" find_package/stranger
expect "moved 1" find_package/stranger_static
for wrong in 1.4 2.0; do
  ! cmake -S "$here/find_package" -B wrong -DCMAKE_PREFIX_PATH="$prefix" -DWANTED="$wrong" >cmake.log 2>&1 ||
    fail "find_package takes 1.3.19 for $wrong"
done

step "Meson"
mkdir meson_project
cp "$here/meson/meson.build" "$here/motion.cpp" meson_project
meson setup "$work/meson_project" meson >meson.log 2>&1 || { cat meson.log >&2; fail "meson setup"; }
ninja -C meson >meson.log 2>&1 || { cat meson.log >&2; fail "the Meson project does not build"; }
expect "moved 1" meson/stranger

step "add_subdirectory"
configure -S "$here/add_subdirectory" -B below -DKELNN="$root"
cmake --build below --target stranger >build.log 2>&1 || { cat build.log >&2; fail "add_subdirectory does not build"; }
expect "moved 1" below/stranger
cmake --install below --prefix "$work/nothing" >/dev/null
[ ! -e nothing ] || fail "the library below another project installs files of its own"
expect "Total Tests: 0" ctest --test-dir below -N

step "the tool and its models"
export HOME=$work
unset KELNN_MODELS XDG_DATA_HOME
expect " ok, 0 missing, 0 broken" "$prefix/bin/kelnn" doctor
expect ": 2 found" "$prefix/bin/kelnn" faces "$root/examples/pictures/both_faces.png"
expect "similarity 0." copied/build/compare_faces "$prefix/share/kelnn/models/" copied/pictures/face_a.pgm copied/pictures/face_a_distorted.pgm
