# SPDX-License-Identifier: Apache-2.0
"""Chromium without a window, told what to do over a pipe (its DevTools protocol)."""
import base64
import contextlib
import itertools
import json
import os
import select
import signal
import subprocess
import tempfile
import time
from types import TracebackType
from typing import Any, Dict, List, Optional, Type


class Browser:
    """One page of it. `problems`: what scripts and the network had to complain about; `asked`: every address that was."""

    def __init__(self, program: str):
        self._profile = tempfile.TemporaryDirectory()
        to_read, self._to = os.pipe()
        self._from, to_write = os.pipe()
        self._ids, self._data = itertools.count(1), b""
        self.problems: List[str] = []
        self.asked: List[str] = []

        def take_pipes() -> None:  # the protocol's are 3 and 4
            os.setsid()
            os.dup2(to_read, 13)
            os.dup2(to_write, 14)
            os.dup2(13, 3)
            os.dup2(14, 4)
        self._process = subprocess.Popen(
            [program, "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run", "--hide-scrollbars",
             "--autoplay-policy=no-user-gesture-required", "--remote-debugging-pipe", f"--user-data-dir={self._profile.name}", "about:blank"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, preexec_fn=take_pipes, pass_fds=(3, 4))
        os.close(to_read)
        os.close(to_write)
        self._session: Optional[str] = None
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self._session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Network", "Log"):
            self.call(domain + ".enable")

    def __enter__(self) -> "Browser":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]) -> None:
        os.close(self._to)
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self._process.pid, signal.SIGKILL)
        self._process.wait()
        os.close(self._from)
        with contextlib.suppress(OSError):  # what it still writes
            self._profile.cleanup()

    def call(self, method: str, **parameters: Any) -> Dict[str, Any]:
        number = next(self._ids)
        message = {"id": number, "method": method, "params": parameters}
        if self._session:
            message["sessionId"] = self._session
        os.write(self._to, json.dumps(message).encode() + b"\0")
        deadline = time.monotonic() + 60
        while True:
            answer = self._next(deadline)
            if answer is None:
                raise TimeoutError(method)
            if answer.get("id") == number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                result: Dict[str, Any] = answer["result"]
                return result

    def _next(self, deadline: float) -> Optional[Dict[str, Any]]:
        while b"\0" not in self._data:
            if not select.select([self._from], [], [], max(0.0, deadline - time.monotonic()))[0]:
                return None
            read = os.read(self._from, 1 << 20)
            if not read:
                raise EOFError("the browser has ended")
            self._data += read
        line, self._data = self._data.split(b"\0", 1)
        message: Dict[str, Any] = json.loads(line)
        parameters = message.get("params", {})
        if message.get("method") == "Log.entryAdded":
            self.problems.append(parameters["entry"]["text"] + " " + parameters["entry"].get("url", ""))
        elif message.get("method") == "Runtime.exceptionThrown":
            self.problems.append(json.dumps(parameters["exceptionDetails"]))
        elif message.get("method") == "Network.requestWillBeSent":
            self.asked.append(parameters["request"]["url"])
        return message

    def look(self, width: int, height: int, scheme: str = "light") -> None:
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=width < 600)
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def go(self, address: str) -> None:
        self.call("Page.navigate", url=address)

    def evaluate(self, script: str) -> Any:
        result = self.call("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(f"{script}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def wait(self, condition: str, seconds: float = 20) -> None:
        """Until the script is true; as long as it fails, too, for there may be no page yet."""
        deadline = time.monotonic() + seconds
        while not self.evaluate(f"(() => {{ try {{ return Boolean({condition}); }} catch {{ return false; }} }})()"):
            if time.monotonic() > deadline:
                raise AssertionError(f"not true: {condition}; problems: {self.problems}; page: {self.evaluate('document.body.innerText')}")
            time.sleep(0.05)

    def screenshot(self) -> bytes:
        return base64.b64decode(self.call("Page.captureScreenshot", format="png")["data"])
