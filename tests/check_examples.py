# SPDX-License-Identifier: Apache-2.0
"""Runs a page as a reader does: check_examples.py --build BUILD --work DIRECTORY [--page PAGE] [--update]

Its commands build the examples against what is installed from the build, under sanitizers, and run them in a tree of their own.
What they print is what the page shows: the same words; numbers may be off by a rounding, and times are left out. With
examples/README.md, the page if none is named, then the calls that must fail, and what they say.
"""
import argparse
import ctypes
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path
from typing import Iterator, List, NamedTuple, Sequence, Tuple

ROOT = Path(__file__).resolve().parent.parent
NUMBER = re.compile(r"(?<![\w.])-?\d+(?:\.\d+)?(?![\w.])")
FLAGS = "-O1 -g -Wconversion -Werror -fsanitize=address,undefined -fno-sanitize-recover=all"
# Pictures that calls take: a PGM, and a PPM in one colour.
GREY, RGB = b"P5\n112 112\n255\n" + bytes(112 * 112), b"P6\n30 40\n255\n" + bytes((208, 0, 188)) * 30 * 40


class Call(NamedTuple):
    arguments: str
    code: int
    out: str  # somewhere in standard output
    err: str  # and in standard error
    input: bytes = b""


CALLS = [
    # 0.05 (red - 128) and 0.05 (blue - 128)
    Call("own_network build/networks/person_classes.onnx plain.ppm scores", 0,
         "length 5\n0 value 4 sigmoid 0.982014 softmax 0.731059 part 0.571429 unit 0.8\n"
         "1 value 3 sigmoid 0.952574 softmax 0.268941 part 0.428571 unit 0.6\n", "kel_nne_graph_get_output_tensor_with_name"),
    Call("own_network none.onnx plain.ppm", 1, "", "none.onnx"),
    Call("own_network models/face_classes/network.onnx plain.ppm", 1, "", "input has 1 channels, expected 3"),
    Call("own_detector models/face_classes/network.onnx plain.ppm yolov3", 1, "", "input has 1 channels, expected 3"),
    Call("own_detector build/networks/centernet_map.onnx plain.ppm yolov3", 1, "",
         "output 0 has 6 x 4 cells of 18 values, expected a grid over 96 x 64 pixels and 5 + 2 values"),
    Call("own_detector build/networks/yolov3_map.onnx plain.ppm centernet", 1, "", "of 7 values, expected"),
    Call("own_detector models/person_classes/network.onnx plain.ppm yolov3", 1, "", "1 x 1 cells of 2 values, expected"),
    Call("detect_persons $MODELS no.ppm", 1, "", "no.ppm: expected a binary PPM"),
    Call("detect_persons none plain.ppm", 1, "", "none: expected a directory with a model"),
    Call("persons $MODELS no.ppm", 1, "", "no.ppm: expected a binary PPM"),
    Call("persons none plain.ppm", 1, "", "person-detection-portrait: the model does not load"),
    Call("compare_faces $MODELS/ plain.pgm plain.pgm", 0, "similarity 1.000000\n", ""),  # with "/" too
    Call("compare_faces $MODELS plain.pgm plain.ppm", 1, "", "plain.ppm: expected a binary PGM of 112 x 112"),
    Call("compare_faces none plain.pgm plain.pgm", 1, "", "none: expected a directory with a model"),
    Call("compare_faces plain.pgm plain.pgm", 2, "", "usage: "),
    Call("camera_loop $MODELS 416 233", 2, "", "even sides"),
    Call("camera_loop $MODELS 416 234 none.nv12", 1, "", "none.nv12"),
    Call("camera_loop $MODELS 416 234 plain.ppm", 1, "", "no frame; expected 146016 bytes of each"),
    Call("camera_loop none 416 234", 1, "", "none: expected a directory with models"),
    Call("camera_loop $MODELS 4 4", 0, "motion         3 ", "1 of 24 bytes", bytes(3 * 24 + 1)),
    Call("listen $MODELS", 0, "   3 s  0.00  quiet\n", "1.5 s", bytes(2 * 16000 * 9 // 2)),
    Call("listen none", 1, "", "none: expected a directory with a model"),
    Call("worker $MODELS build/raw/objects_1.ppm no.ppm", 1, "  car, ", "no.ppm: expected a binary PPM"),
    Call("worker none" + 9 * " plain.ppm", 1, "", "the model does not load"),  # and does not wait for a place in the queue
    Call("resize_frame 3 64 48 16 20", 1, "", "shorter than 9216 bytes", bytes(64 * 48 * 3 // 2)),
    Call("resize_frame 5 64 48 16 20", 2, "", "usage: "),
]


def fences(page: Path) -> Iterator[Tuple[str, str]]:
    """The commands, each with what the page shows below, or with nothing."""
    blocks: List[Tuple[str, str]] = re.findall(r"^```(\w*)\n(.*?)^```", page.read_text(), re.MULTILINE | re.DOTALL)
    for (language, text), (below, shown) in zip(blocks, [*blocks[1:], ("", "")]):
        if language == "sh":
            yield text, shown if below == "text" else ""


def is_near(shown: str, printed: str) -> bool:
    if "." in shown or "." in printed:
        return abs(float(shown) - float(printed)) <= 0.05
    return abs(int(shown) - int(printed)) <= (2 if len(shown) < 4 else 0)


def differences(shown: str, printed: str) -> Iterator[str]:
    is_timed = False
    lines = shown.splitlines(), printed.splitlines()
    if len(lines[0]) != len(lines[1]):
        yield f"{len(lines[0])} lines are shown, {len(lines[1])} printed"
    for line, other in zip(*lines):
        numbers, others = NUMBER.findall(line), NUMBER.findall(other)
        words, other_words = (re.sub(r"\s+", " ", NUMBER.sub("#", text)) for text in (line, other))
        same = len(numbers) == len(others) and all(
            (is_timed and "." in a and "." in b) or is_near(a, b) for a, b in zip(numbers, others))
        if words != other_words or not same:
            yield f"shown:   {line}\nprinted: {other}"
        is_timed = is_timed or "mean ms" in line


class Checker:
    def __init__(self, build: Path, work: Path):
        self.failures = 0
        shutil.rmtree(work, ignore_errors=True)
        self.tree = work / "tree"
        (self.tree / "build").mkdir(parents=True)
        for entry in ROOT.iterdir():
            if entry.name != "build" and not entry.name.startswith(".git"):
                (self.tree / entry.name).symlink_to(entry)
        for component in ("library", "development", "kit", "tool", "models"):
            subprocess.run(["cmake", "--install", build, "--prefix", work / "root", "--component", component], check=True,
                           stdout=subprocess.DEVNULL)
        kit = next((work / "root").rglob("kelnn-kit.pc"))
        self.library = next((work / "root").rglob("libkelnn.so"))
        self.environment = {
            **os.environ, "PKG_CONFIG_PATH": str(kit.parent), "LD_LIBRARY_PATH": str(self.library.parent), "CFLAGS": FLAGS,
            "CXXFLAGS": FLAGS, "MODELS": str(work / "root/share/kelnn/models"), "PATH": f"{work / 'root/bin'}:/usr/bin:{os.environ['PATH']}"}
        self.environment.pop("KELNN_MODELS", None)

    def complain(self, text: str) -> None:
        self.failures += 1
        print(text, file=sys.stderr)

    def shell(self, command: str, given: bytes = b"") -> "subprocess.CompletedProcess[bytes]":
        return subprocess.run(["bash", "-euo", "pipefail", "-c", command], cwd=self.tree, env=self.environment, input=given,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=300)

    def check_page(self, page: Path, update: bool) -> int:
        count = 0
        for count, (commands, shown) in enumerate(fences(page), 1):
            if "mosquitto" in commands and not Path("/usr/sbin/mosquitto").exists():
                print("skipped, since there is no mosquitto (scripts/install_packages.sh test):", commands.splitlines()[0])
                continue
            done = self.shell(commands)
            printed = done.stdout.decode()
            if done.returncode != 0:
                self.complain(f"{commands}{done.stderr.decode()[-3000:]}exit code {done.returncode}")
            found = list(differences(shown, printed)) if shown else []
            if found and update:
                page.write_text(page.read_text().replace(f"```text\n{shown}```", f"```text\n{printed}```", 1))
            for difference in found if not update else []:
                self.complain(f"{commands}{difference}")
        return count

    def check_calls(self, calls: Sequence[Call]) -> None:
        (self.tree / "plain.ppm").write_bytes(RGB)
        (self.tree / "plain.pgm").write_bytes(GREY)
        for call in calls:
            done = self.shell(f"build/examples/{call.arguments}", call.input)
            out, err = done.stdout.decode(), done.stderr.decode()
            if done.returncode != call.code or call.out not in out or call.err not in err or (call.code == 2 and out):
                self.complain(f"{call}\nexit code {done.returncode}\n{out}{err[-3000:]}")

    def check_resized(self) -> None:
        """The program's bytes are the library's."""
        frame = bytes(i * i % 251 for i in range(64 * 48 * 3 // 2))
        library = ctypes.CDLL(str(self.library))
        nv12, four = ctypes.create_string_buffer(40 * 30 * 3 // 2), ctypes.create_string_buffer(16 * 20 * 4)
        library.kel_nn_pixel_resize_bilinear_nv12(frame, 64, 48, nv12, 40, 30)
        library.kel_nn_pixel_resize_bilinear(frame, 32, 36, four, 16, 20, 4)  # the same bytes, as pixels of 4 channels
        for arguments, resized in (("nv12 64 48 40 30", nv12.raw), ("4 32 36 16 20", four.raw)):
            if self.shell(f"build/examples/resize_frame {arguments}", frame).stdout != resized:
                self.complain(f"resize_frame {arguments}: not the library's bytes")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True, type=Path, help="a build of the library, the kit and the sample networks")
    parser.add_argument("--work", required=True, type=Path, help="a directory to write into; emptied first")
    parser.add_argument("--page", type=Path, default=ROOT / "examples/README.md")
    parser.add_argument("--update", action="store_true", help="write what is printed into the page: after another sample network")
    options = parser.parse_args()
    checker = Checker(options.build.resolve(), options.work.resolve())
    count = checker.check_page(options.page, options.update)
    if count < 8:
        checker.complain("where are the page's commands?")
    if options.page.name == "README.md":
        checker.check_calls(CALLS)
        checker.check_resized()
    print(f"{count} commands, {checker.failures} failures")
    return 1 if checker.failures else 0


if __name__ == "__main__":
    sys.exit(main())
