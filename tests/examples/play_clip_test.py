import os
import re

from command_case import UNKNOWN_COOKIE
from example_case import ExampleCase, main, media

FRAME_BYTES = 8192


class PlayClip(ExampleCase):
    def expect_played(self, name, cookie):
        shown = self.run_example("play_clip", self.space, cookie, "400", str(FRAME_BYTES)).text
        match = re.fullmatch(r"(\d+) frames, (\d+) late\n", shown)
        self.assertTrue(match, shown)
        self.assertEqual(int(match[1]), os.path.getsize(media(name)) // FRAME_BYTES)
        self.assertLessEqual(int(match[2]), int(match[1]))

    def test_all_whole_frames_are_shown(self):
        self.expect_played("dnxhr.mov", self.clip_of("dnxhr.mov"))

    def test_sound_plays_as_well(self):
        self.expect_played("sound.wav", self.clip_of("sound.wav", "--sound"))

    def test_an_unknown_clip_cannot_be_played(self):
        self.add_location()
        self.run_example("play_clip", self.space, UNKNOWN_COOKIE, "25", "1000", expect=1)

    def test_a_speed_is_needed(self):
        self.run_example("play_clip", self.space, UNKNOWN_COOKIE, "0", "1000", expect=2)


if __name__ == "__main__":
    main()
