#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Which tests call which function of the interface, read from the tests' sources: tests/conformance.md.

A test calls a function if its body, or what it is a fixture of, or a helper of its file or of tests/support/ that it names,
does. Without --update the page is compared; a function that no test calls is an error.
"""
import argparse
import re
import sys
from collections import defaultdict
from pathlib import Path

HERE = Path(__file__).resolve().parent
PAGE = HERE / "conformance.md"
HEAD = """# Which tests call which function

Made by `tests/list_conformance.py --update`, and compared by the test `conformance`. `Suite.*` is every test of a suite; names are as
`ctest -R` and `--gtest_filter` take them. What a function promises is in `include/kel_nn.h`.

| function | tests |
| --- | --- |
"""
TEST = re.compile(r"TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\)")
PARAMETERS = re.compile(r"INSTANTIATE_TEST_SUITE_P\(\s*\w*,\s*(\w+)")
WORD = re.compile(r"[A-Za-z_]\w+")


def pieces(text: str) -> dict[str, set[str]]:
    """A file's outermost definitions: the name, or Suite.Test, with the words of the whole definition."""
    text = re.sub(r"//[^\n]*|\"(?:[^\"\\\n]|\\.)*\"", "", text)
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.DOTALL)
    found: dict[str, set[str]] = defaultdict(set)
    # Definitions begin in the first column and end before the next that does.
    for piece in re.split(r"\n(?=[A-Za-z#])", text):
        head = re.sub(r"\s+", " ", piece.split("{")[0])
        test, parameters = TEST.match(head), PARAMETERS.match(head)
        if test:
            names = [f"{test[1]}.{test[2]}"]
        elif parameters:  # what a suite is given belongs to all its tests
            names = [parameters[1]]
        else:
            names = re.findall(r"([A-Za-z_]\w+)(?= ?\(| ?\[|$| ?:| ?=|;)", head)[:1] or WORD.findall(head)[-1:]
        for name in names:
            found[name] |= set(WORD.findall(piece))
    return found


def calls(exported: set[str]) -> dict[str, set[str]]:
    """Each exported function with the tests that call it."""
    helpers: dict[str, set[str]] = defaultdict(set)
    for path in sorted(HERE.glob("support/*")):
        if path.suffix in (".h", ".cpp"):
            for name, words in pieces(path.read_text()).items():
                helpers[name] |= words
    found: dict[str, set[str]] = defaultdict(set)
    for path in sorted([*HERE.glob("unit/test_*.cpp"), *HERE.glob("host/test_*.cpp")]):
        own = pieces(path.read_text())
        for test in (name for name in own if "." in name):
            known: set[str] = set()
            waiting = [own[test]]
            while waiting:
                for word in waiting.pop() - known:
                    known.add(word)
                    waiting += [definitions[word] for definitions in (own, helpers) if word in definitions]
            for name in known & exported:
                found[name].add(test)
    return found


def page(exported: list[str], found: dict[str, set[str]]) -> str:
    suites: dict[str, set[str]] = defaultdict(set)
    for path in [*HERE.glob("unit/test_*.cpp"), *HERE.glob("host/test_*.cpp")]:
        for suite, test in TEST.findall(path.read_text()):
            suites[suite].add(f"{suite}.{test}")
    rows = []
    for name in exported:
        shown = []
        for suite in sorted({test.split(".")[0] for test in found[name]}):
            tests = {test for test in found[name] if test.startswith(suite + ".")}
            shown += [f"{suite}.*"] if tests == suites[suite] and len(tests) > 1 else sorted(tests)
        rows.append(f"| `{name}` | {', '.join(f'`{test}`' for test in shown)} |\n")
    return HEAD + "".join(rows)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--update", action="store_true", help="write the page")
    arguments = parser.parse_args()
    exported = [line for line in (HERE / "exports.txt").read_text().splitlines() if line and not line.startswith("#")]
    found = calls(set(exported))
    for name in exported:
        if not found[name]:
            print(f"no test calls {name}", file=sys.stderr)
    wanted = page(exported, found)
    if arguments.update:
        PAGE.write_text(wanted)
    elif PAGE.read_text() != wanted:
        print("tests/conformance.md is not what the tests call: tests/list_conformance.py --update", file=sys.stderr)
        return 1
    return 0 if all(found[name] for name in exported) else 1


if __name__ == "__main__":
    sys.exit(main())
