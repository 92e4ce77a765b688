from example_case import ExampleCase, main


class RecordClip(ExampleCase):
    def test_the_recording_is_a_clip_of_the_location(self):
        self.add_location()
        file = self.run_example("record_clip", self.space, self.path("location")).text.splitlines()[-1]
        self.assertEqual(self.bytes_of(file), b"".join(bytes([number]) * 691200 for number in range(10)))
        self.json("scan")
        cookie = file.rsplit("/", 1)[-1].removesuffix(".raw")
        self.assertEqual(self.json("find", cookie)["file"], file)


if __name__ == "__main__":
    main()
