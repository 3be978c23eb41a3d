# SPDX-License-Identifier: Apache-2.0
"""What a source of pictures gives, and one source of several.

Everything random comes from the np.random.Generator `rng` that the caller gives. Cut-outs are BGRA, of bytes.
"""
from typing import Any, Protocol, Sequence, Tuple

import numpy as np


class Source(Protocol):
    """A source gives some of these."""

    def background(self, rng: Any, width: int, height: int) -> Any: ...  # a picture without persons and things
    def person(self, rng: Any) -> Any: ...  # a cut-out, tight
    def thing(self, rng: Any, kinds: Sequence[str]) -> Tuple[str, Any]: ...  # which of the kinds, a cut-out of it
    def head(self, rng: Any) -> Tuple[Any, Any]: ...  # a cut-out, and the face's box in it: x, y, width, height
    def figure(self, rng: Any) -> Tuple[Any, Any]: ...  # the same, with what is below the head
    def figure_with_points(self, rng: Any) -> Tuple[Any, Any, Any, Any]: ...  # and five points, yaw, pitch, roll in degrees


class Mixed:
    """Mixed([(0.5, photos), (0.3, bodies), (0.2, drawn)]): now one, now another, of those that have what is asked for."""

    def __init__(self, shares: Sequence[Tuple[float, Any]]):
        self._shares = list(shares)

    def __getattr__(self, name: str) -> Any:
        able = [(share, source) for share, source in self._shares if hasattr(source, name)] if name[0] != "_" else []
        if not able:
            raise AttributeError(f"no source has {name}")
        ends = np.cumsum([share for share, _ in able])

        def one(rng: Any, *arguments: Any) -> Any:
            chosen = np.searchsorted(ends, rng.uniform(0, ends[-1]), side="right")
            return getattr(able[chosen][1], name)(rng, *arguments)
        return one


class Stock:
    """What takes long to make and may be used several times: made anew `size` times, and then one time in 1 / `fresh`."""

    def __init__(self, size: int, fresh: float):
        self.size, self.fresh, self.kept = size, fresh, []  # type: int, float, list

    def take(self, rng: Any, make: Any, *arguments: Any) -> Any:
        if len(self.kept) < self.size:
            self.kept.append(make(rng, *arguments))
        elif rng.random() < self.fresh:
            made = make(rng, *arguments)
            self.kept[rng.integers(len(self.kept))] = made
        return self.kept[rng.integers(len(self.kept))]
