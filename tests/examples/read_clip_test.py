from example_case import ExampleCase, main, media


class ReadClip(ExampleCase):
    def test_the_first_bytes_of_a_movie_are_shown(self):
        cookie = self.clip_of("prores.mov")
        shown = self.run_example("read_clip", self.space, cookie).text
        self.assertEqual(bytes.fromhex(shown), self.bytes_of(media("prores.mov"))[:16])

    def test_the_first_bytes_of_a_linked_sound_are_shown(self):
        cookie = self.clip_of("sound.wav", "--sound", "--link")
        shown = self.run_example("read_clip", self.space, cookie).text
        self.assertEqual(bytes.fromhex(shown)[:4], b"RIFF")


if __name__ == "__main__":
    main()
