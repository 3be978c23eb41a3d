# SPDX-License-Identifier: Apache-2.0
"""scripts/count_tests.py on what ctest and GoogleTest leave behind: whatever went wrong is counted as failed."""
import json
import subprocess
import sys
from pathlib import Path

import pytest

SCRIPT = Path(__file__).resolve().parent.parent / "scripts" / "count_tests.py"
RUN, FAIL, NOT_RUN = "run", "fail", "notrun"


def suite(**cases: str) -> dict:
    """GoogleTest's results of one suite: what each case did."""
    tests = [{"name": name, "time": "0.5s", "status": "NOTRUN" if outcome == "left out" else "RUN",
              "result": "SKIPPED" if outcome == "skipped" else "COMPLETED",
              **({"failures": [{"failure": "why"}]} if outcome == "failed" else {})} for name, outcome in cases.items()]
    return {"testsuites": [{"name": "S", "testsuite": tests}]} if tests else {"testsuites": []}


@pytest.mark.parametrize("entries, suites, passed, failed", [
    ({"p.S": RUN, "script": RUN}, {"p.S": suite(a="passed", b="passed", c="skipped", d="left out")}, 3, 0),
    ({"p.S": FAIL}, {"p.S": suite(a="passed", b="failed")}, 1, 1),
    ({"p.S": FAIL, "script": FAIL}, {}, 0, 2),  # crashed
    ({"p.S": RUN}, {}, 0, 1),  # nothing was written
    ({"p.S": RUN}, {"p.S": suite()}, 0, 1),  # no case ran
    ({"p.S": FAIL}, {"p.S": suite(a="passed")}, 1, 1),  # a leak, found at the end
    ({"p.S/0": FAIL, "p.S/1": RUN}, {"p.S_1": suite(a="passed")}, 1, 1),
    ({"p_was_not_built": NOT_RUN, "script": RUN}, {}, 1, 1),
    ({}, {}, 0, 1),
    (None, {}, 0, 1),  # ctest ended before it wrote
])
def test_counts(tmp_path: Path, entries, suites, passed: int, failed: int):
    (tmp_path / "results").mkdir()
    if entries is not None:
        cases = "".join(f'<testcase name="{name}" time="1" status="{status}"/>' for name, status in entries.items())
        (tmp_path / "results.xml").write_text(f"<testsuite>{cases}</testsuite>")
    for name, results in suites.items():
        (tmp_path / "results" / f"{name}.json").write_text(json.dumps(results))
    counted = subprocess.run([sys.executable, SCRIPT, tmp_path], capture_output=True, text=True)
    assert counted.stdout.splitlines()[-1] == f"{passed} passed, {failed} failed", counted.stderr
    assert counted.returncode == (1 if failed else 0)
