import os
import re
import signal
import subprocess

from command_case import CommandCase, DONE, FAILED, NO, USAGE, main

COMMANDS = [line.split() for line in (
    "location add", "location list", "location remove", "location rename", "location prepare", "location unmounted",
    "location unmount", "scan", "import", "find", "clip", "status", "read", "play", "rm", "proxy add", "proxy rename",
    "proxy rm", "link", "link realise", "drive best", "drive time", "drive task", "share list", "share to-local",
    "share to-unc", "login", "logout", "watch", "top", "serve", "demo")]
GROUPS = {"location": ("add", "list", "remove", "rename", "prepare", "unmounted", "unmount"),
          "proxy": ("add", "rename", "rm"), "drive": ("best", "time", "task"),
          "share": ("list", "to-local", "to-unc"), "link": ("realise",)}


class Usage(CommandCase):
    def test_help_of_the_command_names_every_subcommand_and_exit_status(self):
        text = self.run_command("--help").text
        for word in [command[0] for command in COMMANDS] + ["--space", "--json", "--no-discovery",
                                                            "exit status: 0 done"]:
            self.assertIn(word, text)

    def test_help_of_every_subcommand_has_an_example(self):
        for command in COMMANDS:
            with self.subTest(command=command):
                text = self.run_command(*command, "--help").text
                example = [line for line in text.splitlines() if line.startswith("example: fsys ")]
                self.assertEqual(len(example), 1, text)
                self.assertIn(" ".join(command), example[0])

    def test_help_of_every_subcommand_documents_keys_and_exit_status(self):
        for command in COMMANDS:
            with self.subTest(command=command):
                text = self.run_command(*command, "--help").text
                self.assertEqual(len(re.findall(r"^keys: \S", text, re.M)), 1, text)
                status = re.search(r"^exit status: 0 .*?^example: ", text, re.M | re.S)
                self.assertIsNotNone(status, text)
                self.assertRegex(status.group(), r"2\s+wrong\s+usage;\s+3\s+\S")

    def test_documented_keys_are_those_of_the_answer(self):
        cookie = self.import_clip()["cookie"]
        proxy = self.json("proxy", "add", cookie, self.media_file("p.mov"), "--height", "540")["file"]
        self.environment["FSYS_SMB_CONF"] = self.write(
            "smb.conf", f"[global]\nusershare path =\n[media]\npath = {self.root}\n".encode())
        unc = self.json("share", "to-unc", self.path("media"))["unc"]
        renamed = cookie + ".A0.proxy.270.mov"
        for line in (["location", "add", self.location_folder("b")], ["location", "list"],
                     ["location", "rename", "2", "Raid"], ["location", "prepare", "2"], ["location", "unmounted"],
                     ["location", "remove", "2"], ["scan"], ["find", cookie], ["clip", cookie], ["status"],
                     ["read", cookie], ["play", cookie, "--fps", "25", "--frame-bytes", "1k", "--seconds", "0.1"],
                     ["import", self.media_file("q.mov"), "--location", "1"], ["link", "realise", cookie],
                     ["proxy", "rename", cookie, proxy, renamed], ["proxy", "rm", cookie, renamed],
                     ["drive", "best", "--mb", "1"], ["drive", "time", "1", "--rate-a", "1"],
                     ["drive", "task", "Record", "--set", "1"], ["share", "list"], ["share", "to-unc", self.path("media")],
                     ["share", "to-local", unc], ["login", self.root, "--seconds", "0.01"],
                     ["top", "--interval", "0.05", "--count", "1"], ["rm", cookie, "--all"]):
            command = line[:2] if line[:2] in COMMANDS else line[:1]
            with self.subTest(command=command):
                answer = self.json_lines(*line)[0]
                help = self.run_command(*command, "--help").text
                words = set(re.findall(r"[a-z_0-9]+", help[help.index("\nkeys: "):help.index("\nexit status: ")]))
                self.assertLessEqual(self.keys_of(answer), words)

    def keys_of(self, answer):
        if isinstance(answer, list):
            return set().union(*map(self.keys_of, answer))
        if not isinstance(answer, dict):
            return set()
        return set(answer).union(*map(self.keys_of, answer.values()))

    def test_help_of_a_group_names_its_commands_and_has_an_example(self):
        for group, commands in GROUPS.items():
            text = self.run_command(group, "--help").text
            for command in commands:
                self.assertRegex(text, rf"(?m)^  {command} ")
            self.assertRegex(text, rf"(?m)^example: fsys {group} ")

    def test_help_makes_no_project_space(self):
        self.run_command("scan", "--help")
        self.assertFalse(os.path.exists(self.space))

    def test_help_names_every_option(self):
        for command, options in (("scan", ["--location"]), ("find", ["--level", "--height"]),
                                 ("import", ["--location", "--link", "--proxy-of", "--height", "--channels", "--sound"]),
                                 ("read", ["--block", "--depth", "--hash"]), ("demo", ["--dir", "--media"]),
                                 ("play", ["--fps", "--frame-bytes", "--seconds", "--level", "--plot"]),
                                 ("read", ["--plot"]), ("record", ["--plot"]), ("top", ["--interval", "--count"])):
            text = self.run_command(command, "--help").text
            for option in options:
                self.assertIn(option, text)

    def test_no_command_is_wrong_usage(self):
        self.refused(expect=USAGE, message="required")
        self.refused("location", expect=USAGE, message="required")

    def test_an_unknown_command_is_named(self):
        self.refused("bogus", expect=USAGE, message="bogus")
        self.refused("location", "bogus", expect=USAGE, message="bogus")
        self.refused("--json", "bogus", expect=USAGE, message="bogus")

    def test_a_wrong_command_suggests_the_nearest_right_one(self):
        for line, nearest in (("stauts", "status"), ("clp", "clip"), ("sttus", "status"), ("locaton list", "location"),
                              ("location lst", "location list"), ("location renam 1 x", "location rename"),
                              ("lst", "location list"), ("realise x", "link realise"), ("proxy ad x", "proxy add"),
                              ("drive tiem 1", "drive time"), ("share to-loc x", "share to-local"),
                              ("link realize V0123456789ABCDEF00", "link realise"), ("link realize", "link realise"),
                              ("--json wath", "watch"), ("loginn /x", "login")):
            with self.subTest(line=line):
                result = self.refused(*line.split(), expect=USAGE)
                self.assertRegex(result.message, rf"the nearest command is: fsys {nearest}\n")

    def test_a_command_that_resembles_none_suggests_none(self):
        for line in (["bogus"], ["location", "frobnicate"], ["x"]):
            self.assertNotIn("nearest", self.refused(*line, expect=USAGE).message)

    def test_an_argument_too_many_is_not_taken_for_a_command(self):
        for line in (["find", "a", "lst"], ["scan", "stauts"], ["location", "list", "ad"],
                     ["link", "V0123456789ABCDEF00", "--to-location", "1", "surplus"]):
            self.assertNotIn("nearest", self.refused(*line, expect=USAGE).message)

    def test_an_unknown_option_is_named(self):
        for command in COMMANDS:
            with self.subTest(command=command):
                self.refused(*command, "--bogus", expect=USAGE, message="--bogus")

    def test_a_missing_argument_is_named(self):
        for line, name in ((["location", "add"], "PATH"), (["location", "remove"], "PATH|ID"), (["find"], "COOKIE"),
                           (["read"], "COOKIE|PATH"), (["import", "--location", "1"], "FILE"),
                           (["import", "x"], "--location"), (["scan", "--location"], "--location"),
                           (["find", "x", "--height"], "--height"), (["read", "x", "--block"], "--block")):
            with self.subTest(line=line):
                self.refused(*line, expect=USAGE, message=name)

    def test_an_argument_too_many_is_named(self):
        for line in (["find", "a", "surplus"], ["scan", "surplus"], ["location", "list", "surplus"],
                     ["read", "a", "surplus"], ["demo", "surplus"]):
            with self.subTest(line=line):
                self.refused(*line, expect=USAGE, message="surplus")

    def test_numbers_that_make_no_sense(self):
        file = self.media_file()
        for option, wrong in (("--block", ("0", "-1", "-4k", "x", "4q", "", "2g", "99999999999999999999", "1.5")),
                              ("--depth", ("0", "-1", "x", "", "4097", "99999999999", "1.5"))):
            for value in wrong:
                with self.subTest(option=option, value=value):
                    self.refused("read", file, option, value, expect=USAGE)
        for height in ("0", "-4", "x", "99999999999"):
            self.refused("find", "V0123456789ABCDEF00", "--height", height, expect=USAGE)
        self.refused("find", "V0123456789ABCDEF00", "--level", "best", expect=USAGE)

    def test_wrong_usage_makes_no_project_space(self):
        self.refused("find", expect=USAGE)
        self.assertFalse(os.path.exists(self.space))

    def test_general_options_may_stand_behind_the_command(self):
        clip = self.import_clip()
        result = self.start("find", clip["cookie"], "--json", "--space", self.space, "--no-discovery", space=False,
                            discovery=True, stdout=subprocess.PIPE)
        self.assertIn(b'"status":"online"', result.communicate()[0])
        self.assertEqual(result.returncode, DONE)


class Output(CommandCase):
    def test_a_wrong_configuration_is_told_on_standard_error_alone(self):
        self.environment["FSYS_CONFIG"] = self.write("wrong.conf", b"filesystem_threads = many\nfsys_debug = x\n")
        self.environment["FSYS_CFG_system_cache_debug"] = "nonsense"
        process = self.start("--json", "location", "list", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = process.communicate()
        self.assertEqual(out, b'{"locations":[]}\n')
        self.assertEqual(process.returncode, DONE)

    def test_what_the_libraries_print_stays_out_of_the_answer(self):
        # Opening a file that is not there makes the engine print a diagnostic.
        self.add_location()
        self.write("location/Material/V0123456789ABCDEF00.mov", b"/nowhere.mov".ljust(512, b"\0"))
        answer = self.json("find", "V0123456789ABCDEF00", expect=1)
        self.assertEqual(answer["status"], "offline")

    def test_verbose_leaves_standard_output_alone(self):
        cookie = self.import_clip()["cookie"]
        process = self.start("--verbose", "--json", "read", cookie, "--hash", stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE)
        out = process.communicate()[0]
        self.assertEqual(process.returncode, DONE)
        self.assertEqual(out.count(b"\n"), 1)
        self.assertTrue(out.startswith(b'{"bytes":100000,'))

    def test_an_answer_that_cannot_be_written_fails(self):
        file = self.media_file()
        for line in (["--json", "read", file], ["read", file], ["--json", "location", "list"]):
            with open("/dev/full", "wb") as full:
                process = self.start(*line, stdout=full, stderr=subprocess.PIPE)
                err = process.communicate()[1]
            self.assertEqual(process.returncode, FAILED)
            self.assertIn(b"could not be written", err)

    def test_complaints_never_land_in_a_file_that_got_the_number_of_a_closed_stream(self):
        self.add_location()
        file = self.media_file(size=3_000_000)
        for closed in ((1, 2), (0, 1, 2), (2,)):
            for more, status in (([file], DONE), (["--verbose", self.path("none"), file], FAILED)):
                process = self.start("import", "--location", "1", *more, stdout=subprocess.DEVNULL,
                                     preexec_fn=lambda: [os.close(number) for number in closed])
                self.assertEqual(process.wait(), status)
        copies = 0
        for place, _, names in os.walk(self.root):
            for name in names:
                with open(os.path.join(place, name), "rb") as opened:
                    self.assertNotIn(b"fsys: ", opened.read(), name)
                if name.startswith("V"):
                    self.assertEqual(self.hash_of(os.path.join(place, name)), self.hash_of(file))
                    copies += 1
        self.assertEqual(copies, 6)

    def test_nothing_is_left_in_the_folder_for_temporary_files(self):
        cookie = self.import_clip()["cookie"]
        self.run_command("read", cookie, "--hash")
        self.run_command("scan")
        self.assertEqual(os.listdir(self.path("tmp")), [])


class Terminal(CommandCase):
    """run_command checks for every other test that a pipe sees no bar."""

    def test_names_give_no_commands_to_the_terminal(self):
        name = self.path("a\x1b]0;title\x07\u009b31m\u00e9\x7f")
        result = self.run_on_terminal("read", name)
        self.assertEqual(result.status, NO)
        self.assertIn("a?]0;title?".encode(), result.shown)
        self.assertIn("31m\u00e9?".encode(), result.shown)
        for control in (b"\x1b]", b"\x07", "\u009b".encode(), b"\x7f"):
            self.assertNotIn(control, result.shown)

    def test_reading_shows_a_bar(self):
        result = self.run_on_terminal("--json", "read", self.media_file(size=5 << 20))
        self.assertEqual(result.status, DONE)
        self.assertRegex(result.shown, rb"\rread \[[#.]{30}\] +\d+%")
        self.assertEqual(result.out.count(b"\n"), 1)
        self.assertNotIn(b"\r", result.out)

    def test_playing_copying_and_the_demo_show_bars(self):
        cookie = self.import_clip()["cookie"]
        play = self.run_on_terminal("play", cookie, "--fps", "25", "--frame-bytes", "1k", "--seconds", "0.2")
        self.assertIn(b"play [", play.shown)
        copy = self.run_on_terminal("import", self.media_file(size=2 << 20), "--location", "1")
        self.assertIn(b"copy [", copy.shown)
        demo = self.run_on_terminal("demo", "--seconds", "0.2", "--dir", self.path("demo"))
        self.assertIn(b"read [", demo.shown)
        self.assertEqual((play.status, copy.status, demo.status), (DONE, DONE, DONE))

    def test_the_bar_is_wiped_when_the_work_is_done(self):
        result = self.run_on_terminal("read", self.media_file(size=2 << 20))
        self.assertTrue(result.shown.endswith(b"\r\x1b[K"), result.shown)

    def test_an_interrupt_ends_long_work(self):
        cookie = self.import_clip()["cookie"]
        result = self.run_on_terminal("play", cookie, "--fps", "25", "--frame-bytes", "1k", "--seconds", "100000",
                                      interrupt_at=b"play [")
        self.assertEqual(result.status, -signal.SIGINT)
        self.assertEqual(result.out, b"")

    def test_an_interrupted_copy_is_no_clip(self):
        self.add_location()
        source = self.path("media", "huge.mov")
        with open(source, "wb") as file:
            file.truncate(4 << 30)
        result = self.run_on_terminal("import", source, "--location", "1", interrupt_at=b"copy [")
        self.assertEqual(result.status, -signal.SIGINT)
        self.assertEqual(self.json("scan")["clips"], 0)


if __name__ == "__main__":
    main()
