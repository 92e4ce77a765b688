import os

from example_case import ExampleCase, main, media, run_ffmpeg

COOKIE = "V00000000000000AB00"


class RecoverClips(ExampleCase):
    def cut_off(self, content):
        """What a recorder leaves that was cut off; the path of the unfinished file."""
        self.add_location()
        os.makedirs(self.path("location", "Material"), exist_ok=True)
        return self.write(f"location/Material/{COOKIE}.mov.partial", content)

    def test_a_recording_gets_its_name_and_plays(self):
        movie = self.bytes_of(media("dnxhr.mov"))
        partial = self.cut_off(movie)
        final = partial.removesuffix(".partial")
        shown = self.run_example("recover_clips", self.space).text
        self.assertEqual(shown, f"finished {final}, {len(movie)} of {len(movie)} bytes\n")
        self.assertFalse(os.path.exists(partial))
        self.assertEqual(self.bytes_of(final), movie)
        run_ffmpeg("-i", final, "-f", "null", "-")

    def test_only_what_lies_before_the_first_gap_is_kept(self):
        movie = self.bytes_of(media("dnxhr.mov"))[:65536]
        partial = self.cut_off(movie)
        os.truncate(partial, 1 << 20)
        self.run_example("recover_clips", self.space)
        self.assertEqual(self.bytes_of(partial.removesuffix(".partial")), movie)

    def test_a_recording_without_a_byte_is_removed(self):
        partial = self.cut_off(b"")
        os.truncate(partial, 1 << 20)
        self.assertEqual(self.run_example("recover_clips", self.space).text, f"removed {partial}\n")
        self.assertEqual(os.listdir(os.path.dirname(partial)), ["MediaSpaceInfo.txt"])

    def test_a_file_of_the_final_name_is_kept(self):
        partial = self.cut_off(b"new" * 1000)
        final = self.write(f"location/Material/{COOKIE}.mov", b"old" * 1000)
        self.run_example("recover_clips", self.space, expect=1)
        self.assertEqual(self.bytes_of(final), b"old" * 1000)
        self.assertEqual(self.bytes_of(partial), b"new" * 1000)

    def test_nothing_to_recover_is_no_failure(self):
        self.add_location()
        self.assertEqual(self.run_example("recover_clips", self.space).text, "")


if __name__ == "__main__":
    main()
