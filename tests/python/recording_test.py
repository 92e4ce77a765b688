import os
import shutil
import subprocess
import threading

import numpy

import fsys
from python_case import PythonCase, UNKNOWN_COOKIE, main


class Recordings(PythonCase):
    def setUp(self):
        super().setUp()
        self.session, _ = self.open_with_location()

    def material(self):
        return sorted(name for name in os.listdir(self.path("a", "Material")) if name != "MediaSpaceInfo.txt")

    def test_get_their_name_at_a_clean_exit(self):
        frame = numpy.arange(300_000, dtype="<u4")
        with self.session.record(extension="raw", hash=True) as recording:
            self.assertEqual(self.material(), [f"{recording.cookie}.raw.partial"])
            for _ in range(3):
                recording.write(frame)
            recording.write(b"end")
            recording.write(memoryview(b"of file")[2:])
            recording.flush()
        self.assertEqual(self.material(), [f"{recording.cookie}.raw"])
        self.assertEqual(self.bytes_of(recording.path), frame.tobytes() * 3 + b"end" + b" file")
        recorded = recording.finish()
        self.assertEqual((recorded.complete, recorded.path, recorded.bytes, recorded.error),
                         (True, recording.path, 3 * 1_200_000 + 8, None))
        told = subprocess.run(["xxhsum", "-H2", recording.path], capture_output=True, text=True, check=True).stdout
        self.assertEqual(recorded.hash, told.split()[0])
        self.assertEqual(recording.counters()["writes"], 5)
        self.assertEqual(self.session.find(recording.cookie).path, recording.path)
        with self.session.reader(recording.cookie) as reader:
            self.assertEqual(reader.size, recorded.bytes)

    def test_stay_unfinished_after_an_exception(self):
        with self.assertRaises(ZeroDivisionError):
            with self.session.record() as recording:
                recording.write(b"x" * 5000)
                recording.write(b"y" * (1 // 0))
        self.assertEqual(self.material(), [f"{recording.cookie}.mov.partial"])
        self.assertEqual(self.session.find(recording.cookie).status, "unknown")
        left, = self.session.unfinished()
        self.assertEqual((left.location, left.path, left.final_path, left.cookie, left.bytes, left.good_bytes, left.in_use),
                         ("1", recording.partial_path, recording.path, recording.cookie, 5000, 5000, False))
        self.assertEqual(left.finish(), recording.path)
        self.assertEqual((self.bytes_of(recording.path), self.session.unfinished()), (b"x" * 5000, []))
        self.assertEqual(self.session.find(recording.cookie).status, "online")
        self.assertRaises(fsys.NotFound, left.finish)

    def test_are_removed_after_an_exception_when_asked(self):
        with self.assertRaises(ZeroDivisionError):
            with self.session.record(on_error="abandon") as recording:
                recording.write(b"y" * (1 // 0))
        self.assertEqual(self.material(), [])
        self.assertRaises(fsys.NotOpen, recording.finish)

    def test_can_be_abandoned_or_left_by_hand(self):
        with self.session.record() as first:
            first.write(b"x")
            first.abandon()
        with self.session.record() as second:
            second.write(b"x")
            second.leave()
        self.assertEqual(self.material(), [f"{second.cookie}.mov.partial"])
        self.assertRaises(fsys.NotOpen, second.write, b"more")
        left, = self.session.unfinished("1")
        left.remove()
        self.assertEqual(self.material(), [])

    def test_in_progress_are_not_to_be_recovered(self):
        with self.session.record() as recording:
            recording.write(b"x" * 5000)
            recording.flush()
            left, = self.session.unfinished()
            self.assertTrue(left.in_use)
            self.assertRaises(fsys.Unfinished, left.finish)
            self.assertRaises(fsys.Unfinished, left.remove)

    def test_never_replace_anything(self):
        cookie, path = self.record(self.session, b"first")
        self.assertRaises(fsys.AlreadyExists, self.session.record, cookie)
        with self.session.record(UNKNOWN_COOKIE):
            self.assertRaises(fsys.Unfinished, self.session.record, UNKNOWN_COOKIE)
        self.assertEqual(self.bytes_of(path), b"first")

    def test_may_be_proxies(self):
        cookie, high = self.record(self.session, b"x" * 1000)
        with self.session.record(cookie, proxy_height=540, proxy_channels=2) as recording:
            recording.write(b"p" * 700)
        self.assertEqual(os.path.basename(recording.path), f"{cookie}.A2.proxy.540.mov")
        found = self.session.find(cookie, "auto", 540)
        self.assertEqual((found.path, found.kind), (recording.path, "proxy"))
        self.assertEqual(self.session.find(cookie).path, high)

    def test_may_be_sound_and_go_to_any_location(self):
        self.session.add_location(self.folder("b"), "Raid B")
        with self.session.record(fsys.new_cookie(sound=True), location="Raid B", extension="wav") as recording:
            recording.write(b"x" * 1000)
        self.assertEqual(os.path.dirname(recording.path), self.path("b", "Sound"))

    def test_choose_a_location_with_room(self):
        with self.session.record(expected_bytes=1000) as recording:
            recording.write(b"x")
        self.assertTrue(recording.path.startswith(self.path("a")))
        with self.assertRaises(fsys.UnknownLocation):
            self.session.record(expected_bytes=1 << 62)

    def test_of_a_file_belong_to_no_clip(self):
        with self.session.record_file(self.path("b.bin")) as recording:
            recording.write(b"x" * 3000)
        self.assertEqual((self.bytes_of(self.path("b.bin")), recording.cookie), (b"x" * 3000, None))
        self.assertRaises(fsys.NotFound, self.session.record_file, self.path("nowhere", "b.bin"))

    def test_refuse_what_makes_no_name(self):
        for options in ({"extension": "../x"}, {"extension": ""}, {"proxy_height": -1},
                        {"proxy_height": 1, "proxy_channels": 256}, {"cookie": "nonsense"}, {"low_space_bytes": -1}):
            self.assertRaises(fsys.InvalidArgument, self.session.record, **options)
        self.assertRaises(fsys.UnknownLocation, self.session.record, location="7")
        with self.session.record() as recording:
            self.assertRaises(TypeError, recording.write, "text")
            self.assertRaises((BufferError, ValueError), recording.write, numpy.zeros((10, 10))[:, ::2])
            recording.abandon()

    def test_tell_of_little_space(self):
        heard = []
        with self.session.record(low_space_bytes=1 << 60, on_space_low=heard.append) as recording:
            recording.write(b"x" * 1000)
            recording.write(b"x" * 1000)
        self.assertEqual(len(heard), 1)
        self.assertAlmostEqual(heard[0], shutil.disk_usage(self.root).free, delta=1 << 30)

    def test_calls_of_several_threads_wait_for_each_other(self):
        with self.session.record() as recording:
            def write(number):
                for _ in range(50):
                    recording.write(bytes([number]) * 10_000)

            threads = [threading.Thread(target=write, args=(number,)) for number in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        content = self.bytes_of(recording.path)
        pieces = [content[at:at + 10_000] for at in range(0, len(content), 10_000)]
        self.assertEqual(sorted(pieces), [bytes([number]) * 10_000 for number in range(4) for _ in range(50)])


class RecordingsOnASmallDisk(PythonCase):
    def setUp(self):
        super().setUp()
        folder = self.folder("a")
        if os.geteuid() != 0 or subprocess.run(["mount", "-t", "tmpfs", "-o", "size=8m", "none", folder],
                                               capture_output=True).returncode != 0:
            print("needs a file system of its own: mount failed")
            os._exit(77)
        self.addCleanup(subprocess.run, ["umount", "-l", folder], check=True)

    def test_raise_disk_full_and_keep_what_fits(self):
        session = self.open()
        session.add_location(self.path("a"))
        with self.assertRaises(fsys.DiskFull) as raised:
            with session.record() as recording:
                for _ in range(20):
                    recording.write(b"x" * 1_000_000)
        self.assertEqual(raised.exception.code, "diskFull")
        session.close()


if __name__ == "__main__":
    main()
