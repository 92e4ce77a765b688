import json
import os
import subprocess
import subprocess
import unittest

from command_case import CommandCase, DONE, FAILED, NO, USAGE, main

LOCATION_KEYS = ["id", "name", "path", "type", "free_bytes", "total_bytes", "sector_size", "auto_discovered", "slow"]


class Location(CommandCase):
    def test_list_has_exactly_the_keys_that_scripts_know(self):
        self.add_location("a")
        answer = self.json("location", "list")
        self.assertEqual(list(answer), ["locations"])
        location = answer["locations"][0]
        self.assertEqual(list(location), LOCATION_KEYS)
        self.assertEqual(location["path"], self.path("a"))
        self.assertEqual(location["name"], "a")
        self.assertEqual(location["id"], "1")
        self.assertIs(location["auto_discovered"], False)
        self.assertIs(location["slow"], False)
        self.assertIsInstance(location["type"], int)

    def test_list_tells_the_space_of_the_file_system(self):
        self.add_location("a")
        location = self.locations()[0]
        place = os.statvfs(self.path("a"))
        self.assertEqual(location["total_bytes"], place.f_blocks * place.f_frsize)
        self.assertGreater(location["free_bytes"], 0)
        self.assertLessEqual(location["free_bytes"], location["total_bytes"])
        self.assertGreaterEqual(location["sector_size"], 512)

    def test_list_is_empty_at_first(self):
        self.assertEqual(self.json("location", "list"), {"locations": []})

    def test_list_for_people_has_a_line_per_location(self):
        self.add_location("one")
        self.add_location("two")
        lines = self.run_command("location", "list").text.splitlines()
        self.assertEqual(len(lines), 3)
        self.assertTrue(lines[1].endswith(self.path("one")))
        self.assertTrue(lines[2].endswith(self.path("two")))

    def test_add_prepares_both_media_folders(self):
        self.add_location("a")
        self.assertTrue(os.path.isdir(self.path("a", "Material")))
        self.assertTrue(os.path.isdir(self.path("a", "Sound")))

    def test_add_answers_one_object_with_the_new_id(self):
        self.assertEqual(self.add_location("a"), "1")
        self.assertEqual(self.add_location("b"), "2")

    def test_add_for_people_names_id_name_and_path(self):
        text = self.run_command("location", "add", self.location_folder("a"), "--name", "Raid").text
        self.assertEqual(text.split(), ["1", "Raid", self.path("a")])

    def test_a_name_is_kept_for_later_runs(self):
        self.add_location("a", "--name", "Räid A 🎬")
        self.assertEqual(self.locations()[0]["name"], "Räid A 🎬")

    def test_locations_stay_across_runs_with_their_order(self):
        for name in ("a", "b", "c"):
            self.add_location(name)
        self.assertEqual([l["path"] for l in self.locations()], [self.path(n) for n in "abc"])
        self.assertEqual([l["id"] for l in self.locations()], ["1", "2", "3"])

    def test_project_spaces_do_not_share_locations(self):
        self.add_location("a")
        self.space = self.path("another")
        self.assertEqual(self.locations(), [])

    def test_adding_twice_is_answered_with_no(self):
        self.add_location("a")
        for same in (self.path("a"), self.path("a") + "/", "a", "./a/../a"):
            self.refused("location", "add", same, expect=NO, message="already")
        self.assertEqual(len(self.locations()), 1)

    def test_a_relative_path_is_registered_as_a_whole_one(self):
        self.location_folder("a")
        self.run_command("location", "add", "a")
        self.assertEqual(self.locations()[0]["path"], self.path("a"))

    def test_names_with_blanks_accents_and_emoji_survive(self):
        for name in (" two  blanks ", "Café Ünïcödé", "🎬 film 映画", "quote'\"", "100%s"):
            with self.subTest(name=name):
                self.add_location(name)
                self.assertEqual(self.locations()[-1]["path"], self.path(name))
                self.assertEqual(self.locations()[-1]["name"], name)

    def test_a_name_that_is_no_utf_8_is_registered_used_and_removed(self):
        folder = os.fsdecode(os.fsencode(self.root) + b"/bad\xff\xc3name")
        os.mkdir(folder)
        self.run_command("location", "add", folder)
        self.assertEqual(len(self.locations()), 1)
        result = self.run_command("import", self.media_file(), "--location", folder)
        self.assertIn(b"/bad\xff\xc3name/Material/", result.out)
        cookie = result.text.split()[0]
        found = self.run_command("find", cookie).out.splitlines()[0]
        self.assertTrue(os.path.exists(found), found)
        self.run_command("location", "remove", folder)
        self.assertEqual(self.locations(), [])

    def test_line_breaks_in_path_or_name_are_refused(self):
        self.refused("location", "add", self.location_folder("a\nb"), expect=USAGE, message="line break")
        self.refused("location", "add", self.location_folder("c\rd"), expect=USAGE, message="line break")
        self.refused("location", "add", self.location_folder("e"), "--name", "f\ng", expect=USAGE,
                     message="line break")
        self.assertEqual(self.locations(), [])

    def test_a_backslash_in_the_path_is_refused(self):
        self.refused("location", "add", self.location_folder("a\\b"), expect=USAGE, message="backslash")
        self.assertEqual(self.locations(), [])

    def test_a_file_is_no_location(self):
        self.refused("location", "add", self.media_file(), expect=FAILED, message="not a folder")

    def test_a_missing_folder_is_no_location(self):
        self.refused("location", "add", self.path("none"), expect=FAILED, message="not a folder")
        self.assertFalse(os.path.exists(self.path("none")))

    def test_a_place_that_cannot_be_written_is_not_registered(self):
        self.refused("location", "add", "/proc", expect=FAILED, message="cannot be written")
        self.assertEqual(self.locations(), [])

    def test_remove_by_path_and_by_id(self):
        for name in ("a", "b", "c"):
            self.add_location(name)
        self.assertEqual(list(self.json("location", "remove", self.path("b"))), ["removed"])
        self.assertEqual([l["path"] for l in self.locations()], [self.path("a"), self.path("c")])
        self.run_command("location", "remove", "1")
        self.assertEqual([l["path"] for l in self.locations()], [self.path("c")])

    def test_upper_and_lower_case_are_different_folders(self):
        self.add_location("media")
        os.mkdir(self.path("MEDIA"))
        self.refused("location", "add", self.path("MEDIA"), expect=NO, message="only in case")
        self.refused("location", "remove", self.path("MEDIA"), expect=NO, message="no media location")
        self.refused("import", self.media_file("shot.mov"), "--location", self.path("MEDIA"), expect=NO)
        self.assertEqual([l["path"] for l in self.locations()], [self.path("media")])

    def test_a_location_that_is_away_is_told_and_comes_back(self):
        self.add_location("a")
        self.add_location("b")
        os.rename(self.path("a"), self.path("away"))
        process = self.start("--json", "location", "list", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = process.communicate()
        self.assertEqual([l["path"] for l in json.loads(out)["locations"]], [self.path("b")])
        self.assertIn(os.fsencode(self.path("a")), err)
        self.assertEqual(process.returncode, DONE)
        os.rename(self.path("away"), self.path("a"))
        self.assertEqual([l["path"] for l in self.locations()], [self.path("a"), self.path("b")])

    def test_remove_leaves_the_media_alone(self):
        file = self.import_clip()["file"]
        self.run_command("location", "remove", "1")
        self.assertTrue(os.path.exists(file))

    def test_remove_of_what_is_not_registered_is_answered_with_no(self):
        for unknown in ("1", "Z", "0", self.path("none")):
            self.refused("location", "remove", unknown, expect=NO, message="no media location")

    def test_a_removed_location_can_be_added_again_with_its_clips(self):
        cookie = self.import_clip()["cookie"]
        self.run_command("location", "remove", "1")
        self.assertEqual(self.json("find", cookie, expect=NO)["status"], "unknown")
        self.run_command("location", "add", self.path("location"))
        self.assertEqual(self.json("find", cookie)["status"], "online")

    def test_a_project_space_that_cannot_keep_anything_fails(self):
        self.space = "/proc"
        self.location_folder("a")
        self.refused("location", "add", self.path("a"), expect=FAILED, message="/proc cannot be written")
        self.assertFalse(os.path.exists(self.path("a", "Material")))

    def test_drives_are_looked_for_unless_that_is_switched_off(self):
        with_discovery = self.json("location", "list", discovery=True)
        self.assertTrue(all(location["auto_discovered"] for location in with_discovery["locations"]))


class ProjectSpace(CommandCase):
    def locations_at(self, **options):
        return [l["path"] for l in self.json("location", "list", space=False, **options)["locations"]]

    def test_is_made_on_first_use_with_its_parents(self):
        self.space = self.path("deep", "er", "space é")
        self.run_command("location", "list")
        self.assertTrue(os.path.isdir(self.space))

    def test_comes_from_the_option_then_the_variable_then_the_data_folder_then_the_home(self):
        for name, space in (("option", self.path("s1")), ("variable", self.path("s2")),
                            ("data", self.path("home", "data", "fsys")),
                            ("home", self.path("home", ".local", "share", "fsys"))):
            self.space = space
            self.add_location(name)
        self.environment["FSYS_SPACE"] = self.path("s2")
        self.space = self.path("s1")
        self.assertEqual([l["path"] for l in self.locations()], [self.path("option")])
        self.assertEqual(self.locations_at(), [self.path("variable")])
        del self.environment["FSYS_SPACE"]
        self.assertEqual(self.locations_at(), [self.path("data")])
        del self.environment["XDG_DATA_HOME"]
        self.assertEqual(self.locations_at(), [self.path("home")])

    def test_a_relative_data_folder_counts_as_none(self):
        self.environment["XDG_DATA_HOME"] = "relative"
        self.run_command("location", "list", space=False)
        self.assertTrue(os.path.isdir(self.path("home", ".local", "share", "fsys")))
        self.assertFalse(os.path.exists(self.path("relative")))

    def test_without_any_home_the_option_is_asked_for(self):
        for variable in ("HOME", "XDG_DATA_HOME"):
            del self.environment[variable]
        result = self.run_command("location", "list", space=False, expect=FAILED)
        self.assertEqual(result.out, b"")
        self.assertIn("--space", result.message)

    def test_that_cannot_be_made_fails(self):
        for space in ("/proc/none", self.media_file(), os.path.join(self.media_file(), "below")):
            self.space = space
            self.refused("scan", expect=FAILED, message=space)
            self.refused("--json", "location", "list", expect=FAILED, message=space)


if __name__ == "__main__":
    main()
