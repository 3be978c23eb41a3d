#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Measures what the library takes on the camera and holds it against the budget.

Works on the MIPS32r2 build of the test command (scripts/test.sh mips, or by hand:
cmake --preset mips && cmake --build --preset mips && ctest --preset mips -R board_build).
Without an option it compares the figures with tests/resource_budget.json and docs/resources.md
with the budget, and fails when a figure has grown by more than 2 %. After a change that is meant:

    scripts/resources.py --update

writes the budget and the page; commit both with the change. The goals in this file hold for
budgets too.
"""

import argparse
import json
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUDGET = ROOT / "tests" / "resource_budget.json"
PAGE = ROOT / "docs" / "resources.md"
TOOLS = "mipsel-linux-gnu-"
EMULATOR = "qemu-mipsel"

# Figures by row and column, in bytes.
Figures = dict[str, dict[str, int]]

GROWTH = 0.02
SLACK = 16  # bytes, what an instruction or two more may add to a small figure

# What must never be exceeded: row, columns whose sum counts, bytes.
Goal = tuple[str, tuple[str, ...], int]
LIBRARY_GOAL = ("libkelnn.so", ("code", "constants", "linking"), 64 * 1024)
MOTION_GOAL = ("motion filter", ("code", "constants", "statics"), 8 * 1024)
GOALS = [
    LIBRARY_GOAL,
    MOTION_GOAL,
    ("resizing, 1 channel", ("call",), 13 * 1024),
    ("resizing, 2 channels", ("call",), 13 * 1024),
    ("resizing, 3 channels", ("call",), 13 * 1024),
    ("resizing, 4 channels", ("call",), 13 * 1024),
]

LIBRARY_COLUMNS = ("code", "constants", "linking", "statics")
TASK_COLUMNS = ("code", "constants", "statics", "init", "call", "deinit", "peak", "held")

# What a program with one task calls.
HANDLE = ["kel_nn_handle_create", "kel_nn_handle_destroy"]
NETWORK = [*HANDLE, "kel_nn_set_model_root_dir"]
ROOTS = {
    "face detection": [*NETWORK, "kel_nn_facedet_init", "kel_nn_facedet_process", "kel_nn_facedet_deinit"],
    "face features": [*NETWORK, "kel_nn_facercg_init", "kel_nn_face_feature_extract",
                      "kel_nn_face_feature_similarity_calcul", "kel_nn_facercg_deinit"],
    "face landmarks": [*NETWORK, "kel_nn_facelm_init", "kel_nn_facelm_process", "kel_nn_facelm_deinit"],
    "face classes": [*NETWORK, "kel_nn_face_classify_init", "kel_nn_face_classify_process",
                     "kel_nn_face_classify_deinit"],
    "person detection": [*NETWORK, "kel_nn_persondet_init", "kel_nn_persondet_process", "kel_nn_persondet_deinit"],
    "person classes": [*NETWORK, "kel_nn_person_classify_init", "kel_nn_person_classify_process",
                       "kel_nn_person_classify_deinit"],
    "four-class detection": [*NETWORK, "kel_nn_4clsdet_init", "kel_nn_4clsdet_process", "kel_nn_4clsdet_deinit"],
    "cry detection": [*NETWORK, "kel_nn_crydet_init", "kel_nn_crydet_process", "kel_nn_crydet_deinit"],
    "motion filter": [*HANDLE, "kel_nn_pir_filter_init", "kel_nn_pir_filter_process", "kel_nn_pir_filter_deinit"],
    "resizing, 1 channel": ["resize_bilinear_c1"],
    "resizing, 2 channels": ["resize_bilinear_c2"],
    "resizing, 3 channels": ["resize_bilinear_c3"],
    "resizing, 4 channels": ["resize_bilinear_c4"],
    "suppression, 100 boxes": ["kel_nn_nms"],
    "suppression, 2048 boxes": ["kel_nn_nms"],
}

# The beginnings of sections' names. All others of a shared library that are loaded are for linking.
KINDS = {
    "code": (".text", ".init", ".fini", ".MIPS.stubs", ".plt"),
    "constants": (".rodata", ".data.rel.ro", ".eh_frame", ".gcc_except_table"),
    "statics": (".data", ".bss", ".sdata", ".sbss", ".tdata", ".tbss", ".got", ".init_array", ".fini_array"),
}


def output_of(*command: str | Path) -> str:
    """What a command prints on standard output."""
    return subprocess.run([str(c) for c in command], check=True, capture_output=True, text=True).stdout


def sections(binary: Path) -> dict[str, int]:
    """Sizes of the sections that are loaded."""
    sizes: dict[str, int] = {}
    for line in output_of(f"{TOOLS}objdump", "-h", "-w", binary).splitlines():
        fields = line.split()
        if fields and fields[0].isdigit() and "ALLOC" in line:
            sizes[fields[1]] = sizes.get(fields[1], 0) + int(fields[2], 16)
    return sizes


def sizes_by_kind(binary: Path) -> dict[str, int]:
    """Sizes of the sections by kind, "linking" for what is of none."""
    sizes = dict.fromkeys(LIBRARY_COLUMNS, 0)
    for name, size in sections(binary).items():
        # ".data.rel.ro" begins like ".data" and stands before it.
        kind = next((k for k, starts in KINDS.items() if name.startswith(starts)), "linking")
        sizes[kind] += size
    return sizes


def linked_alone(archive: Path, roots: list[str], work: Path) -> dict[str, int]:
    """What of the archive a program links that calls these functions."""
    program = work / "resources_linked.o"
    wanted = [f"-Wl,--undefined={root}" for root in roots]
    output_of(f"{TOOLS}g++", "-r", "-nostdlib", "-Wl,--gc-sections", *wanted, archive, "-o", program)
    return sizes_by_kind(program)


def measure(build: Path) -> Figures:
    """Everything, from the build folder of the preset "mips"."""
    archive = build / "libkelnn.a"
    figures: Figures = {"libkelnn.so": sizes_by_kind(build / "tests" / "board" / "build" / "libkelnn.so")}
    probe = subprocess.run([EMULATOR, str(build / "tests" / "resource_probe")], capture_output=True, text=True)
    if probe.returncode != 0:
        sys.exit(f"resource_probe: {probe.stderr}")
    for line in probe.stderr.splitlines():
        name, *numbers = line.split("|")
        linked = linked_alone(archive, ROOTS[name], build)
        measured = {c: linked[c] for c in ("code", "constants", "statics")} | dict(
            zip(("init", "call", "deinit", "peak", "held"), map(int, numbers), strict=True))
        figures[name] = {column: measured[column] for column in TASK_COLUMNS}
    return figures


def table(figures: Figures, heads: list[str], columns: tuple[str, ...]) -> str:
    lines = [f"| {' | '.join(heads)} |", "| --- |" + " ---: |" * len(columns)]
    for name, row in figures.items():
        lines.append(f"| {name} | " + " | ".join(f"{row[c]:,}" for c in columns) + " |")
    return "\n".join(lines)


def sum_of(figures: Figures, goal: Goal) -> int:
    """What a goal limits."""
    row, columns, _ = goal
    return sum(figures[row][column] for column in columns)


def page(figures: Figures) -> str:
    """docs/resources.md."""
    library = figures["libkelnn.so"]
    tasks = {name: row for name, row in figures.items() if row.get("init")}
    functions = {name: row for name, row in figures.items() if name != "libkelnn.so" and name not in tasks}
    return f"""# What the library takes on the camera

<!-- Written by scripts/resources.py --update. -->

Bytes, of the MIPS32r2 build with Debian's g++ 12. The test `resources` measures them again and fails when one has grown by more
than 2 % over `tests/resource_budget.json`; `scripts/resources.py --update` writes that file and this page.

The stripped `libkelnn.so` has {sum_of(figures, LIBRARY_GOAL):,} bytes of code, constants and what the loader needs ({LIBRARY_GOAL[2]:,} at most). A program that only
filters motion links {sum_of(figures, MOTION_GOAL):,} bytes of `libkelnn.a` ({MOTION_GOAL[2]:,} at most).

{table({"libkelnn.so": library}, ["", "code", "constants", "for the loader", "statics"], LIBRARY_COLUMNS)}

## Each task

Code, constants and statics are what a program with this task alone links of `libkelnn.a` (`-Wl,--gc-sections`). The stacks are the
deepest of initialisation, call and release, the C library's own functions included: a printed line takes most of the 1.7 KB of an
initialisation. The heap is the peak, and what is held until the release: the outputs of a network, the scratch image of its runs
(as large as its input: 319,488 bytes for a detector), the window of sound, the history of a picture. A run allocates nothing of
its own; cry detection takes scratch while it hears a window. The model, which is kept too, and what the vendor's runtime takes are
not in it. Detectors are measured with a camera of 1920 x 1080 and all candidates that there is place for, the motion filter
at 640 x 360.

{table(tasks, ["", "code", "constants", "statics", "stack: init", "call", "deinit", "heap: peak", "held"], TASK_COLUMNS)}

## Functions

They keep nothing, and up to 2048 boxes they take nothing from the heap. Resizing takes 13 KiB of stack at most.

{table(functions, ["", "code", "constants", "stack"], ("code", "constants", "call"))}
"""


def problems(figures: Figures, budget: Figures) -> list[str]:
    """What has grown too much, and what is not on either side."""
    found = []
    for row in sorted(figures.keys() | budget.keys()):
        measured, allowed = figures.get(row, {}), budget.get(row, {})
        for column in [c for c in TASK_COLUMNS + LIBRARY_COLUMNS if c in measured or c in allowed]:
            now, then = measured.get(column, 0), allowed.get(column, 0)
            if now > max(then * (1 + GROWTH), then + SLACK) or (column in measured) != (column in allowed):
                line = f"{row}, {column}: {now:,} bytes, and {then:,} in the budget"
                if line not in found:
                    found.append(line)
    return found


def missed_goals(figures: Figures) -> list[str]:
    """Goals that the figures do not keep."""
    sums = [(goal, sum_of(figures, goal)) for goal in GOALS]
    return [f"{goal[0]}: {total:,} bytes, and the goal is {goal[2]:,}" for goal, total in sums if total > goal[2]]


def main() -> None:
    """The command line."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "mips", help="its build folder (build/mips)")
    parser.add_argument("--update", action="store_true", help="write the budget and the page")
    arguments = parser.parse_args()

    figures = measure(arguments.build)
    if arguments.update:
        BUDGET.write_text(json.dumps(figures, indent=2) + "\n")
        PAGE.write_text(page(figures))
        failures = missed_goals(figures)
    else:
        budget = json.loads(BUDGET.read_text())
        failures = missed_goals(figures) + problems(figures, budget)
        if PAGE.read_text() != page(budget):
            failures.append("docs/resources.md is not the page of tests/resource_budget.json")
        if failures:
            failures.append("If the change is meant: scripts/resources.py --update, and commit what it writes.")
    sys.exit("\n".join(failures) or 0)


if __name__ == "__main__":
    main()
