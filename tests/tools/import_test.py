import os
import stat

from command_case import COOKIE, CommandCase, FAILED, NO, UNKNOWN_COOKIE, USAGE, main

IMPORT_KEYS = ["cookie", "file", "bytes", "link"]


def contents(path):
    with open(path, "rb") as file:
        return file.read()


class Import(CommandCase):
    def listing(self):
        return sorted(os.listdir(self.path("location", "Material")) + os.listdir(self.path("location", "Sound")))

    def test_copies_a_file_under_a_new_cookie(self):
        self.add_location()
        file = self.media_file(size=3_000_001)
        answer = self.import_file(file)
        self.assertEqual(list(answer), IMPORT_KEYS)
        self.assertRegex(answer["cookie"], COOKIE)
        self.assertEqual(answer["cookie"][0], "V")
        self.assertEqual(answer["file"], self.path("location", "Material", answer["cookie"] + ".mov"))
        self.assertEqual(answer["bytes"], 3_000_001)
        self.assertIs(answer["link"], False)
        self.assertEqual(contents(answer["file"]), contents(file))

    def test_copies_every_size_around_a_block_byte_for_byte(self):
        self.add_location()
        for size in (1, 511, 513, 4096, (1 << 20) - 1, 1 << 20, (1 << 20) + 1, 9 << 20, (9 << 20) + 777):
            with self.subTest(size=size):
                file = self.media_file(size=size, seed=size)
                answer = self.import_file(file)
                self.assertEqual(os.path.getsize(answer["file"]), size)
                self.assertEqual(self.hash_of(answer["file"]), self.hash_of(file))

    def test_leaves_nothing_but_the_file(self):
        answer = self.import_clip(size=3_000_000)
        self.assertEqual([n for n in self.listing() if n.startswith(("V", "S"))], [os.path.basename(answer["file"])])

    def test_the_source_stays_as_it_was(self):
        self.add_location()
        file = self.media_file()
        before = os.stat(file)
        self.import_file(file)
        self.import_file(file, "1", "--link")
        after = os.stat(file)
        self.assertEqual((before.st_size, before.st_mtime_ns, before.st_mode, before.st_nlink),
                         (after.st_size, after.st_mtime_ns, after.st_mode, after.st_nlink))

    def test_prints_the_cookie_first_for_people(self):
        self.add_location()
        words = self.run_command("import", self.media_file(), "--location", "1").text.split()
        self.assertRegex(words[0], COOKIE)
        self.assertEqual(words[-1], self.path("location", "Material", words[0] + ".mov"))

    def test_several_files_give_an_object_each_in_order(self):
        self.add_location()
        files = [self.media_file(f"media/take {i}.mov", size=1000 + i, seed=i) for i in range(4)]
        answers = self.json_lines("import", *files, "--location", "1")
        self.assertEqual([a["bytes"] for a in answers], [1000, 1001, 1002, 1003])
        self.assertEqual(len({a["cookie"] for a in answers}), 4)
        for file, answer in zip(files, answers):
            self.assertEqual(contents(answer["file"]), contents(file))

    def test_takes_the_location_by_path(self):
        self.add_location("one")
        self.add_location("two")
        answer = self.import_file(self.media_file(), self.path("two"))
        self.assertTrue(answer["file"].startswith(self.path("two", "Material") + "/"))

    def test_sound_goes_to_the_sound_folder_under_a_sound_cookie(self):
        self.add_location()
        answer = self.import_file(self.media_file("media/take.wav"), "1", "--sound")
        self.assertRegex(answer["cookie"], r"^S[0-9A-F]{16}01$")
        self.assertEqual(answer["file"], self.path("location", "Sound", answer["cookie"] + ".wav"))

    def test_link_writes_512_bytes_that_name_the_file(self):
        self.add_location()
        file = self.media_file("media/Möve 🎬 eins.mov")
        answer = self.import_file(file, "1", "--link")
        self.assertIs(answer["link"], True)
        self.assertEqual(answer["bytes"], 100_000)
        self.assertEqual(contents(answer["file"]), file.encode().ljust(512, b"\0"))

    def test_link_to_a_relative_path_names_the_whole_one(self):
        self.add_location()
        self.media_file("media/shot.mov")
        answer = self.import_file("media/shot.mov", "1", "--link")
        self.assertEqual(contents(answer["file"]).rstrip(b"\0"), self.path("media", "shot.mov").encode())

    def test_proxies_are_named_by_height_and_channels_and_filed_with_the_clip(self):
        clip = self.import_clip()
        proxy = self.import_file(self.media_file("media/small.mp4"), "1", "--proxy-of", clip["cookie"],
                                 "--height", "540", "--channels", "2")
        self.assertEqual(proxy["cookie"], clip["cookie"])
        self.assertEqual(os.path.basename(proxy["file"]), clip["cookie"] + ".A2.proxy.540.mp4")
        scanned = self.json("scan")
        self.assertEqual((scanned["clips"], scanned["proxies"]), (1, 1))

    def test_a_proxy_may_be_a_link(self):
        clip = self.import_clip()
        small = self.media_file("media/small.mp4", size=2000)
        proxy = self.import_file(small, "1", "--link", "--proxy-of", clip["cookie"], "--height", "540")
        self.assertEqual(os.path.getsize(proxy["file"]), 512)
        self.assertEqual(self.json("find", clip["cookie"], "--level", "proxy")["file"], small)

    def test_names_of_any_kind_can_be_brought_in(self):
        self.add_location()
        for name in (" two  blanks .mov", "Ünïcödé.mov", "🎬.mov", "no extension", ".hidden", "dot.", "a.b.c.MOV",
                     "new\nline.mov", "%s%n.mov"):
            with self.subTest(name=name):
                file = self.media_file("media/" + name)
                for link in ([], ["--link"]):
                    cookie = self.import_file(file, "1", *link)["cookie"]
                    self.assertEqual(self.json("find", cookie)["status"], "online")
                    self.assertEqual(self.json("read", cookie, "--hash")["xxh128"], self.hash_of(file))

    def test_a_name_that_is_no_utf_8_can_be_brought_in(self):
        self.add_location()
        file = self.write(b"media/\xff\xfe \xc3.m\xf6v", os.urandom(5000))
        for link in ([], ["--link"]):
            cookie = self.run_command("import", file, "--location", "1", *link).text.split()[0]
            self.assertEqual(self.json("find", cookie)["status"], "online")
            self.assertEqual(self.json("read", cookie, "--hash")["xxh128"], self.hash_of(file))

    def test_a_missing_file_fails(self):
        self.add_location()
        self.refused("import", self.path("none.mov"), "--location", "1", expect=FAILED, message="none.mov is not a file")

    def test_a_folder_a_pipe_and_an_empty_file_fail(self):
        self.add_location()
        os.mkfifo(self.path("pipe"))
        self.refused("import", self.path("media"), "--location", "1", expect=FAILED, message="is not a file")
        self.refused("import", self.path("pipe"), "--location", "1", expect=FAILED, message="is not a file")
        self.refused("import", self.write("empty.mov", b""), "--location", "1", expect=FAILED, message="is empty")
        self.assertEqual([n for n in self.listing() if n.startswith("V")], [])

    def test_a_file_of_512_bytes_would_be_taken_for_a_link(self):
        self.add_location()
        file = self.media_file(size=512)
        for link in ([], ["--link"]):
            self.refused("import", file, "--location", "1", *link, expect=FAILED, message="512 bytes")
        self.assertEqual([n for n in self.listing() if n.startswith("V")], [])

    def test_a_sound_file_of_512_bytes_is_media(self):
        self.add_location()
        file = self.write("media/click.wav", b"RIFF" + os.urandom(508))
        cookie = self.import_file(file)["cookie"]
        self.assertEqual(self.json("read", cookie, "--hash")["xxh128"], self.hash_of(file))

    def test_a_path_too_long_for_a_link_fails_but_can_be_copied(self):
        self.add_location()
        file = self.media_file("/".join(["media", "a" * 200, "b" * 200, "ü" * 60, "shot.mov"]))
        self.assertGreaterEqual(len(os.fsencode(file)), 512)
        self.refused("import", file, "--location", "1", "--link", expect=FAILED, message="too long")
        self.assertEqual([n for n in self.listing() if n.startswith("V")], [])
        self.assertEqual(self.import_file(file)["bytes"], 100_000)

    def test_the_longest_path_that_fits_makes_a_link(self):
        self.add_location()
        stem = os.path.join(self.root, "a" * 200)
        file = self.media_file("a" * 200 + "/" + "b" * (511 - len(stem) - 1 - 204 - 1) + "/" + "c" * 200 + ".mov")
        self.assertEqual(len(file), 511)
        cookie = self.import_file(file, "1", "--link")["cookie"]
        self.assertEqual(self.json("find", cookie)["file"], file)

    def test_an_existing_target_is_never_replaced(self):
        clip = self.import_clip()
        proxy = ("--proxy-of", clip["cookie"], "--height", "270")
        first = self.import_file(self.media_file("media/one.mp4", size=1000, seed=1), "1", *proxy)
        before = contents(first["file"])
        second = self.media_file("media/two.mp4", size=2000, seed=2)
        for link in ([], ["--link"]):
            self.refused("import", second, "--location", "1", *proxy, *link, expect=FAILED, message="exists already")
        self.assertEqual(contents(first["file"]), before)

    def test_a_bad_file_does_not_keep_the_others_out(self):
        self.add_location()
        good = [self.media_file(f"media/{i}.mov", seed=i) for i in range(2)]
        answers = self.json_lines("import", good[0], self.path("none"), good[1], "--location", "1", expect=FAILED)
        self.assertEqual(len(answers), 2)
        self.assertEqual(self.json("scan")["clips"], 2)

    def test_a_name_that_scans_pass_over_is_refused(self):
        self.add_location()
        self.refused("import", self.media_file("media/shot.partial"), "--location", "1", expect=FAILED,
                     message="companion")
        self.assertEqual([n for n in self.listing() if n.startswith("V")], [])

    def test_into_an_unknown_location_is_answered_with_no(self):
        self.refused("import", self.media_file(), "--location", "1", expect=NO, message="1 is no media location")

    def test_a_proxy_of_an_unknown_clip_is_answered_with_no(self):
        self.add_location()
        for cookie in (UNKNOWN_COOKIE, "nonsense"):
            self.refused("import", self.media_file(), "--location", "1", "--proxy-of", cookie, "--height", "540",
                         expect=NO, message=cookie)

    def test_options_that_do_not_go_together_are_wrong_usage(self):
        clip = self.import_clip()["cookie"]
        file = self.media_file()
        for wrong in (["--height", "540"], ["--channels", "2"], ["--proxy-of", clip],
                      ["--proxy-of", clip, "--height", "540", "--sound"], ["--proxy-of", clip, "--height", "0"],
                      ["--proxy-of", clip, "--height", "-1"], ["--proxy-of", clip, "--height", "x"],
                      ["--proxy-of", clip, "--height", "5", "--channels", "256"],
                      ["--proxy-of", clip, "--height", "5", "--channels", "-1"]):
            with self.subTest(wrong=wrong):
                self.refused("import", file, "--location", "1", *wrong, expect=USAGE)

    def test_makes_media_folders_that_someone_removed(self):
        self.add_location()
        os.rmdir(self.path("location", "Sound"))
        self.import_file(self.media_file("media/take.wav"), "1", "--sound")
        self.assertTrue(stat.S_ISDIR(os.stat(self.path("location", "Sound")).st_mode))

    def test_clips_are_known_in_later_runs(self):
        cookies = set()
        self.add_location()
        for i in range(5):
            cookies.add(self.import_file(self.media_file(seed=i))["cookie"])
        self.assertEqual(len(cookies), 5)
        for cookie in cookies:
            self.assertEqual(self.json("find", cookie)["status"], "online")


if __name__ == "__main__":
    main()
