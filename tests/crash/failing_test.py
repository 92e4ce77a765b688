#!/usr/bin/env python3
"""Disks that fail under work: they die, vanish, become read-only, report errors, stop for a while. Errors are told
within a bounded time, nothing hangs, what was recorded is whole or found as unfinished, and a location that comes
back is whole again.

    FSYS_COMMAND=... CRASH_WORKER=... failing_test.py [TEST...]
"""

import contextlib
import json
import os
import queue
import shutil
import socket
import subprocess
import sys
import threading
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools"))

import disks
from command_case import CommandCase, main

WORKER = os.environ.get("CRASH_WORKER", "crash_worker")
# Engines wait for transfers that do not end, and closing after a failed one takes eight seconds.
BOUND_S = 90


class FailingDisk(CommandCase):
    """Each test has one disk, mounted at self.place, with one location on it and the project space elsewhere."""

    def setUp(self):
        super().setUp()
        self.stack = contextlib.ExitStack()
        self.addCleanup(self.stack.close)
        self.work = self.stack.enter_context(disks.workspace())
        self.place = self.path("disk")
        os.mkdir(self.place)

    # --- disks

    def begin_plain(self, kind):
        image = disks.Image(self.work + "/image", disks.SIZE[kind])
        self.begin_on(kind, self.stack.enter_context(disks.loop_device(image.path)))

    def begin_served(self, kind, filters=(), settings=()):
        """Errors come while self.switch exists."""
        self.switch = self.work + "/fail"
        self.begin_on(kind, self.stack.enter_context(disks.served_disk(
            self.work, *filters, "--filter=error", "memory", str(disks.SIZE[kind]), "error=EIO",
            "error-file=" + self.switch, "error-rate=100%", *settings)))

    def begin_on(self, kind, device):
        self.kind, self.device = kind, device
        disks.make_file_system(kind, device)
        self.mount()
        self.stack.callback(self.unmount_all)
        os.mkdir(self.place + "/location")
        self.assertEqual(self.json("location", "add", self.place + "/location")["id"], "1")

    def mount(self):
        disks.mount(self.device, self.place, self.kind, 0, disks.MOUNT_OPTIONS[self.kind])

    def unmount_all(self):
        """A dead file system does not even say that it is mounted."""
        with contextlib.suppress(OSError):
            while True:
                disks.unmount(self.place)

    def restart_disk(self):
        """As after a repair: mounted anew, with what its log gives back."""
        self.unmount_all()
        self.mount()

    # --- recording

    def begin_recording(self, *environment, until=3):
        """A worker that records clip after clip; answers once so many are finished."""
        worker = subprocess.Popen([WORKER, "record", self.space, self.place, "1"], stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, env={**self.environment, **dict(environment)}, bufsize=0)
        self.addCleanup(worker.communicate)
        self.addCleanup(worker.kill)
        self.finished, self.begun, self.flushed = {}, {}, {}
        while len(self.finished) < until:
            self.note(worker.stdout.readline().decode())
        return worker

    def note(self, line):
        words = line.split()
        if words[:2] == ["begin", "clip"]:
            self.begun[words[2]] = int(words[3])
        elif words[:2] == ["flushed", "clip"]:
            self.flushed[words[2]] = int(words[3])
        elif words[:2] == ["end", "clip"]:
            self.finished[words[2]] = int(words[3])

    def end_of(self, worker):
        """It ends by itself, within a bounded time; answers its status and message."""
        try:
            out, err = worker.communicate(timeout=BOUND_S)
        except subprocess.TimeoutExpired:
            self.fail("the worker hangs")
        for line in out.decode().splitlines():
            self.note(line)
        return worker.returncode, err.decode()

    def files(self):
        paths = [os.path.join(folder, name) for folder, _, names in os.walk(self.place) for name in names
                 if ".raw" in name]
        found = {}
        if paths:
            for line in disks.run(WORKER, "verify", *paths).decode().splitlines():
                number, size, good, path = line.split(" ", 3)
                found[os.path.basename(path)] = (int(number), int(size), int(good))
        return found

    def check_recordings(self, flush_failed=False):
        """Finished ones are whole; of the others recover finds each, and keeps what is right. After a flush that
        failed nobody knows what the disk took of the bytes that waited in memory: then what was flushed before
        is right."""
        for clip, size in self.finished.items():
            self.assertEqual(self.files().get(clip + ".raw"), (self.begun[clip], size, size))
        unfinished = self.json_lines("recover")
        self.assertEqual({os.path.basename(item["file"]) for item in unfinished},
                         {name for name in self.files() if name.endswith(".partial")})
        for item in unfinished:
            self.assertFalse(item["in_use"])
            self.run_command("recover", "--finish" if item["good_bytes"] else "--remove", item["cookie"] + ".raw")
        for name, (number, size, good) in self.files().items():
            clip = name.removesuffix(".raw")
            self.assertIn(clip, self.begun)
            if flush_failed and clip not in self.finished:
                self.assertGreaterEqual(good if clip in self.flushed else size, self.flushed.get(clip, 1))
            else:
                self.assertEqual((number, good), (self.begun[clip], size), unfinished)
        return unfinished

    def check_usable(self):
        """What the command does with a good disk."""
        recorded = self.json("record", "--location", "1", "--rate", "20", "--seconds", "0.5", "--verify")
        self.assertEqual([stream["verified"] for stream in recorded["streams"]], [True])
        self.assertEqual(self.json("location", "rename", "1", "Mended")["name"], "Mended")

    def bounded(self, *arguments):
        """Runs the command, whatever it answers."""
        process = self.start("--json", *arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        try:
            out, err = process.communicate(timeout=BOUND_S)
        except subprocess.TimeoutExpired:
            process.kill()
            self.fail("%s hangs" % (arguments,))
        self.assertIn(process.returncode, (0, 1, 3), err)
        return process.returncode, [json.loads(line) for line in out.decode().splitlines()], err.decode()

    # --- what happens to the location, as a listener hears it

    def watch(self):
        process = self.start("watch", stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        heard = queue.Queue()
        threading.Thread(target=lambda: [heard.put(json.loads(line)) for line in process.stdout], daemon=True).start()
        self.assertEqual(heard.get(timeout=BOUND_S)["message"], "watching")
        return heard

    def hear_online(self, heard, online):
        while True:
            message = heard.get(timeout=BOUND_S)
            if message["message"] == "MediaOnlineChangeMsg":
                self.assertEqual([item["online"] for item in message["locations"] if item["id"] == "1"], [online])
                return

    # --- the tests

    def die(self):
        disks.run("xfs_io", "-x", "-c", "shutdown", self.place)

    def test_a_disk_that_dies_ends_a_recording_with_an_error(self):
        for kind in ("ext4", "xfs"):
            with self.subTest(kind), contextlib.ExitStack() as self.stack:
                self.renew()
                self.begin_plain(kind)
                worker = self.begin_recording()
                self.die()
                status, message = self.end_of(worker)
                self.assertEqual(status, 3, message)
                self.assertNotEqual(message, "")
                self.assertNotEqual(self.bounded("record", "--location", "1", "--rate", "5", "--seconds", "1")[0], 0)
                self.bounded("status")
                self.restart_disk()
                self.check_recordings()
                self.check_usable()

    def renew(self):
        """Room for another disk inside of one test."""
        self.work = self.stack.enter_context(disks.workspace())
        shutil.rmtree(self.space, ignore_errors=True)

    def test_a_location_on_a_dead_disk_is_offline_and_comes_back(self):
        self.begin_plain("xfs")
        heard = self.watch()
        self.die()
        self.hear_online(heard, False)
        self.restart_disk()
        self.hear_online(heard, True)
        self.check_usable()

    def test_a_disk_that_is_taken_away_keeps_what_its_recorder_writes(self):
        self.begin_plain("ext4")
        heard = self.watch()
        worker = self.begin_recording()
        disks.unmount(self.place, disks.MNT_DETACH)
        self.hear_online(heard, False)
        status, message = self.end_of(worker)
        self.assertEqual((status, message != ""), (3, True))
        self.mount()
        self.hear_online(heard, True)
        self.check_recordings()
        self.check_usable()

    def test_a_location_that_is_the_root_of_its_disk_goes_and_comes(self):
        """The folder that is left when the disk goes is not taken for the location."""
        self.begin_plain("ext4")
        self.run_command("location", "remove", "1")
        location = self.json("location", "add", self.place)["id"]
        self.json("record", "--location", location, "--rate", "20", "--seconds", "0.2")
        heard = self.watch()
        disks.unmount(self.place, disks.MNT_DETACH)
        self.hear_online(heard, False)
        self.assertEqual(os.listdir(self.place), [])
        self.mount()
        self.hear_online(heard, True)
        self.check_usable()

    def test_a_read_only_disk_refuses_and_is_read(self):
        self.begin_plain("ext4")
        clip = self.json("record", "--location", "1", "--rate", "20", "--seconds", "0.5")["streams"][0]
        self.run_command("location", "rename", "1", "Before")
        disks.run("mount", "-o", "remount,ro", self.place)
        for command in (["record", "--location", "1", "--rate", "5", "--seconds", "1"], ["rm", clip["cookie"], "--all"],
                        ["location", "rename", "1", "After"]):
            status, _, message = self.bounded(*command)
            self.assertTrue(status in (1, 3) and message, (command, status, message))
        # A location that cannot be written is none, so the clip is reached by its file.
        self.assertEqual(self.json("read", clip["file"], "--hash")["xxh128"], clip["xxh128"])
        disks.run("mount", "-o", "remount,rw", self.place)
        self.assertEqual(self.locations()[0]["name"], "Before")
        self.check_usable()

    def test_bad_sectors_end_a_recording_with_an_error(self):
        for kind in ("ext4", "xfs"):
            with self.subTest(kind), contextlib.ExitStack() as self.stack:
                self.renew()
                self.begin_served(kind)
                worker = self.begin_recording()
                open(self.switch, "w").close()
                status, message = self.end_of(worker)
                self.assertEqual(status, 3, message)
                self.assertNotEqual(message, "")
                os.unlink(self.switch)
                self.restart_disk()
                self.check_recordings(flush_failed=True)
                self.check_usable()

    def test_bad_sectors_are_told_to_readers_and_no_bytes_are_made_up(self):
        for kind in ("ext4", "xfs"):
            with self.subTest(kind), contextlib.ExitStack() as self.stack:
                self.renew()
                self.begin_served(kind)
                clip = self.json("record", "--location", "1", "--rate", "20", "--seconds", "0.5")["streams"][0]
                self.restart_disk()
                self.assertEqual(self.json("scan")["clips"], 1)  # the folders are in memory now
                open(self.switch, "w").close()
                status, answers, message = self.bounded("read", clip["cookie"], "--hash")
                self.assertNotEqual(status, 0, answers)
                self.assertTrue(message or answers[0].get("error"))
                os.unlink(self.switch)
                self.assertEqual(self.json("read", clip["cookie"], "--hash")["xxh128"], clip["xxh128"])

    def test_a_disk_that_stops_for_a_while_loses_nothing(self):
        control = self.path("pause")
        self.begin_served("ext4", ["--filter=pause"], ["pause-control=" + control])
        worker = self.begin_recording(("CRASH_COUNT", "12"))
        with socket.socket(socket.AF_UNIX) as pause:
            pause.connect(control)
            pause.sendall(b"p")
            self.assertEqual(pause.recv(1), b"P")
            time.sleep(2)
            pause.sendall(b"r")
            self.assertEqual(pause.recv(1), b"R")
        self.assertEqual(self.end_of(worker), (0, ""))
        self.assertEqual(len(self.finished), 12)
        self.assertEqual(self.check_recordings(), [])
        self.check_usable()


if __name__ == "__main__":
    if sys.argv[1:] != ["--list"]:
        disks.need("nbdkit", "nbdfuse", "losetup", "fusermount3", "xfs_io", "mkfs.xfs", "mkfs.ext4")
        disks.own_mounts()
    main()
