"""What the tests of the Python module share: a home of their own, media, and scripts in processes of their own.

The configuration of the engine is read when the module is loaded, and a process has one home, so a class of tests
is a process; each test has a fresh folder with a project space of its own.
"""

import atexit
import os
import random
import shutil
import subprocess
import sys
import tempfile
import textwrap
import unittest

HOME = tempfile.mkdtemp(prefix="fsys-python-home-")
for _name in [name for name in os.environ if name.startswith(("XDG_", "FSYS_")) and name not in
              ("FSYS_SOURCE", "FSYS_COMMAND", "FSYS_IO_BACKEND", "FSYS_BUILD", "FSYS_LIBRARIES")]:
    del os.environ[_name]
os.environ["HOME"] = HOME
atexit.register(shutil.rmtree, HOME, True)
os.environ["TMPDIR"] = HOME

import fsys  # noqa: E402: the home comes first

SOURCE = os.environ.get("FSYS_SOURCE", os.path.join(os.path.dirname(__file__), "..", ".."))
COMMAND = os.environ.get("FSYS_COMMAND", "fsys")
UNKNOWN_COOKIE = "V0123456789ABCDEF00"
TIMEOUT_S = 100


class PythonCase(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.root = os.path.realpath(tempfile.mkdtemp(prefix="fsys-python-"))
        self.addCleanup(shutil.rmtree, self.root, ignore_errors=True)
        self.space = self.path("space")

    def path(self, *parts):
        return os.path.join(self.root, *parts)

    def folder(self, name):
        os.makedirs(self.path(name), exist_ok=True)
        return self.path(name)

    def write(self, name, content):
        path = self.path(name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content)
        return path

    def noise(self, size, seed=1):
        return random.Random(seed).randbytes(size)

    def open(self):
        """The session of a test; ends with it."""
        session = fsys.open(self.space, discovery=False)
        self.addCleanup(session.close)
        return session

    def open_with_location(self, name="a"):
        session = self.open()
        return session, session.add_location(self.folder(name))

    def clip_file(self, cookie, size=100_000, location="a", ending="mov", seed=1):
        """Media as another program leaves it."""
        return self.write(f"{location}/Material/{cookie}.{ending}", self.noise(size, seed))

    def record(self, session, data, **options):
        """The cookie and path of a recorded clip."""
        with session.record(**options) as recording:
            recording.write(data)
        return recording.cookie, recording.path

    def bytes_of(self, path):
        with open(path, "rb") as file:
            return file.read()

    def run_script(self, script, *arguments, expect=0, file=None):
        """Runs Python code, or a script, in a process of its own."""
        line = [sys.executable] + ([file] if file else ["-c", textwrap.dedent(script)]) + list(arguments)
        done = subprocess.run(line, cwd=self.root, capture_output=True, text=True, timeout=TIMEOUT_S)
        self.assertEqual(done.returncode, expect, f"{done.stdout}\n{done.stderr}")
        return done

    def run_command(self, *arguments):
        """The fsys command on the space of the test, as another program that works on it."""
        done = subprocess.run([COMMAND, "--space", self.space, "--no-discovery", *arguments], capture_output=True,
                              text=True, timeout=TIMEOUT_S)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout


def main():
    unittest.main(verbosity=2)
