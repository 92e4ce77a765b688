import json
import os
import signal
import subprocess
import time

from network_case import LIMIT_S, NetworkCase, NO, main

HOST = "10.77.0.1"
MB = 1_000_000


class Gluster(NetworkCase):
    """A volume of three copies, whose members ("bricks") die, stall and come back."""

    def setUp(self):
        super().setUp()
        self.need("glusterd", "gluster", "glusterfs")
        for folder in ("/var/lib/glusterd", "/var/log/glusterfs", "/run"):
            self.mount_memory(folder)
        os.mkdir("/run/gluster")
        self.bricks = [self.path(f"brick{i}") for i in range(3)]
        for brick in self.bricks:
            os.mkdir(brick)
        self.server("glusterd", "-N")
        self.wait_until(lambda: self.tell("volume", "info", check=False).returncode == 0, "no glusterd")
        self.tell("volume", "create", "gv", "replica", "3", *(f"{HOST}:{brick}" for brick in self.bricks), "force")
        self.tell("volume", "set", "gv", "network.ping-timeout", "5")
        self.tell("volume", "start", "gv")
        self.point = self.path("cluster")
        os.mkdir(self.point)
        self.server("glusterfs", "-N", f"--volfile-server={HOST}", "--volfile-id=gv", self.point)
        self.mounts.append(self.point)
        self.wait_until(lambda: self.is_mounted(self.point), "not mounted")
        self.wait_until(lambda: subprocess.run(["stat", self.point], capture_output=True).returncode == 0, "no root")

    def tell(self, *arguments, check=True):
        result = subprocess.run(["gluster", "--mode=script", *arguments], capture_output=True, timeout=LIMIT_S)
        if check:
            self.assertEqual(result.returncode, 0, result)
        return result

    def brick_process(self, number):
        found = [pid for pid in self.processes(self.bricks[number]) if self.processes("glusterfsd").count(pid)]
        self.assertEqual(len(found), 1, found)
        return found[0]

    def bring_back(self):
        self.tell("volume", "start", "gv", "force")

    def on_brick(self, number, name):
        return os.path.join(self.bricks[number], name)

    def check_copies(self, name, size, bricks=(0, 1, 2)):
        """Each brick holds every byte, as soon as it has been healed."""
        def is_whole(number):
            if self.verified(self.on_brick(number, name)) == {"bytes": size, "wrong": 0}:
                return True
            self.tell("volume", "heal", "gv", check=False)  # or it would wait for its next round, minutes away
            time.sleep(1)
            return False

        for number in bricks:
            self.wait_until(lambda: self.grown(self.on_brick(number, name), size), f"brick {number} is not healed")
            self.wait_until(lambda: is_whole(number), f"brick {number} is wrong")

    def begin(self, seconds, rate=8):
        """A recording and a player beside it, and one who asks what control threads ask."""
        self.end_of(self.stream("record", os.path.join(self.point, "clip"), 2, 10))
        recording = self.stream("record", os.path.join(self.point, "shot"), seconds, rate)
        playing = self.stream("play", os.path.join(self.point, "clip"), seconds, rate)
        asking = self.stream("watch", seconds, self.point, self.path("local"))
        self.wait_until(lambda: self.grown(self.on_brick(1, "shot.partial"), 4 * MB), "nothing is recorded")
        return recording, playing, asking

    def check_streams(self, recording, playing):
        recorded = self.end_of(recording)
        self.assertTrue(recorded["complete"], recorded)
        self.assertEqual(recorded["bytes"], recorded["accepted"])
        self.assertGreater(recorded["bytes"], 4 * MB)
        played = self.end_of(playing)
        self.assertEqual((played["wrong"], played["failures"]), (0, 0), played)
        self.assertGreater(played["read"], 4 * MB)
        self.assertEqual(self.verified(os.path.join(self.point, "shot")), {"bytes": recorded["bytes"], "wrong": 0})
        return recorded, played

    def check_asked(self, asking):
        """Nobody waited longer than a question may take, three questions in a round, and not for others."""
        asked = self.end_of(asking)
        self.assertEqual(asked[self.point]["type"], 3)
        self.assertGreater(asked[self.point]["rounds"], 1)
        self.assertLess(asked[self.point]["worst_ms"], 30_000)
        self.assertEqual(asked[self.path("local")]["online"], asked[self.path("local")]["rounds"])
        return asked[self.point]

    def test_a_brick_is_killed_and_comes_back(self):
        recording, playing, asking = self.begin(8)
        os.kill(self.brick_process(0), signal.SIGKILL)
        self.wait_until(lambda: self.grown(self.on_brick(1, "shot.partial"), 20 * MB), "the recording does not go on")
        self.bring_back()
        recorded, _ = self.check_streams(recording, playing)
        self.assertTrue(self.check_asked(asking)["online_at_end"])
        self.check_copies("shot", recorded["bytes"])

    def test_a_brick_stops_and_goes_on(self):
        recording, playing, asking = self.begin(16)
        brick = self.brick_process(0)
        os.kill(brick, signal.SIGSTOP)
        before = os.path.getsize(self.on_brick(1, "shot.partial"))
        self.wait_until(lambda: self.grown(self.on_brick(1, "shot.partial"), before + 20 * MB), "no way round the brick")
        os.kill(brick, signal.SIGCONT)
        recorded, played = self.check_streams(recording, playing)
        # The cluster waits five seconds for its member, and both tell how long they waited.
        self.assertGreaterEqual(recorded["stalls"] + played["stalls"], 1)
        self.assertGreater(max(recorded["worst_ms"], played["worst_ms"]), 1000)
        self.check_asked(asking)
        self.check_copies("shot", recorded["bytes"])

    def test_all_bricks_die_and_come_back(self):
        recording, playing, asking = self.begin(25)
        for number in range(3):
            os.kill(self.brick_process(number), signal.SIGKILL)
        recorded = self.end_of(recording)
        self.assertFalse(recorded["complete"], recorded)
        self.assertNotEqual(recorded["error"], "")
        time.sleep(2)  # of failing reads and questions
        self.bring_back()
        played = self.end_of(playing)
        self.assertEqual(played["wrong"], 0)
        self.assertGreater(played["failures"], 0)
        self.assertTrue(all("offline" in error or "cannot be read" in error for error in played["errors"]), played)
        self.assertGreater(played["reads_after_failure"], 10, played)
        asked = self.check_asked(asking)
        self.assertLess(asked["online"], asked["rounds"], "it was offline for a while")
        self.assertTrue(asked["online_at_end"])
        # What was told to be in the unfinished file is there.
        self.wait_until(lambda: subprocess.run(["stat", self.point], capture_output=True).returncode == 0, "no root")
        kept = self.verified(os.path.join(self.point, "shot.partial"))
        self.assertEqual(kept["wrong"], 0)
        self.assertGreaterEqual(kept["bytes"], recorded["bytes"])

    def test_the_command_records_plays_and_verifies_through_a_death(self):
        location = self.json("location", "add", self.point)["id"]
        self.assertEqual([place["type"] for place in self.locations()], [3])
        recording = self.start("--json", "record", "--location", location, "--fps", "25", "--frame-bytes", "300k",
                               "--seconds", "8", "--verify", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.programs.append(recording)
        time.sleep(3)
        os.kill(self.brick_process(2), signal.SIGKILL)
        out, err = recording.communicate(timeout=LIMIT_S)
        self.assertEqual(recording.returncode, 0, out + err)
        clip = json.loads(out)["streams"][0]["cookie"]
        played = self.json("play", clip, "--fps", "25", "--frame-bytes", "300k", "--seconds", "3")
        self.assertEqual(played["frames_due"], 75)
        os.kill(self.brick_process(1), signal.SIGKILL)
        os.kill(self.brick_process(0), signal.SIGKILL)
        self.wait_until(lambda: subprocess.run(["stat", self.point], capture_output=True).returncode != 0, "still there")
        self.run_command("verify", clip, expect=NO)
        self.bring_back()
        self.wait_until(lambda: subprocess.run(["stat", self.point], capture_output=True).returncode == 0, "no root")
        self.run_command("verify", clip)


if __name__ == "__main__":
    main()
