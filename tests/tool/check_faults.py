#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Runs each command of kelnn while the system fails it: check_faults.py KELNN MODELS NETWORK [--signals N] [--all]

Files that cannot grow, directories that cannot be written, no /tmp, no more descriptors, a full disk where root may mount one,
and signals at random moments. However a run ends: no crash, a message where it fails, an exit code that says so, outputs whole
or not there, and nothing else left behind.
"""

import argparse
import json
import os
import random
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path

EXAMPLES = Path(__file__).resolve().parents[2] / "examples"

# What each command is given; outputs lie in out/. Some of the commands are enough for a short run.
COMMANDS = {
    "models": "models --json",
    "doctor": "doctor --root models/",
    "pack": "pack face-features network.onnx --root out/a/b",
    "unpack": "unpack face-features -o out/a/network.onnx",
    "faces": "faces pictures/both_faces.png --csv out/t.csv --coco out/c.json --draw out/d.jpg",
    "persons": "persons visitor.avi --limit 12 --draw out/v.avi --vtt out/s.vtt --csv out/t.csv",
    "objects": "objects patches.png visitor.avi --limit 6 --draw out/d --save-crops out/crops --coco out/c.json",
    "landmarks": "landmarks pictures/face_a.png pictures/face_b.png --draw out/d/ --csv out/t.csv",
    "feature": "feature pictures/face_a.png --aligned --csv out/a/t.csv",
    "enroll": "enroll anna pictures/face_a.png pictures/face_b.png --aligned --gallery out/g.db",
    "compare": "compare pictures/face_a.png pictures/face_b.png --aligned --csv out/t.csv",
    "classify-face": "classify-face pictures/face_a.png --json --csv out/t.csv",
    "classify-person": "classify-person pictures/face_a.png --csv out/t.csv",
    "motion": "motion visitor.avi --limit 30 --draw out/m.webm --vtt out/s.vtt --csv out/t.csv",
    "watch": "watch seen.rgb --raw rgb:640x360@10 --always --draw out/w.webm --csv out/t.csv --clips out/clips --on-event cat",
    "cry": "cry cry.flac --csv out/t.csv --vtt out/s.vtt",
    "features": "features cry.flac --png out/a/f.png --csv out/f.csv",
    "eval": "eval person-detection --data boxes --draw out/worst --json",
}
SHORT = ("pack", "objects", "watch", "features")
SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGPIPE)
MESSAGE = "kelnn: "


class Bench:
    """A directory with inputs, where a command runs again and again."""

    def __init__(self, kelnn: Path, models: Path, network: Path, place: Path) -> None:
        self.kelnn, self.place, self.out = kelnn, place, place / "out"
        place.chmod(0o755)
        for name, target in {
            "models": models,
            "network.onnx": network,
            "pictures": EXAMPLES / "pictures",
            "visitor.avi": EXAMPLES / "videos" / "visitor.avi",
            "cry.flac": EXAMPLES / "sounds" / "cry.flac",
        }.items():
            (place / name).symlink_to(target.resolve())
        # Grey, with a red patch where the test networks see an object.
        rows = [b"\x3c\x3c\x3c" * 640] * 103
        seen = [b"\x3c\x3c\x3c" * 293 + b"\xff\0\0" * 55 + b"\x3c\x3c\x3c" * 292] * 105
        (place / "boxes").mkdir()
        for file in (place / "patches.ppm", place / "boxes" / "patches.ppm"):
            file.write_bytes(b"P6 640 360 255\n" + b"".join(rows + seen + [b"\x3c\x3c\x3c" * 640] * 152))
        (place / "seen.rgb").write_bytes(b"".join(rows + seen + [b"\x3c\x3c\x3c" * 640] * 152) * 4)
        (place / "boxes" / "labels.csv").write_text("file,class,x,y,w,h\npatches.ppm,0,300,110,40,90\n")
        self.inputs = self.left()
        self.whole: dict[str, dict[str, bytes]] = {}
        self.seconds: dict[str, float] = {}

    def left(self) -> list[str]:
        """Everything but the outputs."""
        return sorted(str(p.relative_to(self.place)) for p in self.place.rglob("*") if self.out not in (p, *p.parents))

    def outputs(self) -> dict[str, bytes]:
        return {str(p.relative_to(self.out)): p.read_bytes() for p in sorted(self.out.rglob("*")) if p.is_file()}

    def clear(self) -> None:
        shutil.rmtree(self.out, ignore_errors=True)
        self.out.mkdir()
        self.out.chmod(0o777)

    def start(self, command: str, prefix: str = "", prepare: Callable[[], None] | None = None, **options) -> subprocess.Popen:
        words = shlex.split(prefix) + [str(self.kelnn), *shlex.split(COMMANDS[command].replace("patches.png", "patches.ppm"))]
        environment = {**os.environ, "KELNN_MODELS": "models/", **options}
        return subprocess.Popen(words, cwd=self.place, env=environment, preexec_fn=prepare, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def learn(self, command: str) -> None:
        """What it writes when nothing is in its way."""
        self.clear()
        begin = time.monotonic()
        process = self.start(command)
        _, said = process.communicate()
        self.seconds[command] = time.monotonic() - begin
        assert process.returncode == 0, f"{command}: {said.decode()}"
        self.whole[command] = self.outputs()
        assert bool(self.whole[command]) == ("out/" in COMMANDS[command] and command != "eval") or command == "eval", command


def is_whole(name: str, content: bytes) -> bool:
    """Ended as it should be. Each WebM file has a number of its own."""
    if name.endswith(".json"):
        return bool(json.loads(content))
    if name.endswith((".csv", ".vtt")):
        return content.endswith(b"\n")
    if name.endswith(".avi"):
        return int.from_bytes(content[4:8], "little") == len(content) - 8
    if name.endswith(".mp4"):
        return b"moov" in content
    return name.endswith(".webm") and content.startswith(b"\x1aE\xdf\xa3")


def check(bench: Bench, command: str, process: subprocess.Popen, said: str, sent: int = 0) -> str:
    """What is wrong with how it ended; nothing: an empty text."""
    code, outputs, whole = process.returncode, bench.outputs(), bench.whole[command]
    fates = {0, 1, 2} if not sent else {0, 1, -sent, 128 + sent}
    if "while loading shared libraries" in said:  # before it was itself
        fates = {127}
    if code not in fates or "Sanitizer" in said or "runtime error" in said or "terminate called" in said:
        return f"it ended with {code}"
    if code in (1, 2) and MESSAGE not in said and command != "doctor":  # who has told it as a result
        return "it failed without a message"
    if bench.left() != bench.inputs:
        return f"left behind: {set(bench.left()) ^ set(bench.inputs)}"
    if code == 0 and sorted(outputs) != sorted(whole):
        return f"a success with {sorted(outputs)} of {sorted(whole)}"
    for name, content in outputs.items():
        if name.startswith("clips/") and name not in whole and is_whole(name, content):
            continue  # of a later event, when it could be written again
        if name not in whole:
            return f"left behind: out/{name}"
        # Of several inputs, or of a recording up to where it was interrupted, the rest.
        if content != whole[name] and not (is_whole(name, content) and (code or sent or name.endswith(".webm"))):
            return f"half of out/{name}: {len(content)} bytes of {len(whole[name])}"
    empty = [d for d in bench.out.rglob("*") if d.is_dir() and not any(d.iterdir())]
    return f"left behind: {empty}" if empty else ""


def limit(kind: int, most: int) -> Callable[[], None]:
    return lambda: resource.setrlimit(kind, (most, most))


def faults(place: Path, is_short: bool, is_sanitized: bool) -> dict[str, dict]:
    """By name: how a command is started."""
    is_root = os.geteuid() == 0
    is_open = all(directory.stat().st_mode & 0o5 == 0o5 for directory in place.parents)
    can_mount = is_root and subprocess.run(["unshare", "-m", "true"], capture_output=True).returncode == 0
    found: dict[str, dict] = {}
    for size in (20000,) if is_short else (0, 100, 4096, 20000, 100000):
        found[f"files of at most {size} bytes"] = {"prepare": limit(resource.RLIMIT_FSIZE, size)}
    for count in () if is_sanitized else (6, 12) if is_short else range(3, 26):
        found[f"{count} descriptors"] = {"prepare": limit(resource.RLIMIT_NOFILE, count)}
    found["no directory for temporary files"] = {"TMPDIR": "/nowhere"}
    if is_root and is_open:
        found["a directory of somebody else's"] = {"prepare": lambda: (os.chmod("out", 0o555), os.setuid(65534))}
        found["a directory that is closed"] = {"prepare": lambda: (os.chmod("out", 0), os.setuid(65534))}
    if can_mount:
        # What is on the disk at the end is shown in the directory below it.
        mount = """unshare -m sh -c 'exec 9<out; mount -t tmpfs -o size={} none {}; "$0" "$@" 9<&-; code=$?
                   cp -a out/. /proc/self/fd/9/ 2>&-; exit $code'"""
        found["a full disk"] = {"prefix": mount.format("8k", "out")}
        found["a disk that is fuller"] = {"prefix": mount.format("64k", "out")}
        found["a read-only disk"] = {"prefix": mount.format("16k,ro", "out")}
    if can_mount and Path("/tmp") not in place.parents:
        found["no /tmp"] = {"prefix": mount.format("4k,ro", "/tmp")}
    return found


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("kelnn", type=Path)
    parser.add_argument("models", type=Path)
    parser.add_argument("network", type=Path, help="an ONNX network of face features")
    parser.add_argument("--signals", type=int, default=1, help="how often each signal interrupts each command")
    parser.add_argument("--sanitized", action="store_true",
                        help="no signals, and no lack of descriptors, of which UndefinedBehaviorSanitizer needs some")
    parser.add_argument("--all", action="store_true", help="all commands and faults, not the few of a short run")
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 30))
    arguments = parser.parse_args()
    print(f"--seed {arguments.seed}")
    chance = random.Random(arguments.seed)
    problems, runs = [], 0

    def judge(command: str, fault: str, process: subprocess.Popen, sent: int = 0) -> None:
        nonlocal runs
        runs += 1
        said = process.communicate(timeout=120)[1].decode(errors="replace")
        if problem := check(bench, command, process, said, sent):
            problems.append(f"{command}, {fault}: {problem}\n{said}")
            print("FAIL", problems[-1], flush=True)

    with tempfile.TemporaryDirectory(dir=os.getcwd()) as place:
        bench = Bench(arguments.kelnn.resolve(), arguments.models, arguments.network, Path(place))
        for command in COMMANDS if arguments.all else SHORT:
            bench.learn(command)
            for name, how in faults(bench.place, not arguments.all, arguments.sanitized).items():
                bench.clear()
                judge(command, name, bench.start(command, **how))
            for sent in () if arguments.sanitized else SIGNALS:
                for _ in range(arguments.signals):
                    bench.clear()
                    process = bench.start(command)
                    moment = chance.uniform(0, 1.1 * bench.seconds[command])
                    time.sleep(moment)
                    process.send_signal(sent)
                    judge(command, f"{sent.name} after {moment:.3f} s", process, sent)
    print(f"{runs} runs, {len(problems)} not as they should be")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
