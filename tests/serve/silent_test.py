"""A location whose server stops answering, seen by those who watch it all the time."""

import os
import signal
import subprocess
import sys
import threading
import time

from serve_case import LIMIT_S, ServeCase, UNKNOWN_COOKIE, main, skip


class Silent(ServeCase):
    def setUp(self):
        super().setUp()
        program = os.environ.get("FAULT_FS")
        if not program:
            skip("libfuse3 is missing")
        self.rules = self.write("rules", b"\n")
        self.point = self.location_folder("server")
        below = self.location_folder("below")
        self.program = subprocess.Popen([program, self.rules, below, "-f", "-o",
                                         "fsname=someone@server:/media,subtype=sshfs,max_threads=64", self.point])
        self.addCleanup(self.program.wait)
        self.addCleanup(self.program.kill)
        self.addCleanup(subprocess.run, ["umount", "-l", self.point], stderr=subprocess.DEVNULL, check=False)
        end = time.monotonic() + LIMIT_S
        while not self.is_mounted():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.01)
        self.add_location("disk")
        self.add_location("server")
        self.clip = self.import_file(self.media_file(), "2")

    def is_mounted(self):
        with open("/proc/self/mountinfo", encoding="utf-8") as table:
            return any(line.split()[4] == self.point for line in table)

    def rule(self, text):
        os.replace(self.write("rules.new", text + b"\n"), self.rules)

    def test_the_page_says_so_and_goes_on(self):
        server = self.serving()
        server.wait_for_status(self.point, "online")
        server.wait_for(lambda state: state["clips"]["whole"] == 1)
        self.rule(b"* * hang")
        server.wait_for_status(self.point, "not_responding")
        times = {server.wait_for(lambda state: True)["time"]}
        server.wait_for(lambda state: times.add(state["time"]) or len(times) >= 3)
        self.assertEqual(server.location(self.path("disk"))["status"], "online")
        self.rule(b"")
        server.wait_for_status(self.point, "online")
        server.wait_for(lambda state: state["clips"]["whole"] == 1)
        server.end()

    def test_a_watch_goes_on_and_can_be_ended(self):
        watch = self.start("watch", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(watch.communicate)
        self.addCleanup(watch.kill)
        watch.stdout.readline()
        lines = []
        reader = threading.Thread(target=lambda: lines.extend(iter(watch.stdout.readline, b"")), daemon=True)
        reader.start()
        self.rule(b"* * hang")
        self.await_line(lines, b"MediaOnlineChangeMsg")
        self.write(f"disk/Material/{UNKNOWN_COOKIE}.mov", b"x" * 100)
        self.await_line(lines, UNKNOWN_COOKIE.encode())
        # What a server that does not answer holds has not been removed.
        self.assertEqual([line for line in lines if b"SysCacheDel" in line], [])
        watch.send_signal(signal.SIGINT)
        # The kernel keeps a process until its calls to the server have ended.
        self.rule(b"")
        self.assertEqual(watch.wait(timeout=LIMIT_S), 0)

    def await_line(self, lines, part):
        end = time.monotonic() + LIMIT_S
        while not any(part in line for line in lines):
            self.assertLess(time.monotonic(), end, lines)
            time.sleep(0.05)


if __name__ == "__main__":
    main()
