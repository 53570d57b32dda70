"""Serves the page's files with a state of states.py for an API: the page without a station.

usage: fixture_server.py [PORT]     then http://127.0.0.1:PORT/?5-fail
"""

import http.server
import json
import os
import sys
import threading
import time

sys.path.insert(0, os.path.dirname(__file__))
import states

PAGE = os.path.join(os.path.dirname(__file__), "..", "..", "station", "web", "page")
CHART = "/usr/share/javascript/chart.js/chart.min.js"
current = {"name": "1-waiting"}
here = os.path.dirname(os.path.abspath(__file__))


class Handler(http.server.SimpleHTTPRequestHandler):
    def __init__(self, *arguments):
        super().__init__(*arguments, directory=PAGE)

    def log_message(self, *_):
        pass

    def reply(self, body, kind="application/json"):
        self.send_response(200)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        path, _, query = self.path.partition("?")
        if path == "/api/state":
            self.reply(json.dumps(states.state(current["name"])).encode())
        elif path == "/api/events":
            self.send_response(200)
            self.send_header("Content-Type", "text/event-stream")
            self.end_headers()
            try:
                shown, sent = None, 0
                while True:
                    name = current["name"]
                    if name != shown or time.monotonic() > sent + 1:
                        data = json.dumps(states.state(name)).encode()
                        self.wfile.write(b"event: state\ndata: " + data + b"\n\n")
                        self.wfile.flush()
                        shown, sent = name, time.monotonic()
                    time.sleep(0.02)
            except OSError:
                pass
        elif path == "/api/yield" and "item=none" in query:
            self.reply(json.dumps(states.empty_yield()).encode())
        elif path in ("/api/board", "/api/attempt", "/api/yield", "/api/list"):
            name = path[5:] + ".json"
            with open(os.path.join(here, name), "rb") as file:
                self.reply(file.read())
        elif path == "/chart.js":
            with open(CHART, "rb") as file:
                self.reply(file.read(), "text/javascript")
        else:
            if path == "/" and query in states.ALL:
                current["name"] = query
            if path in ("/board", "/yield", "/states"):
                self.path = path + ".html"
            super().do_GET()


def serve(port=0):
    http.server.ThreadingHTTPServer.request_queue_size = 64
    server = http.server.ThreadingHTTPServer(("127.0.0.1", port), Handler)
    server.daemon_threads = True
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server


if __name__ == "__main__":
    running = serve(int(sys.argv[1]) if len(sys.argv) > 1 else 8090)
    print(f"http://127.0.0.1:{running.server_port}/")
    threading.Event().wait()
