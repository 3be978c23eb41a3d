# SPDX-License-Identifier: Apache-2.0
"""Holds the reference to what it says: check_reference.py --build BUILD --work DIRECTORY --cc COMPILER --cxx COMPILER...

Each example in it, and in every other page, is compiled and run on the sample networks: those in the headers' comments, the
fences marked `c` and `cpp` (one without a `main` as the body of a function) and `python`. given.h and given.hpp have what they
take for granted. None may make the library print an error. The C++ ones compile with every C++ compiler that is there, with
and without RTTI. Links within the HTML lead to files and places that exist.
"""
import argparse
import html
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path
from typing import Iterator, List, NamedTuple, Sequence
from urllib.parse import unquote

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
HEADERS = [ROOT / "include" / name for name in ("kel_nn.h", "kel_nn_kit.h", "kel_nn.hpp")]
C_WARNINGS = ["-std=c99", "-pedantic", "-Wall", "-Wextra", "-Werror", "-Wno-unused-variable", "-Wno-unused-function"]
CXX_WARNINGS = ["-std=c++17", "-pedantic", "-Wall", "-Wextra", "-Wconversion", "-Werror", "-Wno-unused-variable"]
PYTHON_GIVEN = """import numpy as np
frames = [np.zeros((1080, 1920, 3), np.uint8)]
pcm = np.full(48000, 2000, np.int16)
"""


class Example(NamedTuple):
    language: str
    place: str  # file:line
    text: str

    def is_program(self) -> bool:
        return bool(re.search(r"\bmain\(", self.text))


def of_header(path: Path) -> Iterator[Example]:
    """What Doxygen is told to be an example."""
    lines = path.read_text().split("\n")
    filtered = subprocess.run(["awk", "-f", ROOT / "scripts/doxygen_filter.awk", path], check=True, stdout=subprocess.PIPE,
                              text=True).stdout
    for block in re.findall(r"@code\{\.\w+\}\n(.*?)\n \* @endcode", filtered, re.DOTALL):
        text = re.sub(r"^ \* ?", "", block, flags=re.MULTILINE)
        first = text.split("\n")[0].strip()
        line = next(i for i, original in enumerate(lines, 1) if original.lstrip(" *") == first)
        yield Example("cpp" if path.suffix == ".hpp" else "c", f"{path.relative_to(ROOT)}:{line}", text)


def of_page(path: Path) -> Iterator[Example]:
    text = path.read_text()
    for fence in re.finditer(r"^```(c|cpp|python)\n(.*?)^```", text, re.DOTALL | re.MULTILINE):
        yield Example(fence[1], f"{path.relative_to(ROOT)}:{text.count(chr(10), 0, fence.start()) + 2}", fence[2])


def pages() -> List[Path]:
    return [path for path in sorted(ROOT.rglob("*.md")) if not path.relative_to(ROOT).parts[0].startswith((".", "build"))]


def without_includes(example: Example) -> str:
    path, line = example.place.split(":")
    text = re.sub(r"^ *#include.*", "", example.text, flags=re.MULTILINE)
    return f'#line {line} "{path}"\n{text}\n'


def c_program(examples: Sequence[Example]) -> str:
    functions = [f"static void example_{i}(void) {{\n{without_includes(e)}}}\n" for i, e in enumerate(examples)]
    calls = [f'  puts("{e.place}");\n  example_{i}();\n' for i, e in enumerate(examples)]
    return ('#include "given.h"\n' + "".join(functions) +
            "int main(void) {\n  given_start();\n" + "".join(calls) + "  return given_end();\n}\n")


def cxx_program(examples: Sequence[Example]) -> str:
    classes = [f"struct Example{i} : Given {{\n  void run() {{\n{without_includes(e)}  }}\n}};\n"
               for i, e in enumerate(examples)]
    calls = [f'  std::puts("{e.place}");\n  Example{i}().run();\n' for i, e in enumerate(examples)]
    return ('#include "given.hpp"\n' + "".join(classes) + "int main() {\n" + "".join(calls) +
            "  return Given::results >= 4 ? 0 : 1;\n}\n")


class Checker:
    def __init__(self, build: Path, work: Path, cc: str, cxx: Sequence[str]):
        self.build, self.work, self.cc, self.cxx = build, work, cc, cxx
        self.failures = 0
        shutil.rmtree(work, ignore_errors=True)
        shutil.copytree(build / "share/kelnn/models", work / "models")
        # The networks that examples call a reader's own.
        names = (ROOT / "src/kel_nn_model_files.h").read_text()
        packed = re.search(r'kPersonClassifyModel.*?"([^"]+)"', names, re.DOTALL)
        assert packed
        shutil.copy(work / "models" / packed[1], work / "models/my_model.bin")
        shutil.copy(ROOT / "models/person_classes/network.onnx", work / "my_network.onnx")
        (work / "input").write_bytes(bytes(1920 * 1080 * 3 // 2))  # a frame, or 97 seconds of silence

    def complain(self, text: str) -> None:
        self.failures += 1
        print(text, file=sys.stderr)

    def command(self, command: Sequence[object], **options: object) -> bool:
        with open(self.work / "input", "rb") as given:
            done = subprocess.run([str(word) for word in command], stdin=given, stdout=subprocess.PIPE,  # type: ignore
                                  stderr=subprocess.STDOUT, text=True, cwd=self.work, **options)
        if done.returncode != 0 or "[Error]" in done.stdout:
            self.complain(f"exit code {done.returncode} of {' '.join(map(str, command))}\n{done.stdout}")
            return False
        return True

    def compile_and_run(self, name: str, language: str, text: str) -> None:
        source = self.work / f"{name}.{language}"
        source.write_text(text)
        include = [f"-I{ROOT}/include", f"-I{HERE}"]
        link = [self.build / "kit/libkelnn_kit.a", self.build / "libkelnn.so", f"-Wl,-rpath,{self.build}", "-lm"]
        compiler = [self.cc, *C_WARNINGS] if language == "c" else [self.cxx[0], *CXX_WARNINGS]
        if self.command([*compiler, *include, source, *link, "-o", self.work / name]):
            self.command([self.work / name])
        for other in self.cxx if language == "cpp" else []:
            if shutil.which(other):
                self.command([other, *CXX_WARNINGS, "-fno-rtti", "-fsyntax-only", *include, source])

    def check_examples(self, examples: Sequence[Example]) -> None:
        parts = {language: [e for e in examples if e.language == language and not e.is_program()] for language in ("c", "cpp")}
        self.compile_and_run("examples_c", "c", c_program(parts["c"]))
        self.compile_and_run("examples_cpp", "cpp", cxx_program(parts["cpp"]))
        for number, example in enumerate(example for example in examples if example.is_program()):
            path, line = example.place.split(":")
            self.compile_and_run(f"program_{number}", example.language, f'#line {line} "{path}"\n{example.text}')
        environment = {**os.environ, "PYTHONPATH": f"{self.build}/python:{ROOT}", "PYTHONDONTWRITEBYTECODE": "1",
                       "KELNN_MODELS": str(self.work / "models")}
        for example in examples:
            if example.language == "python":
                self.command(["/usr/bin/python3", "-c", PYTHON_GIVEN + example.text], env=environment)

    def check_links(self, directory: Path) -> int:
        texts = {path: path.read_text() for path in directory.glob("*.html")}
        places = {path: set(re.findall(r'\b(?:id|name)="([^"]+)"', text)) for path, text in texts.items()}
        count = 0
        for page, text in texts.items():
            for link in map(html.unescape, re.findall(r'\b(?:href|src)="([^"]+)"', text)):
                if re.match(r"[a-z]+:", link):
                    continue
                count += 1
                file, _, place = link.partition("#")
                target = directory / unquote(file) if file else page
                if not target.exists() or (place and target in places and place not in places[target]):
                    self.complain(f"{page.name}: no {link}")
        return count


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True, type=Path, help="a build with the library, the samples, Python and the reference")
    parser.add_argument("--work", required=True, type=Path, help="a directory to write into; emptied first")
    parser.add_argument("--cc", default="cc", help="C compiler (%(default)s)")
    parser.add_argument("--cxx", nargs="+", default=["c++"], help="C++ compilers; those behind the first may be missing")
    options = parser.parse_args()
    checker = Checker(options.build.resolve(), options.work.resolve(), options.cc, options.cxx)
    examples = [example for header in HEADERS for example in of_header(header)]
    examples += [example for page in pages() for example in of_page(page)]
    checker.check_examples(examples)
    reference = options.build / "reference/html"
    links = checker.check_links(reference)
    if "(%d vs %d)" not in (reference / "porting.html").read_text():
        checker.complain("porting.html: the library's messages have lost their %d")
    if len(examples) < 30 or links < 1000:
        checker.complain("where are the examples, where are the links?")
    print(f"{len(examples)} examples, {links} links, {checker.failures} failures")
    return 1 if checker.failures else 0


if __name__ == "__main__":
    sys.exit(main())
