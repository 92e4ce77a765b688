import json
import os
import subprocess

from command_case import COMMAND, CommandCase, DONE, FAILED, NO, USAGE, main

FIRST_BEHIND_Z = 43  # '1' is the first id


class LocationRename(CommandCase):
    def test_the_name_is_kept_in_the_location(self):
        self.add_location("a")
        answer = self.json("location", "rename", "1", "Räid 🎬")
        self.assertEqual(answer, {"id": "1", "old_name": "a", "name": "Räid 🎬", "path": self.path("a")})
        self.assertEqual(self.locations()[0]["name"], "Räid 🎬")
        self.space = self.path("another")
        self.add_location("a")
        self.assertEqual(self.locations()[0]["name"], "Räid 🎬")

    def test_takes_a_path_and_tells_people(self):
        self.add_location("a")
        self.assertEqual(self.run_command("location", "rename", self.path("a"), "Raid A").text.split(),
                         ["1", "Raid", "A", self.path("a")])

    def test_names_survive_as_they_are(self):
        self.add_location("a")
        for name in ("a=b", " two  blanks ", "100%s", "quote'\""):
            self.run_command("location", "rename", "1", name)
            self.assertEqual(self.locations()[0]["name"], name)

    def test_names_that_cannot_be_kept_are_refused(self):
        self.add_location("a")
        for name in ("", "two\nlines", "two\rlines"):
            self.refused("location", "rename", "1", name, expect=USAGE, message="name")
        self.assertEqual(self.locations()[0]["name"], "a")

    def test_a_location_without_folders_cannot_keep_a_name(self):
        self.add_location("a")
        os.remove(self.path("a/Material/MediaSpaceInfo.txt"))
        os.rmdir(self.path("a/Material"))
        self.refused("location", "rename", "1", "Raid", expect=FAILED, message="prepare")

    def test_an_unknown_location_is_answered_with_no(self):
        self.refused("location", "rename", "4", "Raid", expect=NO, message="4")
        self.refused("location", "rename", "4", expect=USAGE, message="NAME")


class LocationPrepare(CommandCase):
    def test_makes_what_is_missing_and_names_it(self):
        self.add_location("a")
        os.rmdir(self.path("a/Sound"))
        answer = self.json("location", "prepare", "1")
        self.assertEqual(answer, {"id": "1", "path": self.path("a"), "made": [self.path("a/Sound") + "/"]})
        self.assertTrue(os.path.isdir(self.path("a/Sound")))
        self.assertEqual(self.json("location", "prepare", "1")["made"], [])

    def test_tells_people_in_both_cases(self):
        self.add_location("a")
        self.assertIn("prepared already", self.run_command("location", "prepare", "1").text)
        os.rmdir(self.path("a/Sound"))
        self.assertEqual(self.run_command("location", "prepare", "1").text, f"made {self.path('a/Sound')}/\n")

    def test_a_folder_that_cannot_be_made_fails(self):
        self.add_location("a")
        os.rmdir(self.path("a/Sound"))
        self.write("a/Sound", b"a file in its place")
        self.refused("location", "prepare", "1", expect=FAILED, message="cannot be made")

    def test_an_unknown_location_is_answered_with_no(self):
        self.refused("location", "prepare", "1", expect=NO, message="1")


class LocationUnmount(CommandCase):
    def many_locations(self, count):
        roots = [self.location_folder(f"many/{i:02}") + "/" for i in range(1, count + 1)]
        self.write("space/DefNetDrive.txt", "".join(root + "\n" for root in roots).encode())
        return roots

    def test_takes_out_what_is_behind_z_and_tells_which(self):
        roots = self.many_locations(FIRST_BEHIND_Z + 2)
        answer = self.json("location", "unmount")
        self.assertEqual(answer["unmounted"],
                         [{"id": id, "path": roots[FIRST_BEHIND_Z - 1 + i], "returns": True}
                          for i, id in enumerate("[\\]")])

    def test_locations_that_somebody_added_stay_listed(self):
        roots = self.many_locations(FIRST_BEHIND_Z)
        self.write("space/UnmountedDrives.txt", b"/media/found before/\n")
        self.assertIn("back at the next start", self.run_command("location", "unmount").text)
        self.assertEqual(len(self.locations()), FIRST_BEHIND_Z)
        self.assertEqual(self.json("location", "unmounted"), {"unmounted": ["/media/found before/"]})
        # Adding it anew later is no return of a discovered drive.
        self.run_command("location", "remove", roots[-1])
        self.run_command("location", "add", roots[-1])
        self.assertEqual(self.locations()[-1]["path"] + "/", roots[-1])

    def test_drives_that_discovery_found_stay_away(self):
        """Mounts of its own, seen by this test alone."""
        if subprocess.run(["unshare", "-m", "true"], stderr=subprocess.DEVNULL).returncode != 0:
            self.skipTest("only root mounts file systems")
        self.write("space/UnmountedDrives.txt", b"/media/before/\n")
        command = f"'{COMMAND}' --space '{self.space}' --json location"
        lines = [f"for i in $(seq 101 {100 + FIRST_BEHIND_Z + 1}); do mkdir $i; mount -t tmpfs -o size=1m none $i; "
                 "mkdir $i/Material; done", f"{command} list", f"{command} unmount", f"{command} list",
                 f"{command} unmounted"]
        done = subprocess.run(["unshare", "-m", "sh", "-e", "-c", "\n".join(lines)], env=self.environment,
                              cwd=self.location_folder("mounts"), stdin=subprocess.DEVNULL, capture_output=True)
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        before, unmounted, after, listed = map(json.loads, done.stdout.splitlines())
        # The machine may have media drives of its own.
        gone = [l["path"] + "/" for l in before["locations"]][FIRST_BEHIND_Z - 1:]
        self.assertGreaterEqual(len(gone), 2)
        self.assertEqual([(d["path"], d["returns"]) for d in unmounted["unmounted"]], [(g, False) for g in gone])
        self.assertEqual([l["path"] + "/" for l in after["locations"] if l["path"] + "/" in gone], [])
        self.assertEqual(listed["unmounted"], ["/media/before/"] + gone)

    def test_up_to_z_nothing_is_unmounted(self):
        self.many_locations(FIRST_BEHIND_Z - 1)
        self.refused("location", "unmount", expect=NO, message="nothing was unmounted")

    def test_unmounted_lists_the_drives_that_the_start_keeps_away(self):
        self.assertEqual(self.json("location", "unmounted"), {"unmounted": []})
        self.write("space/UnmountedDrives.txt", "/media/a/\n/media/ü b/\n".encode())
        self.assertEqual(self.json("location", "unmounted"), {"unmounted": ["/media/a/", "/media/ü b/"]})
        self.assertEqual(self.run_command("location", "unmounted").text, "/media/a/\n/media/ü b/\n")


if __name__ == "__main__":
    main()
