"""What the tests of the documentation share: its pages, their code blocks, and running the tests.

A block of code says by its language what it is:
  cpp      compiled. A fragment becomes the body of a function, see blocks_test.py
  sh       run, with the other blocks of its page, in a project space of the test
  ini      a configuration file: its keys have to be configuration integers
  json     one JSON object per line
  console, text, python, cmake    shown only; lines that begin with "fsys" name commands and options that there are
A comment <!-- KEY: VALUE --> on the line before a block says more; it does not show in the page.
"""

import os
import re
import sys
import unittest
from dataclasses import dataclass, field

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
LANGUAGES = {"cpp", "sh", "ini", "json", "console", "text", "python", "cmake"}
DIRECTIVE = re.compile(r"^<!-- (\w+): (.*?) -->$")


@dataclass
class Block:
    page: str  # relative to the source's root
    line: int  # of its first line of code
    language: str
    code: str
    directives: dict = field(default_factory=dict)

    @property
    def place(self):
        return f"{self.page}:{self.line}"


def read(*parts):
    with open(os.path.join(ROOT, *parts), encoding="utf-8") as file:
        return file.read()


def site_pages():
    """Pages of the site, relative to docs/."""
    found = []
    for folder, _, names in os.walk(os.path.join(ROOT, "docs")):
        found += [os.path.relpath(os.path.join(folder, name), os.path.join(ROOT, "docs"))
                  for name in names if name.endswith(".md")]
    return sorted(found)


def all_pages():
    """Everything that people read, relative to the source's root."""
    return ["README.md", "CONTRIBUTING.md"] + [os.path.join("docs", page) for page in site_pages()]


def blocks_of(page, text=None):
    blocks, block, directives = [], None, {}
    for number, line in enumerate((text or read(page)).splitlines(), 1):
        fence = re.match(r"^```(.*)$", line)
        if block is not None:
            if fence:
                blocks.append(block)
                block = None
            else:
                block.code += line + "\n"
        elif fence:
            block = Block(page, number + 1, fence.group(1).strip(), "", directives)
            directives = {}
        elif directive := DIRECTIVE.match(line):
            directives[directive.group(1)] = directive.group(2)
        else:
            directives = {}
    if block is not None:
        raise ValueError(f"{block.place}: a block without an end")
    return blocks


def all_blocks():
    return [block for page in all_pages() for block in blocks_of(page)]


def prose_of(page):
    """The text of a page without its blocks of code."""
    return re.sub(r"^```.*?^```$", "", read(page), flags=re.MULTILINE | re.DOTALL)


def sources(*folders):
    """Names and texts of the C++ files below folders, without the platform of tests."""
    for folder in folders:
        for place, _, names in os.walk(os.path.join(ROOT, folder)):
            if "testing" in place.split(os.sep):
                continue
            for name in sorted(names):
                if name.endswith((".h", ".cpp")):
                    path = os.path.relpath(os.path.join(place, name), ROOT)
                    yield path, read(path)


def main():
    """Runs the tests of the script; with --list names them, one per line. What is set up for a class is set up once."""
    if sys.argv[1:] == ["--list"]:
        suites = unittest.defaultTestLoader.loadTestsFromModule(sys.modules["__main__"])
        names = {}
        for suite in suites:
            for test in suite:
                name = test.id().removeprefix("__main__.")
                names[name.split(".")[0] if "setUpClass" in vars(type(test)) else name] = None
        print("\n".join(names))
    else:
        unittest.main(verbosity=2)
