import json
import os
import subprocess

from command_case import CommandCase, FAILED, NO, UNKNOWN_COOKIE, USAGE, main

REMOVAL_KEYS = ["cookie", "dry_run", "removed", "failed"]


class Rm(CommandCase):
    def clip_with_proxies(self):
        """Answers cookie, path of the file, and paths of two proxies."""
        if not self.locations():
            self.add_location()
        clip = self.import_file(self.media_file())
        proxies = [self.json("proxy", "add", clip["cookie"], self.media_file(f"{h}.mov", 900), "--height",
                             str(h))["file"] for h in (270, 540)]
        return clip["cookie"], clip["file"], proxies

    def there(self, *paths):
        return [os.path.lexists(path) for path in paths]

    def test_has_exactly_the_keys_that_scripts_know(self):
        clip = self.import_clip()
        answer = self.json("rm", clip["cookie"], "--all")
        self.assertEqual(list(answer), REMOVAL_KEYS)
        self.assertEqual(answer, {"cookie": clip["cookie"], "dry_run": False,
                                  "removed": [{"file": clip["file"], "kind": "media"}], "failed": []})
        self.assertFalse(os.path.exists(clip["file"]))

    def test_proxies_leaves_the_full_resolution_file(self):
        cookie, file, proxies = self.clip_with_proxies()
        answer = self.json("rm", cookie, "--proxies")
        self.assertEqual([r["file"] for r in answer["removed"]], proxies)
        self.assertEqual(self.there(file, *proxies), [True, False, False])
        self.assertEqual(self.json("find", cookie)["status"], "online")

    def test_high_leaves_the_proxies(self):
        cookie, file, proxies = self.clip_with_proxies()
        self.run_command("rm", cookie, "--high")
        self.assertEqual(self.there(file, *proxies), [False, True, True])

    def test_all_and_both_flags_leave_nothing(self):
        for flags in (["--all"], ["--high", "--proxies"]):
            cookie, file, proxies = self.clip_with_proxies()
            self.run_command("rm", cookie, *flags)
            self.assertEqual(self.there(file, *proxies), [False, False, False])
            self.refused("rm", cookie, "--all", expect=NO, message="no clip")

    def test_dry_run_lists_the_same_and_deletes_nothing(self):
        cookie, file, proxies = self.clip_with_proxies()
        self.write(os.path.relpath(file, self.root) + ".lvix", b"index")
        planned = self.json("rm", cookie, "--all", "--dry-run")
        self.assertIs(planned["dry_run"], True)
        self.assertEqual(self.there(file, file + ".lvix", *proxies), [True] * 4)
        text = self.run_command("rm", cookie, "--all", "--dry-run").text
        self.assertEqual(text.count("would remove"), 4)
        done = self.json("rm", cookie, "--all")
        self.assertEqual(done["removed"], planned["removed"])
        self.assertEqual(self.there(file, file + ".lvix", *proxies), [False] * 4)

    def test_companions_go_with_their_file(self):
        clip = self.import_clip()
        companion = self.write(os.path.relpath(clip["file"], self.root) + ".reapeaks", b"peaks")
        neighbour = self.write("location/Material/readme.txt", b"stays")
        answer = self.json("rm", clip["cookie"], "--high")
        self.assertEqual(answer["removed"], [{"file": clip["file"], "kind": "media"},
                                             {"file": companion, "kind": "companion"}])
        self.assertEqual(self.there(companion, neighbour), [False, True])

    def test_the_target_of_a_link_goes_only_from_below_the_links_folder(self):
        self.add_location()
        inside = self.media_file("location/Material/media/inside.mov")
        outside = self.media_file("outside.mov")
        beside = self.media_file("location/Material/beside.mov")
        first = self.import_file(inside, "1", "--link")
        second = self.import_file(outside, "1", "--link")
        answer = self.json("rm", first["cookie"], "--all")
        self.assertEqual(answer["removed"], [{"file": first["file"], "kind": "media"},
                                             {"file": inside, "kind": "target"}])
        answer = self.json("rm", second["cookie"], "--all")
        self.assertEqual(answer["removed"], [{"file": second["file"], "kind": "media"}])
        third = self.import_file(beside, "1", "--link")
        answer = self.json("rm", third["cookie"], "--all")
        self.assertEqual(answer["removed"], [{"file": third["file"], "kind": "media"}])
        self.assertEqual(self.there(inside, outside, beside), [False, True, True])

    def test_only_the_one_channel_goes(self):
        cookie = self.import_clip()["cookie"]
        sound = self.write(f"location/Sound/S{cookie[1:17]}01.wav", b"s" * 10)
        self.run_command("rm", cookie, "--all")
        self.assertTrue(os.path.exists(sound))

    def test_without_a_choice_it_is_wrong_usage(self):
        clip = self.import_clip()
        for more in ([], ["--dry-run"]):
            self.refused("rm", clip["cookie"], *more, expect=USAGE, message="--proxies")
        self.refused("rm", clip["cookie"], "--all", "--high", expect=USAGE, message="--all")
        self.assertTrue(os.path.exists(clip["file"]))

    def test_nothing_of_that_kind_is_answered_with_no(self):
        clip = self.import_clip()
        self.refused("rm", clip["cookie"], "--proxies", expect=NO, message="no proxies")
        os.rename(clip["file"], clip["file"].replace(".mov", ".A0.proxy.540.mov"))
        self.refused("rm", clip["cookie"], "--high", expect=NO, message="no full-resolution file")

    def test_an_unknown_clip_is_answered_with_no(self):
        self.refused("rm", UNKNOWN_COOKIE, "--all", expect=NO, message="no clip")

    def test_a_file_that_is_also_one_that_stays_is_kept(self):
        clip = self.import_clip()
        self.add_location("other")
        name = os.path.basename(clip["file"]).replace(".mov", ".A0.proxy.540.mov")
        os.link(clip["file"], self.path("other/Material", name))
        self.refused("rm", clip["cookie"], "--proxies", expect=NO, message="same file")
        self.assertEqual(len(os.listdir(self.path("other/Material"))), 2)
        self.run_command("rm", clip["cookie"], "--all")
        self.assertFalse(os.path.exists(clip["file"]))

    def test_copies_on_other_locations_are_full_resolution_files_and_go_with_it(self):
        for proxies in ((), ("540",)):
            clip = self.import_file(self.media_file(f"media/{len(proxies)}.mov"), self.add_location(f"a{len(proxies)}"))
            for height in proxies:
                self.import_file(self.media_file("media/p.mov", 3000), "1", "--proxy-of", clip["cookie"], "--height",
                                 height)
            place = self.add_location(f"b{len(proxies)}")
            copy = self.json_lines("copy", clip["cookie"], "--location", place)[0]["file"]
            if not proxies:
                self.refused("rm", clip["cookie"], "--proxies", expect=NO, message="no proxies")
            else:
                self.run_command("rm", clip["cookie"], "--proxies")
            self.assertTrue(os.path.exists(clip["file"]) and os.path.exists(copy))
            answer = self.json("rm", clip["cookie"], "--high")
            self.assertEqual({item["file"] for item in answer["removed"]}, {clip["file"], copy})
            self.assertFalse(os.path.exists(clip["file"]) or os.path.exists(copy))

    def test_what_cannot_be_removed_is_told_with_its_reason(self):
        cookie, file, proxies = self.clip_with_proxies()
        folder = os.path.dirname(file)
        if subprocess.run(["chattr", "+i", folder], stderr=subprocess.DEVNULL).returncode != 0:
            self.skipTest("only root locks a folder against itself, and not on every file system")
        try:
            result = self.run_command("--json", "rm", cookie, "--proxies", expect=FAILED)
        finally:
            subprocess.run(["chattr", "-i", folder], check=True)
        answer = json.loads(result.out)
        self.assertEqual(answer["removed"], [])
        self.assertEqual(answer["failed"], [{"file": proxy, "reason": "Operation not permitted"} for proxy in proxies])
        self.assertIn("could not be removed: Operation not permitted", result.message)
        self.assertEqual(self.there(*proxies), [True, True])


if __name__ == "__main__":
    main()
