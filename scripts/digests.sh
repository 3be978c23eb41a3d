#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the digest of every kernel for many compilers, switches and processors, runs each and writes the table in
# docs/numerics.md: scripts/digests.sh [PART-OF-A-BUILD'S-NAME]. Fails when two builds differ. With a part of a name it
# makes those builds alone, compares them with the table and writes nothing.
# Needs scripts/install_packages.sh build test digests. Builds that cannot run here go through qemu-user.
set -euo pipefail
cd "$(dirname "$0")/.."
page=docs/numerics.md
out=build/digests
pattern=${1:-}
mkdir -p "$out"

sources=(src/*.cpp plat/jzt31/*.cpp kit/kel_nn_kit.cpp tests/unit/digests.cpp
  tests/support/scripted_runtime.cpp)
flags=(-std=c++17 -w -ffp-contract=off -static -Iinclude -Isrc -Iplat/jzt31 -Iplat/host/include -Itests)
no_copies=-DKEL_NN_NO_TARGET_CLONES

# NAME | HOW IT IS RUN | COMPILER AND SWITCHES
builds="
x86-64, g++ -O0||g++ -O0
x86-64, g++ -O2||g++ -O2
x86-64, g++ -O3||g++ -O3
x86-64, g++ -O3, without the AVX2 copies||g++ -O3 $no_copies
x86-64, g++ -O3 for a processor with AVX2 and FMA||g++ -O3 -march=haswell
x86-64, clang++ -O0||clang++ -O0
x86-64, clang++ -O2||clang++ -O2
x86-64, clang++ -O3||clang++ -O3
x86-64, clang++ -O3, without the AVX2 copies||clang++ -O3 $no_copies
x86 of 32 bits, g++ -O3||i686-linux-gnu-g++ -O3 -msse2 -mfpmath=sse
MIPS32r2, little-endian, g++ -O0|qemu-mipsel|mipsel-linux-gnu-g++ -O0 -march=mips32r2
MIPS32r2, little-endian, g++ -O3|qemu-mipsel|mipsel-linux-gnu-g++ -O3 -march=mips32r2
MIPS32r2, big-endian, g++ -O3|qemu-mips|mips-linux-gnu-g++ -O3 -march=mips32r2
AArch64, g++ -O0|qemu-aarch64|aarch64-linux-gnu-g++ -O0
AArch64, g++ -O3|qemu-aarch64|aarch64-linux-gnu-g++ -O3
ARMv7, g++ -O3|qemu-arm|arm-linux-gnueabihf-g++ -O3
ARMv7 with NEON, g++ -O3|qemu-arm|arm-linux-gnueabihf-g++ -O3 -mfpu=neon-vfpv4
"

build() {  # NAME COMPILER...: an object for each source, then the program
  local folder=$out/${1//[^a-zA-Z0-9]/_}
  shift
  local compile=("$@") source
  mkdir -p "$folder"
  for source in "${sources[@]}"; do printf '%s\0' "$source" "$folder/${source//\//_}.o"; done |
    xargs -0 -n 2 -P "$(nproc)" bash -c '"${@:1:$#-2}" -c "${@: -2:1}" -o "${@: -1}"' _ \
      ${CMAKE_CXX_COMPILER_LAUNCHER:-} "${compile[@]}" "${flags[@]}"
  "${compile[@]}" "${flags[@]}" "$folder"/*.o -o "$folder/digests"
}

names=()
while IFS='|' read -r name emulator compiler <&3; do
  [[ -n $name && $name == *$pattern* ]] || continue
  # shellcheck disable=SC2086
  build "$name" $compiler
  folder=$out/${name//[^a-zA-Z0-9]/_}
  # shellcheck disable=SC2086
  $emulator "$folder/digests" >"$folder/digests.txt"
  names+=("$name")
  if [ -n "$pattern" ]; then
    tests/check_digests.sh cat "$folder/digests.txt" && echo "$name: the digests of the table" >&2 || failed=1
    continue
  fi
  first=$out/${names[0]//[^a-zA-Z0-9]/_}/digests.txt
  if ! diff "$first" "$folder/digests.txt" >"$folder/difference.txt"; then
    echo "$name differs from ${names[0]}:" >&2
    cat "$folder/difference.txt" >&2
    failed=1
  else
    echo "$name: the same digests" >&2
  fi
done 3<<<"$builds"
[ -z "${failed:-}" ] || exit 1
[ -z "$pattern" ] || exit 0

{
  sed '/<!-- digests -->/q' "$page"
  echo
  echo "| kernel | digest |"
  echo "| --- | --- |"
  sed -E 's/^([0-9a-f]+) (.*)$/| \2 | `\1` |/' "$first"
  echo
  echo "Builds that gave them:"
  echo
  printf -- '- %s\n' "${names[@]}"
  echo
  sed -n '/<!-- end of digests -->/,$p' "$page"
} >"$out/page.md"
cp "$out/page.md" "$page"
