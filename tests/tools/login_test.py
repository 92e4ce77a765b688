import json
import os
import signal
import socket
import subprocess

from command_case import CommandCase, DONE, FAILED, NO, TIMEOUT_S, USAGE, main

MACHINE = socket.gethostname().split(".")[0]
STATE_KEYS = ["state", "machine", "file", "others"]


class LoginCase(CommandCase):
    def setUp(self):
        super().setUp()
        self.folder = self.location_folder("shared")
        self.file = self.path("shared", MACHINE + ".cli")

    def logged_in(self, *arguments):
        """A login that runs; answers it and what it said at its start."""
        process = self.start("--json", "login", self.folder, *arguments, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process, json.loads(process.stdout.readline())

    def ended(self, process, by=signal.SIGINT):
        process.send_signal(by)
        out, err = process.communicate(timeout=TIMEOUT_S)
        self.assertEqual((process.returncode, err), (DONE, b""))
        return json.loads(out)


class Login(LoginCase):
    def test_holds_the_lock_file_while_it_runs(self):
        process, first = self.logged_in()
        self.assertEqual(list(first), STATE_KEYS)
        self.assertEqual(first, {"state": "logged in", "machine": MACHINE, "file": self.file, "others": []})
        self.assertEqual(os.path.getsize(self.file), 0)
        last = self.ended(process)
        self.assertEqual(last, {"state": "logged out", "machine": MACHINE, "file": self.file, "others": []})
        self.assertEqual(os.listdir(self.folder), [])

    def test_ends_in_order_by_either_signal_and_by_time(self):
        for by in (signal.SIGINT, signal.SIGTERM):
            process, _ = self.logged_in()
            self.ended(process, by)
            self.assertFalse(os.path.exists(self.file))
        self.assertEqual(len(self.json_lines("login", self.folder, "--seconds", "0.1")), 2)
        self.assertFalse(os.path.exists(self.file))

    def test_tells_who_else_is_logged_in(self):
        for name in ("EDIT3.cli", "edit 4.cli", "notes.txt"):
            self.write("shared/" + name, b"")
        lines = self.json_lines("login", self.folder, "--seconds", "0.1")
        self.assertEqual(lines[0]["others"], ["EDIT3", "edit 4"])
        text = self.run_command("login", self.folder, "--seconds", "0.1").text
        self.assertIn("EDIT3: logged in too", text)
        self.assertEqual(sorted(os.listdir(self.folder)), ["EDIT3.cli", "edit 4.cli", "notes.txt"])

    def test_a_second_login_of_this_machine_sees_the_first(self):
        process, _ = self.logged_in()
        self.refused("login", self.folder, "--seconds", "0.1", expect=NO, message="is running")
        self.assertTrue(os.path.exists(self.file))
        self.ended(process)
        self.assertEqual(len(self.json_lines("login", self.folder, "--seconds", "0.1")), 2)

    def test_takes_over_a_file_that_a_crash_left(self):
        process, _ = self.logged_in()
        process.kill()
        process.wait()
        self.assertTrue(os.path.exists(self.file))
        self.assertEqual(len(self.json_lines("login", self.folder, "--seconds", "0.1")), 2)
        self.assertFalse(os.path.exists(self.file))

    def test_a_folder_that_is_none_fails(self):
        self.refused("login", self.path("none"), expect=FAILED, message="not a folder")
        self.refused("login", self.media_file(), expect=FAILED, message="not a folder")
        self.refused("login", "/proc", "--seconds", "0.1", expect=FAILED, message="cannot hold")

    def test_wrong_arguments(self):
        self.refused("login", expect=USAGE, message="FOLDER")
        for wrong in ("-1", "0", "x", "nan"):
            self.refused("login", self.folder, "--seconds", wrong, expect=USAGE)


class Logout(LoginCase):
    def crashed_login(self):
        process, _ = self.logged_in()
        process.kill()
        process.wait()

    def test_removes_a_file_that_a_crash_left(self):
        self.crashed_login()
        self.assertEqual(self.json("logout", self.folder),
                         {"state": "logged out", "machine": MACHINE, "file": self.file, "others": []})
        self.assertEqual(os.listdir(self.folder), [])

    def test_without_a_folder_it_is_that_of_the_last_login(self):
        self.crashed_login()
        self.assertIn("logged out", self.run_command("logout").text)
        self.assertFalse(os.path.exists(self.file))

    def test_a_running_login_is_left_alone(self):
        process, _ = self.logged_in()
        for line in (["logout"], ["logout", self.folder]):
            self.refused(*line, expect=NO, message="is running")
        self.assertTrue(os.path.exists(self.file))
        self.ended(process)

    def test_logins_of_other_machines_stay(self):
        self.crashed_login()
        self.write("shared/EDIT3.cli", b"")
        self.assertEqual(self.json("logout")["others"], ["EDIT3"])
        self.assertEqual(os.listdir(self.folder), ["EDIT3.cli"])

    def test_without_a_login_the_answer_is_no(self):
        self.refused("logout", expect=NO, message="no login")
        self.refused("logout", self.folder, expect=NO, message="not logged in")
        self.json_lines("login", self.folder, "--seconds", "0.1")
        self.refused("logout", expect=NO, message="not logged in")


if __name__ == "__main__":
    main()
