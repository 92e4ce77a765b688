"""The page of the configuration names every integer, environment variable and preference that the sources read, and no others."""

import re
import unittest

from documentation import all_blocks, main, read, sources

PAGE = "docs/configuration.md"


def rows(text):
    """First and second cell of each row of the tables, by the first."""
    cells = [[cell.strip() for cell in line.strip("|").split("|")] for line in text.splitlines() if line.startswith("| `")]
    return {name.strip("`"): row for row in cells for name in re.findall(r"`[^`]+`", row[0])}


def integers_read():
    """Keys with their defaults, from the sources."""
    found = {}
    for _, text in sources("ole", "tools"):
        for key, default in re.findall(r'\bconfig_int\(\s*"(\w+)",\s*(-?\w+)\s*\)', text):
            found[key] = default
    return found


def preferences_read():
    """Keys of preferences; of a key that is composed, what it begins with."""
    found = set()
    for path, text in sources("ole", "tools"):
        for key in re.findall(r"prefs\(\)\s*\.\s*(?:get|set|remove)Preference\(\s*([^,()]+)", text):
            key = key.strip()
            literal = re.fullmatch(r'"(.*)"', key)
            # The name of a constant or of a function that composes the key.
            literal = literal or re.search(rf'\b{re.escape(key)}\b(?:\[\]\s*=|\([^;{{]*\)\s*\{{[^"}}]*)\s*"([^"]*)"', text)
            if not literal:
                raise AssertionError(f"{path}: the preference {key} cannot be told")
            if literal.group(1):
                found.add(literal.group(1))
    return found


class Configuration(unittest.TestCase):
    def setUp(self):
        self.text = read(PAGE)
        self.rows = rows(self.text)

    def test_every_call_that_reads_an_integer_is_understood(self):
        for path, text in sources("ole", "tools"):
            if path.startswith("ole/support/ConfigInt"):
                continue
            calls = len(re.findall(r"\bconfig_int\(", text))
            self.assertEqual(calls, len(re.findall(r'\bconfig_int\(\s*"\w+",\s*-?\w+\s*\)', text)), path)

    def test_every_integer_is_described_with_its_default(self):
        integers = integers_read()
        self.assertGreaterEqual(len(integers), 18)
        for key, default in integers.items():
            self.assertIn(key, self.rows, f"{key} is missing in {PAGE}")
            self.assertEqual(self.rows[key][1], default, f"default of {key}")
            self.assertEqual(len(self.rows[key]), 5, key)
            self.assertTrue(all(self.rows[key]), f"{key} has an empty cell")

    def test_no_integer_is_described_that_nobody_reads(self):
        described = {key for key, row in self.rows.items() if len(row) == 5}
        self.assertEqual(described, set(integers_read()))

    def test_every_environment_variable_is_described(self):
        read_ones = set()
        for _, text in sources("ole", "tools"):
            read_ones |= set(re.findall(r'"((?:FSYS|XDG)_[A-Z_]+|HOME)"', text))
        self.assertGreaterEqual(len(read_ones), 10)
        for variable in read_ones:
            self.assertIn(f"`{variable}`", self.text, variable)
        described = set(re.findall(r"`((?:FSYS|XDG)_[A-Z_]+)`", self.text)) - {"FSYS_CFG_KEY", "FSYS_CFG_"}
        self.assertEqual(described - read_ones, set(), "described, and read nowhere")

    def test_every_preference_is_described(self):
        preferences = preferences_read()
        self.assertGreaterEqual(len(preferences), 2)
        for key in preferences:
            self.assertIn(f"`{key}", self.text, key)

    def test_configuration_files_in_the_pages_have_keys_that_there_are(self):
        files = [block for block in all_blocks() if block.language == "ini"]
        self.assertTrue(files)
        for block in files:
            for line in block.code.splitlines():
                if line.split("#")[0].strip():
                    found = re.fullmatch(r"(\w+) = -?\d+", line.split("#")[0].strip())
                    self.assertTrue(found, f"{block.place}: {line}")
                    self.assertIn(found.group(1), integers_read(), block.place)


if __name__ == "__main__":
    main()
