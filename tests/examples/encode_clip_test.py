import os

from example_case import HEIGHT, PICTURE, WIDTH, ExampleCase, main, run_ffmpeg


class EncodeClip(ExampleCase):
    def encode(self, pictures, *arguments, expect=0):
        return self.run_example("encode_clip", self.space, *arguments, expect=expect, input=pictures)

    def test_the_recording_is_a_clip_that_ffmpeg_reads(self):
        self.add_location()
        pictures = run_ffmpeg(*PICTURE, "-pix_fmt", "yuv422p10le", "-f", "rawvideo", "-")
        file = self.encode(pictures, self.path("location"), str(WIDTH), str(HEIGHT)).text.strip()
        self.assertTrue(file.startswith(self.path("location", "Material")), file)
        decoded = run_ffmpeg("-i", file, "-f", "rawvideo", "-pix_fmt", "yuv422p10le", "-")
        self.assertEqual(len(decoded), len(pictures))

    def test_what_ffmpeg_refuses_leaves_no_file(self):
        self.add_location()
        self.encode(b"", self.path("location"), "1", str(1 << 20), expect=1)
        self.assertEqual(os.listdir(self.path("location", "Material")), ["MediaSpaceInfo.txt"])

    def test_a_location_is_needed(self):
        os.mkdir(self.space)
        self.encode(b"", self.path("nowhere"), "256", "144", expect=1)
        self.encode(b"", self.path("nowhere"), "wide", "144", expect=2)


if __name__ == "__main__":
    main()
