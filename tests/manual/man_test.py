import os
import re
import subprocess

from command_case import CommandCase, main
from help_tree import all_helps

PAGES = os.path.join(os.environ.get("FSYS_MANUAL", "manual"), "man1")
SOURCE = os.environ.get("FSYS_SOURCE", ".")
BUILD = os.environ.get("FSYS_BUILD", ".")
SECTIONS = ["NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXAMPLES", "FILES", "ENVIRONMENT", "SEE ALSO"]


class Man(CommandCase):
    def setUp(self):
        super().setUp()
        self.environment.update(MANWIDTH="80", LC_ALL="C.UTF-8", PAGER="cat")

    def file_of(self, page):
        return os.path.join(PAGES, page + ".1")

    def source_of(self, page):
        with open(self.file_of(page), encoding="utf-8") as file:
            return file.read()

    def shown(self, page):
        """The page as plain text, in which all runs of white space are one space."""
        result = subprocess.run(["groff", "-man", "-Tutf8", "-P-cbou", "-rLL=9000n", self.file_of(page)],
                                env=self.environment, capture_output=True, timeout=60)
        self.assertEqual((result.returncode, result.stderr), (0, b""), page)
        return " ".join(result.stdout.decode().split())

    def test_every_command_has_a_page_and_no_other_page_is_there(self):
        self.assertEqual(sorted(os.listdir(PAGES)), sorted(help.page + ".1" for help in all_helps()))

    def test_formatters_find_nothing_to_warn_of(self):
        pages = [os.path.join(PAGES, name) for name in sorted(os.listdir(PAGES))]
        for line in ([["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", *pages]] +
                     [["groff", "-ww", "-man", device, "-z", *pages] for device in ("-Tutf8", "-Tascii", "-Tps")]):
            result = subprocess.run(line, env=self.environment, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=100)
            self.assertEqual((result.returncode, result.stderr), (0, b""), line[:5])

    def test_the_index_of_pages_can_read_each_name_and_summary(self):
        pages = [help.page for help in all_helps()]
        printed = subprocess.run(["lexgrog", *map(self.file_of, pages)], env=self.environment, capture_output=True, check=True,
                                 timeout=60).stdout.decode().splitlines()
        self.assertEqual(len(printed), len(pages))
        for page, line in zip(pages, printed):
            self.assertRegex(line, rf': "{page} - \S.*\S"$')

    def test_pages_have_their_sections_in_order(self):
        for help in all_helps():
            titles = re.findall(r"^\.SH (.*)$", self.source_of(help.page), re.M)
            self.assertEqual([title for title in titles if title in SECTIONS], SECTIONS, help.page)
            if help.exit_status:
                self.assertIn("KEYS (JSON)", titles, help.page)
                self.assertIn("EXIT STATUS", titles, help.page)

    def test_pages_name_every_option_that_help_names(self):
        for help in all_helps():
            text = self.shown(help.page)
            options = text[text.index(" OPTIONS "):]
            self.assertGreater(len(help.options), 0)
            for option in help.options:
                self.assertRegex(options, rf"(?<![\w-]){option}(?![\w-])", help.page)

    def test_pages_tell_defaults_and_limits_of_options(self):
        text = self.shown("fsys-play")
        self.assertIn("--seconds NUMBER How long. From 0.01 to 1000000. Default: 5.", text)
        self.assertIn("--level TEXT Which files. One of high, proxy, auto. Default: high.", text)
        self.assertIn("--frame-bytes SIZE Bytes of a frame, as in 691200 or 12m. In bytes; k, m, g or t behind the number counts "
                      "them in powers of 1024. From 1 to 1073741824. Required.", text)
        self.assertIn("--height NUMBER Picture height of the proxy, in lines. From 1 to 1000000. Only with --proxy-of.",
                      self.shown("fsys-import"))

    def test_pages_say_of_keys_and_exit_status_what_help_says(self):
        for help in all_helps():
            if not help.keys:
                continue
            text = self.shown(help.page)
            self.assertIn(help.keys, text)
            for meaning in re.split(r"(?:^|; )[0-3] ", help.exit_status)[1:]:
                self.assertIn(meaning[1:], text)

    def test_examples_can_be_copied_from_the_page(self):
        for help in all_helps():
            if help.example:
                self.assertIn(f" {help.example} ", self.shown(help.page))

    def test_commands_of_a_group_are_on_its_page(self):
        for help in all_helps():
            text = self.shown(help.page)
            for command in help.commands:
                self.assertIn(f"{help.page}-{command}(1) ", text)

    def test_every_environment_variable_that_is_read_is_on_the_page(self):
        read = set()
        for folder in ("ole", "tools"):
            for place, _, names in os.walk(os.path.join(SOURCE, folder)):
                for name in names:
                    if name.endswith(".cpp") and not place.endswith(("testing", "manual")):
                        with open(os.path.join(place, name), encoding="utf-8") as file:
                            read |= set(re.findall(r'"((?:FSYS|XDG)_[A-Z_]+)"', file.read()))
        self.assertIn("FSYS_SPACE", read)
        text = self.shown("fsys")
        environment = text[text.index(" ENVIRONMENT "):]
        for variable in read:
            # One that ends with "_" is the start of many.
            self.assertIn(f" {variable}" + ("" if variable.endswith("_") else " "), environment)

    def test_installed_pages_are_found_by_man(self):
        prefix = self.path("prefix")
        subprocess.run(["cmake", "--install", BUILD, "--component", "tools", "--prefix", prefix], env=self.environment,
                       stdout=subprocess.DEVNULL, check=True, timeout=60)
        self.environment["MANPATH"] = os.path.join(prefix, "share", "man")
        for words in (["fsys"], ["fsys-location-add"], ["fsys", "location"]):
            found = subprocess.run(["man", "-w", *words], env=self.environment, capture_output=True, timeout=60)
            self.assertEqual(found.stdout.decode().strip(),
                             os.path.join(prefix, "share", "man", "man1", "-".join(words) + ".1"), found)
        for file in ("bash-completion/completions/fsys", "zsh/site-functions/_fsys", "fish/vendor_completions.d/fsys.fish"):
            self.assertTrue(os.path.isfile(os.path.join(prefix, "share", file)), file)


if __name__ == "__main__":
    main()
