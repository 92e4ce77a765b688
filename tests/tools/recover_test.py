import os

from command_case import COOKIE, FAILED, NO, USAGE, main
from record_test import RecordCase

KEYS = ["location", "file", "final_file", "cookie", "bytes", "good_bytes", "modified", "in_use", "action", "error"]


class Recover(RecordCase):
    def killed_recording(self):
        """What recover says of a recording whose recorder was killed."""
        process = self.start_recording(3_000_000)
        process.kill()
        process.communicate()
        return self.json("recover")

    def test_lists_what_a_killed_recorder_left(self):
        found = self.killed_recording()
        self.assertEqual(list(found), KEYS)
        self.assertEqual(found["location"], "1")
        self.assertEqual(found["file"], found["final_file"] + ".partial")
        self.assertEqual([found["file"]], self.partial_files())
        self.assertRegex(found["cookie"], COOKIE)
        self.assertEqual(found["bytes"], os.path.getsize(found["file"]))
        self.assertGreaterEqual(found["good_bytes"], 1_000_000)
        self.assertEqual((found["in_use"], found["action"], found["error"]), (False, "found", None))

    def test_finishing_makes_a_clip_of_all_that_reached_the_disk(self):
        found = self.killed_recording()
        with open(found["file"], "rb") as file:
            good = file.read(found["good_bytes"])
        self.assertEqual(self.json("recover", "--finish", "--all")["action"], "finished")
        self.assertEqual(self.partial_files(), [])
        with open(found["final_file"], "rb") as file:
            self.assertEqual(file.read(), good)
        answer = self.json("find", found["cookie"])
        self.assertEqual((answer["file"], answer["status"]), (found["final_file"], "online"))

    def test_removes_by_name(self):
        found = self.killed_recording()
        name = os.path.basename(found["final_file"])
        self.assertEqual(self.json("recover", "--remove", name)["action"], "removed")
        self.assertEqual(self.partial_files(), [])
        self.assertEqual(self.json_lines("recover"), [])
        self.assertIn("no unfinished recordings", self.run_command("recover").text)

    def test_replaces_no_file(self):
        found = self.killed_recording()
        self.write(os.path.relpath(found["final_file"], self.root), b"precious")
        answer = self.json("recover", "--finish", "--all", expect=FAILED)
        self.assertEqual(answer["action"], "found")
        self.assertIsNotNone(answer["error"])
        with open(found["final_file"], "rb") as file:
            self.assertEqual(file.read(), b"precious")
        self.assertEqual(self.partial_files(), [found["file"]])

    def test_leaves_a_recording_alone_that_is_still_made(self):
        self.start_recording(2_000_000)
        found = self.json("recover")
        self.assertIs(found["in_use"], True)
        for action in ("--finish", "--remove"):
            answer = self.json("recover", action, "--all")
            self.assertEqual((answer["action"], answer["in_use"], answer["error"]), ("found", True, None))
            answer = self.json("recover", action, found["file"], expect=FAILED)
            self.assertEqual((answer["action"], answer["in_use"]), ("found", True))
            self.assertIsNotNone(answer["error"])
        self.assertEqual(self.partial_files(), [found["file"]])

    def test_looks_only_where_it_is_told_to(self):
        found = self.killed_recording()
        self.add_location("second")
        self.assertEqual(self.json_lines("recover", "--location", "2"), [])
        self.assertEqual(self.json("recover", "--location", "1")["file"], found["file"])
        self.refused("recover", "--location", "5", expect=NO)

    def test_a_file_that_is_no_unfinished_recording_is_refused(self):
        self.add_location()
        other = self.media_file("media/other.partial")
        self.refused("recover", "--remove", other, expect=NO, message=other)
        self.assertTrue(os.path.exists(other))

    def test_nothing_is_finished_or_removed_without_a_name_or_all(self):
        self.add_location()
        for wrong in (["--finish"], ["--remove"], ["--all"], ["some"], ["--finish", "--remove", "--all"]):
            self.refused("recover", *wrong, expect=USAGE)


if __name__ == "__main__":
    main()
