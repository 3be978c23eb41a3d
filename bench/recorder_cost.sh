#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Instructions of a detector's call with the sample networks on a PC, plain and with the recorder in front, all threads
# together: bench/recorder_cost.sh [BUILD]. One Markdown table. Needs valgrind.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build/gcc}")
cmake --build "$build" --target recorder_cost kelnn_record kelnn_models >/dev/null
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
export OPENCV_FOR_THREADS_NUM=1
instructions() {  # TASK CALLS NAME=VALUE...
  local task=$1 calls=$2
  shift 2
  env "$@" valgrind --tool=callgrind --callgrind-out-file=/dev/null "$build/bench/recorder_cost" "$task" "$calls" \
    "$build/share/kelnn/models/" 2>&1 >/dev/null | sed -n 's/.*Collected : //p'
}
a_call() { echo $((($(instructions "$1" 6 "${@:2}") - $(instructions "$1" 2 "${@:2}")) / 4)); }
preload=(LD_PRELOAD="$build/libkelnn_record.so" KELNN_RECORD="$directory")
echo "| a call | plain | recorded, inputs as digests | more |"
echo "| --- | ---: | ---: | ---: |"
for task in faces persons; do
  plain=$(a_call $task "A=") recorded=$(a_call $task "${preload[@]}")
  awk -v task=$task -v p="$plain" -v r="$recorded" 'BEGIN {
    printf "| %s | %d | %d | %.2f %% |\n", task, p, r, 100 * (r - p) / p }'
done
