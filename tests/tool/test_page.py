# SPDX-License-Identifier: Apache-2.0
"""The live page of kelnn watch, over HTTP and in Chromium where that is: KEL_NN_TEST_TOOL and KEL_NN_TEST_MODELS say which
kelnn, and which models, of the test networks. KEL_NN_TEST_SHOTS: a directory to write what the browser shows to."""
import contextlib
import http.client
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time
from pathlib import Path
from types import TracebackType
from typing import Any, Dict, Iterator, List, Optional, Tuple, Type
from urllib.parse import quote

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "support"))
from browser import Browser  # noqa: E402

KELNN = os.environ["KEL_NN_TEST_TOOL"]
MODELS = os.environ["KEL_NN_TEST_MODELS"]
SHOTS = os.environ.get("KEL_NN_TEST_SHOTS")
EXAMPLES = Path(__file__).resolve().parents[2] / "examples"
TOKEN = "A-token_of-20-letters"
WIDTH, HEIGHT = 640, 360
Place = Tuple[str, int]


def frame(x: int, size: Tuple[int, int] = (55, 105)) -> bytes:
    """Grey, with the patch of red that the networks take for a person; x below 0: without."""
    row = b"\x3c\x3c\x3c" * WIDTH
    marked = row if x < 0 else b"\x3c\x3c\x3c" * x + b"\xff\0\0" * size[0] + b"\x3c\x3c\x3c" * (WIDTH - x - size[0])
    return row * 103 + marked * size[1] + row * (HEIGHT - 103 - size[1])


class Watch:
    """kelnn watch, which is given a frame after the other, as `x` says, as fast as it takes them but 50 a second at most."""

    def __init__(self, *options: str, page: str = "127.0.0.1:0", x: int = 293):
        self.x, self.frames, self._is_over = x, 0, False
        self.process = subprocess.Popen(
            [KELNN, "watch", "--always", "--raw", f"rgb:{WIDTH}x{HEIGHT}@10", "-", "--root", MODELS, "--quiet", "--page", page, *options],
            stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=False)
        assert self.process.stderr
        self.said = ""
        while "the page is at" not in self.said:
            line = self.process.stderr.readline().decode()
            assert line, f"it ended: {self.said}"
            self.said += line
        match = re.search(r"the page is at http://(.*):(\d+)/", self.said)
        assert match
        self.place: Place = (match[1].strip("[]"), int(match[2]))
        self.address = f"http://{match[1]}:{match[2]}/"
        self._feeder = threading.Thread(target=self._feed)
        self._feeder.start()
        while self.frames < 2:  # the first one is being looked at: from then on Ctrl-C lets it finish
            assert self.process.poll() is None, "it ended"
            time.sleep(0.01)

    def _feed(self) -> None:
        assert self.process.stdin
        with contextlib.suppress(BrokenPipeError):
            while not self._is_over:
                self.process.stdin.write(frame(self.x))
                self.frames += 1
                time.sleep(0.02)

    def end(self, sent: int = signal.SIGINT) -> int:
        """The exit code. It has to be gone before any of the server's own patience is at its end."""
        self.process.send_signal(sent)
        try:
            code = self.process.wait(4)
        finally:
            self._is_over = True
            self.process.kill()
            self._feeder.join()
            assert self.process.stderr and self.process.stdin
            self.said += self.process.stderr.read().decode()
            self.process.stderr.close()
            with contextlib.suppress(BrokenPipeError):
                self.process.stdin.close()
        assert "Sanitizer" not in self.said and "runtime error" not in self.said, self.said
        return code

    def __enter__(self) -> "Watch":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]) -> None:
        code = self.end()
        assert kind is not None or code == 130, self.said

    def get(self, path: str, method: str = "GET", **headers: str) -> Tuple[int, Dict[str, str], bytes]:
        """Status, headers with small letters, content. Underscores in names of headers are dashes."""
        connection = http.client.HTTPConnection(*self.place, timeout=20)
        with contextlib.closing(connection):
            connection.request(method, path, headers={name.replace("_", "-"): value for name, value in headers.items()})
            answer = connection.getresponse()
            return answer.status, {name.lower(): value for name, value in answer.getheaders()}, answer.read()

    def state(self, after: int = 0, told: int = 0) -> Dict[str, Any]:
        status, _, content = self.get(f"/state?after={after}&told={told}")
        assert status == 200
        answer: Dict[str, Any] = json.loads(content)
        return answer

    def clip(self) -> str:
        """The file of the newest event whose clip is complete, when there is one."""
        deadline = time.monotonic() + 40
        while not (files := [event["event"]["clip"] for event in self.state()["events"] if event["event"]["event"] == "clip"]):
            assert time.monotonic() < deadline, "no clip is complete"
            time.sleep(0.1)
        return str(files[-1])

    def connect(self) -> socket.socket:
        return socket.create_connection(self.place, timeout=20)

    def goes_on(self) -> None:
        """Frames are taken, and shown."""
        before, number = self.frames, self.state()["number"]
        deadline = time.monotonic() + 20
        while self.frames < before + 20 or self.state(number)["number"] <= number:
            assert time.monotonic() < deadline, "it does not go on"


def short(parameter: Any) -> str:
    return str(parameter)[:30]


@pytest.fixture(scope="module")
def clips(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A directory for clips, and what must not be had from it."""
    place = tmp_path_factory.mktemp("page") / "clips"
    place.mkdir()
    (place.parent / "outside.mp4").write_bytes(b"secret")
    (place / "nobodys.mp4").write_bytes(b"that no event names")
    return place


@pytest.fixture(scope="module")
def watch(clips: Path) -> Iterator[Watch]:
    with Watch("--clips", str(clips)) as running:
        yield running


def test_shows_the_newest_frame_and_what_is_said_of_it(watch: Watch) -> None:
    deadline = time.monotonic() + 20
    while not (first := watch.state())["events"]:
        assert time.monotonic() < deadline, first
    assert first["state"]["boxes"][0]["name"] == "person" and first["state"]["input"] == "-", first
    assert "feature" not in first["state"]["boxes"][0]
    last = max(event["number"] for event in first["events"])
    later = first
    while later["number"] == first["number"]:  # it answers for new events too
        later = watch.state(later["number"], last)
        assert all(event["number"] > last for event in later["events"])
        last = max([last] + [event["number"] for event in later["events"]])
    assert later["number"] > first["number"] and later["state"]["frame"] > first["state"]["frame"]
    assert later["run"] == first["run"]
    assert {event["event"]["event"] for event in first["events"]} >= {"entered"}
    status, headers, picture = watch.get("/picture.jpg")
    assert (status, headers["content-type"], picture[:3]) == (200, "image/jpeg", b"\xff\xd8\xff")


def test_takes_nothing_from_elsewhere_and_gives_nothing_away(watch: Watch) -> None:
    for path, kind in {"/": "text/html", "/page.js": "text/javascript", "/page.css": "text/css"}.items():
        status, headers, content = watch.get(path)
        assert status == 200 and headers["content-type"].startswith(kind)
        assert b"//" not in re.sub(rb"(?m)(^| )// .*$", b"", content), f"{path} leads elsewhere"
        policy = dict(part.split(" ", 1) for part in headers["content-security-policy"].split("; "))
        assert policy.pop("default-src") == policy.pop("base-uri") == policy.pop("frame-ancestors") == "'none'"
        assert set(policy.values()) == {"'self'"}
        assert headers["x-content-type-options"] == "nosniff" and headers["cross-origin-resource-policy"] == "same-origin"
        assert headers["cache-control"] == "no-store" and headers["referrer-policy"] == "no-referrer"
        status, of_head, nothing = watch.get(path, "HEAD")
        assert (status, nothing) == (200, b"") and of_head["content-length"] == str(len(content))
    for method in ("POST", "PUT", "DELETE", "OPTIONS", "TRACE", "PATCH"):
        with contextlib.suppress(http.client.HTTPException, ConnectionError):  # a body is not read
            assert watch.get("/", method)[0] in (400, 405)
    assert watch.get("/etc/passwd")[0] == 404


def clip_of(watch: Watch) -> str:
    return "/clips/" + quote(watch.clip(), safe="")


@pytest.mark.parametrize("host, status", [
    ("127.0.0.1:8080", 200), ("localhost:1", 200), ("localhost", 200), ("[::1]:8080", 200), ("127.9.9.9", 200),
    ("evil.example", 403), ("evil.example:8080", 403), ("127.0.0.1.evil.example", 403), ("localhost.evil.example:8080", 403),
    ("localhost:8080@evil.example", 403), ("[::2]", 403), ("10.0.0.1:8080", 403), ("", 403), (8000 * "1", 403)], ids=short)
def test_answers_under_names_of_this_machine_alone(watch: Watch, host: str, status: int) -> None:
    for path in ("/", "/state", "/picture.jpg", clip_of(watch)):
        assert watch.get(path, Host=host)[0] == status, path


@pytest.mark.parametrize("path", ["nobodys.mp4", "../outside.mp4", "..%2foutside.mp4", "%2fetc%2fpasswd", "", ".", "x" * 300 + ".mp4"], ids=short)
def test_gives_the_files_of_events_alone(watch: Watch, clips: Path, path: str) -> None:
    own = clip_of(watch)
    for asked in ("/clips/" + path, "/clips/" + quote(str(clips), safe="") + "%2f" + path, own + "%00", own + "%0d%0aX:%20y", own + "/" + path + "x"):
        assert watch.get(asked)[0] == 404, asked


def test_follows_no_link_that_a_clip_became(tmp_path: Path) -> None:
    with Watch("--clips", str(tmp_path)) as watch:
        address, file = clip_of(watch), Path(watch.clip())
        for become in (lambda: file.symlink_to("/etc/passwd"), lambda: os.mkfifo(file), file.mkdir):
            file.unlink()
            become()
            assert watch.get(address)[0] == 404
        file.rmdir()


@pytest.mark.parametrize("asked, part", [
    ("bytes=0-99", (0, 100)), ("bytes=100-", (100, None)), ("bytes=-100", (-100, None)), ("bytes={last}-", (-1, None)),
    ("bytes=0-99999999999", (0, None)), ("bytes=-99999999999", (0, None)),
    ("bytes={length}-", "no"), ("bytes=99999999999-", "no"), ("bytes=-0", "no"),
    ("bytes=0-0,2-2", "all"), ("bytes=" + ",".join(["0-0"] * 1500), "all"),
    ("bytes=5-4", "odd"), ("parts=1-2", "odd"), ("bytes=-", "odd"), ("bytes=99999999999999999999-", "odd"), ("bytes=a-b", "odd")], ids=short)
def test_gives_parts_of_clips_so_that_players_can_seek(watch: Watch, asked: str, part: Any) -> None:
    whole, address = Path(watch.clip()).read_bytes(), clip_of(watch)
    status, headers, content = watch.get(address, Range=asked.format(last=len(whole) - 1, length=len(whole)))
    if part == "no" or (part == "odd" and status == 416):
        assert status == 416
    elif part in ("all", "odd"):
        assert (status, content) == (200, whole) and headers["accept-ranges"] == "bytes"
    else:
        first, last, _ = slice(*part).indices(len(whole))
        assert (status, content) == (206, whole[first:last])
        assert headers["content-range"] == f"bytes {first}-{last - 1}/{len(whole)}" and headers["content-type"] == "video/mp4"


HOSTILE = {
    "a line without an end": b"GET /" + b"x" * (1 << 24),
    "a header without an end": b"GET / HTTP/1.1\r\nHost: " + b"x" * (1 << 24),
    "headers without an end": b"GET / HTTP/1.1\r\n" + b"X: y\r\n" * (1 << 21),
    "a huge body": b"GET /state HTTP/1.1\r\nHost: localhost\r\nContent-Length: 99999999999\r\n\r\n" + b"x" * (1 << 24),
    "a huge post": b"POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 99999999999\r\n\r\n" + b"x" * (1 << 24),
    "endless chunks": b"POST / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n" + b"1\r\nx\r\n" * (1 << 21),
    "a request hidden in a body": b"GET / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 50\r\n\r\nGET /state HTTP/1.1\r\nHost: localhost\r\n\r\n",
    "no HTTP": b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03" + bytes(range(256)) * 16,
    "nothing but ends of lines": b"\r\n" * 4000,
    "zeros": bytes(1 << 20),
    "odd numbers": b"GET /state?after=99999999999999999999&told=-1&told=x%00 HTTP/1.1\r\nHost: localhost\r\n\r\n",
    "odd escapes": b"GET /%zz%u12%00%ff?%=%&&&=&a=%f HTTP/1.1\r\nHost: localhost\r\n\r\n",
    "odd ranges": b"GET /clips/clip.mp4 HTTP/1.1\r\nHost: localhost\r\nRange: bytes=" + b"-," * 3900 + b"\r\n\r\n",
    "parts of forms": b"GET / HTTP/1.1\r\nHost: localhost\r\nContent-Type: multipart/form-data; boundary=" + b"x" * 7000 + b"\r\n\r\n",
    "an old version": b"GET / HTTP/0.9\r\n\r\n",
    "half a request": b"GET / HT",
}


@pytest.mark.parametrize("sent", HOSTILE.values(), ids=HOSTILE)
def test_survives(watch: Watch, sent: bytes) -> None:
    with watch.connect() as viewer:
        with contextlib.suppress(OSError):  # it may have enough before it has all
            viewer.sendall(sent)
            viewer.shutdown(socket.SHUT_WR)
        answers = b""
        with contextlib.suppress(ConnectionError):
            while read := viewer.recv(1 << 16):
                answers += read
    assert answers.count(b"HTTP/1.1 200") <= 1, "a body was taken for a request"
    watch.goes_on()
    memory = re.search(r"VmRSS:\s+(\d+) kB", Path(f"/proc/{watch.process.pid}/status").read_text())
    assert memory and (int(memory[1]) < 400_000 or "asan" in KELNN or "sanitize" in KELNN)


def test_a_connection_serves_several_requests(watch: Watch) -> None:
    connection = http.client.HTTPConnection(*watch.place, timeout=20)
    with contextlib.closing(connection):
        for path in ("/", "/page.js", "/clips/clip.mp4", "/state?after=0", "/missing"):
            connection.request("GET", path)
            own = connection.sock
            assert connection.getresponse().read()
            assert own is connection.sock


def test_viewers_who_stall_hold_up_nobody(tmp_path: Path) -> None:
    """Many who ask nothing, ask half or take nothing: the frames go on, others get their turn, and Ctrl-C ends at once."""
    with contextlib.ExitStack() as all_of_them, Watch("--clips", str(tmp_path)) as watch:
        for request in [b"", b"GET /sta", f"GET {clip_of(watch)} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode() * 20] * 15:
            viewer = all_of_them.enter_context(socket.socket())
            viewer.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            viewer.connect(watch.place)
            viewer.sendall(request)
        threads = len(os.listdir(f"/proc/{watch.process.pid}/task"))
        assert threads < 32 + 16 + 2 * (os.cpu_count() or 1), "a thread for everybody"
        watch.goes_on()
        for _ in range(40):
            all_of_them.enter_context(watch.connect()).sendall(b"GET /picture.jpg HTTP/1.1\r\nHost: localhost\r\n\r\n")


def test_only_who_knows_the_token_sees_anything(tmp_path: Path) -> None:
    paths = ("/", "/page.js", "/state", "/picture.jpg", "/clips/clip.mp4", "/missing")
    with Watch("--clips", str(tmp_path), "--page-token", TOKEN, page="0.0.0.0:0") as watch:
        name = f"kelnn_page_{watch.place[1]}"
        for path in paths:
            assert watch.get(path)[0] == 401
            for wrong in ("x" * len(TOKEN), TOKEN[:-1], TOKEN + "x", TOKEN.lower(), f'"{TOKEN}"'):
                status, headers, content = watch.get(path, Cookie=f"{name}={wrong}")
                assert status == 403 and "set-cookie" not in headers and b"page.js" not in content
                assert watch.get(f"/?token={wrong}")[0] == 403
            assert watch.get(path, Cookie=f"other={TOKEN}; x{name}={TOKEN}")[0] == 401
        assert watch.get(f"/state?token={TOKEN}")[0] == 401, "not in every address, which others see"
        status, headers, _ = watch.get(f"/?token={TOKEN}")
        assert (status, headers["location"]) == (303, "/")
        assert headers["set-cookie"].startswith(f"{name}={TOKEN}; ") and "HttpOnly" in headers["set-cookie"]
        assert "SameSite=Strict" in headers["set-cookie"]
        for path in paths:  # under any name: others do not have the cookie
            expected = 404 if path in ("/missing", "/clips/clip.mp4") else 200
            assert watch.get(path, Cookie=f"a=b; {name}={TOKEN}; c=d", Host="camera.example")[0] == expected
        assert watch.get("/page.css")[0] == 200


def run_watch(*options: str) -> Tuple[int, str]:
    video = str(EXAMPLES / "videos" / "visitor.avi")
    done = subprocess.run([KELNN, "watch", video, "--root", MODELS, *options], capture_output=True, text=True, timeout=60)
    return done.returncode, done.stderr


@pytest.mark.parametrize("code, options, message", [
    (2, ["--page", "0.0.0.0:0"], "takes --page-token"),
    (2, ["--page", "[::]:0"], "takes --page-token"),
    (2, ["--page", "8080x"], "is not ADDRESS:PORT"),
    (2, ["--page", "127.0.0.1:65536"], "is not ADDRESS:PORT"),
    (2, ["--page", "camera:0"], "is not ADDRESS:PORT"),
    (2, ["--page", "0.0.0.0:0", "--page-token", "short"], "a token has"),
    (2, ["--page", "0.0.0.0:0", "--page-token", "a token; Domain=example"], "a token has"),
    (1, ["--page", "192.0.2.1:8080", "--page-token", TOKEN], "Cannot assign requested address")])
def test_refuses(code: int, options: List[str], message: str) -> None:
    assert (run_watch(*options)[0], message in run_watch(*options)[1]) == (code, True), run_watch(*options)


def test_says_that_the_port_is_taken(watch: Watch) -> None:
    code, said = run_watch("--page", f"127.0.0.1:{watch.place[1]}")
    assert code == 1 and f"port {watch.place[1]}: Address already in use" in said


def test_speaks_ipv6() -> None:
    if not Path("/proc/net/if_inet6").read_text():
        pytest.skip("no IPv6 here")
    with Watch(page="[::1]:0") as watch:
        assert watch.address.startswith("http://[::1]:") and watch.get("/")[0] == 200


CHROMIUM = shutil.which("chromium") or shutil.which("chromium-browser") or ""
needs_browser = pytest.mark.skipif(not CHROMIUM, reason="no chromium")
TEXT = "document.getElementById('{}').textContent"


def shot(browser: Browser, name: str) -> None:
    if SHOTS:
        (Path(SHOTS) / f"{name}.png").write_bytes(browser.screenshot())


@pytest.fixture
def browser() -> Iterator[Browser]:
    with Browser(CHROMIUM) as one:
        yield one


@needs_browser
def test_is_shown_in_any_size(watch: Watch, browser: Browser) -> None:
    for width, height in ((360, 780), (768, 1024), (1440, 900)):
        colours = set()
        for scheme in ("light", "dark"):
            browser.look(width, height, scheme)
            browser.go(watch.address)
            browser.wait(TEXT.format("link") + " === 'live' && document.querySelectorAll('#boxes li').length > 0")
            browser.wait("document.querySelectorAll('#events li').length > 0")
            assert browser.evaluate("document.documentElement.scrollWidth <= innerWidth"), f"{width}: wider than the window"
            assert browser.evaluate("document.getElementById('picture').naturalWidth") == WIDTH
            assert "person" in browser.evaluate("document.getElementById('picture').alt")
            low = browser.evaluate("[...document.querySelectorAll('button')].filter(b => b.offsetParent && b.offsetHeight < 40).length")
            assert low == 0, "too low for a thumb"
            colours.add(browser.evaluate("getComputedStyle(document.body).backgroundColor"))
            shot(browser, f"page_{width}_{scheme}")
        assert len(colours) == 2, "no dark one"
    # Leaving a page cuts its last question short.
    assert not [problem for problem in browser.problems if "net::ERR_" not in problem or "/state?" not in problem]
    assert all(address.startswith((watch.address, "about:")) for address in browser.asked)


@needs_browser
def test_tells_events_and_plays_their_clips(watch: Watch, browser: Browser) -> None:
    browser.look(768, 1024)
    browser.go(watch.address)
    browser.wait("document.querySelectorAll('#events li').length > 0")
    watch.x = -1
    browser.wait("document.getElementById('events').textContent.includes('left after')")
    watch.x = 293
    assert browser.evaluate("document.getElementById('events').ariaLive") == "polite"
    watch.clip()
    browser.wait("!!document.querySelector('#events button:not([hidden])')")
    browser.evaluate("document.querySelector('#events button:not([hidden])').click()")
    browser.wait("document.getElementById('video').readyState >= 3")
    browser.evaluate("document.getElementById('video').pause(); document.getElementById('video').currentTime = 1")
    browser.wait("!document.getElementById('video').seeking && document.getElementById('video').currentTime === 1")
    shot(browser, "page_clip")
    assert not browser.problems
    browser.evaluate("play('missing.mp4')")
    browser.wait("document.getElementById('trouble').textContent !== ''")


@needs_browser
def test_finds_the_page_again(browser: Browser) -> None:
    browser.look(768, 1024)
    with Watch() as first:
        browser.go(first.address)
        browser.wait(TEXT.format("link") + " === 'live'")
        browser.wait("document.querySelectorAll('#events li').length > 0")
    browser.wait(TEXT.format("link") + ".includes('asking again')")
    with Watch(page=f"127.0.0.1:{first.place[1]}", x=-1):
        browser.wait(TEXT.format("link") + " === 'live' && document.querySelectorAll('#events li').length === 0")


@needs_browser
def test_asks_for_the_token(browser: Browser) -> None:
    browser.look(360, 780, "dark")
    with Watch("--page-token", TOKEN) as watch:
        browser.go(watch.address)
        browser.wait("document.querySelector('input[name=token]')")
        shot(browser, "page_token")
        browser.evaluate(f"document.querySelector('input').value = '{TOKEN}'; document.querySelector('button').click()")
        browser.wait("document.getElementById('link') && document.getElementById('link').textContent === 'live'")
        assert browser.evaluate("location.href") == watch.address
        assert browser.evaluate("document.cookie") == "", "a script could read it"


@needs_browser
def test_shows_the_picture_without_scripts(watch: Watch, browser: Browser) -> None:
    browser.look(768, 1024)
    browser.call("Emulation.setScriptExecutionDisabled", value=True)
    browser.go(watch.address)
    browser.wait("document.querySelector('noscript img') && document.querySelector('noscript img').naturalWidth > 0")
    assert browser.evaluate("document.getElementById('told').offsetParent") is None
    shot(browser, "page_without_scripts")
