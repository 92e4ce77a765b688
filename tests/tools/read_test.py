import os

from command_case import CommandCase, NO, UNKNOWN_COOKIE, main

READ_KEYS = ["bytes", "seconds", "mb_per_s", "latency_us", "xxh128"]
SIZES = (1, 511, 512, 513, 4096, (1 << 20) - 1, 1 << 20, (1 << 20) + 1, 5 << 20)


class Read(CommandCase):
    def media_of(self, size):
        # A file of 512 bytes is media only when it says so.
        file = self.media_file(f"media/{size}.wav", size=size, seed=size)
        if size == 512:
            self.write(f"media/{size}.wav", b"RIFF" + os.urandom(508))
        return file

    def check(self, source, file, *arguments):
        answer = self.json("read", source, "--hash", *arguments)
        self.assertEqual(answer["bytes"], os.path.getsize(file))
        self.assertEqual(answer["xxh128"], self.hash_of(file))

    def check_all_sizes(self, backend):
        self.environment["FSYS_IO_BACKEND"] = backend
        self.add_location()
        for size in SIZES:
            with self.subTest(size=size):
                file = self.media_of(size)
                self.check(file, file)
                self.check(self.import_file(file)["cookie"], file, "--block", "64k", "--depth", "32")

    def check_depths_and_blocks(self, backend):
        self.environment["FSYS_IO_BACKEND"] = backend
        file = self.media_file(size=5 << 20)
        for block in ("4k", "1m", "5001", "1000003", "1g"):
            for depth in ("1", "32", "200"):
                with self.subTest(block=block, depth=depth):
                    self.check(file, file, "--block", block, "--depth", depth)

    def test_has_exactly_the_keys_that_scripts_know(self):
        answer = self.json("read", self.media_file(), "--hash")
        self.assertEqual(list(answer), READ_KEYS)
        self.assertEqual(list(answer["latency_us"]), ["p50", "p99", "max"])
        for key in ("p50", "p99", "max"):
            self.assertIsInstance(answer["latency_us"][key], int)
        self.assertGreater(answer["seconds"], 0)
        self.assertAlmostEqual(answer["mb_per_s"], answer["bytes"] / 1e6 / answer["seconds"], delta=answer["mb_per_s"] / 1000)

    def test_latencies_are_in_order(self):
        latency = self.json("read", self.media_file(size=3 << 20), "--block", "4k")["latency_us"]
        self.assertLessEqual(latency["p50"], latency["p99"])
        self.assertLessEqual(latency["p99"], latency["max"])
        self.assertGreater(latency["max"], 0)

    def test_without_hash_there_is_none(self):
        self.assertIsNone(self.json("read", self.media_file())["xxh128"])

    def test_every_size_on_the_ring(self):
        self.check_all_sizes("uring")

    def test_every_size_on_the_thread_pool(self):
        self.check_all_sizes("threads")

    def test_depths_and_blocks_on_the_ring(self):
        self.check_depths_and_blocks("uring")

    def test_depths_and_blocks_on_the_thread_pool(self):
        self.check_depths_and_blocks("threads")

    def test_a_depth_far_above_what_the_engine_holds(self):
        file = self.media_file(size=2 << 20)
        self.check(file, file, "--block", "1001", "--depth", "4096")

    def test_the_smallest_block(self):
        file = self.media_file(size=700)
        self.check(file, file, "--block", "1", "--depth", "300")

    def test_block_sizes_are_powers_of_1024(self):
        file = self.media_file(size=8192)
        for block in ("4k", "4K", "4kb", "4096", "4096b"):
            self.check(file, file, "--block", block)

    def test_a_clip_in_full_resolution_also_when_it_has_proxies(self):
        clip = self.import_clip(size=7000)
        self.import_file(self.media_file("media/p.mp4", size=3000), "1", "--proxy-of", clip["cookie"], "--height", "90")
        self.assertEqual(self.json("read", clip["cookie"])["bytes"], 7000)

    def test_a_link_gives_the_bytes_of_its_target(self):
        self.add_location()
        file = self.media_file(size=1_234_567)
        answer = self.import_file(file, "1", "--link")
        self.check(answer["cookie"], file)
        self.check(answer["file"], file)

    def test_an_empty_file_has_no_bytes_and_a_hash(self):
        file = self.write("empty", b"")
        self.check(file, file)

    def test_paths_of_any_kind(self):
        for name in (b" two  blanks ", "Ünïcödé 🎬".encode(), b"\xff\xc3.mov", b"new\nline", b"-dash"):
            with self.subTest(name=name):
                file = self.write(b"media/" + name, os.urandom(10_000))
                self.check(file, file)
        self.check(os.path.join("media", " two  blanks "), self.path("media", " two  blanks "))

    def test_a_path_after_two_dashes(self):
        self.write("-x.mov", os.urandom(600))
        self.assertEqual(self.json("read", "--", "-x.mov")["bytes"], 600)

    def test_for_people_the_hash_stands_on_a_line_of_its_own(self):
        file = self.media_file()
        lines = self.run_command("read", file, "--hash").text.splitlines()
        self.assertEqual(len(lines), 2)
        self.assertTrue(lines[0].startswith("100000 bytes in "))
        self.assertEqual(lines[1], self.hash_of(file))

    def test_what_is_neither_clip_nor_file_is_answered_with_no(self):
        self.refused("read", self.path("none"), expect=NO, message="neither a known clip nor a file")
        self.refused("read", self.path("media"), expect=NO, message="neither a known clip nor a file")
        self.refused("read", UNKNOWN_COOKIE, expect=NO, message=UNKNOWN_COOKIE)
        self.refused("--json", "read", UNKNOWN_COOKIE, expect=NO, message=UNKNOWN_COOKIE)

    def test_pipes_and_devices_are_no_media(self):
        os.mkfifo(self.path("pipe"))
        self.refused("read", self.path("pipe"), expect=NO, message="pipe")
        self.refused("read", "/dev/zero", expect=NO, message="/dev/zero")

    def test_a_link_to_nowhere_says_so(self):
        link = self.write("dead.mov", b"/nowhere/at/all.mov".ljust(512, b"\0"))
        self.refused("read", link, expect=NO, message="/nowhere/at/all.mov is not there")


if __name__ == "__main__":
    main()
