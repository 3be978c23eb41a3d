# SPDX-License-Identifier: Apache-2.0
"""Counts the test cases of builds that ctest has run: count_tests.py BUILD...

Reads what ctest wrote (results.xml) and, for an entry that is a suite of GoogleTest, what its cases did
(results/PROGRAM.SUITE.json); any other entry is one case. Prints the ten slowest cases, those that failed and
`N passed, N failed`. Fails if a case failed, a suite ended before its results were written or ran no case, or a build
ran nothing.
"""
import argparse
import json
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path
from typing import NamedTuple


class Case(NamedTuple):
    name: str
    seconds: float
    outcome: str  # "passed", "failed" or "skipped"


def suite_cases(entry: str, file: Path) -> list[Case]:
    results = json.loads(file.read_text())
    cases = []
    for suite in results["testsuites"]:
        for test in suite["testsuite"]:
            if test["status"] == "NOTRUN":
                continue
            skipped = test.get("result") == "SKIPPED"
            outcome = "failed" if "failures" in test else "skipped" if skipped else "passed"
            cases.append(Case(f"{entry}.{test['name']}", float(test["time"].rstrip("s")), outcome))
    return cases


def entry_cases(build: Path, entry: ElementTree.Element) -> list[Case]:
    name, seconds = entry.get("name"), float(entry.get("time"))
    skipped = entry.find("skipped")
    if entry.get("status") == "run":
        outcome = "passed"
    elif skipped is not None and "SKIP_" in skipped.get("message", ""):
        outcome = "skipped"
    else:
        outcome = "failed"
    if "." not in name:
        return [Case(name, seconds, outcome)]

    file = build / "results" / (name.replace("/", "_") + ".json")
    cases = suite_cases(name, file) if file.is_file() else []
    if not cases:
        return [Case(name + " (no case ran to its end)", seconds, "failed")]
    if outcome == "failed" and all(case.outcome != "failed" for case in cases):
        cases.append(Case(name + " (after its cases)", 0, "failed"))
    return cases


def build_cases(build: Path) -> list[Case]:
    file = build / "results.xml"
    entries = ElementTree.parse(file).getroot().findall("testcase") if file.is_file() else []
    if not entries:
        return [Case("no test ran", 0, "failed")]
    return [case for entry in entries for case in entry_cases(build, entry)]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("builds", nargs="+", type=Path, metavar="BUILD", help="a build's directory")
    arguments = parser.parse_args()

    cases = [case._replace(name=f"{build.name}: {case.name}") for build in arguments.builds for case in build_cases(build)]
    print("\nThe slowest, in seconds:")
    for case in sorted(cases, key=lambda case: -case.seconds)[:10]:
        print(f"{case.seconds:7.1f}  {case.name}")
    names = {outcome: [case.name for case in cases if case.outcome == outcome]
             for outcome in ("passed", "failed", "skipped")}
    for outcome in ("skipped", "failed"):
        if names[outcome]:
            print(f"\n{outcome.capitalize()}:", *names[outcome], sep="\n  ")
    print(f"\n{len(names['passed'])} passed, {len(names['failed'])} failed")
    return 1 if names["failed"] or not names["passed"] else 0


if __name__ == "__main__":
    sys.exit(main())
