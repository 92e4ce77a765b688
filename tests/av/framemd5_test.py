"""What goes through the library is what FFmpeg's command reads and writes itself."""

import collections

from example_case import HEIGHT, PICTURE, WIDTH, ExampleCase, main, media, run_ffmpeg


class FrameMd5(ExampleCase):
    def decoded(self, cookie, level="high"):
        """Stream to the size and MD5 of each of its frames, in order."""
        frames = collections.defaultdict(list)
        for line in self.run_example("decode_clip", self.space, cookie, level).text.splitlines():
            stream, size, md5 = line.split()
            frames[int(stream)].append((int(size), md5))
        return frames

    def expected(self, path, sound):
        """The same by the command, which is told to keep the format of decoded sound."""
        printed = run_ffmpeg("-i", path, "-map", "0:v?", "-map", "0:a?", "-c:a", sound, "-f", "framemd5", "-")
        frames = collections.defaultdict(list)
        for line in printed.decode().splitlines():
            if not line.startswith("#"):
                stream, _, _, _, size, md5 = (field.strip() for field in line.split(","))
                frames[int(stream)].append((int(size), md5))
        return frames

    def expect_same(self, name, sound, streams, cookie, level="high"):
        expected = self.expected(media(name), sound)
        self.assertEqual(len(expected), streams)
        self.assertEqual(self.decoded(cookie, level), expected)

    def test_prores_with_two_sounds(self):
        self.expect_same("prores.mov", "pcm_s32le", 3, self.clip_of("prores.mov"))

    def test_dnxhr_through_a_link(self):
        self.expect_same("dnxhr.mov", "pcm_s16le", 2, self.clip_of("dnxhr.mov", "--link"))

    def test_h264_as_a_proxy(self):
        cookie = self.clip_of("prores.mov")
        self.add_proxy(cookie)
        self.expect_same("h264.mov", "pcm_s16le", 2, cookie, "proxy")
        self.expect_same("prores.mov", "pcm_s32le", 3, cookie)

    def test_sound_in_a_wav(self):
        self.expect_same("sound.wav", "pcm_s32le", 1, self.clip_of("sound.wav", "--sound"))


class EncodedFile(ExampleCase):
    def test_a_movie_has_the_bytes_of_ffmpegs_own(self):
        self.add_location()
        pictures = run_ffmpeg(*PICTURE, "-pix_fmt", "yuv422p10le", "-f", "rawvideo", "-")
        raw = self.write("media/pictures.yuv", pictures)
        own = self.path("media", "own.mov")
        run_ffmpeg("-f", "rawvideo", "-pix_fmt", "yuv422p10le", "-s", f"{WIDTH}x{HEIGHT}", "-r", "25", "-i", raw,
                   "-c:v", "prores_ks", "-profile:v", "hq", "-flags", "+bitexact", "-fflags", "+bitexact", own)
        file = self.run_example("encode_clip", self.space, self.path("location"), str(WIDTH), str(HEIGHT),
                                input=pictures).text.strip()
        self.assertEqual(self.hash_of(file), self.hash_of(own))


if __name__ == "__main__":
    main()
