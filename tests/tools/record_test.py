import json
import os
import resource
import signal
import subprocess
import time

from command_case import COOKIE, CommandCase, DONE, FAILED, NO, TIMEOUT_S, USAGE, main

KEYS = ["location", "streams", "bytes", "seconds", "mb_per_s", "late_writes", "worst_write_ms", "interrupted"]
STREAM_KEYS = ["cookie", "file", "bytes", "frames", "late_writes", "worst_write_ms", "xxh128", "complete",
               "space_low", "verified", "error"]
FRAME = 70_000


class RecordCase(CommandCase):
    def record(self, *arguments, seconds="0.2", **options):
        return self.json("record", "--seconds", seconds, *arguments, **options)

    def record_frames(self, *arguments, **options):
        return self.record("--location", "1", "--fps", "50", "--frame-bytes", str(FRAME), *arguments, **options)

    def check_file(self, stream):
        self.assertEqual(os.path.getsize(stream["file"]), stream["bytes"])
        self.assertEqual(self.hash_of(stream["file"]), stream["xxh128"])

    def partial_files(self, folder="location"):
        return [os.path.join(place, name) for place, _, names in os.walk(self.path(folder))
                for name in names if name.endswith(".partial")]

    def start_recording(self, at_least):
        """A recording of 1000 s in the background that has brought so many bytes to the disk."""
        self.add_location()
        process = self.start("--json", "record", "--location", "1", "--rate", "40", "--seconds", "1000",
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE)

        def end():
            process.kill()
            process.wait()
            process.stdout.close()
            process.stderr.close()

        self.addCleanup(end)
        end = time.monotonic() + TIMEOUT_S
        while time.monotonic() < end and process.poll() is None:
            if any(os.path.getsize(file) >= at_least for file in self.partial_files()):
                return process
            time.sleep(0.02)
        self.fail("the recording did not get on")


class Record(RecordCase):
    def test_records_clips_of_exactly_the_frames_that_were_due(self):
        self.add_location()
        answer = self.record_frames("--streams", "3")
        self.assertEqual(list(answer), KEYS)
        self.assertEqual(len(answer["streams"]), 3)
        self.assertEqual(len({stream["cookie"] for stream in answer["streams"]}), 3)
        for stream in answer["streams"]:
            self.assertEqual(list(stream), STREAM_KEYS)
            self.assertRegex(stream["cookie"], COOKIE)
            self.assertEqual((stream["frames"], stream["bytes"]), (10, 10 * FRAME))
            self.assertIs(stream["complete"], True)
            self.assertIsNone(stream["error"])
            self.assertIsNone(stream["verified"])
            self.check_file(stream)
            self.assertEqual(self.json("find", stream["cookie"])["file"], stream["file"])
        self.assertEqual(answer["bytes"], 30 * FRAME)
        self.assertIs(answer["interrupted"], False)
        self.assertEqual(self.partial_files(), [])

    def test_takes_a_rate_in_place_of_frames(self):
        self.add_location()
        answer = self.record("--location", "1", "--rate", "10")
        self.assertEqual(answer["bytes"], 5 * 400_000)

    def test_verifies_what_it_recorded(self):
        self.add_location()
        self.assertIs(self.record_frames("--verify")["streams"][0]["verified"], True)

    def test_tells_people_in_plain_words(self):
        self.add_location()
        text = self.run_command("record", "--location", "1", "--rate", "1", "--seconds", "0.2", "--verify").text
        self.assertIn("5 frames", text)
        self.assertIn("verified", text)

    def test_tells_when_space_is_low(self):
        self.add_location()
        self.assertIs(self.record_frames("--low-space", "0")["streams"][0]["space_low"], False)
        self.assertIs(self.record_frames("--low-space", "1000000t")["streams"][0]["space_low"], True)

    def test_chooses_a_location_with_room(self):
        self.add_location()
        self.assertEqual(self.record("--location", "auto", "--rate", "1")["location"], "1")

    def test_chooses_the_location_of_a_task(self):
        self.add_location()
        self.add_location("second")
        self.json("drive", "task", "Capture", "--set", "2")
        answer = self.record("--location", "auto", "--task", "Capture", "--rate", "1")
        self.assertEqual(answer["location"], "2")
        self.assertTrue(answer["streams"][0]["file"].startswith(self.path("second") + "/"))

    def test_a_task_without_a_location_is_no_hindrance(self):
        self.add_location()
        answer = self.record("--location", "auto", "--task", "Nothing chosen", "--rate", "1")
        self.assertEqual(answer["location"], "1")
        self.refused("record", "--location", "1", "--task", "Capture", "--rate", "1", "--seconds", "1", expect=USAGE)

    def test_refuses_more_than_any_location_has_room_for(self):
        self.add_location()
        self.refused("record", "--location", "auto", "--rate", "100000", "--seconds", "1000000", expect=NO,
                     message="no media location has room")

    def test_refuses_what_makes_no_sense(self):
        self.add_location()
        self.refused("record", "--location", "9", "--rate", "1", "--seconds", "1", expect=NO)
        for wrong in ([], ["--rate", "1", "--fps", "25", "--frame-bytes", "9"], ["--fps", "25"],
                      ["--frame-bytes", "100"], ["--rate", "0"], ["--rate", "1", "--streams", "0"]):
            self.refused("record", "--location", "1", "--seconds", "1", *wrong, expect=USAGE)

    def test_an_interruption_ends_with_whole_files(self):
        process = self.start_recording(2_000_000)
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=TIMEOUT_S)
        self.assertEqual((process.returncode, err), (DONE, b""))
        answer = json.loads(out)
        stream = answer["streams"][0]
        self.assertIs(answer["interrupted"], True)
        self.assertIs(stream["complete"], True)
        self.assertEqual(stream["bytes"] % 1_600_000, 0)
        self.check_file(stream)

    def test_at_a_limit_all_whole_frames_are_kept(self):
        self.add_location()

        def limit_files():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (3_000_000, 3_000_000))

        answer = self.json("record", "--location", "1", "--fps", "50", "--frame-bytes", "400000", "--seconds", "0.4",
                           preexec_fn=limit_files, expect=FAILED)
        stream = answer["streams"][0]
        self.assertIs(stream["complete"], False)
        self.assertIsNotNone(stream["error"])
        self.assertEqual(stream["bytes"], 7 * 400_000)
        self.assertEqual(os.path.getsize(stream["file"]), stream["bytes"])
        self.assertTrue(stream["file"].endswith(".raw"))
        self.assertEqual(self.json("find", stream["cookie"])["status"], "online")
        self.assertEqual(self.partial_files(), [])

    def test_a_terminal_shows_rate_and_time_left(self):
        self.add_location()
        shown = self.run_on_terminal("record", "--location", "1", "--rate", "1", "--seconds", "1.5").shown
        self.assertRegex(shown, rb"record \[#+\.*\] +\d+%  [0-9.]+ [kM]?B/s  0:0\d left")


if __name__ == "__main__":
    main()
