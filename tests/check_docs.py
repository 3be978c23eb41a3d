# SPDX-License-Identifier: Apache-2.0
"""Holds every page (*.md) against the tree: check_docs.py --kelnn PROGRAM

Links lead to a file and to a heading in it. Names of files in the tree exist. Commands, in fences marked `sh`, after a
`$` and between backquotes, name scripts, programs, presets and targets that exist and options that these know.
What is shown below `$ kelnn` is printed by it.
docs/porting.md explains every message of the library. .ci/run runs a command of README.md. Programs are run by reference/check_reference.py.
"""
import argparse
import ast
import functools
import json
import os
import re
import shlex
import subprocess
import sys
from pathlib import Path
from typing import Iterator, NamedTuple

ROOT = Path(__file__).resolve().parent.parent
# Programs of others; their arguments are theirs. What a system may lack, and a reader installs or has on the camera.
OTHERS = {"apt", "apt-get", "find", "grep", "head", "sort", "uniq", "c++", "cc", "cd", "clang", "clang++", "cp", "cpack", "curl", "diff", "echo", "export", "ffmpeg", "g++",
          "gcc", "git", "gst-launch-1.0", "/usr/sbin/mosquitto", "jq", "kill", "ls", "make", "man", "meson", "mipsel-linux-gnu-gcc", "mkdir", "mosquitto_sub", "ninja", "pip", "pip3", "pkg-config",
          "scp", "sleep", "sqlite3", "ssh", "strip", "sudo", "tar", "valgrind", "qemu-mipsel", "abidiff", "xdg-open"}


class Fence(NamedTuple):
    language: str
    line: int
    text: str


class Page:
    def __init__(self, path: Path):
        self.path = path
        self.fences: list[Fence] = []
        prose = []  # fences left out, with lines as they are numbered
        language, start, fenced = None, 0, []
        for number, line in enumerate(path.read_text(encoding="utf-8").split("\n"), 1):
            fence = re.match(r" *```(\w*)", line)
            if fence and language is None:
                language, start, fenced = fence[1], number + 1, []
            elif fence:
                self.fences.append(Fence(language, start, "\n".join(fenced)))
                language = None
            elif language is not None:
                fenced.append(line)
            prose.append("" if fence or language is not None else line)
        self.prose = "\n".join(prose)

    @functools.cached_property
    def anchors(self) -> set[str]:
        """The headings as GitHub names them."""
        found: dict[str, int] = {}
        for heading in re.findall(r"^#+ +(.*?) *#*$", self.prose, re.MULTILINE):
            plain = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", heading).lower()
            slug = re.sub(r"[^\w\- ]", "", plain).replace(" ", "-")
            found[slug] = found.get(slug, -1) + 1
            if found[slug]:
                found[f"{slug}-{found[slug]}"] = 0
        return set(found) | set(re.findall(r'<a (?:id|name)="([^"]+)"', self.prose))

    def spans(self) -> Iterator[tuple[int, str]]:
        """What stands between backquotes, by line."""
        for match in re.finditer(r"`([^`\n]+(?:\n[^`\n]+)?)`", self.prose):
            yield self.prose.count("\n", 0, match.start()) + 1, match[1].replace("\n", " ")

    def commands(self) -> Iterator[tuple[int, str]]:
        for fence in self.fences:
            lines = fence.text.split("\n")
            for offset, line in enumerate(lines):
                if fence.language == "" and line.startswith("$ "):
                    yield fence.line + offset, line[2:]
                elif fence.language in ("sh", "bash") and not (offset and lines[offset - 1].endswith("\\")):
                    end = offset
                    while lines[end].endswith("\\") and end + 1 < len(lines):
                        end += 1
                    yield fence.line + offset, " ".join(part.rstrip("\\") for part in lines[offset:end + 1])
        for line, span in self.spans():
            if re.match(r"(kelnn|cmake|ctest|python3|scripts/\S+) ", span) or re.fullmatch(r"scripts/\S+\.sh", span):
                yield line, re.sub(r" *(\.\.\.|…)", "", span)


class Checker:
    def __init__(self, kelnn: str):
        self.kelnn = os.path.realpath(kelnn)
        self.failures = 0
        self.where = ""
        self.pages = {path: Page(path) for path in sorted(ROOT.rglob("*.md"))
                      if not path.relative_to(ROOT).parts[0].startswith((".", "build"))}
        cmake_files = [path for path in ROOT.rglob("*") if path.name == "CMakeLists.txt" or path.suffix == ".cmake"
                       if not path.relative_to(ROOT).parts[0].startswith((".", "build"))]
        self.cmake_words = set(re.findall(r"\w+", "\n".join(path.read_text() for path in cmake_files)))
        presets = json.loads((ROOT / "CMakePresets.json").read_text())
        self.presets = {preset["name"] for preset in presets["configurePresets"]}

    def complain(self, text: str) -> None:
        self.failures += 1
        print(f"{self.where}: {text}", file=sys.stderr)

    @functools.lru_cache(maxsize=None)
    def help_of(self, *command: str) -> str | None:
        shown = subprocess.run([self.kelnn, *command, "--help"], capture_output=True, text=True)
        return shown.stdout + shown.stderr if shown.returncode == 0 else None

    # ----- Links and names -----

    def check_links(self, page: Page) -> None:
        for match in re.finditer(r"\]\(([^)\s]+)(?: \"[^\"]*\")?\)", page.prose):
            self.where = f"{page.path.relative_to(ROOT)}:{page.prose.count(chr(10), 0, match.start()) + 1}"
            target, _, anchor = match[1].partition("#")
            if re.match(r"[a-z]+:", target):
                continue
            path = (page.path.parent / target).resolve() if target else page.path
            if not path.exists() or ROOT not in [path, *path.parents]:
                self.complain(f"no {match[1]}")
            elif anchor and path in self.pages and anchor not in self.pages[path].anchors:
                self.complain(f"no heading {match[1]}")

    def check_names(self, page: Page) -> None:
        rooms = {entry.name for entry in ROOT.iterdir() if entry.is_dir()} - {"build", "models"}
        for line, span in page.spans():
            self.where = f"{page.path.relative_to(ROOT)}:{line}"
            name = span.split(" ")[0].rstrip(".,:")
            if re.fullmatch(r"[\w./*-]+", name) and "/" in name and name.split("/")[0] in rooms:
                if not list(ROOT.glob(name.rstrip("/"))) and not name.endswith("..."):
                    self.complain(f"no {name}")

    # ----- Commands -----

    def check_shown(self, page: Page) -> None:
        """What stands below `$ kelnn ...` is what it prints, where its files are in the tree and the build has the samples."""
        if not (Path(self.kelnn).parent.parent / "share/kelnn/models").is_dir():
            return
        for fence in page.fences:
            for shown in re.findall(r"^\$ kelnn (.*)\n((?:(?!\$ ).*\n?)*)", fence.text, re.MULTILINE) if fence.language == "" else []:
                arguments, wanted = shlex.split(shown[0]), shown[1].rstrip()
                if all((ROOT / word).exists() for word in arguments if "/" in word):
                    self.where = f"{page.path.relative_to(ROOT)}:{fence.line}"
                    said = subprocess.run([self.kelnn, *arguments], cwd=ROOT, capture_output=True, text=True).stdout.rstrip()
                    if said != wanted:
                        self.complain(f"kelnn {shown[0]} prints\n{said}")

    def check_command(self, command: str) -> None:
        for inner in re.findall(r"\$\(([^()]*)\)", command):
            self.check_command(inner)
        command = re.sub(r"\$\([^()]*\)", "substituted", command)
        lexer = shlex.shlex(command, posix=True, punctuation_chars="|&;()<>")
        lexer.whitespace_split = True
        try:
            words = list(lexer)
        except ValueError as error:
            self.complain(f"{command}: {error}")
            return
        simple: list[list[str]] = [[]]
        for word in words:
            if re.fullmatch(r"[|&;()]+", word):
                simple.append([])
            else:
                simple[-1].append(word)
        for words in simple:
            while words and re.match(r"\w+=", words[0]):  # VARIABLE=value in front of it
                words.pop(0)
            if words:
                self.check_program(words[0], words[1:])

    def check_program(self, program: str, arguments: list[str]) -> None:
        options = [word.split("=")[0] for word in arguments if word.startswith("--") and word != "--"]
        if program.rsplit("/", 1)[-1] == "kelnn":
            self.check_kelnn(arguments, options)
        elif program in ("cmake", "ctest"):
            self.check_cmake(arguments)
        elif program in ("python3", "/usr/bin/python3"):
            self.check_python(arguments, options)
        elif program.startswith(("./", "scripts/", "tests/", "models/", "bench/")):
            self.check_script(program, options)
        elif program.startswith("build/"):
            if program.rsplit("/", 1)[-1] not in self.cmake_words:
                self.complain(f"nothing builds {program}")
        elif program not in OTHERS and not re.fullmatch(r"[\w-]+-(gcc|g\+\+)", program):
            self.complain(f"what is {program}?")

    def check_kelnn(self, arguments: list[str], options: list[str]) -> None:
        command: tuple[str, ...] = ()
        if arguments and re.fullmatch(r"[a-z][a-z-]*", arguments[0]):
            command = (arguments[0],)
        if command and not re.search(rf"^ +{command[0]} ", self.help_of() or "", re.MULTILINE):
            self.complain(f"kelnn has no command {command[0]}")
            return
        text = (self.help_of(*command) or "") + (self.help_of() or "")
        for option in options:
            if not re.search(re.escape(option) + r"(?![\w-])", text):
                self.complain(f"kelnn {' '.join(command)} has no option {option}")

    def check_cmake(self, arguments: list[str]) -> None:
        for word, following in zip(arguments, arguments[1:] + [""]):
            option = re.match(r"-D(KEL_NN_\w+)", word)
            if option and option[1] not in self.cmake_words:
                self.complain(f"no option {option[1]}")
            if word == "--preset" and following not in self.presets:
                self.complain(f"no preset {following}")
            if word in ("--target", "-t") and following not in self.cmake_words:
                self.complain(f"no target {following}")

    def check_python(self, arguments: list[str], options: list[str]) -> None:
        if arguments[:1] == ["-m"] and (ROOT / arguments[1].split(".")[0]).is_dir():
            name = arguments[1].replace(".", "/")
            package = (ROOT / name).is_dir()
            self.check_script(f"{name}/__main__.py" if package else f"{name}.py", options)
        elif arguments and not arguments[0].startswith("-"):
            self.check_script(arguments[0], options)

    def check_script(self, name: str, options: list[str]) -> None:
        path = ROOT / name
        if not path.is_file():
            self.complain(f"no {name}")
            return
        if path.suffix == ".sh" and not os.access(path, os.X_OK):
            self.complain(f"{name} cannot be executed")
        text = path.read_text()
        for module in re.findall(r" -m (models[\w.]*)", text):  # what has its options
            file = ROOT / module.replace(".", "/")
            text += (file / "__main__.py" if file.is_dir() else file.with_suffix(".py")).read_text()
        for module, names in re.findall(r"^from (models[\w.]*) import ([\w, ]+)$", text, re.MULTILINE):
            for imported in [module, *(f"{module}.{part}" for part in names.split(", "))]:
                file = ROOT / (imported.replace(".", "/") + ".py")
                text += file.read_text() if file.is_file() else ""
        for option in set(options) - {"--help"}:
            if not re.search(re.escape(option) + r"(?![\w-])", text) and f'"{option[2:]}":' not in text:  # a key of MATERIAL
                self.complain(f"{name} has no option {option}")

    def check_messages(self) -> None:
        self.where = "docs/porting.md"
        text = self.pages[ROOT / self.where].prose
        for source in sorted([*ROOT.glob("src/*.cpp"), *ROOT.glob("plat/jzt31/*.cpp")]):
            code = source.read_text().replace("\\\n", "\n")
            for report in re.findall(r"KEL_NN_(?:FAIL(?:_INIT)?_IF|ERROR|ERROR_OF|WARNING)\((.*?)\)[;\n]", code, re.DOTALL):
                for literals in re.findall(r'(?:"(?:[^"\\]|\\.)*"\s*)+', report)[-1:]:  # behind the name of a stage
                    message = ast.literal_eval(f"({literals})")
                    if f"`{message}`" not in text:
                        self.complain(f"does not explain '{message}' of {source.relative_to(ROOT)}")

    def check_ci(self) -> None:
        self.where = ".ci/run"
        shown = [command.split(" #")[0].strip() for _, command in self.pages[ROOT / "README.md"].commands()]
        last = (ROOT / ".ci/run").read_text().strip().split("\n")[-1].removeprefix("exec ")
        if last not in shown:
            self.complain(f"README.md has no command '{last}'")

    def check_size(self) -> None:
        self.where = "README.md"
        for size in re.findall(r"\*\*([\d,]+ bytes)\*\*", self.pages[ROOT / self.where].prose):
            if size not in self.pages[ROOT / "docs/resources.md"].prose:
                self.complain(f"docs/resources.md has measured another size than {size}")

    def check(self) -> int:
        for page in self.pages.values():
            self.check_links(page)
            self.check_names(page)
            self.check_shown(page)
            for line, command in page.commands():
                self.where = f"{page.path.relative_to(ROOT)}:{line}"
                self.check_command(command.split(" #")[0] if not command.startswith("#") else "")
        self.check_messages()
        self.check_ci()
        self.check_size()
        return self.failures


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--kelnn", required=True, help="the built kelnn")
    arguments = parser.parse_args()
    return 1 if Checker(arguments.kelnn).check() else 0


if __name__ == "__main__":
    sys.exit(main())
