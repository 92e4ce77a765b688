import os

from command_case import CommandCase, NO, UNKNOWN_COOKIE, USAGE, main


def target_of(link):
    with open(link, "rb") as file:
        content = file.read()
    assert len(content) == 512
    return os.fsdecode(content.split(b"\0")[0])


class LinkCase(CommandCase):
    def setUp(self):
        super().setUp()
        for name in ("a", "b"):
            self.add_location(name)
        self.target = self.media_file("far/shot.mov")
        self.clip = self.import_file(self.target, "1", "--link")
        self.cookie = self.clip["cookie"]
        self.moved = self.path("b/Material", os.path.basename(self.clip["file"]))


class LinkToLocation(LinkCase):
    def test_moves_the_link_file_of_an_offline_clip(self):
        os.remove(self.target)
        answer = self.json("link", self.cookie, "--to-location", "2")
        self.assertEqual(answer, {"cookie": self.cookie, "old": self.clip["file"], "file": self.moved,
                                  "location": "2", "target": self.target})
        self.assertFalse(os.path.exists(self.clip["file"]))
        self.assertEqual(target_of(self.moved), self.target)

    def test_the_moved_clip_comes_back_with_its_target(self):
        os.rename(self.path("far"), self.path("away"))
        self.run_command("link", self.cookie, "--to-location", self.path("b"))
        os.rename(self.path("away"), self.path("far"))
        high = self.json("clip", self.cookie)["channels"][0]["high"]
        self.assertEqual((high["file"], high["location"], high["status"]), (self.moved, "2", "online"))
        self.assertEqual(self.json("status")["offline"], "none")

    def test_makes_the_media_folders_where_they_are_missing(self):
        os.remove(self.target)
        os.remove(self.path("b/Material/MediaSpaceInfo.txt"))
        os.rmdir(self.path("b/Material"))
        self.run_command("link", self.cookie, "--to-location", "2")
        self.assertTrue(os.path.exists(self.moved))

    def test_for_people_names_link_and_target(self):
        os.remove(self.target)
        text = self.run_command("link", self.cookie, "--to-location", "2").text
        self.assertEqual(text.rstrip(), f"{self.moved} -> {self.target}")

    def stays(self, message, *more):
        self.refused("link", self.cookie, "--to-location", "2", *more, expect=NO, message=message)
        self.assertTrue(os.path.exists(self.clip["file"]))

    def test_an_online_link_stays(self):
        self.stays("is online")

    def test_a_link_with_proxies_stays(self):
        self.run_command("proxy", "add", self.cookie, self.media_file("p.mov", 700), "--height", "540")
        os.remove(self.target)
        self.stays("has proxies")

    def test_a_link_that_is_there_already_stays(self):
        os.remove(self.target)
        self.refused("link", self.cookie, "--to-location", "1", expect=NO, message="there already")

    def test_a_file_of_that_name_is_never_replaced(self):
        os.remove(self.target)
        # One that the index does not know: an empty file.
        with open(self.moved, "wb"):
            pass
        self.stays("is there already")
        self.assertEqual(os.path.getsize(self.moved), 0)

    def test_media_is_no_link(self):
        media = self.import_file(self.media_file("own.mov"), "1")
        self.refused("link", media["cookie"], "--to-location", "2", expect=NO, message="is no link")

    def test_unknown_clips_and_locations(self):
        os.remove(self.target)
        self.refused("link", UNKNOWN_COOKIE, "--to-location", "2", expect=NO, message="no clip")
        self.refused("link", self.cookie, "--to-location", "9", expect=NO, message="9")

    def test_both_arguments_are_needed(self):
        self.refused("link", expect=USAGE, message="COOKIE")
        self.refused("link", self.cookie, expect=USAGE, message="--to-location")
        self.refused("link", "--to-location", "2", expect=USAGE, message="COOKIE")


class LinkRealise(LinkCase):
    def test_links_that_stand_are_left_as_they_are(self):
        before = os.stat(self.clip["file"])
        answer = self.json("link", "realise", self.cookie)
        self.assertEqual(answer, {"cookie": self.cookie, "written": [], "standing": [self.clip["file"]]})
        after = os.stat(self.clip["file"])
        self.assertEqual((before.st_mtime_ns, before.st_ino), (after.st_mtime_ns, after.st_ino))

    def test_an_offline_link_stands_too(self):
        os.remove(self.target)
        self.assertEqual(self.json("link", "realise", self.cookie)["standing"], [self.clip["file"]])
        self.assertEqual(target_of(self.clip["file"]), self.target)

    def test_media_is_never_overwritten(self):
        media = self.import_file(self.media_file("own.mov"), "1")
        before = self.hash_of(media["file"])
        self.assertEqual(self.json("link", "realise", media["cookie"])["written"], [])
        self.assertEqual(self.hash_of(media["file"]), before)

    def test_for_people_has_a_line_per_file(self):
        self.run_command("proxy", "add", self.cookie, self.media_file("p.mov", 700), "--height", "540")
        lines = self.run_command("link", "realise", self.cookie).text.splitlines()
        self.assertEqual([line.split()[0] for line in lines], ["standing", "standing"])

    def test_unknown_clips(self):
        self.refused("link", "realise", UNKNOWN_COOKIE, expect=NO, message="no clip")
        self.refused("link", "realise", expect=USAGE, message="COOKIE")


if __name__ == "__main__":
    main()
