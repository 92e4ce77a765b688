import os
import threading
import unittest

import fsys
from python_case import PythonCase, UNKNOWN_COOKIE, main


class Sessions(PythonCase):
    def test_a_with_block_opens_and_ends_it(self):
        with fsys.open(self.space, discovery=False) as session:
            self.assertTrue(session.is_open)
            self.assertTrue(os.path.isdir(self.space))
            self.assertEqual(session.space, self.space)
        self.assertFalse(session.is_open)
        with self.assertRaises(fsys.EngineNotRunning):
            session.locations()

    def test_there_is_one_at_a_time_and_another_one_afterwards(self):
        first = self.open()
        with self.assertRaises(fsys.AlreadyExists) as raised:
            fsys.open(self.path("other"), discovery=False)
        self.assertEqual(raised.exception.code, "alreadyOpen")
        first.close()
        first.close()
        second = fsys.open(self.path("other"), discovery=False)
        first.close()  # ends its own, which has gone
        self.assertTrue(second.is_open)
        second.close()

    def test_the_next_one_knows_nothing_of_the_one_before(self):
        session, _ = self.open_with_location()
        cookie, _ = self.record(session, b"x" * 1000)
        session.close()
        with fsys.open(self.path("other"), discovery=False) as other:
            self.assertEqual((other.locations(), other.clips(), other.find(cookie).status), ([], [], "unknown"))
        with fsys.open(self.space, discovery=False) as again:
            self.assertEqual([clip.cookie for clip in again.clips()], [cookie])

    def test_its_end_closes_what_is_open(self):
        session, _ = self.open_with_location()
        cookie, _ = self.record(session, self.noise(3_000_000))
        reader = session.reader(cookie)
        recording = session.record()
        recording.write(b"y" * 2000)
        watch = session.watch(callback=lambda event: None)
        session.close()
        self.assertEqual((reader.is_open, recording.is_open, watch.is_stopped), (False, False, True))
        self.assertEqual(self.bytes_of(recording.partial_path), b"y" * 2000)
        with self.assertRaises(fsys.NotOpen):
            reader.read(0, 1)
        with self.assertRaises(fsys.NotOpen):
            recording.write(b"")

    def test_its_end_waits_for_calls_of_other_threads(self):
        session, _ = self.open_with_location()
        cookie, _ = self.record(session, self.noise(8_000_000))
        ends, started = [], threading.Barrier(5)

        def read():
            reader = session.reader(cookie)
            started.wait()
            try:
                while True:
                    reader.read(0, 1_000_000)
            except fsys.NotOpen as error:
                ends.append(error)

        threads = [threading.Thread(target=read) for _ in range(4)]
        for thread in threads:
            thread.start()
        started.wait()
        session.close()
        for thread in threads:
            thread.join()
        self.assertEqual(len(ends), 4)

    def test_the_space_may_come_from_the_environment(self):
        os.environ["FSYS_SPACE"] = self.path("from environment")
        self.addCleanup(os.environ.pop, "FSYS_SPACE")
        with fsys.open(discovery=False) as session:
            self.assertEqual(session.space, self.path("from environment"))

    def test_cookies_are_read_and_made(self):
        self.assertEqual(fsys.parse_cookie("0123456789abcdef"), UNKNOWN_COOKIE)
        self.assertEqual((fsys.new_cookie()[0], fsys.new_cookie(sound=True)[0]), ("V", "S"))
        self.assertNotEqual(fsys.new_cookie(), fsys.new_cookie())
        with self.assertRaises(fsys.InvalidArgument):
            fsys.parse_cookie("no cookie")
        with self.assertRaises(ValueError):  # as the zero in a path of any other module
            fsys.parse_cookie("0123456789abcdef\0")

    def test_errors_tell_code_text_and_errno(self):
        session = self.open()
        with self.assertRaises(fsys.NotFound) as raised:
            session.file_reader(self.path("nowhere.mov"))
        self.assertEqual((raised.exception.code, raised.exception.errno), ("notFound", 2))
        self.assertIn(self.path("nowhere.mov"), str(raised.exception))
        self.assertIsInstance(raised.exception, fsys.Error)


class Locations(PythonCase):
    def test_are_added_listed_renamed_and_removed(self):
        session = self.open()
        self.assertEqual(session.locations(), [])
        added = session.add_location(self.folder("a"), "Raid A")
        self.assertEqual((added.id, added.name, added.path, added.online), ("1", "Raid A", self.path("a"), True))
        self.assertTrue(os.path.isdir(self.path("a", "Material")))
        renamed = session.rename_location("1", "Raid B")
        self.assertEqual(renamed.name, "Raid B")
        self.assertEqual([location.name for location in session.locations()], ["Raid B"])
        session.remove_location(self.path("a"))
        self.assertEqual(session.locations(), [])
        self.assertTrue(os.path.isdir(self.path("a", "Material")))

    def test_are_kept_for_the_next_session_and_for_others(self):
        session = self.open()
        session.add_location(self.folder("a"), "Raid A")
        session.close()
        self.assertIn("Raid A", self.run_command("location", "list"))
        self.assertEqual(self.open().location("1").name, "Raid A")

    def test_are_found_by_id_path_and_name(self):
        session = self.open()
        session.add_location(self.folder("a"), "Raid A")
        session.add_location(self.folder("b"))
        for place in ("2", self.path("b"), os.fsencode(self.path("b")), self.path("b", "..", "b"), "b"):
            self.assertEqual(session.location(place).id, "2", place)
        for place in ("3", self.path("c"), "Raid"):
            with self.assertRaises(fsys.UnknownLocation):
                session.location(place)

    def test_tell_their_room(self):
        session, location = self.open_with_location()
        disk = os.statvfs(location.path)
        self.assertEqual(location.total_bytes, disk.f_blocks * disk.f_frsize)
        free = session.free_bytes("1")
        self.assertAlmostEqual(free, disk.f_bavail * disk.f_frsize, delta=1 << 30)
        self.assertGreater(free, 0)

    def test_refuse_what_cannot_be_one(self):
        session, _ = self.open_with_location()
        for path, error in ((self.path("nowhere"), fsys.NotFound), (self.path("a"), fsys.AlreadyExists),
                            (self.path("line\nbreak"), fsys.InvalidArgument), (self.path("a\\b"), fsys.InvalidArgument),
                            (self.write("file", b"x"), fsys.NotFound)):
            with self.assertRaises(error, msg=path):
                session.add_location(path)
        for name in ("", "two\nlines"):
            with self.assertRaises(fsys.InvalidArgument):
                session.rename_location("1", name)
        self.assertEqual([location.id for location in session.locations()], ["1"])

    def test_that_are_away_are_named(self):
        session, _ = self.open_with_location()
        session.close()
        os.rename(self.path("a"), self.path("away"))
        session = self.open()
        self.assertEqual((session.locations(), session.missing_locations()), ([], [self.path("a") + "/"]))

    def test_names_that_are_no_utf8_survive(self):
        name = os.fsdecode(b"raid \xff\xc3")
        session, location = self.open_with_location(name)
        self.assertEqual(location.path, self.path(name))
        cookie, path = self.record(session, b"x" * 1000)
        self.assertEqual(session.find(cookie).path, path)
        self.assertEqual(self.bytes_of(path), b"x" * 1000)


if __name__ == "__main__":
    main()
