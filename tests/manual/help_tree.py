"""What --help of the command and of all below it prints, taken apart."""

import re
import subprocess

from command_case import COMMAND


class Help:
    def __init__(self, words, text):
        self.words = words
        self.text = text
        self.page = "-".join(["fsys"] + words)
        self.options = re.findall(r"^  (?:-\w,)?(--[\w-]+)", self._part("Options"), re.M)
        self.valued = re.findall(r"^  (--[\w-]+) (?!Needs|Excludes)[A-Z]", self._part("Options"), re.M)
        self.choices = {option: words.split(",") for option, words in
                        re.findall(r"^  (--[\w-]+) TEXT:\{([^}]*)\}", self._part("Options"), re.M)}
        self.commands = re.findall(r"^  ([\w-]+) ", self._part("Subcommands"), re.M)
        self.example = (re.findall(r"^example: (.*)$", text, re.M) + [None])[0]
        self.keys = self._footer("keys: ", "\nexit status: ")
        self.exit_status = self._footer("exit status: ", "\nexample: ")

    def _part(self, title):
        found = re.search(rf"^{title}:\n(.*?)(?:\n\n|\Z)", self.text, re.M | re.S)
        return found.group(1) if found else ""

    def _footer(self, start, end):
        found = re.search(rf"^{start}(.*?){end}", self.text, re.M | re.S)
        return " ".join(found.group(1).split()) if found else None


def all_helps(words=()):
    """Every command with its help, each before those below it."""
    words = list(words)
    text = subprocess.run([COMMAND, *words, "--help"], capture_output=True, check=True, timeout=60).stdout.decode()
    helps = [Help(words, text)]
    for command in helps[0].commands:
        helps += all_helps(words + [command])
    return helps
