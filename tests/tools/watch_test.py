import json
import os
import queue
import signal
import subprocess
import threading

from command_case import CommandCase, DONE, TIMEOUT_S, UNKNOWN_COOKIE, USAGE, main


class Watching:
    """A running watch, line by line."""

    def __init__(self, case, *arguments):
        self.case = case
        self.process = case.start(*arguments, "watch", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        case.addCleanup(self.process.communicate)
        case.addCleanup(self.process.kill)
        self.lines = queue.Queue()
        threading.Thread(target=lambda: [self.lines.put(line) for line in self.process.stdout], daemon=True).start()
        self.first = self.next()

    def next(self):
        line = self.lines.get(timeout=TIMEOUT_S)
        self.case.assertTrue(line.endswith(b"\n"))
        return json.loads(line)

    def end(self, by=signal.SIGINT):
        """Answers what was not asked for yet."""
        self.process.send_signal(by)
        self.case.assertEqual(self.process.wait(timeout=TIMEOUT_S), DONE)
        self.case.assertEqual(self.process.stderr.read(), b"")
        return [json.loads(line) for line in list(self.lines.queue)]


class Watch(CommandCase):
    def watching(self, *arguments):
        return Watching(self, *arguments)

    def files(self, watch, count):
        return {(m["message"], m["cookie"], m["file"], m["location"]) for m in (watch.next() for _ in range(count))}

    def test_begins_with_the_locations(self):
        self.add_location("a", "--name", "Raid A")
        for arguments in ([], ["--json"]):
            watch = self.watching(*arguments)
            self.assertEqual(watch.first, {"message": "watching", "locations": [
                {"id": "1", "name": "Raid A", "path": self.path("a"), "online": True}]})
            self.assertEqual(watch.end(), [])

    def test_either_signal_ends_it_in_order(self):
        self.add_location()
        for by in (signal.SIGINT, signal.SIGTERM):
            self.assertEqual(self.watching().end(by), [])

    def test_sees_an_import_of_another_process(self):
        self.add_location()
        watch = self.watching()
        clip = self.import_file(self.media_file(size=3_000_000))
        self.assertEqual(watch.next(), {"message": "SysCacheAdd", "cookie": clip["cookie"], "file": clip["file"],
                                        "location": "1"})
        link = self.import_file(self.media_file("far.mov"), "1", "--link")
        self.assertEqual(watch.next()["file"], link["file"])
        self.assertEqual(watch.end(), [])

    def test_sees_sound_and_proxies(self):
        self.add_location()
        watch = self.watching()
        sound = self.import_file(self.media_file("take.wav"), "1", "--sound")
        self.assertEqual(watch.next()["file"], sound["file"])
        clip = self.import_file(self.media_file())
        self.assertEqual(watch.next()["message"], "SysCacheAdd")
        proxy = self.json("proxy", "add", clip["cookie"], self.media_file("p.mov"), "--height", "540", "--channels", "2")
        self.assertEqual(watch.next(), {"message": "SysCacheAddProxy", "cookie": clip["cookie"], "file": proxy["file"],
                                        "location": "1"})
        self.run_command("proxy", "rm", clip["cookie"], proxy["file"])
        self.assertEqual(watch.next()["message"], "SysCacheDelProxy")
        self.assertEqual(watch.end(), [])

    def test_sees_a_removed_clip(self):
        clip = self.import_clip()
        proxy = self.json("proxy", "add", clip["cookie"], self.media_file("p.mov"), "--height", "540")
        watch = self.watching()
        self.run_command("rm", clip["cookie"], "--all")
        self.assertEqual(self.files(watch, 2), {("SysCacheDel", clip["cookie"], clip["file"], "1"),
                                                ("SysCacheDelProxy", clip["cookie"], proxy["file"], "1")})
        self.assertEqual(watch.end(), [])

    def test_a_recording_is_told_of_under_its_final_name_alone(self):
        self.add_location()
        watch = self.watching()
        name = self.path("location/Material", UNKNOWN_COOKIE + ".mov")
        self.write(os.path.relpath(name, self.root) + ".partial", b"x" * 5000)
        self.write("location/Material/notes.txt", b"no media")
        self.write("location/Material/V000000000000000100.mov", b"")
        os.rename(name + ".partial", name)
        self.assertEqual(watch.next()["file"], name)
        self.assertEqual(watch.end(), [])

    def test_a_renamed_proxy_goes_and_comes(self):
        clip = self.import_clip()
        old = self.json("proxy", "add", clip["cookie"], self.media_file("p.mov"), "--height", "540")["file"]
        watch = self.watching()
        new = self.json("proxy", "rename", clip["cookie"], old, clip["cookie"] + ".A0.proxy.270.mov")["file"]
        self.assertEqual(self.files(watch, 2), {("SysCacheDelProxy", clip["cookie"], old, "1"),
                                                ("SysCacheAddProxy", clip["cookie"], new, "1")})

    def test_replaced_media_is_told_of_once_more(self):
        clip = self.import_clip()
        watch = self.watching()
        self.write(os.path.relpath(clip["file"], self.root), b"longer" * 100_000)
        self.assertEqual(watch.next()["message"], "SysCacheAdd")
        self.assertEqual(watch.end(), [])

    def test_changes_nothing_on_the_disk(self):
        clip = self.import_clip()
        companion = self.write(os.path.relpath(clip["file"], self.root) + ".lvix", b"index")
        proxy = self.json("proxy", "add", clip["cookie"], self.media_file("p.mov"), "--height", "540")["file"]
        watch = self.watching()
        os.remove(clip["file"])
        self.assertEqual(watch.next()["message"], "SysCacheDel")
        self.assertEqual(watch.end(), [])
        self.assertEqual((os.path.exists(companion), os.path.exists(proxy)), (True, True))

    def test_sees_locations_come_and_go_and_their_media(self):
        self.add_location("a")
        self.write(f"b/Material/{UNKNOWN_COOKIE}.mov", b"x" * 100)
        watch = self.watching()
        self.add_location("b")
        message = watch.next()
        while [l["path"] for l in message["locations"]] != [self.path("a"), self.path("b")]:
            message = watch.next()
        self.assertEqual(message["message"], "MediaLocationsChangeMsg")
        clip = self.import_file(self.media_file(), self.path("b"))
        message = watch.next()
        while message["message"] == "MediaLocationsChangeMsg":  # the name of the location
            message = watch.next()
        self.assertEqual((message["cookie"], message["location"]), (clip["cookie"], "2"))
        self.run_command("location", "remove", self.path("a"))
        message = watch.next()
        self.assertEqual((message["message"], [l["path"] for l in message["locations"]]),
                         ("MediaLocationsChangeMsg", [self.path("b")]))
        self.assertEqual(watch.end(), [])

    def test_sees_a_location_renamed(self):
        self.add_location("a")
        watch = self.watching()
        self.run_command("location", "rename", "1", "Raid B")
        message = watch.next()
        self.assertEqual((message["message"], message["locations"][0]["name"]), ("MediaLocationsChangeMsg", "Raid B"))

    def test_a_location_that_goes_away_keeps_its_clips(self):
        self.add_location("a")
        clip = self.import_file(self.media_file())
        watch = self.watching()
        os.rename(self.path("a"), self.path("away"))
        message = watch.next()
        self.assertEqual((message["message"], message["locations"][0]["online"]), ("MediaOnlineChangeMsg", False))
        second = clip["file"].replace("/a/", "/away/").replace(clip["cookie"], UNKNOWN_COOKIE)
        os.rename(clip["file"].replace("/a/", "/away/"), second)
        os.rename(self.path("away"), self.path("a"))
        messages = [watch.next() for _ in range(3)]
        self.assertEqual({m["message"] for m in messages}, {"MediaOnlineChangeMsg", "SysCacheDel", "SysCacheAdd"})
        self.assertEqual({m["cookie"] for m in messages if "cookie" in m}, {clip["cookie"], UNKNOWN_COOKIE})

    def test_a_reader_that_leaves_ends_it(self):
        self.add_location()
        process = self.start("watch", stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.addCleanup(process.kill)
        process.stdout.readline()
        process.stdout.close()
        self.import_file(self.media_file())
        self.assertNotEqual(process.wait(timeout=TIMEOUT_S), DONE)

    def test_takes_no_arguments(self):
        self.refused("watch", "surplus", expect=USAGE, message="surplus")


if __name__ == "__main__":
    main()
