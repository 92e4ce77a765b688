import os
import subprocess
import threading

import fsys
from python_case import PythonCase, UNKNOWN_COOKIE, main

OTHER_COOKIE = "V0123456789ABCDE000"
WAIT_S = 60


class Watching(PythonCase):
    def setUp(self):
        super().setUp()
        self.session, _ = self.open_with_location()
        self.watch = self.session.watch(interval=0.05)

    def next(self):
        event = self.watch.next(WAIT_S)
        self.assertIsNotNone(event, "no event came")
        return event

    def kinds(self, count):
        return sorted((event.kind, event.path) for event in (self.next() for _ in range(count)))

    def silent(self):
        """Several looks find nothing."""
        self.assertIsNone(self.watch.next(0.4))

    def test_is_silent_while_nothing_happens(self):
        self.clip_file(OTHER_COOKIE)
        self.session.scan()
        self.watch.stop()
        self.watch = self.session.watch(interval=0.05)
        self.silent()

    def test_sees_media_come_and_go(self):
        path = self.clip_file(UNKNOWN_COOKIE)
        self.assertEqual(self.next(), fsys.Event("clip-online", UNKNOWN_COOKIE, path, "1", None))
        self.assertEqual(self.session.find(UNKNOWN_COOKIE).path, path)
        os.remove(path)
        self.assertEqual(self.next(), fsys.Event("clip-offline", UNKNOWN_COOKIE, path, "1", None))
        self.assertEqual(self.session.find(UNKNOWN_COOKIE).status, "unknown")
        self.silent()

    def test_sees_what_this_process_records(self):
        cookie, path = self.record(self.session, b"x" * 1000)
        self.assertEqual(self.next(), fsys.Event("clip-online", cookie, path, "1", None))
        self.assertEqual(self.session.clip(cookie).files, (fsys.File(path, None, 1000, True, "1", None, 0),))
        self.silent()

    def test_sees_what_the_command_imports(self):
        source = self.write("shot.mov", self.noise(3_000_000))
        self.run_command("import", source, "--location", "1")
        event = self.next()
        self.assertEqual(event.kind, "clip-online")
        with self.session.reader(event.cookie) as reader:
            self.assertEqual(reader.read(), self.noise(3_000_000))

    def test_waits_until_media_rests(self):
        path = self.path("a", "Material", f"{UNKNOWN_COOKIE}.mov")
        stop = threading.Event()

        def grow():
            with open(path, "wb") as file:
                while not stop.wait(0.01):
                    file.write(b"x" * 10_000)
                    file.flush()

        writer = threading.Thread(target=grow)
        writer.start()
        try:
            early = self.watch.next(0.5)
        finally:
            stop.set()
            writer.join()
        self.assertIsNone(early)
        self.assertEqual(self.next().path, path)

    def test_sees_proxies_and_leaves_other_files_alone(self):
        self.clip_file(UNKNOWN_COOKIE)
        self.next()
        self.write("a/Material/notes.txt", b"no media")
        self.write(f"a/Material/{OTHER_COOKIE}.mov.partial", b"no name yet")
        self.clip_file(OTHER_COOKIE, 0)
        proxy = self.clip_file(UNKNOWN_COOKIE, ending="A2.proxy.540.mov")
        self.assertEqual(self.next(), fsys.Event("proxy-online", UNKNOWN_COOKIE, proxy, "1", None))
        self.assertEqual(self.session.find("S0123456789ABCDEF02", "proxy").path, proxy)
        os.remove(proxy)
        self.assertEqual(self.next().kind, "proxy-offline")
        self.assertEqual(self.session.clip(UNKNOWN_COOKIE).channels[0].proxies, ())
        self.silent()

    def test_sees_the_targets_of_links(self):
        target = self.write("far/shot.mov", self.noise(4000))
        link = self.write(f"a/Material/{UNKNOWN_COOKIE}.mov", target.encode().ljust(512, b"\0"))
        self.assertEqual(self.next().kind, "clip-online")
        for _ in range(2):
            os.rename(target, target + ".away")
            self.assertEqual(self.next(), fsys.Event("clip-offline", UNKNOWN_COOKIE, link, "1", None))
            self.assertEqual(self.session.find(UNKNOWN_COOKIE).status, "offline")
            os.rename(target + ".away", target)
            self.assertEqual(self.next(), fsys.Event("clip-online", UNKNOWN_COOKIE, link, "1", None))
            self.assertEqual(self.session.find(UNKNOWN_COOKIE).path, target)

    def test_sees_a_location_go_and_come_back_with_its_clips(self):
        path = self.clip_file(UNKNOWN_COOKIE)
        self.next()
        os.rename(self.path("a"), self.path("away"))
        self.assertEqual(self.kinds(2), [("clip-offline", path), ("location-offline", self.path("a"))])
        self.assertEqual(self.session.find(UNKNOWN_COOKIE).status, "offline")
        other = self.clip_file(OTHER_COOKIE, location="away").replace("away", "a")
        os.rename(self.path("away"), self.path("a"))
        self.assertEqual(self.kinds(3), [("clip-online", other), ("clip-online", path),
                                         ("location-online", self.path("a"))])
        self.assertEqual(self.session.find(OTHER_COOKIE).status, "online")

    def test_sees_a_disk_that_is_unmounted(self):
        if os.geteuid() != 0:
            print("needs root to mount")
            os._exit(77)
        subprocess.run(["mount", "-t", "tmpfs", "none", self.folder("disk")], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", self.path("disk")], capture_output=True)
        self.session.add_location(self.path("disk"))
        self.assertEqual(self.next().kind, "location-added")
        cookie, _ = self.record(self.session, b"x" * 1000, location="2")
        self.assertEqual(self.next().cookie, cookie)
        subprocess.run(["umount", "-l", self.path("disk")], check=True)
        os.chmod(self.path("disk"), 0o500)
        self.assertEqual(self.next().kind, "clip-offline")

    def test_sees_locations_added_renamed_and_removed_by_others(self):
        path = self.clip_file(UNKNOWN_COOKIE, location="b")
        self.run_command("location", "add", self.path("b"), "--name", "Raid B")
        first = self.next()
        self.assertEqual((first.kind, first.path, first.location), ("location-added", self.path("b"), "2"))
        events = [self.next()]
        while events[-1].kind == "location-renamed":  # it is named a moment after it is listed
            events.append(self.next())
        self.assertEqual((events[-1].kind, events[-1].path), ("clip-online", path))
        self.assertEqual(self.session.location("Raid B").id, "2")
        self.run_command("location", "rename", "2", "Raid C")
        self.assertEqual((self.next().name, self.session.location("2").name), ("Raid C", "Raid C"))
        self.run_command("location", "remove", "2")
        self.assertEqual(self.kinds(2), [("clip-offline", path), ("location-removed", self.path("b"))])
        self.assertEqual([location.id for location in self.session.locations()], ["1"])

    def test_sees_what_this_process_does_to_locations(self):
        self.session.add_location(self.folder("b"), "Raid B")
        self.assertEqual(self.next(), fsys.Event("location-added", None, self.path("b"), "2", "Raid B"))
        self.session.remove_location("2")
        self.assertEqual(self.next().kind, "location-removed")

    def test_replaced_media_keep_one_record(self):
        path = self.clip_file(UNKNOWN_COOKIE, 1000)
        self.next()
        self.write("new.mov", self.noise(2000))
        os.replace(self.path("new.mov"), path)
        self.silent()
        clip = self.session.clip(UNKNOWN_COOKIE)
        self.assertEqual([(file.path, file.bytes) for file in clip.files], [(path, 2000)])

    def test_another_thread_stops_an_iteration(self):
        seen = []

        def iterate():
            for event in self.watch:
                seen.append(event)

        thread = threading.Thread(target=iterate)
        thread.start()
        self.watch.stop()
        thread.join(WAIT_S)
        self.assertFalse(thread.is_alive())
        self.assertEqual((seen, self.watch.is_stopped, self.watch.next()), ([], True, None))

    def test_calls_back_until_it_is_stopped(self):
        heard, came = [], threading.Event()

        def hear(event):
            heard.append((event.kind, event.path, self.session.find(event.cookie).status))
            came.set()

        with self.session.watch(hear, interval=0.05) as watch:
            path = self.clip_file(UNKNOWN_COOKIE)
            self.assertTrue(came.wait(WAIT_S))
        self.assertTrue(watch.is_stopped)
        self.clip_file(OTHER_COOKIE)
        self.assertIsNotNone(self.watch.next(WAIT_S))
        self.assertEqual(heard, [("clip-online", path, "online")])

    def test_a_callback_may_stop_it_or_end_the_session(self):
        ended = threading.Event()

        def hear(_event):
            watch.stop()
            self.session.close()
            ended.set()

        watch = self.session.watch(hear, interval=0.05)
        self.clip_file(UNKNOWN_COOKIE)
        self.assertTrue(ended.wait(WAIT_S))
        self.assertEqual((self.session.is_open, self.watch.is_stopped), (False, True))

    def test_an_exception_of_a_callback_ends_it_and_is_told_of(self):
        told = []
        before, threading.excepthook = threading.excepthook, told.append
        self.addCleanup(setattr, threading, "excepthook", before)
        watch = self.session.watch(lambda event: 1 // 0, interval=0.05)
        self.clip_file(UNKNOWN_COOKIE)
        watch._thread.join(WAIT_S)
        self.assertEqual([args.exc_type for args in told], [ZeroDivisionError])
        self.assertTrue(watch.is_stopped)


if __name__ == "__main__":
    main()
