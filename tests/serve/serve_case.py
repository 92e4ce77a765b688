"""What the tests of the page share: a running "fsys serve", and asking it.

Waiting for a state ends when it comes, or with the test.
"""

import http.client
import json
import os
import signal
import socket
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools"))
from command_case import CommandCase, DONE, FAILED, TIMEOUT_S, UNKNOWN_COOKIE, USAGE, main  # noqa: E402,F401

LIMIT_S = 60


def skip(reason):
    print("skipped: " + reason, file=sys.stderr)
    os._exit(77)


class Serving:
    """A running server of the page."""

    def __init__(self, case, *arguments, quiet=True):
        self.case = case
        self.process = case.start("--json", "serve", "--port", "0", *arguments, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE)
        case.addCleanup(self.process.communicate)
        case.addCleanup(self.process.kill)
        line = self.process.stdout.readline()
        case.assertTrue(line, "no answer: " + ("" if line else self.process.stderr.read().decode()))
        self.first = json.loads(line)
        self.quiet = quiet
        self.address, self.port, self.url = self.first["address"], self.first["port"], self.first["url"]

    def ask(self, path, method="GET", body=None, **headers):
        """Status, header fields in lower case, and body of an answer."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=LIMIT_S)
        try:
            connection.request(method, path, body=body, headers=headers)
            answer = connection.getresponse()
            fields = {}
            for name, value in answer.getheaders():
                self.case.assertNotIn(name.lower(), fields)
                fields[name.lower()] = value
            return answer.status, fields, answer.read()
        finally:
            connection.close()

    def raw(self, request, timeout=LIMIT_S):
        """Every byte that comes back for these; none when the server just ends the connection."""
        with socket.create_connection(("127.0.0.1", self.port), timeout=timeout) as connection:
            answer = b""
            try:
                connection.sendall(request)
                while part := connection.recv(65536):
                    answer += part
            except (ConnectionResetError, BrokenPipeError):
                pass
            return answer

    def status_of(self, request):
        answer = self.raw(request)
        return int(answer.split(b" ", 2)[1]) if answer else None

    def state(self):
        status, _, body = self.ask("/api/state")
        self.case.assertEqual(status, 200)
        return json.loads(body)

    def location(self, path):
        return {location["path"]: location for location in self.state()["locations"]}[path]

    def wait_for(self, condition, limit_s=LIMIT_S):
        """The first state that condition accepts."""
        end = time.monotonic() + limit_s
        while not condition(state := self.state()):
            self.case.assertLess(time.monotonic(), end, json.dumps(state, indent=1))
            time.sleep(0.05)
        return state

    def wait_for_status(self, path, status):
        self.wait_for(lambda state: any(l["path"] == path and l["status"] == status for l in state["locations"]))

    def end(self, by=signal.SIGINT):
        self.process.send_signal(by)
        self.case.assertEqual(self.process.wait(timeout=TIMEOUT_S), DONE)
        if self.quiet:
            self.case.assertEqual(self.process.stderr.read(), b"")


class ServeCase(CommandCase):
    def serving(self, *arguments, **options):
        return Serving(self, *arguments, **options)

    def memory_disk(self, name, size="64m"):
        """A disk that can be unplugged; its mount ends with the test."""
        point = self.location_folder(name)
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=" + size, "tmpfs", point], stderr=subprocess.DEVNULL,
                          check=False).returncode != 0:
            skip("mounting is not allowed here")
        self.addCleanup(subprocess.run, ["umount", "-l", point], stderr=subprocess.DEVNULL, check=False)
        return point
