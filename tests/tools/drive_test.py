import os
import shutil
import tempfile

from command_case import CommandCase, FAILED, NO, USAGE, main

MB = 1 << 20


class DriveBest(CommandCase):
    def test_has_exactly_the_keys_that_scripts_know(self):
        self.add_location("a", "--name", "Raid")
        answer = self.json("drive", "best", "--mb", "1")
        self.assertEqual(list(answer), ["id", "name", "path", "free_mb", "match"])
        self.assertEqual((answer["id"], answer["name"], answer["path"], answer["match"]),
                         ("1", "Raid", self.path("a"), "best-fit"))

    def test_free_megabytes_are_those_before_the_request(self):
        self.add_location("a")
        self.assertAlmostEqual(self.json("drive", "best", "--mb", "1")["free_mb"],
                               self.locations()[0]["free_bytes"] / MB, delta=200)

    def test_best_fit_and_most_space_choose_between_file_systems(self):
        memory = "/dev/shm"
        if not os.path.isdir(memory) or os.stat(memory).st_dev == os.stat(self.root).st_dev:
            self.skipTest("there is no second file system that anybody may write to")
        folder = tempfile.mkdtemp(dir=memory)
        self.addCleanup(shutil.rmtree, folder)
        self.run_command("location", "add", folder)
        self.add_location("a")
        free = {l["id"]: l["free_bytes"] for l in self.locations()}
        if abs(free["1"] - free["2"]) < 1 << 30:
            self.skipTest("both file systems have about the same room")
        for match, choose in (("best-fit", min), ("most-space", max)):
            self.assertEqual(self.json("drive", "best", "--mb", "1", "--match", match)["id"],
                             choose(free, key=free.get))

    def test_tells_people(self):
        self.add_location("a")
        self.assertRegex(self.run_command("drive", "best", "--mb", "1").text,
                         r"^1 a  " + self.path("a") + r"  \d+ MB free\n$")

    def test_no_room_is_answered_with_no(self):
        self.refused("drive", "best", "--mb", "1", expect=NO, message="more than 1 MB")
        self.add_location("a")
        self.refused("drive", "best", "--mb", "1e12", expect=NO, message="MB free")

    def test_wrong_arguments(self):
        self.refused("drive", "best", expect=USAGE, message="--mb")
        for wrong in ("-1", "x", "nan", "1e99"):
            self.refused("drive", "best", "--mb", wrong, expect=USAGE)
        self.refused("drive", "best", "--mb", "1", "--match", "least", expect=USAGE, message="least")
        self.refused("drive", expect=USAGE, message="required")


class DriveTime(CommandCase):
    def test_divides_the_room_by_both_rates(self):
        self.add_location("a")
        answer = self.json("drive", "time", "1", "--rate-a", "1m", "--rate-b", "1m")
        self.assertEqual(list(answer), ["id", "name", "free_mb", "minutes", "unlimited"])
        # Less the 2 MB that are never recorded to; others may write meanwhile.
        self.assertAlmostEqual(answer["minutes"], answer["free_mb"] / 2, delta=200)
        self.assertIs(answer["unlimited"], False)

    def test_rates_of_nothing_are_without_limit(self):
        self.add_location("a")
        answer = self.json("drive", "time", "1", "--rate-a", "0")
        self.assertEqual((answer["minutes"], answer["unlimited"]), (2147483647, True))
        self.assertEqual(self.run_command("drive", "time", "1", "--rate-a", "0").text, "1 a: without limit\n")

    def test_tells_people(self):
        self.add_location("a")
        self.assertRegex(self.run_command("drive", "time", self.path("a"), "--rate-a", "1m").text,
                         r"^1 a: \d+ minutes \(\d+ MB\)\n$")

    def test_unknown_locations_and_wrong_rates(self):
        self.refused("drive", "time", "1", "--rate-a", "1", expect=NO, message="1 is no media location")
        self.refused("drive", "time", "1", expect=USAGE, message="--rate-a")
        for wrong in ("-1", "x", "1q"):
            self.refused("drive", "time", "1", "--rate-a", wrong, expect=USAGE)


class DriveTask(CommandCase):
    def test_a_choice_is_kept_for_later_runs(self):
        for name in ("a", "b"):
            self.add_location(name)
        chosen = self.json("drive", "task", "Record", "--set", "2")
        self.assertEqual(chosen, {"task": "Record", "id": "2", "name": "b", "path": self.path("b")})
        self.assertEqual(self.json("drive", "task", "Record"), chosen)
        self.assertEqual(self.run_command("drive", "task", "Record").text, f"2 b  {self.path('b')}\n")

    def test_tasks_do_not_share_a_choice(self):
        self.add_location("a")
        self.run_command("drive", "task", "Record", "--set", self.path("a"))
        self.assertEqual(self.json("drive", "task", "Render", expect=NO),
                         {"task": "Render", "id": None, "name": "", "path": ""})

    def test_clear_forgets_it(self):
        self.add_location("a")
        self.run_command("drive", "task", "Record", "--set", "1")
        self.assertIsNone(self.json("drive", "task", "Record", "--clear")["id"])
        self.refused("drive", "task", "Record", expect=NO, message="Record")
        self.run_command("drive", "task", "Record", "--clear")

    def test_a_choice_follows_the_place_and_not_the_id(self):
        for name in ("a", "b"):
            self.add_location(name)
        self.run_command("drive", "task", "Record", "--set", "2")
        self.run_command("location", "remove", "1")
        self.assertEqual(self.json("drive", "task", "Record")["id"], "1")

    def test_fallback_is_the_last_location_with_room(self):
        for name in ("a", "b"):
            self.add_location(name)
        self.assertEqual(self.json("drive", "task", "Record", "--fallback")["id"], "2")
        self.run_command("drive", "task", "Record", "--set", "1")
        self.assertEqual(self.json("drive", "task", "Record", "--fallback")["id"], "1")

    def test_without_any_location_there_is_no_fallback(self):
        self.refused("drive", "task", "Record", "--fallback", expect=NO, message="Record")

    def test_a_choice_that_cannot_be_kept_fails(self):
        self.add_location("a")
        self.environment["FSYS_PREFS"] = "/proc/none/preferences"
        self.refused("drive", "task", "Record", "--set", "1", expect=FAILED, message="preferences")

    def test_unknown_locations_and_contradictions(self):
        self.refused("drive", "task", "Record", "--set", "9", expect=NO, message="9")
        for line in (["--set", "1", "--clear"], ["--set", "1", "--fallback"], ["--clear", "--fallback"]):
            self.refused("drive", "task", "Record", *line, expect=USAGE)
        self.refused("drive", "task", expect=USAGE, message="TASK")


if __name__ == "__main__":
    main()
