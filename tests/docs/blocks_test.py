"""The code in the documentation compiles and runs.

A cpp block is one of three:
  a program     it has a main: compiled alone, with its own includes and nothing else, and linked
  declarations  <!-- scope: file -->: compiled as it stands
  a fragment    anything else: the body of a function. What it takes as given is declared by <!-- given: ... -->: values
                become parameters of that function, and a declaration of a function stands before it
Declarations and fragments share one translation unit with the headers named in HEADERS.

The sh blocks of a page are one script, run in an empty folder with a project space and a home of its own; the command does
not look for drives there. <!-- run: program ARGUMENTS --> before a program runs it at this place.
"""

import json
import os
import re
import shlex
import shutil
import subprocess
import tempfile
import unittest

from documentation import LANGUAGES, ROOT, all_blocks, all_pages, blocks_of, main, read

COMMAND = os.environ.get("FSYS_COMMAND", "fsys")
LIBRARIES = os.environ.get("FSYS_LIBRARIES", "")
COMPILER = os.environ.get("CXX", "c++")
FLAGS = ["-std=c++20", "-Wall", "-Wextra", "-Werror", "-Wno-unused-variable", "-I", os.path.join(ROOT, "ole")]
LINK = ["-L", LIBRARIES, f"-Wl,-rpath,{LIBRARIES}", "-lfsysmedia", "-lfsys", "-lfsyssupport", "-lfsysos", "-lqz"]
HEADERS = ["Qz/Notifier.h", "Qz/Shutdown.h", "Qz/Utf8.h", "fsys/DiskManager.h", "fsys/FsysEntry.h", "fsys/MaterialFilename.h",
           "fsys/SystemCache.h", "media/MediaReader.h", "media/MediaWriter.h", "media/Recovery.h"]
STANDARD_HEADERS = ["cstdio", "future", "span", "vector"]
TIMEOUT_S = 60


def is_program(block):
    return re.search(r"^int main\(", block.code, re.MULTILINE) is not None


def fragment(block, number):
    """A block as the body of a function, in a namespace of its own."""
    before, parameters = [], []
    for given in filter(None, (part.strip() for part in block.directives.get("given", "").split(";"))):
        (before if given.endswith(")") else parameters).append(given)
    lines = [f"namespace block{number} {{"] + [declaration + ";" for declaration in before]
    if block.directives.get("scope") == "file":
        lines += [f'#line {block.line} "{block.page}"', block.code]
    else:
        lines += [f"void block({', '.join('[[maybe_unused]] ' + parameter for parameter in parameters)})", "{",
                  f'#line {block.line} "{block.page}"', block.code, "}"]
    return "\n".join(lines + ["}"])


class Scratch(unittest.TestCase):
    def setUp(self):
        self.folder = os.path.realpath(tempfile.mkdtemp(prefix="fsys-docs-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        for name in ("home", "bin", "work"):
            os.mkdir(os.path.join(self.folder, name))
        self.environment = {name: value for name, value in os.environ.items() if not name.startswith(("XDG_", "FSYS_"))}
        self.environment.update(HOME=os.path.join(self.folder, "home"), FSYS_SPACE=os.path.join(self.folder, "space"),
                                PATH=os.path.join(self.folder, "bin") + ":" + os.environ["PATH"])
        self.executable("fsys", f'#!/bin/sh\nexec {shlex.quote(COMMAND)} --no-discovery "$@"\n')

    def executable(self, name, text):
        path = os.path.join(self.folder, "bin", name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(path, 0o755)

    def compile(self, text, *arguments):
        done = subprocess.run([COMPILER, *FLAGS, "-x", "c++", "-", *arguments], input=text, cwd=ROOT, capture_output=True,
                              text=True, timeout=TIMEOUT_S)
        self.assertEqual(done.returncode, 0, done.stderr)

    def build_program(self, block):
        # The linker takes objects from any text; "-x none" ends the language of standard input.
        self.compile(f'#line {block.line} "{block.page}"\n{block.code}', "-o", os.path.join(self.folder, "bin", "program"),
                     "-x", "none", *LINK)

    def run_script(self, script, expect=0):
        done = subprocess.run(["bash", "-c", "set -euo pipefail\n" + script], cwd=os.path.join(self.folder, "work"),
                              env=self.environment, capture_output=True, text=True, timeout=TIMEOUT_S)
        self.assertEqual(done.returncode, expect, f"{script}\n{done.stdout}\n{done.stderr}")
        return done.stdout


class Cpp(Scratch):
    def test_fragments_compile(self):
        blocks = [block for block in all_blocks() if block.language == "cpp" and not is_program(block)]
        self.assertGreater(len(blocks), 6)
        parts = [f"#include <{name}>" for name in STANDARD_HEADERS] + [f'#include "{name}"' for name in HEADERS]
        self.compile("\n".join(parts + [fragment(block, number) for number, block in enumerate(blocks)]) + "\n",
                     "-fsyntax-only")

    def test_the_program_of_the_readme_reads_a_clip(self):
        programs = [block for block in blocks_of("README.md") if block.language == "cpp" and is_program(block)]
        self.assertEqual(len(programs), 1)
        self.build_program(programs[0])
        out = self.run_script('mkdir raid && fsys location add raid > /dev/null && echo 0123456789abcdef > a.mov\n'
                              'clip=$(fsys import a.mov --location 1 | cut -d " " -f 1)\n'
                              'program "$clip" "$FSYS_SPACE" | grep "bytes read"\n'
                              'program V0000000000000000FF "$FSYS_SPACE" | grep "bytes read"\n')
        lines = out.splitlines()
        self.assertEqual(lines[0], "16 bytes read")
        self.assertRegex(lines[1], "^0 bytes read, but .")


class Shell(Scratch):
    def run_page(self, page):
        script, programs = "", 0
        for block in blocks_of(page):
            if block.language == "sh":
                script += block.code
            elif "run" in block.directives:
                programs += 1
                self.assertEqual((programs, block.language, is_program(block)), (1, "cpp", True), block.place)
                self.build_program(block)
                script += block.directives["run"] + "\n"
        return self.run_script(script) if script else None

    def test_getting_started_does_what_it_says(self):
        out = self.run_page("docs/getting-started.md")
        self.assertIn("Raid A", out)
        self.assertRegex(out, r"the clip is V[0-9A-F]{18}\n")
        self.assertIn(".A2.proxy.540.mov\nproxy, online\n", out)
        self.assertIn("3000000 bytes\n", out)

    def test_the_other_pages_run(self):
        pages = [page for page in all_pages() if page != "docs/getting-started.md"
                 and any(block.language == "sh" for block in blocks_of(page))]
        self.assertGreaterEqual(len(pages), 3)
        for page in pages:
            with self.subTest(page):
                shutil.rmtree(os.path.join(self.folder, "space"), ignore_errors=True)
                shutil.rmtree(os.path.join(self.folder, "work"))
                os.mkdir(os.path.join(self.folder, "work"))
                self.run_page(page)


class Blocks(unittest.TestCase):
    def test_every_block_says_what_it_is(self):
        for block in all_blocks():
            self.assertIn(block.language, LANGUAGES, block.place)
            self.assertTrue(block.code.strip(), block.place)
            self.assertLessEqual(set(block.directives), {"given", "scope", "run"}, block.place)

    def test_no_directive_stands_away_from_its_block(self):
        used = sum(len(block.directives) for block in all_blocks())
        written = sum(len(re.findall(r"^<!-- (?:given|scope|run): .* -->$", read(page), re.MULTILINE)) for page in all_pages())
        self.assertEqual(used, written)

    def test_json_is_json(self):
        for block in all_blocks():
            if block.language == "json":
                for line in block.code.splitlines():
                    self.assertIsInstance(json.loads(line), dict, block.place)


class Commands(unittest.TestCase):
    """Command lines that are only shown name commands and options that there are."""

    helps = {}

    def help_of(self, words):
        if words not in self.helps:
            done = subprocess.run([COMMAND, *words, "--help"], capture_output=True, text=True, timeout=TIMEOUT_S)
            self.helps[words] = done.stdout if done.returncode == 0 else None
        return self.helps[words]

    def check(self, line, place):
        words = shlex.split(line)[1:]
        options = [word for word in words if word.startswith("--")]
        words = [word for word in words if not word.startswith("--")]
        command = ()
        while words and re.fullmatch("[a-z][a-z-]*", words[0]) and self.is_command(command, words[0]):
            command += (words.pop(0),)
        if words and words[0] in ("COMMAND", "ARGS"):
            return
        self.assertTrue(command, f"{place}: {line}")
        known = self.help_of(command) + self.help_of(())
        for option in options:
            self.assertRegex(known, rf"{option}\b", f"{place}: {line}")

    def is_command(self, command, word):
        return re.search(rf"^  {word}  ", self.help_of(command), re.MULTILINE) is not None

    def test_command_lines_name_what_there_is(self):
        count = 0
        for page in all_pages():
            lines = [(line, block.place) for block in blocks_of(page) if block.language in ("text", "console")
                     for line in block.code.splitlines() if line.startswith("fsys ")]
            prose = re.sub(r"^```.*?^```$", "", read(page), flags=re.MULTILINE | re.DOTALL)
            lines += [(line, page) for line in re.findall(r"`(fsys [^`]+)`", prose)]
            for line, place in lines:
                count += 1
                self.check(re.split(r"\s{3,}|\s+#", line)[0], place)
        self.assertGreater(count, 60)


if __name__ == "__main__":
    main()
