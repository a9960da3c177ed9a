#!/usr/bin/env python3
"""Serves a folder over HTTP on 127.0.0.1 at a free port for a bounded time.

usage: serve-dir.py FOLDER PORTFILE [SECONDS]
The chosen port is written to PORTFILE once the server listens.
"""
import functools
import os
import http.server
import sys
import threading


def main():
    folder, port_file = sys.argv[1], sys.argv[2]
    lifetime = float(sys.argv[3]) if len(sys.argv) > 3 else 600.0
    class Quiet(http.server.SimpleHTTPRequestHandler):
        def log_message(self, *args):
            pass

    handler = functools.partial(Quiet, directory=folder)
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
    with open(port_file + ".tmp", "w") as out:
        out.write(str(server.server_address[1]))
    os.replace(port_file + ".tmp", port_file)
    threading.Timer(lifetime, server.shutdown).start()
    server.serve_forever()


if __name__ == "__main__":
    main()
