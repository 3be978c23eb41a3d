# SPDX-License-Identifier: Apache-2.0
"""What kelnn raises."""


class Error(RuntimeError):
    """What the library's failures have in common; its text carries the library's own."""

    task: str
    """The task as `kelnn models` calls its model, "person-detection-portrait"; else "picture", "library", "motion",
    "sound" or "graph"."""
    line: str
    """What the library said last, without colour and place: "Decode model fail."; or empty."""

    def __init__(self, text: str, task: str = "", line: str = "") -> None:
        super().__init__(text)
        self.task = task
        self.line = line


class OutOfMemoryError(Error, MemoryError):
    """Memory is short."""


class ModelError(Error):
    """A model does not load."""


class RunError(Error):
    """A network failed, or its outputs are not the task's."""


class FrameError(Error, ValueError):
    """Pixels or samples that cannot be, or that this task does not take."""


class InUseError(Error):
    """There is an object of this task already."""
