"""Reads back from the built libraries and the built command what the flags for hardening should have put there.

FSYS_BUILT names the files, FSYS_AV tells whether libfsysav is one of them, FSYS_FORTIFIED and
FSYS_BRANCH_PROTECTION whether those flags are part of the build.
"""

import os
import re
import subprocess
import sys
import unittest

FILES = os.environ["FSYS_BUILT"].split(":")


def is_on(variable):
    return os.environ[variable] in ("1", "ON", "TRUE")


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def imports(file):
    return set(re.findall(r"\bU (\w+)", output("nm", "--dynamic", file)))


def exported_functions(file):
    lines = output("nm", "--dynamic", "--defined-only", file).splitlines()
    return {int(line.split()[0], 16) for line in lines if line.split()[1] == "T"}


def marked_places(file):
    text = output("objdump", "--disassemble", "--section=.text", "--no-show-raw-insn", file)
    return {int(place, 16) for place in re.findall(r"^ *([0-9a-f]+):\s+endbr64", text, re.MULTILINE)}


class Hardening(unittest.TestCase):
    def test_AllLibrariesAndTheCommandAreLookedAt(self):
        self.assertEqual(7 if is_on("FSYS_AV") else 6, len([file for file in FILES if os.path.exists(file)]))

    def test_TablesOfAddressesAreReadOnly(self):
        for file in FILES:
            self.assertIn("GNU_RELRO", output("readelf", "-lW", file), file)
            self.assertRegex(output("readelf", "-dW", file), r"\(FLAGS_1\).*\bNOW\b", file)

    def test_TheStackIsNeverExecuted(self):
        for file in FILES:
            (rights,) = re.findall(r"GNU_STACK(?: +0x[0-9a-f]+){5} +([RWE ]+?) +0x", output("readelf", "-lW", file))
            self.assertEqual("RW", rights, file)

    def test_ProgramsLieAnywhere(self):
        for file in FILES:
            self.assertRegex(output("readelf", "-hW", file), r"Type: +DYN", file)
        self.assertRegex(output("readelf", "-dW", FILES[-1]), r"\(FLAGS_1\).*\bPIE\b")

    def test_StacksAreGuarded(self):
        for file in FILES:
            self.assertIn("__stack_chk_fail", imports(file), file)

    @unittest.skipUnless(is_on("FSYS_FORTIFIED"), "a build without optimisation")
    def test_LibraryCallsAreChecked(self):
        for file in FILES:
            checked = {name for name in imports(file) if re.fullmatch(r"__\w+_chk", name)}
            # libQz formats no text and copies none into an array.
            self.assertTrue(checked or "libqz" in file, file)

    @unittest.skipUnless(is_on("FSYS_BRANCH_PROTECTION"), "a compiler without branch protection")
    def test_IndirectCallsLandOnMarkedPlaces(self):
        for file in FILES:
            self.assertEqual(set(), exported_functions(file) - marked_places(file), file)
        self.assertGreater(len(exported_functions(FILES[0])), 10)

    def test_NoShellIsCalledAndNoLibraryListens(self):
        forbidden = {"system", "popen", "execl", "execle", "execlp", "execv", "execve", "execvp", "execvpe",
                     "posix_spawn", "posix_spawnp", "fork", "vfork", "socket", "bind", "listen", "accept", "accept4"}
        # The command starts the program that draws its pictures, without a shell.
        allowed = {"fsys": {"posix_spawnp"}}
        for file in FILES:
            self.assertEqual(set(), imports(file) & forbidden - allowed.get(os.path.basename(file), set()), file)
            # The one library that listens for somebody else.
            listens = "libcpp-httplib" in output("readelf", "-dW", file)
            self.assertEqual(file == FILES[-1], listens, file)

    def test_OnlyServeListens(self):
        """Whoever wants to listen goes through WebServer.cpp, and only the command serve goes there."""
        self.assertEqual({"WebServer"}, self.objects_that_need(r"httplib::Server::\w+\("))
        self.assertEqual({"ServeCommand"}, self.objects_that_need(r"WebServer::(bind|start)\("))

    def objects_that_need(self, pattern):
        needing = set()
        for file in filter(lambda name: name.endswith(".o"), os.environ["FSYS_COMMAND_OBJECTS"].split(":")):
            if re.search(r" U " + pattern, output("nm", "--demangle", "--undefined-only", file)):
                needing.add(os.path.basename(file).split(".")[0])
        return needing

    def test_NoWaitDependsOnTheTimeOfDay(self):
        forbidden = {"pthread_cond_timedwait", "pthread_mutex_timedlock", "sem_timedwait", "alarm", "setitimer"}
        for file in FILES:
            self.assertEqual(set(), imports(file) & forbidden, file)


if __name__ == "__main__":
    sys.argv[1:] = [re.sub(r"\.(?!test_)", ".test_", name) for name in sys.argv[1:]]
    result = unittest.main(exit=False).result
    sys.exit(1 if not result.wasSuccessful() else 77 if result.skipped else 0)
