# SPDX-License-Identifier: Apache-2.0
"""kelnn-labels: labels for kelnn eval and for training, from other formats, and divided by recording or person."""
import argparse
import collections
import os
import sys
from pathlib import Path
from typing import Dict, List, Optional, Sequence, Tuple

from models.labels import convert, split, table


def converted(options: argparse.Namespace) -> List[str]:
    """Writes labels.csv, unless something is wrong: what that is, with file and line."""
    numbers = {name: n for n, names in enumerate(options.classes.split(",")) for name in names.split("+")}
    numbers[convert.IGNORE] = table.IGNORE
    rows: List[list] = []
    problems: List[str] = []
    sizes: Dict[Path, Tuple[int, int]] = {}
    left_out: collections.Counter = collections.Counter()
    for where, picture, name, box in convert.FORMATS[options.format](options.input, options.pictures):
        try:
            if picture not in sizes:
                sizes[picture] = convert.size_of(picture)
                rows.append([picture])  # until there is a box
            problem = convert.problem_with(box, sizes[picture]) if box else ""
        except table.Invalid as error:
            problem = str(error)
        if problem:
            problems.append(f"{where}: {problem}")
        elif options.format == "folders":
            rows[-1].append(name if options.person else numbers.get(str(name), name))
        elif name in numbers and box:
            rows.append([picture, numbers[name] if numbers[name] >= 0 else "ignore", *(f"{value:g}" for value in box)])
        elif name:
            left_out[name] += 1
    has_boxes = {row[0] for row in rows if len(row) > 1}
    rows = [row for row in rows if len(row) > 1 or row[0] not in has_boxes]
    layout = table.BOXES if options.format != "folders" else table.PERSONS if options.person else table.CLASSES
    unknown = sorted({str(row[1]) for row in rows if layout is table.CLASSES and isinstance(row[1], str)})
    problems += [f"{options.input}: no class is called {name}; see --classes" for name in unknown]
    if not problems:
        options.output.mkdir(parents=True, exist_ok=True)
        table.write(options.output, layout, [[os.path.relpath(row[0], options.output), *row[1:]] for row in rows])
        print(f"{options.output}: {len(sizes)} pictures, {len(has_boxes)} of them with labels")
        for name, count in left_out.most_common():
            print(f"left out: {count} of {name}")
    return problems


def main(arguments: Optional[Sequence[str]] = None) -> None:
    if (arguments or sys.argv[1:])[:1] == ["split"]:
        return split.main((arguments or sys.argv[1:])[1:])
    parser = argparse.ArgumentParser(prog="kelnn-labels", description=__doc__)
    commands = parser.add_subparsers(dest="command", required=True)
    one = commands.add_parser("convert", help="checks other labels against their pictures and writes labels.csv")
    commands.add_parser("split", help="divides labels into those to train with and those that are held back")
    one.add_argument("format", metavar="FORMAT", choices=convert.FORMATS, help="; ".join(
        f"{name}: {reader.__doc__}" for name, reader in convert.FORMATS.items()))
    one.add_argument("input", metavar="IN", type=Path, help="the file or directory of labels")
    one.add_argument("output", metavar="OUT", type=Path, help="where labels.csv goes; it names the pictures where they are")
    one.add_argument("--pictures", type=Path, metavar="DIR", help="where the pictures are, if not where the format says")
    one.add_argument("--classes", default="person", help="names of the task's classes 0, 1, ...: cat,dog,car+truck,parcel; "
                     "face, for a face detector. Others are left out (default: person)")
    one.add_argument("--person", action="store_true", help="folders are persons, not classes")
    options = parser.parse_args(arguments)
    try:
        problems = converted(options)
    except (table.Invalid, OSError) as error:
        problems = [str(error)]
    except KeyError as error:
        problems = [f"{options.input}: no {error} there"]
    except ValueError as error:  # of JSON, with its line
        problems = [f"{options.input}: {error}"]
    if problems:
        sys.exit("\n".join([*problems[:20], *([f"and {len(problems) - 20} more"] if len(problems) > 20 else [])]))


if __name__ == "__main__":
    main()
