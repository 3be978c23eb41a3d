#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Goes the way of docs/porting.md by the page's own commands, with a stand-in for the vendor's SDK, Debian's compiler for MIPS and
# an emulated camera: porting.sh BUILD-ON-A-PC WORK-DIRECTORY CXX
set -euo pipefail
build=$1 work=$2 cxx=$3
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../../.." && pwd)
fail() { echo "FAIL: $*" >&2; exit 1; }
rm -rf "$work"
mkdir -p "$work"/{sdk/include,sdk/lib,pc,networks,camera,bin,tree/build}
cd "$work"

# The SDK; the same runtime for the PC, in the place of its own; the camera.
cp "$root/plat/host/include/jzdl.h" sdk/include
runtime=(-std=c++17 -O1 -fPIC -shared -Isdk/include "$here/stand_in_runtime.cpp")
mipsel-linux-gnu-g++ -march=mips32r2 "${runtime[@]}" -o sdk/lib/libjzdl.m.so
"$cxx" "${runtime[@]}" -Wl,-soname,libjzdl_host.so.1 -o pc/libjzdl_host.so.1
ln -s "$here/camera.sh" bin/ssh
ln -s "$here/camera.sh" bin/scp
# What the vendor's converter is taken to have written: as each task's network has to be.
"$build/tools/kelnn" models --json | /usr/bin/python3 -c '
import json, sys
for task in json.load(sys.stdin)["tasks"]:
    numbers = [task["width"], task["height"], task["channels"]]
    for output in task["outputs"]:
        numbers += [1, 1, output["values"]]
    with open("networks/" + task["task"] + ".bin", "w") as file:
        file.write("network " + " ".join(map(str, numbers)) + " end" + 5000 * ".")
'
# A tree to stand in, in which the PC is built already. The commands write below build/ alone.
find "$root" -mindepth 1 -maxdepth 1 ! -name build ! -name '.git*' -exec ln -s -t tree {} +
ln -s "$build" tree/build/release
head -c $((640 * 360 * 3 / 2)) "$root/examples/videos/visitor.avi" >tree/build/frame.nv12  # any bytes are a frame, and sound
head -c 96000 "$root/examples/sounds/evening.flac" >tree/build/sound.s16

export SDK=$work/sdk NETWORKS=$work/networks BOARD=root@camera CAMERA=$work/camera PC_MODELS=build/camera/models/
export PATH=$work/bin:$build/tools:$PATH LD_LIBRARY_PATH=$work/pc
cd tree
/usr/bin/python3 - docs/porting.md >"$work/commands.sh" <<'END'
import re, sys
page = open(sys.argv[1]).read()
print("set -euo pipefail")
for block in re.findall(r"^```sh\n(.*?)^```", page, re.MULTILINE | re.DOTALL):
    print(block)
print(": the end of the page")
END
bash -x "$work/commands.sh" >"$work/commands.log" 2>&1 || { tail -n 40 "$work/commands.log" >&2; fail "a command of the page"; }

# Every task was run on the camera, found something, and the same as on the PC; the page shows what comes without models.
for task in face-detection face-landmarks face-features face-classes person-detection person-classes four-class-detection \
  cry-detection; do
  grep -qE "^result $task +[0-9a-f]{8}  [1-9]" build/board.txt || { cat build/board.txt >&2; fail "no result of $task"; }
done
cmp build/pc.txt build/board.txt
# The recording holds every call, and each gave the same here; also where the PC runs the networks itself.
grep -qE '^([0-9]+) calls: \1 compared, 0 skipped, 0 lost, 0 missing$' "$work/commands.log" || { tail "$work/commands.log" >&2; fail "the replay"; }
kelnn replay --run-networks --root build/camera/models build/recording >"$work/replay.txt" || { cat "$work/replay.txt" >&2; fail "the replay of networks"; }
grep -qE '^([0-9]+) calls: \1 compared' "$work/replay.txt"
# A film in which everything moves.
for _ in 1 2 3 4 5 6; do cat build/frame.nv12; tail -c +5000 build/frame.nv12; head -c 4999 build/frame.nv12; done >"$CAMERA/kelnn/film.nv12"
ssh $BOARD 'cd kelnn && LD_LIBRARY_PATH=lib ./camera_loop models 640 360 film.nv12' >build/loop.txt 2>"$work/loop.log"
grep -qE '^align +[1-9]' build/loop.txt || { cat "$work/loop.log" build/loop.txt >&2; fail "camera_loop"; }
diff <(sed -n '/<!-- without models -->/,/^```$/p' docs/porting.md | grep '^input\|^result') build/exact.txt ||
  fail "what the page shows (-) is not what is printed (+)"
file=$(find build/board/root -name libkelnn.so.1.\* | xargs readelf -hS)
grep -q 'Machine:.*MIPS' <<<"$file" && ! grep -qF '.symtab' <<<"$file" || fail "not a stripped library for MIPS"
