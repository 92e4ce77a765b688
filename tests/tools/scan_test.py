import os

from command_case import CommandCase, NO, UNKNOWN_COOKIE, main


class Scan(CommandCase):
    def test_has_exactly_the_keys_that_scripts_know(self):
        answer = self.json("scan")
        self.assertEqual(list(answer), ["files", "clips", "proxies", "skipped", "seconds"])
        self.assertEqual(list(answer["skipped"]), ["empty", "ineligible", "not_a_cookie"])
        self.assertGreaterEqual(answer["seconds"], 0)

    def test_nothing_registered_counts_nothing(self):
        answer = self.json("scan")
        del answer["seconds"]
        self.assertEqual(answer, {"files": 0, "clips": 0, "proxies": 0,
                                  "skipped": {"empty": 0, "ineligible": 0, "not_a_cookie": 0}})

    def fill(self, name, clips):
        """Location with clips that a copying program put there."""
        number = self.add_location(name)
        for i in range(clips):
            self.write(f"{name}/Material/V00000000000000{i:02X}00.mov", b"media")
        return number

    def test_counts_files_clips_proxies_and_what_it_skipped_by_reason(self):
        self.fill("location", 3)
        before = self.json("scan")
        self.write("location/Material/V000000000000000000.A2.proxy.270.mov", b"proxy")
        self.write("location/Material/V000000000000000000.A2.proxy.540.mov", b"proxy")
        self.write("location/Sound/S000000000000000101.wav", b"sound")
        self.write("location/Material/V000000000000000900.mov", b"")
        self.write("location/Material/V000000000000000000.mov.partial", b"half")
        self.write("location/Material/V000000000000000000.mov.reapeaks", b"peaks")
        self.write("location/Material/holiday.mov", b"media")
        self.write("location/Material/V00000000000000.mov", b"too short")
        os.mkdir(self.path("location", "Material", "V000000000000000A00.mov"))
        after = self.json("scan")
        self.assertEqual(before["clips"], 3)
        self.assertEqual(after["clips"] - before["clips"], 1)
        self.assertEqual(after["proxies"] - before["proxies"], 2)
        self.assertEqual(after["files"] - before["files"], 8)
        skipped = {reason: after["skipped"][reason] - before["skipped"][reason] for reason in after["skipped"]}
        self.assertEqual(skipped, {"empty": 1, "ineligible": 2, "not_a_cookie": 2})

    def test_one_location_alone_by_id_and_by_path(self):
        self.fill("a", 2)
        number = self.fill("b", 5)
        self.assertEqual(self.json("scan", "--location", number)["clips"], 5)
        self.assertEqual(self.json("scan", "--location", self.path("a"))["clips"], 2)
        self.assertEqual(self.json("scan", "--location", "a/")["clips"], 2)

    def test_a_location_that_is_not_registered_is_answered_with_no(self):
        self.refused("scan", "--location", "7", expect=NO, message="7 is no media location")

    def test_for_people_is_one_line(self):
        self.fill("location", 2)
        lines = self.run_command("scan").text.splitlines()
        self.assertEqual(len(lines), 1)
        self.assertIn("2 clips", lines[0])

    def test_names_in_lower_case_are_clips_too(self):
        self.fill("location", 0)
        self.write("location/Material/v0123456789abcdef00.mov", b"media")
        self.assertEqual(self.json("scan")["clips"], 1)
        self.assertEqual(self.json("find", UNKNOWN_COOKIE)["status"], "online")


if __name__ == "__main__":
    main()
