# SPDX-License-Identifier: Apache-2.0
"""Plants one-line faults in a copy of the library and counts those that its unit tests notice.

A fault is one change in one line: another operator, comparison or condition, a constant off by one, float for
double and back, a statement left out, two arguments exchanged. Only what changes the object code counts, and nothing
that docs/testing.md argues to change nothing. Everything is built once; a fault costs the objects that see its line, one
link and the tests up to the first that fails.

Fails when fewer than 95 % of the faults that count are noticed, or when docs/testing.md does not argue a survivor.
"""

import argparse
import concurrent.futures
import dataclasses
import json
import os
import pathlib
import queue
import random
import re
import resource
import shlex
import shutil
import subprocess
import sys
import tempfile
import time
from collections.abc import Iterator

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIBRARY = ("src", "plat/jzt31")
COPIED = ("CMakeLists.txt", "CMakePresets.json", "cmake", "include", "kit", "plat", "record", "src", "tests")
FLAGS = ["-O1", "-w", "-g0"]
FIRST = 4  # so many of the tests that noticed the last faults in a file are run before all others
MEMORY = 4 << 30
ARGUED = ROOT / "docs" / "testing.md"  # its tables of survivors
EQUAL, UNSEEN = "why nothing changes", "what it takes to see it"  # their last columns
WANTED = 0.95  # of the faults that count

SWAPPED = {
    "<": ["<=", ">"], "<=": ["<", ">="], ">": [">=", "<"], ">=": [">", "<="], "==": ["!="], "!=": ["=="],
    "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["/"], "<<": [">>"], ">>": ["<<"],
    "&&": ["||"], "||": ["&&"], "&": ["|"], "|": ["&"], "^": ["|"],
    "+=": ["-="], "-=": ["+="], "*=": ["/="], "/=": ["*="], "|=": ["&="], "=": ["+="],
}  # fmt: skip
OPERATOR = re.compile(r"(?<= )(<=|>=|==|!=|<<|>>|&&|\|\||[-+*/|]=|[-+<>*/%&|^=])(?= )")
ASSIGNED = re.compile(r"\s*[\w.\[\]>*+-]+ ")  # what stands in front of an assignment, not of a declaration
STEP = re.compile(r"\+\+|--(?=\w)")
INTEGER = re.compile(r"(?<![\w.])(0x[0-9a-fA-F]+|\d+)(?=[uUlL]*(?![\w.]))")
REAL = re.compile(r"(?<![\w.])(\d+\.\d*|\d+e-?\d+)(?:e(-?\d+))?(f?)(?!\w)")
TYPE = re.compile(r"(?<![\w])(float|double)(?=[ >{])(?! *\()")
NEGATION = re.compile(r"!(?=[\w(])")
CONDITION = re.compile(r"\b(?:if|while) \((.*)\)(?= [^)]*$|$)")
STATEMENT = re.compile(r"^( *)((?:(?:if|for|while) \(.*\) )?)([\w:>.*\[\]()+-]+(?: [-+*/|&^]?= .*|\(.*\)|);)$")
# calloc() zeroes its product, whichever factor comes first.
ARGUMENTS = re.compile(r"((?!KEL_NN|calloc\()\b\w+\()([^(),;]+(?:\([^()]*\))?), ([^(),;]+(?:\([^()]*\))?)(?=[,)])")
NOT_CODE = re.compile(r"^\s*(#|//|static_assert|using |namespace|template|\}? *$)|__attribute__|KEL_NN_(ERROR|WARNING|INFO)")


@dataclasses.dataclass(frozen=True)
class Fault:
    path: str
    line: int  # from 1
    before: str
    after: str

    def __str__(self) -> str:
        return f"{self.path}:{self.line}: {self.before.strip()}  ->  {self.after.strip()}"


def real_off_by_one(match: re.Match[str]) -> str:
    """The last digit one more: 0.97f becomes 0.98f."""
    digits = match[1]
    places = len(digits.partition(".")[2])
    more = f"{float(digits) + 10.0 ** -places:.{places}f}" if "e" not in digits else f"2{digits[1:]}"
    return more + (f"e{match[2]}" if match[2] else "") + match[3]


def changes(line: str) -> Iterator[str]:
    """Every fault that can be planted in one line of code."""
    code, comment = re.match(r"^((?:[^/\"]|\"(?:[^\"\\]|\\.)*\"|/(?!/))*)(.*)$", line).groups()
    strings = [m.span() for m in re.finditer(r"\"(?:[^\"\\]|\\.)*\"|'(?:[^'\\]|\\.)'|/\*.*?\*/", code)]

    def put(start: int, end: int, text: str) -> Iterator[str]:
        if not any(a < end and start < b for a, b in strings):
            yield code[:start] + text + code[end:] + comment

    for m in OPERATOR.finditer(code):
        if m[0] == "=" and not ASSIGNED.fullmatch(code[: m.start()]):
            continue
        for text in SWAPPED[m[0]]:
            yield from put(*m.span(), text)
    for m in STEP.finditer(code):
        yield from put(*m.span(), "--" if m[0] == "++" else "++")
    for m in INTEGER.finditer(code):
        value = int(m[1], 16 if m[1].startswith("0x") else 10)
        for near in (value + 1, value - 1):
            yield from put(*m.span(1), hex(near) if m[1].startswith("0x") else str(near))
    for m in REAL.finditer(code):
        yield from put(*m.span(), real_off_by_one(m))
        if m[3]:
            yield from put(*m.span(3), "")
    for m in TYPE.finditer(code):
        yield from put(*m.span(), "double" if m[0] == "float" else "float")
    for m in NEGATION.finditer(code):
        yield from put(*m.span(), "")
    for m in CONDITION.finditer(code):
        yield from put(*m.span(1), f"!({m[1]})")
    if m := STATEMENT.match(code.rstrip()):
        if not m[3].startswith(("break;", "continue;", "default")) and (m[2] or not m[3].startswith("return")):
            yield from put(m.start(3), m.end(3), ";")
    if m := re.match(r"^ *(?:if \(.*\) )(return\b.*;)", code):
        yield from put(*m.span(1), ";")
    if (m := re.search(r"\b(continue|break);", code)) and "if (" in code:
        yield from put(*m.span(), ";")
    for m in ARGUMENTS.finditer(code):
        if not re.match(r"(const )?[\w:]+[*&]* \**[a-z]\w*$", m[2]):  # a parameter, not an argument
            yield from put(m.start(2), m.end(3), f"{m[3]}, {m[2]}")


def all_faults(tree: pathlib.Path) -> list[list[Fault]]:
    """Those of every line that has any."""
    found = []
    for folder in LIBRARY:
        for path in sorted((tree / folder).rglob("*")):
            if path.suffix not in (".h", ".cpp"):
                continue
            in_comment = False
            for number, line in enumerate(path.read_text().split("\n"), 1):
                in_comment = in_comment or line.lstrip().startswith("/*")
                if not in_comment and not NOT_CODE.search(line):
                    name = str(path.relative_to(tree))
                    faults = [Fault(name, number, line, after) for after in changes(line)]
                    if faults:
                        found.append(faults)
                in_comment = in_comment and "*/" not in line
    return found


def in_random_order(tree: pathlib.Path, seed: int) -> list[Fault]:
    """Lines at random and, of a line, one fault at random; then the next fault of each."""
    chance = random.Random(seed)
    lines = all_faults(tree)
    for faults in lines:
        chance.shuffle(faults)
    chance.shuffle(lines)
    ordered = []
    for turn in range(max(map(len, lines))):
        ordered += [faults[turn] for faults in lines if turn < len(faults)]
    return ordered


class Build:
    """The copy, built once: how each of the library's objects is made, what it reads, how all are linked."""

    def __init__(self, top: pathlib.Path, tests: pathlib.Path) -> None:
        self.tree, self.folder = top / "tree", top / "tree" / "build" / "gcc"
        self.tree.mkdir()
        for name in COPIED:
            source = (tests if name == "tests" else ROOT) / name
            if source.is_dir():
                shutil.copytree(source, self.tree / name)
            else:
                shutil.copy(source, self.tree / name)
        run(["cmake", "--preset", "gcc", "-DKEL_NN_PC=OFF", "-DKEL_NN_BENCH=OFF", "-DKEL_NN_INSTALL=OFF", "-DKEL_NN_SMALL=OFF",
             "-DCMAKE_UNITY_BUILD=OFF"], self.tree)  # a fault in a header has few tests compiled again
        run(["ninja", "-C", self.folder, "kelnn_unit_tests"])
        self.commands: dict[str, list[str]] = {}  # by object, relative to the build folder
        tests = {}  # those that include the library's own headers see a fault there as the library does
        for entry in json.loads((self.folder / "compile_commands.json").read_text()):
            command = [part for part in shlex.split(entry["command"]) if not part.endswith("ccache")]
            made = command[command.index("-o") + 1]
            if "kelnn_objects.dir" in made:
                self.commands[made] = command + FLAGS
            elif "kelnn_unit_test_objects.dir" in made:
                tests[made] = command + FLAGS
        self.readers: dict[str, list[str]] = {}  # the objects that read a file of the library
        for block in run(["ninja", "-C", self.folder, "-t", "deps"]).split("\n\n"):
            made, *read = [line.strip() for line in block.strip().split("\n")]
            made = made.partition(":")[0]
            if made not in self.commands and made not in tests:
                continue
            for path in read:
                absolute = pathlib.Path(self.folder, path).resolve()
                name = str(absolute.relative_to(self.tree)) if absolute.is_relative_to(self.tree) else ""
                if made in self.commands or name.startswith(tuple(f"{folder}/" for folder in LIBRARY)):
                    self.readers.setdefault(name, []).append(made)
        self.commands |= {made: tests[made] for made in tests if any(made in read for read in self.readers.values())}
        last = run(["ninja", "-C", self.folder, "-t", "commands", "kelnn_unit_tests"]).strip().split("\n")[-1]
        link = shlex.split(last.removeprefix(": && ").partition(" && ")[0])
        self.program = link[link.index("-o") + 1]
        self.link = link
        # Once more, for flags of single files: every object as the faulty ones are made.
        for made, command in self.commands.items():
            subprocess.run(command, cwd=self.folder, check=True)
        subprocess.run(link, cwd=self.folder, check=True)


def run(command: list, folder: pathlib.Path | None = None) -> str:
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, cwd=folder)
    if done.returncode != 0:
        sys.exit(f"{done.stdout[-4000:]}{done.stderr[-4000:]}")
    return done.stdout


def limited() -> None:
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, resource.RLIM_INFINITY))  # tests set limits of their own
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


class Worker:
    """A tree of its own, in which one fault at a time is planted."""

    def __init__(self, build: Build, top: pathlib.Path, number: int, skipped: list[str], seconds: dict[str, float]) -> None:
        self.build, self.skipped, self.seconds = build, skipped, seconds
        self.home = top / f"worker{number}"
        shutil.copytree(build.tree, self.home / "tree", ignore=shutil.ignore_patterns("build"))
        (self.home / "made").mkdir()

    def compile(self, path: str) -> dict[str, pathlib.Path] | None:
        """The objects that read the file; those that came out as before are left out. None: an error."""
        changed = {}
        for made in self.build.readers.get(path, []):
            out = self.home / "made" / pathlib.Path(made).name
            sources = re.compile(re.escape(f"{self.build.tree}/") + "(?!build/)")
            command = [sources.sub(f"{self.home}/tree/", part) for part in self.build.commands[made]]
            command[command.index("-o") + 1] = str(out)
            command.append(f"-fmacro-prefix-map={self.home}/tree={self.build.tree}")  # as __FILE__ was in the first build
            if subprocess.run(command, cwd=self.build.folder, stderr=subprocess.DEVNULL).returncode != 0:
                return None
            if out.read_bytes() != (self.build.folder / made).read_bytes():
                changed[made] = out
        return changed

    def first_failure(self, program: pathlib.Path, chosen: list[str]) -> str | None:
        """The test that fails, crashes or does not end."""
        negative = "-" + ":".join(self.skipped) if self.skipped else ""
        suites = sorted(self.seconds, key=self.seconds.get)
        runs = [(test, test.rpartition(".")[0]) for test in chosen] + [(f"{suite}.*{negative}", suite) for suite in suites]
        for wanted, suite in runs:
            output = self.home / "output"
            with output.open("w") as file:
                try:
                    code = subprocess.run(
                        [program, f"--gtest_filter={wanted}", "--gtest_fail_fast", "--gtest_brief=0", "--gtest_color=no"],
                        stdout=file, stderr=subprocess.DEVNULL, timeout=max(20, 10 * self.seconds.get(suite, 1)), cwd=self.home,
                        preexec_fn=limited, env={**os.environ, "TMPDIR": str(self.home)},
                    ).returncode  # fmt: skip
                except subprocess.TimeoutExpired:
                    code = -1
            if code != 0:
                text = output.read_text(errors="replace")
                failed = re.findall(r"^\[  FAILED  \] ([\w/.]+)", text, re.M) or re.findall(r"^\[ RUN      \] ([\w/.]+)", text, re.M)
                return (failed[0] if "[  FAILED  ]" in text else failed[-1]) if failed else "(no test)"
        return None

    def try_fault(self, fault: Fault, likely: list[str]) -> tuple[str, str]:
        """What came of it: "same" code, an "error" of compiler or linker, "noticed" by a test, or "survived"."""
        file = self.home / "tree" / fault.path
        pristine = file.read_text()
        lines = pristine.split("\n")
        lines[fault.line - 1] = fault.after
        file.write_text("\n".join(lines))
        try:
            changed = self.compile(fault.path)
        finally:
            file.write_text(pristine)
        if changed is None:
            return "error", ""
        if not changed:
            return "same", ""
        program = self.home / "tests"
        link = [str(changed.get(part, part)) for part in self.build.link]
        link[link.index("-o") + 1] = str(program)
        if subprocess.run(link, cwd=self.build.folder, stderr=subprocess.DEVNULL).returncode != 0:
            return "error", ""  # a definition is missing now
        test = self.first_failure(program, likely)
        return ("noticed", test) if test else ("survived", "")


def baseline(build: Build, may_fail: bool) -> tuple[list[str], dict[str, float]]:
    """The tests that fail without any fault, and how many seconds each suite takes, in a process of its own."""
    program = build.folder / build.program
    suites = re.findall(r"^([\w/]+)\.$", run([program, "--gtest_list_tests"]), re.M)
    failed: list[str] = []
    seconds: dict[str, float] = {}
    for suite in suites:
        start = time.monotonic()
        command = [program, f"--gtest_filter={suite}.*", "--gtest_color=no"]
        done = subprocess.run(command, capture_output=True, text=True, errors="replace", preexec_fn=limited)
        seconds[suite] = time.monotonic() - start
        found = re.findall(r"^\[  FAILED  \] ([\w/]+\.[\w/]+)", done.stdout, re.M)
        if done.returncode != 0 and not (may_fail and found):
            sys.exit(f"The tests fail without a fault:\n{done.stdout[-3000:]}")
        failed += found
    return sorted(set(failed)), seconds


def argued() -> dict[tuple[str, str], str]:
    """The faults in the page's tables, as name of the file and "before -> after": EQUAL or UNSEEN."""
    found, table = {}, ""
    for line in ARGUED.read_text().splitlines():
        if match := re.match(r"^\| where \| fault \| (.*) \|$", line):
            table = match[1]
        elif match := re.match(r"^\| `([^`]*)` \| `([^`]*)` \| .+ \|$", line):
            found[match[1], match[2].replace("\\|", "|")] = table
    return found


def key(fault: Fault) -> tuple[str, str]:
    return pathlib.Path(fault.path).name, f"{fault.before.strip()} -> {fault.after.strip()}"


def main() -> None:
    parser = argparse.ArgumentParser(prog="mutation.sh", description="Plants faults in the library and counts those that the unit tests notice.")
    parser.add_argument("count", nargs="?", type=int, default=300, help="faults that count (default 300)")
    parser.add_argument("seed", nargs="?", type=int, default=1, help="another seed, other faults (default 1)")
    parser.add_argument("--tests", type=pathlib.Path, default=ROOT, metavar="TREE", help="the same faults against the unit tests of another checkout; tests that fail without a fault are left out")
    parser.add_argument("--file", default="", metavar="REGEX", help="only in files whose path matches")
    parser.add_argument("--log", type=pathlib.Path, metavar="FILE", help="writes every fault and what came of it, as lines of JSON")
    parser.add_argument("--again", type=pathlib.Path, metavar="FILE", help="instead of random faults, the survivors in a --log")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1, metavar="N", help="faults at a time (default: one a processor)")
    options = parser.parse_args()

    faults = in_random_order(ROOT, options.seed)
    known = argued()
    if stale := set(known) - set(map(key, faults)):
        sys.exit("\n".join([f"{ARGUED.relative_to(ROOT)} argues what cannot be planted:", *map(str, sorted(stale))]))
    faults = [fault for fault in faults if re.search(options.file, fault.path)]
    if options.again:
        entries = [json.loads(line) for line in options.again.read_text().splitlines()]
        faults = [Fault(**e["fault"]) for e in entries if e["state"] == "survived"]
        faults = [f for f in faults if (ROOT / f.path).read_text().split("\n")[f.line - 1 : f.line] == [f.before]]
    equal = {fault for fault in faults if known.get(key(fault)) == EQUAL}
    with tempfile.TemporaryDirectory(prefix="kelnn_faults_") as name:
        came = plant(faults, equal, pathlib.Path(name), options)

    def those(*states: str) -> list[Fault]:
        return [fault for fault, state in came if state in states]

    noticed, survivors = [f for f in those("noticed") if f not in equal], [f for f in those("survived") if f not in equal]
    total = len(noticed) + len(survivors)
    if total == 0:
        sys.exit("No fault that counts.")
    print(
        f"\n{len(came)} faults drawn: {len(those('error'))} do not compile, {len(those('same'))} leave the object code as it was, "
        f"{len(those('noticed', 'survived')) - total} are argued to change nothing, {total} count."
    )
    print(f"{len(noticed)} of {total} noticed ({100 * len(noticed) / total:.1f} %). Not noticed:")
    for fault in survivors:
        print(f"  {fault}" + ("" if key(fault) in known else "  (not argued)"))
    wrong = [f for f in those("noticed") if f in equal]
    for fault in wrong:
        print(f"Argued to change nothing, and noticed: {fault}")
    too_few = len(noticed) < WANTED * total and not options.again
    if too_few:
        print(f"Fewer than {100 * WANTED:.0f} % are noticed.")
    if too_few or wrong or any(key(fault) not in known for fault in survivors):
        sys.exit(1)


def plant(faults: list[Fault], equal: set[Fault], top: pathlib.Path, options: argparse.Namespace) -> list[tuple[Fault, str]]:
    """What came of the first faults, until enough that count; those in `equal` do not."""
    build = Build(top, options.tests.resolve())
    skipped, seconds = baseline(build, may_fail=options.tests.resolve() != ROOT)
    if skipped:
        print(f"Left out, because they fail without a fault: {' '.join(skipped)}")
    idle: queue.Queue[Worker] = queue.Queue()
    for number in range(options.jobs):
        idle.put(Worker(build, top, number, skipped, seconds))
    noticed_last: dict[str, list[str]] = {}

    def work(fault: Fault) -> tuple[str, str]:
        worker = idle.get()
        try:
            state, test = worker.try_fault(fault, noticed_last.get(fault.path, [])[:FIRST])
        finally:
            idle.put(worker)
        if state == "noticed":
            others = [t for t in noticed_last.get(fault.path, []) if t != test]
            noticed_last[fault.path] = ([test] if "." in test else []) + others
        return state, test

    came: list[tuple[Fault, str]] = []
    counted = 0
    log = options.log.open("w") if options.log else None
    upcoming = iter(faults)
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        pending: list[tuple[Fault, concurrent.futures.Future]] = []
        while counted < options.count:
            while len(pending) < 2 * options.jobs and (fault := next(upcoming, None)):
                pending.append((fault, pool.submit(work, fault)))
            if not pending:
                break
            fault, future = pending.pop(0)  # in the order of the seed, whichever ends first
            state, test = future.result()
            if log:
                print(json.dumps({"state": state, "test": test, "fault": dataclasses.asdict(fault)}), file=log, flush=True)
            came.append((fault, state))
            if state in ("survived", "noticed"):
                counted += fault not in equal
                shown = "argued" if fault in equal and state == "survived" else state
                print(f"{counted:4} {shown:8} {fault}" + (f"  [{test}]" if test else ""), flush=True)
        for _, future in pending:
            future.cancel()
    return came


if __name__ == "__main__":
    main()
