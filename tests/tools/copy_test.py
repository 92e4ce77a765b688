import os

from command_case import UNKNOWN_COOKIE, CommandCase, FAILED, NO, USAGE, main

KEYS = ["cookie", "kind", "from", "file", "bytes", "xxh128", "verified", "error"]


class Copy(CommandCase):
    def files_in(self, name):
        return sorted(os.listdir(self.path(name, "Material")))

    def test_copies_a_clip_with_its_proxies_under_the_same_names(self):
        clip = self.import_clip()
        proxy = self.import_file(self.media_file("media/proxy.mov", 5000, seed=2), "1", "--proxy-of",
                                 clip["cookie"], "--height", "540")
        self.add_location("second")
        lines = self.json_lines("copy", clip["cookie"], "--location", "2", "--verify")
        self.assertEqual([line["kind"] for line in lines], ["high", "proxy"])
        self.assertEqual([line["from"] for line in lines], [clip["file"], proxy["file"]])
        for line in lines:
            self.assertEqual(list(line), KEYS)
            self.assertIs(line["verified"], True)
            self.assertIsNone(line["error"])
            self.assertEqual(os.path.basename(line["file"]), os.path.basename(line["from"]))
            self.assertTrue(line["file"].startswith(self.path("second") + "/"))
            self.assertEqual(self.hash_of(line["file"]), self.hash_of(line["from"]))
            self.assertEqual(line["xxh128"], self.hash_of(line["from"]))
            self.assertEqual(line["bytes"], os.path.getsize(line["from"]))

    def test_without_verify_nothing_is_said_of_it(self):
        clip = self.import_clip()
        self.add_location("second")
        self.assertIsNone(self.json("copy", clip["cookie"], "--location", "2")["verified"])

    def test_the_copy_of_a_link_holds_the_media(self):
        self.add_location()
        media = self.media_file(size=70_001)
        clip = self.import_file(media, "1", "--link")
        self.add_location("second")
        line = self.json("copy", clip["cookie"], "--location", "2")
        self.assertEqual(line["bytes"], 70_001)
        self.assertEqual(self.hash_of(line["file"]), self.hash_of(media))

    def test_replaces_nothing(self):
        clip = self.import_clip()
        self.add_location("second")
        name = os.path.basename(clip["file"])
        self.write(f"second/Material/{name}", b"precious")
        self.assertEqual(self.json_lines("copy", clip["cookie"], "--location", "2"), [])
        # Empty files are nobody's media, and are not replaced either.
        self.add_location("third")
        self.write(f"third/Material/{name}", b"")
        line = self.json("copy", clip["cookie"], "--location", "3", expect=FAILED)
        self.assertIsNone(line["file"])
        self.assertIsNotNone(line["error"])
        with open(self.path("second", "Material", name), "rb") as file:
            self.assertEqual(file.read(), b"precious")
        self.assertEqual(os.path.getsize(self.path("third", "Material", name)), 0)
        self.assertEqual([n for n in self.files_in("third") if n.startswith("V")], [name])

    def test_copies_again_and_back(self):
        clip = self.import_clip()
        self.import_file(self.media_file("media/proxy.mov", 5000, seed=2), "1", "--proxy-of", clip["cookie"],
                         "--height", "540")
        self.add_location("second")
        self.add_location("third")
        self.assertEqual(len(self.json_lines("copy", clip["cookie"], "--location", "2")), 2)
        self.assertEqual(len(self.json_lines("copy", clip["cookie"], "--location", "3")), 2)
        self.assertEqual(self.json_lines("copy", clip["cookie"], "--location", "1"), [])

    def test_what_lies_there_already_is_left_alone(self):
        clip = self.import_clip()
        self.assertEqual(self.json_lines("copy", clip["cookie"], "--location", "1"), [])
        self.assertIn("already", self.run_command("copy", clip["cookie"], "--location", "1").text)

    def test_a_source_that_cannot_be_reached_is_named_and_leaves_nothing(self):
        self.add_location()
        media = self.media_file()
        clip = self.import_file(media, "1", "--link")
        self.add_location("second")
        os.remove(media)
        result = self.run_command("copy", clip["cookie"], "--location", "2", expect=FAILED)
        self.assertIn(media, result.message)
        self.assertEqual([n for n in self.files_in("second") if n.startswith("V")], [])

    def test_the_clip_is_found_at_the_copy_when_the_first_location_has_gone(self):
        clip = self.import_clip()
        self.add_location("second")
        copy = self.json("copy", clip["cookie"], "--location", "2")
        self.json("location", "remove", "1")
        self.assertEqual(self.json("find", clip["cookie"])["file"], copy["file"])

    def test_unknown_clips_and_locations_are_refused(self):
        clip = self.import_clip()
        self.refused("copy", UNKNOWN_COOKIE, "--location", "1", expect=NO, message=UNKNOWN_COOKIE)
        self.refused("copy", clip["cookie"], "--location", "7", expect=NO)
        self.refused("copy", clip["cookie"], expect=USAGE)


if __name__ == "__main__":
    main()
