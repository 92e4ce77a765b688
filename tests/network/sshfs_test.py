import os
import signal
import socket
import subprocess
import time

from network_case import LIMIT_S, NetworkCase, main

PORT = "2222"
MB = 1_000_000


class Sshfs(NetworkCase):
    """A folder behind a secure shell, whose server stops, dies and comes back."""

    def setUp(self):
        super().setUp()
        self.need("sshd", "sshfs", "ssh-keygen")
        self.mount_memory("/run")
        os.mkdir("/run/sshd")
        for key in ("host", "user"):
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", self.path(key)], check=True)
        self.config = self.write("sshd.conf", (
            f"Port {PORT}\nListenAddress 127.0.0.1\nHostKey {self.path('host')}\nPidFile none\nUsePAM no\n"
            f"AuthorizedKeysFile {self.path('user.pub')}\nStrictModes no\nPermitRootLogin yes\n"
            "PasswordAuthentication no\nSubsystem sftp /usr/lib/openssh/sftp-server\n").encode())
        self.below = self.path("below")
        self.point = self.path("remote")
        os.mkdir(self.below)
        os.mkdir(self.point)
        self.start_server()

    def start_server(self):
        self.sshd = self.server("/usr/sbin/sshd", "-D", "-e", "-f", self.config)
        self.wait_until(self.is_listening, "no sshd")

    @staticmethod
    def is_listening():
        try:
            socket.create_connection(("127.0.0.1", int(PORT)), timeout=5).close()
            return True
        except OSError:
            return False

    def mount(self, *options):
        line = ["sshfs", "-f", f"root@127.0.0.1:{self.below}", self.point, "-p", PORT, "-F", "/dev/null",
                "-o", f"IdentityFile={self.path('user')},StrictHostKeyChecking=no,UserKnownHostsFile=/dev/null"]
        for option in options:
            line += ["-o", option]
        self.write("below/there", b"")
        self.client = self.server(*line)
        self.mounts.append(self.point)
        self.wait_until(lambda: os.path.exists(os.path.join(self.point, "there")), "not mounted")

    def sftp(self):
        found = self.processes("sftp-server")
        self.assertNotEqual(found, [])
        return found

    def signal_sftp(self, number):
        for pid in self.sftp():
            os.kill(pid, number)

    def begin(self, seconds):
        self.end_of(self.stream("record", os.path.join(self.point, "clip"), 2, 10))
        recording = self.stream("record", os.path.join(self.point, "shot"), seconds, 8)
        playing = self.stream("play", os.path.join(self.point, "clip"), seconds, 8)
        asking = self.stream("watch", seconds, self.point, self.path("local"))
        self.wait_until(lambda: self.grown(os.path.join(self.below, "shot.partial"), 4 * MB), "nothing is recorded")
        return recording, playing, asking

    def check_asked(self, asking):
        asked = self.end_of(asking)
        self.assertLess(asked[self.point]["worst_ms"], 30_000)
        self.assertEqual(asked[self.path("local")]["online"], asked[self.path("local")]["rounds"])
        return asked[self.point]

    def test_the_server_stops_and_goes_on(self):
        self.mount()
        recording, playing, asking = self.begin(9)
        self.signal_sftp(signal.SIGSTOP)
        time.sleep(4)
        self.signal_sftp(signal.SIGCONT)
        recorded = self.end_of(recording)
        self.assertTrue(recorded["complete"], recorded)
        played = self.end_of(playing)
        self.assertEqual((played["wrong"], played["failures"]), (0, 0), played)
        self.assertGreaterEqual(recorded["stalls"] + played["stalls"], 1)
        self.assertEqual(self.verified(os.path.join(self.below, "shot")), {"bytes": recorded["bytes"], "wrong": 0})
        asked = self.check_asked(asking)
        self.assertEqual(asked["type"], 3)
        self.assertIn("Connection timed out", "".join(asked["codes"]))
        self.assertTrue(asked["online_at_end"])

    def test_the_server_dies_and_the_mount_with_it(self):
        self.mount()
        recording, playing, asking = self.begin(8)
        self.signal_sftp(signal.SIGKILL)
        recorded = self.end_of(recording)
        self.assertFalse(recorded["complete"], recorded)
        self.assertNotEqual(recorded["error"], "")
        played = self.end_of(playing)
        self.assertEqual(played["wrong"], 0)
        self.assertGreater(played["failures"], 0)
        asked = self.check_asked(asking)
        self.assertFalse(asked["online_at_end"], "the folder that is left is not the location")
        # Acknowledged bytes are there: what the recording says that it kept is right.
        kept = self.verified(os.path.join(self.below, "shot.partial"))
        self.assertEqual(kept["wrong"], 0)
        self.assertGreaterEqual(kept["bytes"], recorded["bytes"])
        # Nothing lands on the disk below the mount.
        self.assertFalse(self.is_mounted(self.point))
        self.assertEqual(os.listdir(self.point), [])

    def test_the_server_is_started_anew_and_connected_to(self):
        self.mount("reconnect", "ServerAliveInterval=1", "ServerAliveCountMax=3")
        _, playing, asking = self.begin(14)
        self.sshd.kill()
        self.sshd.wait()
        for pid in self.sftp() + self.processes("sshd:"):
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        time.sleep(1)
        self.start_server()
        played = self.end_of(playing)
        self.assertEqual(played["wrong"], 0, played)
        self.assertTrue(self.check_asked(asking)["online_at_end"])
        # A new reader and a new recorder find all as it was.
        again = self.end_of(self.stream("play", os.path.join(self.point, "clip"), 2, 8))
        self.assertEqual((again["wrong"], again["failures"]), (0, 0))
        recorded = self.end_of(self.stream("record", os.path.join(self.point, "later"), 2, 8))
        self.assertTrue(recorded["complete"], recorded)
        self.assertEqual(self.verified(os.path.join(self.below, "later")), {"bytes": recorded["bytes"], "wrong": 0})

    def test_a_player_waits_no_longer_than_it_was_told(self):
        self.mount()
        self.end_of(self.stream("record", os.path.join(self.point, "clip"), 2, 10))
        playing = self.stream("play", os.path.join(self.point, "clip"), 6, 8, 500)
        time.sleep(2)
        self.signal_sftp(signal.SIGSTOP)
        played = self.answer_of(playing)
        self.assertGreater(played["failures"], 1)
        self.assertEqual(played["wrong"], 0)
        recorded = self.answer_of(self.stream("record", os.path.join(self.point, "shot"), 1, 8, 500))
        self.assertFalse(recorded["complete"])
        self.assertNotEqual(recorded["error"], "")
        self.signal_sftp(signal.SIGCONT)
        again = self.end_of(self.stream("play", os.path.join(self.point, "clip"), 2, 8), LIMIT_S)
        self.assertEqual((again["wrong"], again["failures"]), (0, 0))


if __name__ == "__main__":
    main()
