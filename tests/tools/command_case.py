"""What the tests of the fsys command share: a home of their own, running it, and judging its answer.

Every test has a fresh folder that holds the home, the configuration, the folder for temporary files and the
project space, so that no test sees the real home or another test. Standard error stays empty where the
command has nothing to complain about.
"""

import json
import os
import pty
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from types import SimpleNamespace

COMMAND = os.environ.get("FSYS_COMMAND", "fsys")
XXHSUM = os.environ.get("XXHSUM", "xxhsum")
TIMEOUT_S = 240
DONE, NO, USAGE, FAILED = 0, 1, 2, 3
COOKIE = re.compile(r"^[VS][0-9A-F]{18}$")
UNKNOWN_COOKIE = "V0123456789ABCDEF00"


class CommandCase(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.root = os.path.realpath(tempfile.mkdtemp(prefix="fsys-command-"))
        self.addCleanup(shutil.rmtree, os.fsencode(self.root), ignore_errors=True)
        self.space = self.path("space")
        for folder in ("home", "tmp", "media"):
            os.mkdir(self.path(folder))
        self.environment = {name: value for name, value in os.environ.items()
                            if not name.startswith(("XDG_", "FSYS_"))}
        if "FSYS_IO_BACKEND" in os.environ:
            self.environment["FSYS_IO_BACKEND"] = os.environ["FSYS_IO_BACKEND"]
        self.environment.update(HOME=self.path("home"), TMPDIR=self.path("tmp"))
        for variable in ("CONFIG", "DATA", "STATE", "CACHE"):
            self.environment[f"XDG_{variable}_HOME"] = self.path("home", variable.lower())

    def path(self, *parts):
        return os.path.join(self.root, *parts)

    # --- making files

    def write(self, name, content):
        """Makes a file below the test's folder and answers its path."""
        path = os.path.join(os.fsencode(self.root), os.fsencode(name))
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content)
        return os.fsdecode(path)

    def media_file(self, name="media/shot.mov", size=100_000, seed=1):
        """A file of bytes that do not repeat."""
        return self.write(name, random.Random(seed).randbytes(size))

    def location_folder(self, name="location"):
        path = self.path(name)
        os.makedirs(path, exist_ok=True)
        return path

    def hash_of(self, path):
        """XXH3-128 of a file, told by another program."""
        with open(path, "rb") as file:
            printed = subprocess.run([XXHSUM, "-H2", "-"], stdin=file, capture_output=True, check=True)
        return printed.stdout.split()[0].decode()

    # --- running

    def start(self, *arguments, space=True, discovery=False, **options):
        line = [COMMAND]
        if space:
            line += ["--space", self.space]
        if not discovery:
            line += ["--no-discovery"]
        return subprocess.Popen(line + list(arguments), env=self.environment, cwd=self.root,
                                stdin=subprocess.DEVNULL, **options)

    def run_command(self, *arguments, expect=DONE, **options):
        """Runs to the end; checks the exit status and that a message stands on standard error or not."""
        process = self.start(*arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
        try:
            out, err = process.communicate(timeout=TIMEOUT_S)
        finally:
            process.kill()
        text = f"{arguments}\n{out!r}\n{err!r}"
        self.assertEqual(process.returncode, expect, text)
        if expect == DONE:
            self.assertEqual(err, b"", text)
        elif "--json" not in arguments:
            self.assertNotEqual(err, b"", text)
        return SimpleNamespace(out=out, err=err, text=os.fsdecode(out), message=os.fsdecode(err))

    def refused(self, *arguments, expect, message=""):
        """A run whose only answer is a message on standard error."""
        result = self.run_command(*arguments, expect=expect)
        self.assertEqual(result.out, b"")
        self.assertIn(message, result.message)
        return result

    def json_lines(self, *arguments, expect=DONE, **options):
        result = self.run_command("--json", *arguments, expect=expect, **options)
        self.assertTrue(result.out == b"" or result.out.endswith(b"\n"), result.out)
        return [json.loads(line) for line in result.out.decode("utf-8").splitlines()]

    def json(self, *arguments, **options):
        lines = self.json_lines(*arguments, **options)
        self.assertEqual(len(lines), 1, lines)
        return lines[0]

    def run_on_terminal(self, *arguments, interrupt_at=None):
        """Standard error is a terminal: answers what it showed. Interrupts when it shows interrupt_at."""
        terminal, side = pty.openpty()
        process = self.start(*arguments, stdout=subprocess.PIPE, stderr=side)
        os.close(side)
        shown = b""
        try:
            while True:
                try:
                    part = os.read(terminal, 4096)
                except OSError:  # the last writer has gone
                    break
                if not part:
                    break
                shown += part
                if interrupt_at and interrupt_at in shown:
                    process.send_signal(signal.SIGINT)
                    interrupt_at = None
            out = process.communicate(timeout=TIMEOUT_S)[0]
        finally:
            process.kill()
            os.close(terminal)
        return SimpleNamespace(status=process.returncode, out=out, shown=shown)

    # --- what most tests begin with

    def add_location(self, name="location", *arguments):
        """Registers a folder and answers its id."""
        return self.json("location", "add", self.location_folder(name), *arguments)["id"]

    def locations(self):
        return self.json("location", "list")["locations"]

    def import_file(self, file, location="1", *arguments):
        return self.json("import", file, "--location", location, *arguments)

    def import_clip(self, size=100_000):
        """A location with one clip; answers what import said."""
        self.add_location()
        return self.import_file(self.media_file(size=size))


def main():
    """Runs the tests of the script; with --list names them, one per line."""
    if sys.argv[1:] == ["--list"]:
        suites = unittest.defaultTestLoader.loadTestsFromModule(sys.modules["__main__"])
        for suite in suites:
            for test in suite:
                print(test.id().removeprefix("__main__."))
    else:
        unittest.main(verbosity=2)
