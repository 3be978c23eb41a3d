# SPDX-License-Identifier: Apache-2.0
"""Splits labels into OUT/training/ and OUT/held_back/ by recording, person or photograph, so that none is in both.

The files stay where they are; the new labels.csv name them from there. `--group` is a regular expression for the part of
a file's name that tells what belongs together (default: all of the name without its ending).
"""
import argparse
import collections
import csv
import os
import re
import zlib
from pathlib import Path
from typing import Optional, Sequence


def main(arguments: Optional[Sequence[str]] = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("directory", metavar="DIR", type=Path)
    parser.add_argument("out", metavar="OUT", type=Path)
    parser.add_argument("--group", metavar="REGEX", default=r"[^.]+")
    parser.add_argument("--one-in", type=int, default=5, help="of so many groups of a kind one is held back (default: 5)")
    options = parser.parse_args(arguments)
    with open(options.directory / "labels.csv", newline="", encoding="utf-8") as file:
        head, *rows = filter(None, csv.reader(file))
    groups: dict = collections.defaultdict(lambda: collections.defaultdict(list))  # of each kind, where labels tell kinds
    for row in rows:
        group = re.match(options.group, row[0])
        if not group:
            parser.error(f"{row[0]} does not begin with {options.group}")
        groups[row[-1] if head[-1] in ("kind", "class") else ""][group[0]].append(row)
    parts: dict = {"training": [], "held_back": []}
    for of_kind in groups.values():
        for n, name in enumerate(sorted(of_kind, key=lambda name: zlib.crc32(name.encode()))):
            parts["training" if n % options.one_in else "held_back"] += of_kind[name]
    for name, chosen in parts.items():
        directory = options.out / name
        directory.mkdir(parents=True, exist_ok=True)
        with open(directory / "labels.csv", "w", newline="", encoding="utf-8") as file:
            csv.writer(file, lineterminator="\n").writerows(
                [head, *([os.path.relpath(options.directory / row[0], directory), *row[1:]] for row in chosen)])
        print(f"{directory}: {len(chosen)} rows")


if __name__ == "__main__":
    main()
