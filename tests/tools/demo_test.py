import os
import struct
import subprocess
import wave

from command_case import COOKIE, CommandCase, DONE, FAILED, TIMEOUT_S, USAGE, main

FILE_KEYS = ["cookie", "asked", "kind", "file", "bytes", "xxh128", "verified"]
ASKED = ["full resolution", "proxy"] + [f"automatic, {height} lines" for height in (120, 180, 270, 1080)]


class DemoCase(CommandCase):
    def demo(self, *arguments, **options):
        return self.json("demo", "--seconds", "0.4", *arguments, space=False, **options)

    def check_hashes(self, answer):
        for row in answer["files"]:
            self.assertEqual(list(row), FILE_KEYS)
            self.assertRegex(row["cookie"], COOKIE)
            self.assertIs(row["verified"], True, row)
            self.assertEqual(row["bytes"], os.path.getsize(row["file"]))
            self.assertEqual(row["xxh128"], self.hash_of(row["file"]))

    def snapshot(self, folder):
        """Everything that a careless program could change in a folder."""
        found = {}
        for place, folders, files in os.walk(os.fsencode(folder)):
            for name in folders + files:
                path = os.path.join(place, name)
                about = os.lstat(path)
                found[path] = (about.st_size, about.st_mtime_ns, about.st_mode, about.st_ino, about.st_nlink)
                if name in files:
                    found[path] += (self.hash_of(path),)
        return found


class Demo(DemoCase):
    def test_finds_plays_and_verifies_what_it_recorded(self):
        answer = self.demo("--dir", self.path("demo"))
        self.assertEqual(answer["dir"], self.path("demo"))
        self.assertEqual((answer["clips"], answer["proxies"]), (4, 2))
        self.assertEqual(answer["frames_due"], 3 * 10)
        self.assertIs(answer["verified"], True)
        self.check_hashes(answer)

    def test_asks_for_each_clip_in_every_way(self):
        answer = self.demo("--dir", self.path("demo"))
        cookies = {row["cookie"] for row in answer["files"]}
        self.assertEqual(len(cookies), 4)
        for cookie in cookies:
            self.assertEqual([row["asked"] for row in answer["files"] if row["cookie"] == cookie], ASKED)
        kinds = {(row["asked"], row["kind"]) for row in answer["files"]}
        self.assertIn(("full resolution", "high"), kinds)
        self.assertNotIn(("full resolution", "proxy"), kinds)
        self.assertIn(("proxy", "proxy"), kinds)
        self.assertIn(("automatic, 180 lines", "proxy"), kinds)
        self.assertNotIn(("automatic, 270 lines", "proxy"), kinds)

    def test_has_a_link_file_on_the_second_location(self):
        self.demo("--dir", self.path("demo"))
        folder = self.path("demo", "Archive", "Material")
        links = [n for n in os.listdir(folder) if n.startswith("V") and os.path.getsize(os.path.join(folder, n)) == 512]
        self.assertEqual(len(links), 1)
        with open(os.path.join(folder, links[0]), "rb") as link:
            target = link.read().rstrip(b"\0").decode()
        self.assertTrue(os.path.isfile(target))
        self.assertFalse(target.startswith((self.path("demo", "Archive"), self.path("demo", "Studio A"))))

    def test_the_sound_is_a_wave_file(self):
        answer = self.demo("--dir", self.path("demo"))
        files = {row["file"] for row in answer["files"] if row["file"].endswith(".wav")}
        self.assertEqual(len(files), 1)
        with wave.open(files.pop()) as sound:
            self.assertEqual((sound.getnchannels(), sound.getsampwidth(), sound.getframerate()), (2, 2, 48000))
            self.assertEqual(sound.getnframes(), 4 * 48000)
            self.assertGreater(max(sound.readframes(48000)), 0)

    def test_the_pictures_are_avi_files_that_move(self):
        answer = self.demo("--dir", self.path("demo"))
        files = {row["file"] for row in answer["files"] if row["file"].endswith(".avi")}
        self.assertEqual(len(files), 5)
        for file in files:
            self.check_avi(file)

    def check_avi(self, file):
        with open(file, "rb") as opened:
            data = opened.read()
        self.assertEqual((data[:4], data[8:12]), (b"RIFF", b"AVI "))
        self.assertEqual(struct.unpack_from("<I", data, 4)[0], len(data) - 8)
        lists, place = {}, 12
        while place < len(data):
            code, size = struct.unpack_from("<4sI", data, place)
            name = data[place + 8:place + 12] if code == b"LIST" else code
            lists[name] = (place + 8, size)
            place += 8 + size + size % 2
        self.assertEqual(place, len(data))
        self.assertEqual(list(lists), [b"hdrl", b"movi", b"idx1"])
        header = lists[b"hdrl"][0] + 12
        frames = struct.unpack_from("<I", data, header + 16)[0]
        width, height = struct.unpack_from("<II", data, header + 32)
        index, size = lists[b"idx1"]
        self.assertEqual(size, 16 * frames)
        pictures = set()
        for i in range(frames):
            code, _, offset, length = struct.unpack_from("<4sIII", data, index + 16 * i)
            chunk = lists[b"movi"][0] + offset
            self.assertEqual(length, width * height * 3)
            self.assertEqual(struct.unpack_from("<4sI", data, chunk), (code, length))
            pictures.add(data[chunk + 8:chunk + 8 + length])
        self.assertEqual(frames, 100)
        self.assertGreater(len(pictures), frames // 2)

    def test_the_default_folder_is_below_the_one_for_temporary_files(self):
        answer = self.demo()
        self.assertEqual(os.path.dirname(answer["dir"]), self.path("tmp"))
        self.assertEqual(os.listdir(self.path("home")), ["state"] if os.path.exists(self.path("home", "state")) else [])

    def test_runs_again_in_its_folder_afresh(self):
        first = self.demo("--dir", self.path("demo"))
        second = self.demo("--dir", self.path("demo"))
        self.assertEqual((second["clips"], second["proxies"]), (4, 2))
        self.assertFalse({row["cookie"] for row in first["files"]} & {row["cookie"] for row in second["files"]})

    def test_a_folder_with_files_of_others_is_left_alone(self):
        self.media_file("mine/shot.mov")
        before = self.snapshot(self.path("mine"))
        self.refused("demo", "--dir", self.path("mine"), expect=FAILED, message="not empty")
        self.assertEqual(self.snapshot(self.path("mine")), before)

    def test_an_empty_folder_will_do(self):
        os.mkdir(self.path("empty"))
        self.assertIs(self.demo("--dir", self.path("empty"))["verified"], True)

    def test_a_folder_that_cannot_be_made_fails(self):
        self.refused("demo", "--dir", "/proc/none", expect=FAILED, message="/proc/none")
        self.refused("demo", "--dir", self.media_file(), expect=FAILED)

    def test_tells_people_what_it_did_with_a_table_at_the_end(self):
        text = self.run_command("demo", "--seconds", "0.4", "--dir", self.path("demo"), space=False).text
        for words in ("Recorded 2 clips", "Forgot everything", "Played 3 streams at 25 frames per second",
                      "same bytes", "Every byte came back"):
            self.assertIn(words, text)
        self.assertEqual(sum(line.endswith(" yes") for line in text.splitlines()), 4 * len(ASKED))

    def test_does_not_touch_the_project_space_of_the_user(self):
        self.add_location()
        before = self.snapshot(self.space)
        self.json("demo", "--seconds", "0.1", "--dir", self.path("demo"))
        self.assertEqual(self.snapshot(self.space), before)

    def test_both_backends(self):
        for backend in ("uring", "threads"):
            with self.subTest(backend=backend):
                self.environment["FSYS_IO_BACKEND"] = backend
                self.check_hashes(self.demo("--dir", self.path("demo")))

    def test_seconds_that_make_no_sense_are_wrong_usage(self):
        for seconds in ("0", "-1", "nan", "x"):
            self.refused("demo", "--seconds", seconds, expect=USAGE)


class DemoWithMedia(DemoCase):
    NAMES = ["plain.mov", "two  blanks .mp4", "Café Ünïcödé.MXF", "🎬 film 映画.mkv", "no extension",
             "Ordner mit Leerzeichen/Ton 1.wav", "été/🎵.flac", "a.b.c.avi", "quote'\"\\.mov"]

    def fill(self):
        for i, name in enumerate(self.NAMES):
            self.media_file("media/" + name, size=5000 + 70_001 * i, seed=i)

    def test_links_verifies_and_changes_nothing(self):
        self.fill()
        before = self.snapshot(self.path("media"))
        answer = self.demo("--dir", self.path("demo"), "--media", self.path("media"))
        self.assertEqual(self.snapshot(self.path("media")), before)
        self.assertIs(answer["verified"], True)
        self.assertEqual((answer["clips"], answer["proxies"]), (len(self.NAMES), 0))
        self.assertEqual({row["file"] for row in answer["files"]}, {self.path("media", name) for name in self.NAMES})
        self.check_hashes(answer)

    def test_copies_nothing(self):
        self.fill()
        self.demo("--dir", self.path("demo"), "--media", self.path("media"))
        for folder in ("Studio A", "Archive"):
            for kind in ("Material", "Sound"):
                for name in os.listdir(self.path("demo", folder, kind)):
                    self.assertLessEqual(os.path.getsize(self.path("demo", folder, kind, name)), 512, name)

    def test_sound_becomes_sound_clips(self):
        self.fill()
        answer = self.demo("--dir", self.path("demo"), "--media", self.path("media"))
        sounds = {os.path.basename(row["file"]) for row in answer["files"] if row["cookie"].startswith("S")}
        self.assertEqual(sounds, {"Ton 1.wav", "🎵.flac"})

    def test_a_name_that_is_no_utf_8_is_media_too(self):
        self.write(b"media/\xff\xc3.mov", os.urandom(9000))
        answer = self.demo("--dir", self.path("demo"), "--media", self.path("media"))
        self.assertEqual((answer["clips"], answer["verified"]), (1, True))

    def test_passes_over_hidden_empty_and_tiny_files(self):
        self.fill()
        self.write("media/.hidden.mov", b"x" * 1000)
        self.write("media/.git/objects.mov", b"x" * 1000)
        self.write("media/empty.mov", b"")
        self.write("media/note.txt", b"x" * 512)
        answer = self.demo("--dir", self.path("demo"), "--media", self.path("media"))
        self.assertEqual(answer["clips"], len(self.NAMES))

    def test_passes_over_a_file_that_cannot_be_linked_and_says_so(self):
        self.fill()
        self.media_file("/".join(["media", "a" * 200, "b" * 200, "c" * 120, "far.mov"]))
        process = self.start("demo", "--seconds", "0.2", "--dir", self.path("demo"), "--media", self.path("media"),
                             space=False, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = process.communicate(timeout=TIMEOUT_S)
        self.assertEqual(process.returncode, DONE, (out, err))
        self.assertIn(b"too long for a link", err)
        self.assertIn(b"Linked %d of your files" % len(self.NAMES), out)

    def test_the_demo_folder_may_lie_among_the_media(self):
        self.fill()
        folder = self.path("media", "demo")
        self.demo("--dir", folder)
        answer = self.demo("--dir", folder, "--media", self.path("media"))
        self.assertEqual(answer["clips"], len(self.NAMES))

    def test_a_relative_folder_will_do(self):
        self.fill()
        answer = self.demo("--dir", "demo", "--media", "media")
        self.assertEqual(answer["clips"], len(self.NAMES))
        self.assertTrue(all(os.path.isabs(row["file"]) for row in answer["files"]))

    def test_media_in_its_own_folder_are_refused_and_stay(self):
        self.demo("--dir", self.path("demo"))
        self.media_file("demo/Studio A/mine.mov")
        before = self.snapshot(self.path("demo"))
        for media in (self.path("demo"), self.path("demo", "Studio A"), "demo/"):
            self.refused("demo", "--dir", self.path("demo"), "--media", media, expect=FAILED, message="makes anew")
        self.assertEqual(self.snapshot(self.path("demo")), before)

    def test_of_very_many_files_the_first_ones_are_taken(self):
        for i in range(203):
            self.write(f"media/{i:03}.mov", b"x" * (600 + i))
        answer = self.demo("--dir", self.path("demo"), "--media", self.path("media"))
        self.assertEqual(answer["clips"], 200)
        self.assertEqual({row["file"] for row in answer["files"]}, {self.path("media", f"{i:03}.mov") for i in range(200)})

    def test_a_folder_without_media_fails(self):
        for folder in (self.path("media"), self.path("none")):
            self.refused("demo", "--dir", self.path("demo"), "--media", folder, expect=FAILED,
                         message="no media files in " + folder)
        self.assertFalse(os.path.exists(self.path("demo")))


if __name__ == "__main__":
    main()
