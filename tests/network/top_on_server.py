"""What top tells of a location whose server stops answering (fault_fs)."""

import os
import signal

from network_case import NetworkCase, main
from top_test import Running, Screen


class TopOnServer(NetworkCase):
    def setUp(self):
        super().setUp()
        self.need("tmux")
        self.point = self.path("mount")
        for folder in ("below/place", "mount"):
            os.makedirs(self.path(folder))
        self.rule("")
        self.server(os.environ["FAULT_FS"], self.path("rules"), self.path("below"), "-f", "-o",
                    "fsname=someone@server:/media,subtype=sshfs,max_threads=64", self.point)
        self.mounts.append(self.point)
        self.wait_until(lambda: self.is_mounted(self.point), "not mounted")
        self.addCleanup(self.rule, "")
        self.add_location("mount/place")
        self.add_location("here")

    def rule(self, line):
        self.write("rules.new", line.encode() + b"\n")
        os.rename(self.path("rules.new"), self.path("rules"))

    def test_a_server_that_stops_answering_is_offline(self):
        top = Running(self)
        far = top.until(lambda line: line["id"] == "1")
        self.assertTrue(far["online"] and far["disk"] is None and far["read_mb_per_s"] is None, far)
        self.rule("* * hang")
        top.until(lambda line: line["id"] == "1" and not line["online"])
        # Known to be stuck: from now on a look at the other one waits for nobody.
        times = [top.until(lambda line: line["id"] == "2")["time"] for _ in range(20)]
        self.assertLess(times[-1] - times[0], 15)
        self.rule("")
        top.until(lambda line: line["id"] == "1" and line["online"])

    def test_the_screen_is_given_back_by_q_while_a_server_does_not_answer(self):
        screen = Screen(self, 80, 24)
        screen.start_top("--interval", "0.1")
        self.rule("* * hang")
        screen.until(lambda text: "offline" in text)
        screen.type("q")
        # The process itself may stay until the server answers: the kernel waits for its calls.
        screen.until(lambda text: "earlier" in text and "fsys top" not in text)
        self.rule("")
        self.assertEqual(screen.ended(), 0)

    def test_starts_while_a_server_does_not_answer(self):
        self.rule("* * hang")
        top = Running(self)
        self.assertIs(top.until(lambda line: line["path"] == self.path("mount/place"))["online"], False)
        self.assertIs(top.until(lambda line: line["path"] == self.path("here"))["online"], True)
        top.process.send_signal(signal.SIGINT)
        self.rule("")
        self.assertEqual(top.process.wait(timeout=120), 0)


if __name__ == "__main__":
    main()
