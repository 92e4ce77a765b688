"""What the tests of the installed system share: running tools, and the build that is installed.

FSYS_BUILD is the build folder, FSYS_VERSION the version of the system, CXX the compiler.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
BUILD = os.environ["FSYS_BUILD"]
VERSION = os.environ["FSYS_VERSION"]
CXX = os.environ["CXX"]
CONSUMER = os.path.join(SOURCE, "tests", "install", "consumer")
LIBRARIES = {"qz": "Qz", "fsysos": "os", "fsyssupport": "support", "fsys": "fsys", "fsysmedia": "media"}
if os.path.exists(os.path.join(BUILD, "ole", "libfsysav.so")):
    LIBRARIES["fsysav"] = "av"


def attempt(*command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=240, **options)


def files_below(folder):
    """Paths of all files and links, relative to folder."""
    found = []
    for place, folders, files in os.walk(folder):
        for name in files + [name for name in folders if os.path.islink(os.path.join(place, name))]:
            found.append(os.path.relpath(os.path.join(place, name), folder))
    return sorted(found)


def is_elf(path):
    with open(path, "rb") as file:
        return file.read(4) == b"\x7fELF"


class Case(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.root = os.path.realpath(tempfile.mkdtemp(prefix="fsys-install-"))
        self.addCleanup(shutil.rmtree, self.root, ignore_errors=True)
        self.environment = {name: value for name, value in os.environ.items()
                            if not name.startswith(("XDG_", "FSYS_", "CMAKE_", "PKG_CONFIG", "LD_"))}
        self.environment.update(HOME=self.folder("home"), LC_ALL="C.UTF-8")

    def folder(self, name):
        path = os.path.join(self.root, name)
        os.makedirs(path)
        return path

    def run_well(self, *command, **options):
        """Runs a command that must succeed, and answers its output."""
        result = attempt(*command, **{"env": self.environment, **options})
        self.assertEqual(0, result.returncode, f"{' '.join(command)}\n{result.stdout}")
        return result.stdout

    def install(self, *options):
        """Installs into an empty prefix and moves it, so that nothing works that knows where it was installed."""
        first = os.path.join(self.root, "first")
        self.run_well("cmake", "--install", BUILD, "--prefix", first, *options)
        prefix = os.path.join(self.root, "prefix")
        os.rename(first, prefix)
        return prefix

    def libraries_of(self, prefix):
        (cmake,) = [name for name in files_below(prefix) if name.endswith("/cmake/fsys/fsysConfig.cmake")]
        return os.path.join(prefix, cmake.split("/cmake/")[0])


def main():
    """One test per process: ctest names it as SUITE.TEST."""
    if sys.argv[1:] == ["--list"]:
        module = sys.modules["__main__"]
        for name, case in vars(module).items():
            if isinstance(case, type) and issubclass(case, Case) and case is not Case:
                print("\n".join(f"{name}.{test[5:]}" for test in dir(case) if test.startswith("test_")))
        return
    sys.argv[1:] = [re.sub(r"\.(?!test_)", ".test_", name) for name in sys.argv[1:]]
    result = unittest.main(exit=False).result
    sys.exit(1 if not result.wasSuccessful() else 77 if result.skipped else 0)
