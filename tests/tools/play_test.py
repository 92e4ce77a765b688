from command_case import CommandCase, NO, UNKNOWN_COOKIE, USAGE, main

PLAY_KEYS = ["streams", "frames_due", "frames_on_time", "frames_late", "worst_wait_ms"]


class Play(CommandCase):
    def play(self, *cookies, fps="25", frame="4k", seconds="0.4", more=()):
        answer = self.json("play", *cookies, "--fps", fps, "--frame-bytes", frame, "--seconds", seconds, *more)
        self.assertEqual(list(answer), PLAY_KEYS)
        self.assertEqual(answer["streams"], len(cookies))
        self.assertEqual(answer["frames_on_time"] + answer["frames_late"], answer["frames_due"])
        self.assertGreaterEqual(answer["worst_wait_ms"], 0)
        # A frame was overdue exactly when one came late.
        self.assertEqual(answer["worst_wait_ms"] > 0, answer["frames_late"] > 0)
        return answer

    def test_counts_the_frames_of_one_stream(self):
        self.assertEqual(self.play(self.import_clip()["cookie"])["frames_due"], 10)

    def test_counts_the_frames_of_all_streams(self):
        self.add_location()
        cookies = [self.import_file(self.media_file(seed=i))["cookie"] for i in range(3)]
        self.assertEqual(self.play(*cookies)["frames_due"], 30)

    def test_a_clip_may_play_in_several_streams(self):
        cookie = self.import_clip()["cookie"]
        self.assertEqual(self.play(cookie, cookie, cookie, cookie)["frames_due"], 40)

    def test_both_backends_play(self):
        cookie = self.import_clip(size=2_000_000)["cookie"]
        for backend in ("uring", "threads"):
            with self.subTest(backend=backend):
                self.environment["FSYS_IO_BACKEND"] = backend
                self.assertEqual(self.play(cookie, cookie, frame="40k")["frames_due"], 20)

    def test_files_shorter_than_a_frame_or_the_time_play_over_and_over(self):
        for size in (1, 1000, 4097, 9000):
            with self.subTest(size=size):
                file = self.media_file(f"media/{size}.mov", size=size)
                self.assertEqual(self.play(file)["frames_due"], 10)

    def test_frame_rates_need_not_be_whole(self):
        cookie = self.import_clip()["cookie"]
        self.assertEqual(self.play(cookie, fps="29.97", seconds="1")["frames_due"], 29)
        self.assertEqual(self.play(cookie, fps="1000", seconds="0.25")["frames_due"], 250)

    def test_a_time_shorter_than_a_frame_has_none_due(self):
        answer = self.play(self.import_clip()["cookie"], fps="1", seconds="0.5")
        self.assertEqual(answer["frames_due"], 0)

    def test_proxies_are_played_when_they_are_asked_for(self):
        clip = self.import_clip(size=9000)
        self.import_file(self.media_file("media/p.mp4", size=3000), "1", "--proxy-of", clip["cookie"], "--height", "90")
        for more in (["--level", "high"], ["--level", "proxy"], ["--level", "auto", "--height", "90"]):
            self.assertEqual(self.play(clip["cookie"], more=more)["frames_due"], 10)

    def test_for_people_is_one_line(self):
        cookie = self.import_clip()["cookie"]
        text = self.run_command("play", cookie, "--fps", "25", "--frame-bytes", "1k", "--seconds", "0.2").text
        self.assertTrue(text.startswith("1 streams: 5 frames due, "), text)
        self.assertEqual(text.count("\n"), 1)

    def test_an_unknown_clip_is_answered_with_no(self):
        known = self.import_clip()["cookie"]
        for cookies in ([UNKNOWN_COOKIE], [known, UNKNOWN_COOKIE]):
            self.refused("play", *cookies, "--fps", "25", "--frame-bytes", "1k", expect=NO, message=UNKNOWN_COOKIE)

    def test_an_empty_file_is_answered_with_no(self):
        self.refused("play", self.write("empty", b""), "--fps", "25", "--frame-bytes", "1k", expect=NO,
                     message="is empty")

    def test_numbers_out_of_reason_are_wrong_usage(self):
        cookie = self.import_clip()["cookie"]
        good = {"--fps": "25", "--frame-bytes": "1k", "--seconds": "1", "--level": "high", "--height": "1"}
        for option, wrong in (("--fps", ("0", "-1", "nan", "inf", "1e300", "x", "")),
                              ("--seconds", ("0", "-1", "nan", "inf", "1e300", "x")),
                              ("--frame-bytes", ("0", "-1", "x", "4q", "2g", "99999999999999999999")),
                              ("--level", ("best", "", "HIGH")),
                              ("--height", ("0", "-1", "x", "99999999999"))):
            for value in wrong:
                with self.subTest(option=option, value=value):
                    line = [word for item in {**good, option: value}.items() for word in item]
                    self.refused("play", cookie, *line, expect=USAGE)

    def test_rate_and_frame_size_must_be_given(self):
        cookie = self.import_clip()["cookie"]
        self.refused("play", cookie, "--fps", "25", expect=USAGE, message="--frame-bytes")
        self.refused("play", cookie, "--frame-bytes", "1k", expect=USAGE, message="--fps")
        self.refused("play", "--fps", "25", "--frame-bytes", "1k", expect=USAGE, message="COOKIE")


if __name__ == "__main__":
    main()
