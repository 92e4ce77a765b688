import os
import subprocess

from command_case import CommandCase, DONE, NO, main

STATUS_KEYS = ["cookie", "channels", "offline", "proxy_online", "locations", "primary_location", "connect"]


class Status(CommandCase):
    def linked_clip(self, name="far/shot.mov"):
        """A link on location 1; answers its cookie and the file that it points at."""
        file = self.media_file(name)
        return self.import_file(file, "1", "--link")["cookie"], file

    def test_has_exactly_the_keys_that_scripts_know(self):
        self.import_clip()
        self.assertEqual(list(self.json("status")), STATUS_KEYS)

    def test_one_object_per_clip_and_none_for_an_empty_index(self):
        self.assertEqual(self.json_lines("status"), [])
        self.import_clip()
        self.import_file(self.media_file("b.mov"))
        self.assertEqual(len(self.json_lines("status")), 2)

    def test_channels_of_a_clip_count_as_one(self):
        cookie = self.import_clip()["cookie"]
        self.write(f"location/Sound/S{cookie[1:17]}01.wav", b"s" * 10)
        clip = self.json("status")
        self.assertEqual((clip["cookie"], clip["channels"], clip["offline"]), (cookie, 2, "none"))

    def test_tells_where_each_clip_is(self):
        self.add_location("a", "--name", "Raid A")
        self.import_file(self.media_file())
        clip = self.json("status")
        self.assertEqual(clip["locations"], [{"id": "1", "name": "Raid A"}])
        self.assertEqual(clip["primary_location"], "Raid A")
        self.assertEqual(clip["connect"], [])

    def test_an_offline_link_names_the_folder_of_its_target(self):
        self.add_location()
        cookie, file = self.linked_clip()
        os.rename(self.path("far"), self.path("away"))
        clip = self.json("status")
        self.assertEqual((clip["cookie"], clip["offline"]), (cookie, "all"))
        self.assertEqual(clip["connect"], [{"location": None, "name": "", "folder": self.path("far") + "/"}])
        self.assertIn(self.path("far") + "/", self.run_command("status").text)

    def test_an_offline_link_into_a_location_names_that_location(self):
        self.add_location("location")
        self.add_location("other", "--name", "Archive")
        cookie, file = self.linked_clip("other/camera/shot.mov")
        os.remove(file)
        self.assertEqual(self.json("status")["connect"],
                         [{"location": "2", "name": "Archive", "folder": self.path("other/camera") + "/"}])

    def test_some_all_and_none(self):
        self.add_location()
        cookie, file = self.linked_clip()
        self.write(f"location/Sound/S{cookie[1:17]}01.wav", b"s" * 10)
        self.import_file(self.media_file("here.mov"))
        self.assertEqual({c["offline"] for c in self.json_lines("status")}, {"none"})
        os.remove(file)
        self.assertEqual({c["cookie"]: c["offline"] for c in self.json_lines("status")}[cookie], "some")
        os.remove(self.path(f"location/Sound/S{cookie[1:17]}01.wav"))
        self.assertEqual({c["cookie"]: c["offline"] for c in self.json_lines("status")}[cookie], "all")

    def test_a_clip_that_only_has_proxies_is_offline_with_a_proxy(self):
        clip = self.import_clip()
        self.run_command("proxy", "add", clip["cookie"], self.media_file("p.mov", 700), "--height", "540")
        os.remove(clip["file"])
        status = self.json("status")
        self.assertEqual((status["offline"], status["proxy_online"]), ("all", True))
        self.assertEqual(status["locations"], [{"id": "1", "name": "location"}])

    def test_offline_leaves_out_what_is_whole(self):
        self.add_location()
        cookie, file = self.linked_clip()
        self.import_file(self.media_file("here.mov"))
        self.assertEqual(self.json_lines("status", "--offline"), [])
        os.remove(file)
        self.assertEqual([c["cookie"] for c in self.json_lines("status", "--offline")], [cookie])

    def test_location_filters_by_id_and_path(self):
        for name in ("a", "b"):
            self.add_location(name)
        first = self.import_file(self.media_file(), "1")["cookie"]
        second = self.import_file(self.media_file("b.mov"), "2")["cookie"]
        self.assertEqual(self.json("status", "--location", "1")["cookie"], first)
        self.assertEqual(self.json("status", "--location", self.path("b"))["cookie"], second)

    def test_location_counts_proxies(self):
        clip = self.import_clip()
        self.add_location("b")
        self.run_command("proxy", "add", clip["cookie"], self.media_file("p.mov", 700), "--height", "540",
                         "--location", "2")
        self.assertEqual([l["id"] for l in self.json("status", "--location", "2")["locations"]], ["1", "2"])

    def test_for_people_has_a_head_a_line_per_clip_and_totals(self):
        self.add_location()
        cookie, file = self.linked_clip()
        self.import_file(self.media_file("here.mov"))
        os.remove(file)
        lines = self.run_command("status").text.splitlines()
        self.assertEqual(len(lines), 4)
        self.assertEqual(lines[0].split(), ["clip", "channels", "offline", "proxy", "locations", "connect"])
        self.assertEqual(lines[3], "2 clips: 1 whole, 0 in part offline, 1 offline (0 of them with a proxy)")

    def test_locations_that_are_away_are_named(self):
        self.add_location("a")
        os.rename(self.path("a"), self.path("away"))
        process = self.start("--json", "status", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = process.communicate()
        self.assertEqual((process.returncode, out), (DONE, b""))
        self.assertIn(os.fsencode(self.path("a")), err)

    def test_an_unknown_location_is_answered_with_no(self):
        self.refused("status", "--location", "7", expect=NO, message="7")
        self.refused("--json", "status", "--location", "/none", expect=NO, message="/none")


if __name__ == "__main__":
    main()
