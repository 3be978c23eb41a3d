# SPDX-License-Identifier: Apache-2.0
"""What the library prints, for `logging`."""
import logging
import re

messages = logging.getLogger("kelnn.messages")
messages.addHandler(logging.NullHandler())  # silent until the application sets logging up

_COLOUR = re.compile("\033\\[[0-9;]*m")
# "src/kel_nn_common.cpp: In function: 'kel_nn_model_xor_decode': 37", then "[Error]Decode model fail."
_PLACE = re.compile(r"^(?P<path>\S+): In function: '(?P<function>.*)': (?P<line>\d+)$")
_LEVELS = {"[Error]": logging.ERROR, "[Warning]": logging.WARNING, "[Info]": logging.INFO}


def log(printed: bytes) -> None:
    """Logs each line; an error's or warning's carries the place in the library that reported it."""
    place = ""
    for line in _COLOUR.sub("", printed.decode(errors="replace")).splitlines():
        if match := _PLACE.match(line):
            place = f" ({match['function']}, {match['path']}:{match['line']})"
            continue
        for tag, level in _LEVELS.items():
            if line.startswith(tag):
                messages.log(level, "%s%s", line[len(tag):], place)
                break
        else:
            if line:
                messages.info("%s", line)
        place = ""
