import os

from example_case import ExampleCase, main, media


class CopyClip(ExampleCase):
    def expect_copied(self, name, cookie, folder):
        self.add_location("second")
        copy = self.run_example("copy_clip", self.space, cookie, self.path("second")).text.strip()
        self.assertEqual(copy, self.path("second", folder, cookie + os.path.splitext(name)[1]))
        self.assertEqual(self.bytes_of(copy), self.bytes_of(media(name)))

    def test_the_copy_is_equal(self):
        self.expect_copied("dnxhr.mov", self.clip_of("dnxhr.mov"), "Material")

    def test_the_copy_of_a_link_is_the_media_itself(self):
        self.expect_copied("sound.wav", self.clip_of("sound.wav", "--sound", "--link"), "Sound")

    def test_nothing_is_replaced(self):
        cookie = self.clip_of("dnxhr.mov")
        refused = self.run_example("copy_clip", self.space, cookie, self.path("location"), expect=1)
        self.assertIn("already", refused.message)
        self.assertEqual(self.bytes_of(self.path("location", "Material", cookie + ".mov")),
                         self.bytes_of(media("dnxhr.mov")))

    def test_a_folder_that_is_no_location_is_refused(self):
        cookie = self.clip_of("sound.wav", "--sound")
        self.run_example("copy_clip", self.space, cookie, self.path("media"), expect=1)


if __name__ == "__main__":
    main()
