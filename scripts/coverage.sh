#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What the tests reach, as Clang counts it:
#
#   scripts/coverage.sh          the library and the kit, by the unit tests
#   scripts/coverage.sh --pc     and the PC's runtime and the command line, by their tests too, which takes minutes
#   scripts/coverage.sh --lines  shows the lines and branches of the library and the kit that are not reached
#
# Prints lines and branches of each file; build/coverage/html has every line.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/coverage pc=OFF lines= targets=(kelnn_unit_tests)
case "${1:-}" in
  "") ;;
  --pc) pc=ON build=build/coverage_pc targets+=(kelnn_cli kelnn_host_tests) ;;
  --lines) lines=1 ;;
  *) sed -n '3,/^set/{/^set/!s/^# \{0,1\}//p}' "$0"; [ "$1" = --help ] || exit 2; exit ;;
esac
scripts/install_packages.sh coverage
suffix=$(clang --version | sed -n 's/.*version \([0-9]*\).*/-\1/p;q')  # Debian's tools have Clang's number
flags="-O0 -fprofile-instr-generate -fcoverage-mapping"
cmake -S . -B $build -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Coverage \
  -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" -DKEL_NN_PC=$pc -DKEL_NN_SMALL=OFF -DKEL_NN_UNIT_TESTS=ON -DKEL_NN_MODELS=OFF >$build.log 2>&1 ||
  { tail "$build.log" >&2; exit 1; }
ninja -C $build "${targets[@]}" >>$build.log 2>&1 || { tail -n 30 $build.log >&2; exit 1; }

rm -rf $build/profiles
export LLVM_PROFILE_FILE=$PWD/$build/profiles/%m.profraw  # one for each program, into which all its runs are merged
(cd $build && ctest -R '^kelnn_(unit|host)_tests|^faults_of|^completion' -j "$(nproc)") >$build/test.log || tail -n 20 $build/test.log
llvm-profdata"$suffix" merge $build/profiles/*.profraw -o $build/profile

# report NAME WHAT-IS-OUTSIDE PROGRAM...: files whose names match the expression do not count.
report() {
  local name=$1 options=(-instr-profile=$build/profile "-ignore-filename-regex=$2") programs=("$3")
  for program in "${@:4}"; do programs+=(-object "$program"); done
  llvm-cov"$suffix" export -summary-only "${options[@]}" "${programs[@]}" |
    jq -r '.data[0] | (.files[] | [(.filename | sub(".*\\.\\./|'"$PWD"'/"; "")), .summary]), ["together", .totals] |
      [.[0], (.[1].lines | .covered, .count, .percent), (.[1].branches | .covered, .count, .percent)] | @tsv' |
    awk -F'\t' '{ printf "%-42s lines %5d of %5d %6.1f %%   branches %5d of %5d %6.1f %%\n", $1, $2, $3, $4, $5, $6, $7 }'
  llvm-cov"$suffix" show -format=html -show-branches=count -output-dir=$build/html/"$name" "${options[@]}" "${programs[@]}" >/dev/null
  [ -z "$lines" ] || llvm-cov"$suffix" show -show-instantiations=false -show-branches=count "${options[@]}" "${programs[@]}" |
    awk '/^\/.*:$/ { file = $0; sub(/^.*\/\.\.\/|^'"${PWD//\//\\/}"'\//, "", file) }
      /\|      0\|/ { print file $0 }
      /Branch \(.*True/ {  # of templates and copies once, unless all miss it
        match($0, /[0-9]+:[0-9]+/)
        place = file substr($0, RSTART, RLENGTH)
        if (!(place in sides)) places[++count] = place
        sides[place] += ($0 ~ /True: [^0]/) ? 1 : 0
        others[place] += ($0 ~ /False: [^0]/) ? 1 : 0
      }
      END {
        for (i = 1; i <= count; ++i) {
          place = places[i]
          if (!sides[place] || !others[place]) print place, sides[place] ? "never false" : others[place] ? "never true" : "never"
        }
      }'
}
mkdir -p $build/html
report library '^/usr|tests/|include/|plat/host' $build/tests/kelnn_unit_tests
mapfile -t modules < <(find $build -name opencv.so -o -name video.so)
[ $pc = OFF ] || report pc '^/usr|tests/|include/|/src/|jzt31|kit/' $build/tests/kelnn_host_tests $build/tools/kelnn \
  $build/plat/host/libjzdl_host.so "${modules[@]}"
