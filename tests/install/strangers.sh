#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs a build into an empty prefix, moves that, and builds and runs programs against it as outsiders do, by what
# docs/installing.md tells them: strangers.sh BUILD WORK-DIRECTORY CC CXX
set -euo pipefail
build=$1 work=$2
export CC=$3 CXX=$4
root=$(cd "$(dirname "$0")/../.." && pwd)
here=$root/tests/install
. "$here/page.sh"
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
mkdir build
ln -s "$build" build/release
bash -ec "$(page "From source, anywhere" | grep -e --install | sed 's/#.*//') --prefix '$work/first'" >install.log
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
ln -s "moved prefix" kelnn  # the page's way does not take a blank
cp "$here/motion.c" main.c
PKG_CONFIG_PATH="$work/kelnn/${lib#"$prefix/"}/pkgconfig" bash -ec "$(page "C, with pkg-config")"
expect "moved 1" ./main
unset LD_LIBRARY_PATH

step "C++17, find_package; a copy of examples/"
cp -r "$root/examples" copied
configure -S copied -B copied/build -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Debug
cmake --build copied/build >build.log 2>&1 || { cat build.log >&2; fail "examples/ does not build as a copy"; }
expect "0 of 19008 bytes differ" copied/build/sound_steps 2500
mkdir one
cp "$root"/examples/{CMakeLists.txt,sound_steps.c} one
configure -S one -B one/build -DCMAKE_PREFIX_PATH="$prefix"
cmake --build one/build >build.log 2>&1 || { cat build.log >&2; fail "one example does not build alone"; }
expect "0 of 19008 bytes differ" one/build/sound_steps 2500
# project NAME: a directory with main.cpp and a CMake project that ends with what is read.
project() {
  mkdir "$1"
  cp "$here/motion.cpp" "$1/main.cpp"
  { printf 'cmake_minimum_required(VERSION 3.16)\nproject(main LANGUAGES C CXX)\nadd_executable(main main.cpp)\n'; cat; } >"$1/CMakeLists.txt"
}
page "CMake" | project cmake_project
configure -S cmake_project -B cmake_build -DCMAKE_PREFIX_PATH="$prefix"
cmake --build cmake_build >build.log 2>&1 || { cat build.log >&2; fail "the page's CMake project does not build"; }
expect "moved 1" cmake_build/main
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
cp "$here/motion.cpp" meson_project/main.cpp
{ echo "project('stranger', 'cpp', default_options: ['cpp_std=c++17', 'warning_level=3', 'werror=true'])"; page "Meson"; } \
  >meson_project/meson.build
meson setup "$work/meson_project" meson >meson.log 2>&1 || { cat meson.log >&2; fail "meson setup"; }
ninja -C meson >meson.log 2>&1 || { cat meson.log >&2; fail "the Meson project does not build"; }
expect "moved 1" meson/main

step "add_subdirectory"
cp -r "$here/add_subdirectory" .
ln -s "$root" add_subdirectory/libkelnn
cp "$here/motion.cpp" add_subdirectory/main.cpp
page "CMake, as a part of your project" >add_subdirectory/page.cmake
configure -S add_subdirectory -B below
cmake --build below --target main >build.log 2>&1 || { cat build.log >&2; fail "add_subdirectory does not build"; }
expect "moved 1" below/main
cmake --install below --prefix "$work/nothing" >/dev/null
[ ! -e nothing ] || fail "the library below another project installs files of its own"
expect "Total Tests: 0" ctest --test-dir below -N
# FetchContent does the same; no farther than that it is configured.
printf '%s\n' 'include(FetchContent)' "FetchContent_Declare(libkelnn SOURCE_DIR \"$root\")" 'FetchContent_MakeAvailable(libkelnn)' \
  'target_link_libraries(main PRIVATE kelnn::cpp)' >add_subdirectory/page.cmake
configure -S add_subdirectory -B fetched
expect "Total Tests: 0" ctest --test-dir fetched -N

step "the tool and its models"
export HOME=$work
unset KELNN_MODELS XDG_DATA_HOME
expect " ok, 0 missing, 0 broken" "$prefix/bin/kelnn" doctor
expect ": 2 found" "$prefix/bin/kelnn" faces "$root/examples/pictures/both_faces.png"
expect "similarity 0." copied/build/compare_faces "$prefix/share/kelnn/models/" copied/pictures/face_a.pgm copied/pictures/face_a_distorted.pgm
