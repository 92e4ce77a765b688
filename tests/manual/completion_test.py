import os
import pty
import re
import select
import subprocess
import time

from command_case import COMMAND, CommandCase, main
from help_tree import all_helps

MANUAL = os.environ.get("FSYS_MANUAL", "manual")
BASH = os.path.join(MANUAL, "bash", "fsys")
FISH = os.path.join(MANUAL, "fish", "fsys.fish")
ZSH = os.path.join(MANUAL, "zsh", "_fsys")
COMMON = ["--help", "--space", "--json", "--no-discovery", "--verbose"]
PACKAGE = "/usr/share/bash-completion/bash_completion"

# Completes the words that follow; the last is the one that is being typed.
DRIVER = """
source "$1" || exit
shift
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
_fsys
printf '%s\\n' "${COMPREPLY[@]}"
"""


class ShellCase(CommandCase):
    def setUp(self):
        super().setUp()
        self.environment["FSYS_SPACE"] = self.space
        self.environment["PATH"] = os.path.dirname(os.path.realpath(COMMAND)) + ":" + self.environment["PATH"]
        self.environment["TERM"] = "dumb"

    def shell(self, *line):
        result = subprocess.run(line, env=self.environment, cwd=self.root, capture_output=True, timeout=60)
        self.assertEqual((result.returncode, result.stderr), (0, b""), result)
        return [word for word in result.stdout.decode().splitlines() if word]

    def bash(self, *words):
        return sorted(self.shell("bash", "--norc", "--noprofile", "-c", DRIVER, "bash", BASH, "fsys", *words))

    def asked(self, *words):
        """The same where fsys is asked: without the drives of the machine that runs the test."""
        return self.bash("--no-discovery", *words)

    def two_locations_and_a_clip(self):
        cookie = self.import_clip()["cookie"]
        self.add_location("second", "--name", "Raid B")
        return cookie


class Completion(ShellCase):
    def test_commands_are_completed(self):
        self.assertEqual(self.bash("lo"), ["location", "login", "logout"])
        self.assertEqual(self.bash("--json", "--space", "x", "sca"), ["scan"])
        self.assertEqual(self.bash("nothing-like-it"), [])

    def test_commands_of_a_group_are_completed(self):
        self.assertEqual(self.bash("drive", ""), ["best", "task", "time"])
        self.assertEqual(self.bash("--json", "location", "re"), ["remove", "rename"])

    def test_every_command_and_option_of_the_help_is_completed(self):
        for help in all_helps():
            with self.subTest(command=help.words):
                for command in help.commands:
                    self.assertIn(command, self.bash(*help.words, command[0]))
                self.assertEqual(self.bash(*help.words, "--"), sorted(set(help.options + COMMON)))

    def test_an_option_that_the_line_has_is_not_offered_again(self):
        self.assertEqual(self.bash("read", "--hash", "--h"), ["--help"])
        self.assertEqual(self.bash("read", "--h"), ["--hash", "--help"])

    def test_values_of_a_set_are_completed(self):
        known = [(help, option) for help in all_helps() for option in help.choices]
        self.assertGreaterEqual(len(known), 3)
        for help, option in known:
            self.assertEqual(self.bash(*help.words, option, ""), sorted(help.choices[option]))
            # As the shell splits "--option=x".
            self.assertEqual(self.bash(*help.words, option, "=", ""), sorted(help.choices[option]))
            self.assertEqual(self.bash(*help.words, option, "="), sorted(help.choices[option]))
        self.assertEqual(self.bash("find", "--level", "p"), ["proxy"])

    def test_nothing_is_offered_for_a_number_or_a_name(self):
        self.write("25.mov", b"")
        self.assertEqual(self.bash("play", "--fps", ""), [])
        self.assertEqual(self.bash("location", "add", "--name", ""), [])

    def test_files_are_completed_where_a_file_is_meant(self):
        self.media_file("shot 1.mov")
        self.media_file("shots/a.mov")
        self.assertEqual(self.bash("import", "sho"), ["shot 1.mov", "shots"])
        self.assertEqual(self.bash("import", "a", "b", "--link", "shots/"), ["shots/a.mov"])
        self.assertEqual(self.bash("read", "sho"), ["shot 1.mov", "shots"])

    def test_folders_alone_are_completed_where_a_folder_is_meant(self):
        self.media_file("shot.mov")
        self.media_file("shots/a.mov")
        for words in (["location", "add"], ["demo", "--media"], ["--space"], ["login"]):
            self.assertEqual(self.bash(*words, "sh"), ["shots"], words)

    def test_locations_are_completed_by_id_and_by_path(self):
        self.two_locations_and_a_clip()
        for words in (["scan", "--location"], ["drive", "time"], ["location", "remove"], ["link", "--to-location"]):
            self.assertEqual(self.asked(*words, ""), ["1", "2"], words)
        self.assertEqual(self.asked("scan", "--location", self.path("sec")), [self.path("second")])
        self.assertEqual(self.asked("record", "--location", ""), ["1", "2", "auto"])

    def test_cookies_are_completed(self):
        cookie = self.two_locations_and_a_clip()
        for words in (["find"], ["play", "x", "y"], ["rm", "--dry-run"], ["import", "--proxy-of"], ["proxy", "add"]):
            self.assertEqual(self.asked(*words, cookie[:3]), [cookie], words)
        self.assertIn(cookie, self.asked("read", ""))
        self.assertEqual(self.asked("link", ""), [cookie, "realise"])

    def test_the_second_argument_has_a_kind_of_its_own(self):
        cookie = self.two_locations_and_a_clip()
        self.media_file("small.mov")
        self.assertEqual(self.asked("proxy", "add", cookie, "--height", "540", "sm"), ["small.mov"])
        self.assertEqual(self.asked("proxy", "add", cookie, "small.mov", ""), [])
        self.assertEqual(self.asked("find", cookie, ""), [])

    def test_the_project_space_of_the_line_is_asked(self):
        cookie = self.two_locations_and_a_clip()
        space, self.environment["FSYS_SPACE"] = self.environment["FSYS_SPACE"], self.path("other")
        self.assertEqual(self.asked("find", ""), [])
        self.assertEqual(self.asked("--space", space, "find", ""), [cookie])
        self.assertEqual(self.asked("find", "--space", "=", space, ""), [cookie])
        self.assertFalse(os.path.exists(self.path("other")))

    def test_completing_makes_no_project_space(self):
        del self.environment["FSYS_SPACE"]
        self.assertEqual(self.bash("find", ""), [])
        self.assertEqual(self.bash("scan", "--location", ""), [])
        self.assertEqual([name for _, _, names in os.walk(self.path("home")) for name in names], [])
        self.assertFalse(os.path.exists(self.path("home", "data")))

    def test_the_package_bash_completion_loads_it_on_demand(self):
        self.assertTrue(os.path.exists(PACKAGE), "the package bash-completion is not installed")
        place = os.path.join(self.environment["XDG_DATA_HOME"], "bash-completion", "completions")
        os.makedirs(place)
        os.symlink(os.path.abspath(BASH), os.path.join(place, "fsys"))
        script = f"source {PACKAGE}; _completion_loader fsys; complete -p fsys\n" + DRIVER.replace('source "$1" || exit', "")
        self.assertEqual(self.shell("bash", "--norc", "--noprofile", "-c", script, "bash", BASH, "fsys", "drive", "b"),
                         ["complete -F _fsys fsys", "best"])

    def test_a_terminal_shows_what_was_completed(self):
        self.media_file("my shot.mov")
        for keys, shown in (("fsys stat\t", "fsys status "), ("fsys read my\t", r"fsys read my\ shot.mov ")):
            self.assertIn(shown, self.type_into(["bash", "--norc", "--noprofile", "-i"],
                                                f"bind 'set enable-bracketed-paste off'; source {BASH}", keys, re.escape(shown)))

    def type_into(self, shell, preparation, keys, until):
        """What a terminal shows after the keys, once it shows until, or when it has not in time."""
        terminal, side = pty.openpty()
        process = subprocess.Popen(shell, stdin=side, stdout=side, stderr=side, env={**self.environment, "PS1": "> "},
                                   cwd=self.root, start_new_session=True)
        os.close(side)
        shown, sent, end = "", False, time.monotonic() + 30
        try:
            os.write(terminal, f"{preparation}; echo re''ady\r".encode())
            while time.monotonic() < end and not (sent and re.search(until, shown, re.S)):
                if select.select([terminal], [], [], 1)[0]:
                    shown += os.read(terminal, 4096).decode(errors="replace")
                if not sent and re.search(r"\nready\s.*> ", shown, re.S):
                    shown, sent = "", True
                    os.write(terminal, keys.encode())
        finally:
            process.kill()
            process.wait()
            os.close(terminal)
        return shown

    # --- other shells

    def fish(self, line):
        return sorted(self.shell("fish", "--no-config", "-c", f'source {FISH}; complete -C "$argv"', line))

    def test_fish_can_read_its_file_and_completes(self):
        self.shell("fish", "--no-execute", FISH)
        cookie = self.two_locations_and_a_clip()
        self.media_file("small.mov")
        self.assertEqual([line.split("\t")[0] for line in self.fish("fsys lo")], ["location", "login", "logout"])
        self.assertEqual([line.split("\t")[0] for line in self.fish("fsys --json drive ")], ["best", "task", "time"])
        self.assertEqual(self.fish("fsys find --level p"), ["proxy\twhich file is wanted"])
        self.assertEqual([line.split("\t")[0] for line in self.fish("fsys --no-discovery find V")], [cookie])
        self.assertIn("2\tRaid B", self.fish("fsys --no-discovery scan --location "))
        self.assertEqual(self.fish(f"fsys proxy add {cookie} sm"), ["small.mov"])
        self.assertIn("--height\tpicture height, in lines", self.fish(f"fsys proxy add {cookie} x --hei"))

    def test_zsh_can_read_its_file_and_completes(self):
        self.shell("zsh", "-n", ZSH)
        cookie = self.two_locations_and_a_clip()
        for keys, shown in (("fsys lo\t", r"location.*login.*logout"), ("fsys --json drive be\t", r"drive best "),
                            ("fsys find --lev\t", r"--level="), ("fsys find --level \t", r"auto.*high.*proxy"),
                            ("fsys --no-discovery find V\t", cookie),
                            ("fsys --no-discovery scan --location \t", r"Raid B")):
            with self.subTest(keys=keys):
                self.assertRegex(self.zsh(keys, shown), re.compile(shown, re.S))

    def zsh(self, keys, until):
        place = self.path("functions")
        if not os.path.exists(place):
            os.mkdir(place)
            os.symlink(os.path.abspath(ZSH), os.path.join(place, "_fsys"))
        return self.type_into(["zsh", "-f", "-i"], f"fpath=({place} $fpath); autoload -U compinit; compinit -u -D; "
                              "stty cols 200", keys, until)


if __name__ == "__main__":
    main()
