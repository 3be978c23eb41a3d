# SPDX-License-Identifier: Apache-2.0
"""A camera of the network on the loopback address: serve_frames.py FILE...

Writes two ports, in a line: of HTTP and of RTSP. What is asked for as /live by HTTP is a stream of JPEGs, the FILEs; the first
time it ends in the middle, the second time the connection breaks at once, then all of them come, and the last of them until
nobody listens. /sound is a beep of 16 kHz in the same way: 2 seconds, nothing, 100 seconds. /silence gets no answer. Other paths are files. By RTSP as many grey frames come in the same way, each lighter than the one before.
"""
import http.server
import itertools
import socketserver
import struct
import sys
import threading
import time
from collections.abc import Iterator
from pathlib import Path

FILES = [Path(name).read_bytes() for name in sys.argv[1:]]
WIDTH, HEIGHT, RATE = 64, 48, 90000  # pixels; units of RTP's time a second
SDP = f"""v=0
o=- 0 0 IN IP4 127.0.0.1
s=camera
m=video 0 RTP/AVP 96
a=rtpmap:96 raw/{RATE}
a=fmtp:96 sampling=YCbCr-4:2:2; width={WIDTH}; height={HEIGHT}; depth=8; colorimetry=BT601
a=control:track
""".replace("\n", "\r\n")


def frames(kinds: Iterator[str]) -> Iterator[int]:
    """Which frames a connection gets, one every 10 ms."""
    kind = next(kinds, "all")
    last = len(FILES) - 1
    for number in {"half": range(last // 2), "nothing": range(0)}.get(kind, itertools.chain(range(last), [last] * 1000)):
        yield number
        time.sleep(0.01)


class HttpCamera(http.server.SimpleHTTPRequestHandler):
    kinds = iter(["half", "nothing"])

    def log_message(self, *_: object) -> None:
        pass

    def do_GET(self) -> None:
        if self.path == "/sound":
            self.beep({"half": 2, "nothing": 0}.get(next(self.kinds, "all"), 100))
            return
        if self.path == "/silence":
            time.sleep(100)
        if self.path != "/live":
            super().do_GET()
            return
        for count, number in enumerate(frames(self.kinds)):
            if count == 0:
                self.send_response(200)
                self.send_header("Content-Type", "multipart/x-mixed-replace; boundary=frame")
                self.end_headers()
            frame = FILES[number]
            self.wfile.write(b"--frame\r\nContent-Type: image/jpeg\r\nContent-Length: %d\r\n\r\n%b\r\n" % (len(frame), frame))
            self.wfile.flush()

    def beep(self, seconds: int) -> None:
        if seconds:
            self.send_response(200)
            self.end_headers()
            self.wfile.write(struct.pack("<4sI8sIHHIIHH4sI", b"RIFF", 2**32 - 1, b"WAVEfmt ", 16, 1, 1, 16000, 32000, 2, 16,
                                         b"data", 2**32 - 1) + struct.pack("<8h", *[8000] * 4, *[-8000] * 4) * 2000 * seconds)


class RtspCamera(socketserver.StreamRequestHandler):
    """Within the connection that asks, uncompressed: a packet of RTP (RFC 4175) a frame."""
    kinds = iter(["half", "nothing"])

    def handle(self) -> None:
        while line := self.rfile.readline().decode().strip():
            method, fields = line.split()[0], {}
            while field := self.rfile.readline().decode().strip():
                name, value = field.split(":", 1)
                fields[name.lower()] = value.strip()
            answer = {"DESCRIBE": f"Content-Type: application/sdp\r\nContent-Length: {len(SDP)}\r\n\r\n{SDP}",
                      "SETUP": "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n"}.get(method, "\r\n")
            self.wfile.write(f"RTSP/1.0 200 OK\r\nCSeq: {fields['cseq']}\r\nSession: 1\r\n{answer}".encode())
            if method == "PLAY":
                self.play()
                return

    def play(self) -> None:
        for count, number in enumerate(frames(self.kinds)):
            rows = b"".join(struct.pack(">HHH", 2 * WIDTH, row, 0x8000 if row < HEIGHT - 1 else 0) for row in range(HEIGHT))
            pixels = bytes([128, 16 + 5 * number]) * (WIDTH * HEIGHT)
            packet = struct.pack(">BBHIIH", 0x80, 0x80 | 96, count, count * RATE // 10, 1, 0) + rows + pixels
            self.wfile.write(struct.pack(">BBH", ord("$"), 0, len(packet)) + packet)


class Server(socketserver.ThreadingTCPServer):
    daemon_threads = True

    def handle_error(self, *_: object) -> None:
        pass  # who listened has gone


servers = [Server(("127.0.0.1", 0), camera) for camera in (HttpCamera, RtspCamera)]
print(*(server.server_address[1] for server in servers), flush=True)
threading.Thread(target=servers[0].serve_forever, daemon=True).start()
servers[1].serve_forever()
