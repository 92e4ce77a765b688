import os

import fsys
from python_case import PythonCase, UNKNOWN_COOKIE, main

SOUND = "S0123456789ABCDEF01"


class Clips(PythonCase):
    def test_are_found_by_level_and_height(self):
        session, _ = self.open_with_location()
        high = self.clip_file(UNKNOWN_COOKIE)
        small = self.clip_file(UNKNOWN_COOKIE, ending="A2.proxy.270.mov")
        tall = self.clip_file(UNKNOWN_COOKIE, ending="A2.proxy.540.mov")
        counts = session.scan()
        self.assertEqual((counts.clips, counts.proxies, counts.skipped_not_cookie), (1, 2, 1))
        for arguments, path, kind in ((("high", 0), high, "high"), (("auto", 0), high, "high"),
                                      (("auto", 540), tall, "proxy"), (("auto", 2160), high, "high")):
            found = session.find(UNKNOWN_COOKIE, *arguments)
            self.assertEqual((found.path, found.kind, found.status), (path, kind, "online"), arguments)
        self.assertIn(session.find(UNKNOWN_COOKIE, "proxy").path, (small, tall))

    def test_that_nobody_knows_are_unknown(self):
        session, _ = self.open_with_location()
        found = session.find(UNKNOWN_COOKIE)
        self.assertEqual((found.path, found.kind, found.status, found.online), (None, None, "unknown", False))
        with self.assertRaises(fsys.UnknownClip):
            session.clip(UNKNOWN_COOKIE)
        with self.assertRaises(LookupError):
            session.reader(UNKNOWN_COOKIE)
        with self.assertRaises(fsys.InvalidArgument):
            session.find("nonsense")
        with self.assertRaises(fsys.InvalidArgument):
            session.find(UNKNOWN_COOKIE, "best")

    def test_tell_all_their_files(self):
        session, _ = self.open_with_location()
        high = self.clip_file(UNKNOWN_COOKIE, 5000)
        proxy = self.clip_file(UNKNOWN_COOKIE, 700, ending="A0.proxy.540.mov")
        sound = self.write(f"a/Sound/{SOUND}.wav", self.noise(900))
        session.scan()
        clip = session.clip(SOUND)
        self.assertEqual([(c.cookie, c.kind, c.number) for c in clip.channels],
                         [(UNKNOWN_COOKIE, "vision", 0), (SOUND, "sound", 1)])
        picture = clip.channels[0]
        self.assertEqual(picture.high, fsys.File(high, None, 5000, True, "1", None, 0))
        self.assertEqual(picture.proxies, (fsys.File(proxy, None, 700, True, "1", 540, 0),))
        self.assertEqual((clip.cookie, clip.offline, clip.proxy_online, clip.bytes, clip.locations, clip.connect),
                         (UNKNOWN_COOKIE, "none", True, 5900, ("1",), ()))
        self.assertEqual([file.path for file in clip.files], [high, proxy, sound])
        self.assertEqual(session.clips(), [clip])
        self.assertEqual(session.clips(location="1"), [clip])

    def test_that_went_offline_tell_what_to_connect(self):
        session, _ = self.open_with_location("a")
        session.add_location(self.folder("b"), "Raid B")
        self.clip_file(UNKNOWN_COOKIE, location="b")
        session.scan()
        self.assertEqual(session.offline(), [])
        os.rename(self.path("b"), self.path("away"))
        clip, = session.offline()
        self.assertEqual((clip.offline, clip.bytes), ("all", 0))
        self.assertEqual(clip.connect, (fsys.Place("2", "Raid B", self.path("b", "Material")),))
        self.assertEqual(session.find(UNKNOWN_COOKIE).status, "offline")
        with self.assertRaises(fsys.Offline):
            session.reader(UNKNOWN_COOKIE)
        self.assertEqual((session.location("2").online, session.location("1").online), (False, True))
        os.rename(self.path("away"), self.path("b"))
        self.assertEqual((session.offline(), session.find(UNKNOWN_COOKIE).status), ([], "online"))
        session.reader(UNKNOWN_COOKIE).close()

    def test_of_links_follow_their_targets_as_these_come_and_go(self):
        session, _ = self.open_with_location()
        target = self.write("far/shot.mov", self.noise(4000))
        link = self.write(f"a/Material/{UNKNOWN_COOKIE}.mov", target.encode().ljust(512, b"\0"))
        session.scan()
        for _ in range(2):
            self.assertEqual((session.find(UNKNOWN_COOKIE).path, session.find(UNKNOWN_COOKIE).status), (target, "online"))
            self.assertEqual(session.clip(UNKNOWN_COOKIE).files, (fsys.File(link, target, 4000, True, "1", None, 0),))
            with session.reader(UNKNOWN_COOKIE) as reader:
                self.assertEqual((reader.read(), reader.target), (self.noise(4000), target))
            os.rename(target, target + ".away")
            self.assertEqual(session.find(UNKNOWN_COOKIE).status, "offline")
            self.assertEqual(session.clip(UNKNOWN_COOKIE).connect, (fsys.Place(None, None, self.path("far")),))
            with self.assertRaises(fsys.Offline):
                session.reader(UNKNOWN_COOKIE)
            os.rename(target + ".away", target)

    def test_whose_full_resolution_is_gone_are_read_from_a_proxy(self):
        session, _ = self.open_with_location()
        high = self.clip_file(UNKNOWN_COOKIE)
        proxy = self.clip_file(UNKNOWN_COOKIE, 700, ending="A0.proxy.540.mov", seed=2)
        session.scan()
        os.remove(high)
        found = session.find(UNKNOWN_COOKIE)
        self.assertEqual((found.path, found.kind, found.status), (proxy, "proxy", "online"))
        with session.reader(UNKNOWN_COOKIE) as reader:
            self.assertEqual(reader.read(), self.noise(700, 2))

    def test_are_copied_and_read_back(self):
        session, _ = self.open_with_location()
        session.add_location(self.folder("b"), "Raid B")
        target = self.write("far/shot.mov", self.noise(9_000_000))
        self.write(f"a/Material/{UNKNOWN_COOKIE}.mov", target.encode().ljust(512, b"\0"))
        self.clip_file(UNKNOWN_COOKIE, 700, ending="A2.proxy.540.mov", seed=2)
        self.write(f"a/Sound/{SOUND}.wav", self.noise(900, 3))
        session.scan()
        calls = []
        copies = session.copy(UNKNOWN_COOKIE, "Raid B", progress=lambda done, total: calls.append((done, total)))
        self.assertEqual([os.path.relpath(copy.path, self.path("b")) for copy in copies],
                         [f"Material/{UNKNOWN_COOKIE}.mov", f"Material/{UNKNOWN_COOKIE}.A2.proxy.540.mov",
                          f"Sound/{SOUND}.wav"])
        for copy, content in zip(copies, (self.noise(9_000_000), self.noise(700, 2), self.noise(900, 3))):
            self.assertEqual((self.bytes_of(copy.path), copy.bytes, copy.verified), (content, len(content), True))
        self.assertEqual(calls[-1], (2 * 9_001_600, 2 * 9_001_600))
        self.assertEqual(session.copy(UNKNOWN_COOKIE, "Raid B"), [])

    def test_a_copy_that_cannot_be_made_leaves_nothing(self):
        session, _ = self.open_with_location()
        session.add_location(self.folder("b"))
        self.clip_file(UNKNOWN_COOKIE, 9_000_000)
        session.scan()

        def stop(_done, _total):
            raise KeyboardInterrupt

        with self.assertRaises(KeyboardInterrupt):
            session.copy(UNKNOWN_COOKIE, "b", progress=stop)
        self.assertEqual(os.listdir(self.path("b", "Material")), ["MediaSpaceInfo.txt"])
        with self.assertRaises(fsys.UnknownLocation):
            session.copy(UNKNOWN_COOKIE, "c")

    def test_a_copy_that_reads_back_differently_is_told_of(self):
        session, _ = self.open_with_location()
        session.add_location(self.folder("b"))
        source = self.clip_file(UNKNOWN_COOKIE, 3_000_000)
        session.scan()

        def spoil(done, total):
            copy = self.path("b", "Material", f"{UNKNOWN_COOKIE}.mov.partial")
            if os.path.exists(copy):
                with open(source, "r+b") as file:
                    file.seek(2_000_000)
                    file.write(b"another take")
                os.utime(source, (1, 1))

        with self.assertRaises(fsys.VerificationFailed):
            session.copy(UNKNOWN_COOKIE, "b", progress=spoil)


if __name__ == "__main__":
    main()
