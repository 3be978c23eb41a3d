# SPDX-License-Identifier: Apache-2.0
"""A camera of the network on the loopback address: serve_frames.py FILE...

Writes its port, a line. What is asked for as /live is a stream of JPEGs, the FILEs; the first time it ends in the middle, the
second time the connection breaks at once, then all of them come, and the last of them until nobody listens. Other paths are files.
"""
import http.server
import sys
import time
from pathlib import Path

FILES = [Path(name).read_bytes() for name in sys.argv[1:]]
KINDS = iter(["half", "nothing"])


class Camera(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_: object) -> None:
        pass

    def do_GET(self) -> None:
        if self.path != "/live":
            super().do_GET()
            return
        kind = next(KINDS, "all")
        if kind == "nothing":
            return
        self.send_response(200)
        self.send_header("Content-Type", "multipart/x-mixed-replace; boundary=frame")
        self.end_headers()
        frames = FILES[:len(FILES) // 2] if kind == "half" else FILES + FILES[-1:] * 1000
        for frame in frames:
            self.wfile.write(b"--frame\r\nContent-Type: image/jpeg\r\nContent-Length: %d\r\n\r\n%b\r\n" % (len(frame), frame))
            self.wfile.flush()
            time.sleep(0.01)


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Camera)
print(server.server_port, flush=True)
server.serve_forever()
