from command_case import UNKNOWN_COOKIE
from example_case import FRAMES, ExampleCase, main


class DecodeClip(ExampleCase):
    def test_every_picture_is_decoded(self):
        cookie = self.clip_of("dnxhr.mov")
        lines = self.run_example("decode_clip", self.space, cookie, "high").text.splitlines()
        self.assertEqual(sum(line.startswith("0 ") for line in lines), FRAMES)

    def test_sound_that_is_decoded_channel_by_channel_is_whole(self):
        cookie = self.clip_of("aac.mov")
        lines = self.run_example("decode_clip", self.space, cookie, "high").text.splitlines()
        samples = sum(int(line.split()[1]) for line in lines) // (2 * 4)
        self.assertIn(samples, range(48000, 48000 + 4 * 1024))

    def test_what_is_no_movie_cannot_be_decoded(self):
        cookie = self.import_clip()["cookie"]
        self.run_example("decode_clip", self.space, cookie, "high", expect=1)
        self.run_example("decode_clip", self.space, UNKNOWN_COOKIE, "high", expect=1)
        self.run_example("decode_clip", self.space, cookie, "small", expect=2)


if __name__ == "__main__":
    main()
