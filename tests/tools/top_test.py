import json
import os
import queue
import shutil
import signal
import subprocess
import threading
import time

from command_case import CommandCase, DONE, TIMEOUT_S, USAGE, main

KEYS = ["time", "id", "name", "path", "online", "disk", "read_mb_per_s", "write_mb_per_s", "queue_depth", "in_flight",
        "slow", "free_bytes", "total_bytes", "minutes"]
FIGURES = KEYS[5:]


class Running:
    """A top in the background, line by line."""

    def __init__(self, case, *arguments):
        self.case = case
        self.process = case.start("--json", "top", "--interval", "0.05", *arguments, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE)
        case.addCleanup(self.process.communicate)
        case.addCleanup(self.process.kill)
        self.lines = queue.Queue()
        threading.Thread(target=lambda: [self.lines.put(line) for line in self.process.stdout], daemon=True).start()

    def until(self, condition):
        """The first line that fits."""
        end = time.monotonic() + TIMEOUT_S
        while time.monotonic() < end:
            line = json.loads(self.lines.get(timeout=TIMEOUT_S))
            if condition(line):
                return line
        self.case.fail("no such line")


class Screen:
    """A shell on a terminal of a size, in a server of tmux that belongs to the test."""

    def __init__(self, case, columns, lines):
        self.case = case
        self.socket = case.path("tmux")
        settings = case.write("tmux.conf", b"set -g status off\nset -g default-terminal screen\n")
        case.environment.update(NO_COLOR="")
        self.tmux("-f", settings, "-u", "new-session", "-d", "-x", str(columns), "-y", str(lines), "sh")
        case.addCleanup(self.tmux, "kill-server")
        self.until(lambda text: text.strip())  # the prompt

    def tmux(self, *words):
        done = subprocess.run(["tmux", "-S", self.socket, *words], env=self.case.environment, cwd=self.case.root,
                              capture_output=True, timeout=TIMEOUT_S)
        self.case.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout.decode()

    def text(self):
        return self.tmux("capture-pane", "-p")

    def type(self, *keys):
        self.tmux("send-keys", *keys)

    def until(self, condition):
        end = time.monotonic() + TIMEOUT_S
        while time.monotonic() < end:
            text = self.text()
            if condition(text):
                return text
            time.sleep(0.02)
        self.case.fail("the screen shows:\n" + self.text())

    def is_alternate(self):
        return self.tmux("display-message", "-p", "#{alternate_on} #{cursor_flag}").strip() != "0 1"

    def start_top(self, *arguments, until="q quits", job_control=True):
        """Runs top from a script that writes down its id, how it ended and the modes of the terminal around it."""
        line = " ".join([os.environ["FSYS_COMMAND"], "--space", self.case.space, "--no-discovery", "top", *arguments])
        self.case.write("run.sh", f"set {'-m' if job_control else '+m'}; stty -g >before; sh -c 'echo $$ >pid; exec {line}'; echo $? >status; "
                                  "stty -g >after\n".encode())
        self.type("clear; echo earlier; . ./run.sh; echo la''ter", "Enter")
        return self.until(lambda text: until in text)

    def pid(self):
        with open(self.case.path("pid"), encoding="utf-8") as file:
            return int(file.read())

    def ended(self):
        """Answers the exit status after the terminal is as it was."""
        text = self.until(lambda text: "later" in text)
        self.case.assertIn("earlier", text)
        self.case.assertNotIn("fsys top", text)
        self.case.assertFalse(self.is_alternate())
        modes = []
        for name in ("before", "after"):
            with open(self.case.path(name), encoding="utf-8") as file:
                modes.append(file.read())
        self.case.assertEqual(*modes)
        with open(self.case.path("status"), encoding="utf-8") as file:
            return int(file.read())


class Top(CommandCase):
    def test_has_one_line_for_each_location_and_interval(self):
        self.add_location("a", "--name", "Raid A")
        self.add_location("b")
        lines = self.json_lines("top", "--interval", "0.05", "--count", "3")
        self.assertEqual([(line["id"], line["name"], line["path"]) for line in lines],
                         [("1", "Raid A", self.path("a")), ("2", "b", self.path("b"))] * 3)
        for line in lines:
            self.assertEqual(list(line), KEYS)
            self.assertIs(line["online"], True)
        times = [line["time"] for line in lines[::2]]
        self.assertLess(times[0] + 0.09, times[2])

    def test_tells_the_room_of_the_file_system(self):
        self.add_location()
        line = self.json("top", "--interval", "0.05", "--count", "1")
        about = os.statvfs(self.path("location"))
        self.assertEqual(line["total_bytes"], about.f_blocks * about.f_frsize)
        self.assertLess(abs(line["free_bytes"] - about.f_bavail * about.f_frsize), 1 << 33)

    def test_a_location_that_goes_is_offline_until_it_comes_back(self):
        self.add_location()
        top = Running(self)
        self.assertEqual(top.until(lambda line: line["online"])["id"], "1")
        os.rename(self.path("location"), self.path("away"))
        gone = top.until(lambda line: not line["online"])
        self.assertEqual([gone[key] for key in FIGURES], [None] * len(FIGURES))
        self.assertEqual((gone["id"], gone["name"]), ("1", "location"))
        os.rename(self.path("away"), self.path("location"))
        self.assertEqual(top.until(lambda line: line["online"])["id"], "1")

    def test_a_location_that_was_never_there_is_shown(self):
        self.add_location()
        os.rename(self.path("location"), self.path("away"))
        top = Running(self)
        line = top.until(lambda line: True)
        self.assertEqual((line["id"], line["path"], line["online"]), (None, self.path("location"), False))
        os.rename(self.path("away"), self.path("location"))
        self.assertEqual(top.until(lambda line: line["online"])["id"], "1")

    def test_locations_that_other_processes_add_rename_and_remove_are_followed(self):
        self.add_location("a")
        top = Running(self)
        top.until(lambda line: line["id"] == "1")
        self.add_location("b")
        top.until(lambda line: line["path"] == self.path("b") and line["online"])
        self.run_command("location", "rename", "1", "Raid B")
        top.until(lambda line: line["name"] == "Raid B")
        self.run_command("location", "remove", self.path("a"))
        count = 0
        while count < 3:
            count = count + 1 if top.until(lambda line: True)["path"] == self.path("b") else 0

    def test_without_locations_says_so(self):
        self.assertEqual(self.json_lines("top", "--interval", "0.05", "--count", "1"), [])
        process = self.start("top", "--interval", "0.05", "--count", "1", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = process.communicate(timeout=TIMEOUT_S)
        self.assertEqual((process.returncode, out), (DONE, b""))
        self.assertIn(b"no media location", err)

    def test_into_a_pipe_is_a_table_that_cuts_no_name(self):
        name = "A rather long name of a raid that would not fit " * 2
        self.add_location("a", "--name", name)
        self.add_location("b")
        os.rename(self.path("b"), self.path("away"))
        rows = self.run_command("top", "--interval", "0.05", "--count", "1").text.splitlines()
        self.assertRegex(rows[0], r"^ID +NAME +READ MB/s +WRITE MB/s +QUEUE +SLOW +FREE +LEFT$")
        self.assertIn(name.strip(), rows[1])
        self.assertRegex(rows[2], r"^- +" + self.path("b") + " +offline$")
        self.assertEqual({len(row) for row in rows[:3]}, {len(rows[0])})

    def test_either_signal_ends_it_in_order(self):
        self.add_location()
        for by in (signal.SIGINT, signal.SIGTERM):
            top = Running(self)
            top.until(lambda line: True)
            top.process.send_signal(by)
            self.assertEqual(top.process.wait(timeout=TIMEOUT_S), DONE)
            self.assertEqual(top.process.stderr.read(), b"")

    def test_numbers_out_of_reason_are_wrong_usage(self):
        for option, wrong in (("--interval", ("0", "-1", "nan", "inf", "x", "", "0.01", "1e9")),
                              ("--count", ("0", "-1", "x", "1.5", ""))):
            for value in wrong:
                with self.subTest(option=option, value=value):
                    self.refused("top", option, value, expect=USAGE)


class TopOnATerminal(CommandCase):
    def setUp(self):
        super().setUp()
        self.assertIsNotNone(shutil.which("tmux"), "tmux is not installed")

    def test_fills_it_and_ends_with_q(self):
        self.add_location("a", "--name", "Raid A")
        screen = Screen(self, 80, 24)
        text = screen.start_top("--interval", "0.2")
        self.assertNotIn("earlier", text)
        self.assertTrue(screen.is_alternate())
        rows = screen.until(lambda text: " no " in text or " - " in text).splitlines()
        self.assertRegex(rows[0], r"^fsys top  \d\d:\d\d:\d\d +every 0.2 s, q quits$")
        self.assertRegex(rows[1], r"^ID +NAME +READ MB/s +WRITE MB/s +QUEUE +SLOW +FREE +LEFT$")
        self.assertRegex(rows[2], r"^1 +Raid A .* [0-9.]+ [kMGT]?B ")
        self.assertEqual(len(rows[0]), 80)
        screen.type("x")  # means nothing
        screen.type("q")
        self.assertEqual(screen.ended(), DONE)

    def test_ends_by_itself_after_its_count(self):
        self.add_location()
        screen = Screen(self, 80, 24)
        screen.start_top("--interval", "0.2", "--count", "2", until="later")
        self.assertEqual(screen.ended(), DONE)

    def test_gives_the_terminal_back_whatever_ends_it(self):
        self.add_location()
        screen = Screen(self, 80, 24)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGQUIT, signal.SIGHUP):
            with self.subTest(signal=number):
                screen.start_top()
                os.kill(screen.pid(), number)
                self.assertEqual(screen.ended(), DONE)
        for key in ("C-c", "C-\\"):
            with self.subTest(key=key):
                screen.start_top()
                screen.type(key)
                self.assertEqual(screen.ended(), DONE)

    def test_gives_the_terminal_back_when_the_second_signal_kills(self):
        self.add_location()
        screen = Screen(self, 80, 24)
        # A shell that hears of the stop would go on without it.
        screen.start_top("--interval", "1000", job_control=False)
        pid = screen.pid()
        # Both are pending when it goes on, so that the second comes before the first was obeyed.
        os.kill(pid, signal.SIGSTOP)
        os.kill(pid, signal.SIGTERM)
        os.kill(pid, signal.SIGHUP)
        os.kill(pid, signal.SIGCONT)
        self.assertIn(screen.ended(), (128 + signal.SIGHUP, 128 + signal.SIGTERM))

    def test_follows_the_size_of_the_terminal(self):
        self.add_location("a", "--name", "Raid \u4e2d\u6587 \u00e4")
        screen = Screen(self, 100, 30)
        screen.start_top("--interval", "1000")
        self.assertEqual(len(screen.text().splitlines()[0]), 100)
        for columns, lines, present, absent in ((60, 10, ("READ", "WRITE", "LEFT", "FREE"), ("QUEUE", "SLOW")),
                                                (40, 5, ("LEFT", "FREE"), ("WRITE", "READ")), (22, 3, ("FREE",), ("LEFT",)),
                                                (120, 40, ("QUEUE", "SLOW", "READ"), ())):
            with self.subTest(columns=columns):
                screen.tmux("resize-window", "-x", str(columns), "-y", str(lines))
                text = screen.until(lambda text: "FREE" in text and all(word in text for word in present)
                                    and not any(word in text for word in absent))
                rows = [row for row in text.splitlines() if row]
                self.assertEqual(len(rows), 3)
                self.assertTrue(rows[2].startswith("1  Raid"), text)
        for columns, lines in ((1, 1), (2, 50), (80, 1)):
            screen.tmux("resize-window", "-x", str(columns), "-y", str(lines))
            self.assertTrue(screen.is_alternate())
        screen.tmux("resize-window", "-x", "80", "-y", "24")
        screen.until(lambda text: "q quits" in text)
        screen.type("q")
        self.assertEqual(screen.ended(), DONE)

    def test_more_locations_than_lines_are_reached_by_the_arrow_keys(self):
        for i in range(8):
            self.add_location(f"place{i}")
        screen = Screen(self, 80, 7)
        text = screen.start_top("--interval", "1000", until="below")
        self.assertIn("0 above, 4 below", text)
        self.assertTrue("place3" in text and "place4" not in text, text)
        for _ in range(10):
            screen.type("Down")
        text = screen.until(lambda text: "4 above, 0 below" in text)
        self.assertTrue("place7" in text and "place3" not in text, text)
        screen.type("Up")
        screen.until(lambda text: "3 above, 1 below" in text)
        screen.type("q")
        self.assertEqual(screen.ended(), DONE)

    def test_a_location_that_goes_is_offline_on_the_screen(self):
        self.add_location("a")
        screen = Screen(self, 80, 24)
        screen.start_top("--interval", "0.1")
        os.rename(self.path("a"), self.path("away"))
        screen.until(lambda text: "offline" in text)
        os.rename(self.path("away"), self.path("a"))
        screen.until(lambda text: "offline" not in text)
        screen.type("q")
        self.assertEqual(screen.ended(), DONE)

    def test_names_give_no_commands_to_the_terminal(self):
        self.add_location("a", "--name", "x\x1b]0;title\x07\u009b31m\u00e9")
        screen = Screen(self, 80, 24)
        text = screen.start_top("--interval", "1000")
        self.assertIn("x?]0;title??31m\u00e9", text)
        screen.type("q")
        self.assertEqual(screen.ended(), DONE)


if __name__ == "__main__":
    main()
