import os

from command_case import UNKNOWN_COOKIE, CommandCase, DONE, NO, USAGE, main

KEYS = ["cookie", "kind", "file", "bytes", "xxh128", "kept", "status", "error"]


class Verify(CommandCase):
    def statuses(self, *arguments, expect=DONE):
        return [line["status"] for line in self.json_lines("verify", *arguments, expect=expect)]

    def change_a_byte(self, path, at=1000):
        with open(path, "r+b") as file:
            file.seek(at)
            byte = file.read(1)[0]
            file.seek(at)
            file.write(bytes([byte ^ 1]))

    def test_compares_with_what_import_and_copy_kept(self):
        clip = self.import_clip()
        self.import_file(self.media_file("media/proxy.mov", 5000, seed=2), "1", "--proxy-of", clip["cookie"],
                         "--height", "540")
        lines = self.json_lines("verify", "--all")
        self.assertEqual([line["kind"] for line in lines], ["high", "proxy"])
        for line in lines:
            self.assertEqual(list(line), KEYS)
            self.assertEqual(line["status"], "ok")
            self.assertEqual(line["xxh128"], self.hash_of(line["file"]))
            self.assertEqual(line["kept"], line["xxh128"])
            self.assertEqual(line["bytes"], os.path.getsize(line["file"]))
            self.assertIsNone(line["error"])

    def test_sees_one_changed_bit(self):
        clip = self.import_clip()
        self.change_a_byte(clip["file"])
        line = self.json("verify", clip["cookie"], expect=NO)
        self.assertEqual(line["status"], "differs")
        self.assertNotEqual(line["kept"], line["xxh128"])

    def test_sees_a_file_that_was_cut(self):
        clip = self.import_clip()
        os.truncate(clip["file"], 99_999)
        self.assertEqual(self.statuses("--all", expect=NO), ["differs"])

    def test_a_link_has_no_hash_until_one_is_adopted(self):
        self.add_location()
        media = self.media_file()
        clip = self.import_file(media, "1", "--link")
        self.assertEqual(self.statuses(clip["cookie"]), ["unknown"])
        self.assertEqual(self.statuses(clip["cookie"], "--adopt"), ["adopted"])
        self.assertEqual(self.statuses(clip["cookie"]), ["ok"])
        self.change_a_byte(media)
        self.assertEqual(self.statuses(clip["cookie"], expect=NO), ["differs"])

    def test_a_link_to_nowhere_is_unreadable(self):
        self.add_location()
        media = self.media_file()
        self.import_file(media, "1", "--link")
        os.remove(media)
        line = self.json("verify", "--all", expect=NO)
        self.assertEqual(line["status"], "unreadable")
        self.assertIn(media, line["error"])

    def test_a_line_cut_by_a_crash_costs_only_itself(self):
        clip = self.import_clip()
        with open(self.path("space", "MediaHashes.jsonl"), "ab") as book:
            book.write(b'{"name":"V01')
        other = self.import_file(self.media_file("media/other.mov", 7000, seed=3))
        self.assertEqual(self.statuses(clip["cookie"], other["cookie"]), ["ok", "ok"])

    def test_a_damaged_copy_on_another_location_is_seen(self):
        clip = self.import_clip()
        self.import_file(self.media_file("media/proxy.mov", 5000, seed=2), "1", "--proxy-of", clip["cookie"],
                         "--height", "540")
        self.add_location("second")
        self.json_lines("copy", clip["cookie"], "--location", "2")
        self.change_a_byte(clip["file"])
        lines = self.json_lines("verify", clip["cookie"], expect=NO)
        self.assertEqual({line["file"] for line in lines if line["status"] == "differs"}, {clip["file"]})
        self.assertEqual(len(lines), 4)

    def test_a_renamed_proxy_keeps_its_hash(self):
        clip = self.import_clip()
        for height, seed in (("100", 2), ("200", 3)):
            proxy = self.json("proxy", "add", clip["cookie"], self.media_file(f"media/p{height}.mov", 5000, seed=seed),
                              "--height", height)
        name = os.path.basename(proxy["file"])
        # Between dots: the digits of a cookie may contain the height.
        first = name.replace(".200.", ".100.")
        self.json("proxy", "rename", clip["cookie"], first, name.replace(".200.", ".300."))
        self.json("proxy", "rename", clip["cookie"], name, first)
        self.assertEqual(self.statuses(clip["cookie"]), ["ok"] * 3)

    def test_only_the_named_clips_are_read(self):
        clip = self.import_clip()
        self.import_file(self.media_file("media/other.mov", 7000, seed=3))
        self.assertEqual(len(self.json_lines("verify", clip["cookie"])), 1)

    def test_tells_people_the_sum(self):
        clip = self.import_clip()
        result = self.run_command("verify", "--all")
        self.assertIn(clip["file"], result.text)
        self.assertIn("files: 1, ok: 1, differing: 0, unreadable: 0, adopted: 0, without a kept hash: 0", result.text)

    def test_a_terminal_shows_how_far_it_is(self):
        self.import_clip(size=3_000_000)
        shown = self.run_on_terminal("verify", "--all").shown
        self.assertIn(b"verify [", shown)

    def test_unknown_clips_and_no_clips_are_refused(self):
        self.add_location()
        self.refused("verify", UNKNOWN_COOKIE, expect=NO, message=UNKNOWN_COOKIE)
        self.refused("verify", expect=USAGE)
        self.assertEqual(self.json_lines("verify", "--all"), [])


if __name__ == "__main__":
    main()
