import os
import re
import signal
import struct
import subprocess
import time
import xml.etree.ElementTree as xml

from command_case import CommandCase, DONE, FAILED, TIMEOUT_S, USAGE, main

SVG = "{http://www.w3.org/2000/svg}"
# What stands at the axes of the three, from top to bottom; the first and the last have time below.
PANELS = ["latency (ms)", "requests", "latency (ms)", "MB/s (10^6 bytes)"]


class Picture:
    """An SVG file, taken apart."""

    def __init__(self, file):
        self.root = xml.parse(file).getroot()
        self.texts = ["".join(element.itertext()).strip() for element in self.root.iter(SVG + "text")]
        self.curves = {}  # by id: what the curve itself and its part of the key hold
        for group in self.root.iter(SVG + "g"):
            if group.get("id", "").startswith("gnuplot_plot"):
                self.curves.setdefault(group.get("id"), []).extend(group.iter())

    def curve(self, pattern):
        """The parts of the curve that the key calls so."""
        found = [parts for parts in self.curves.values()
                 if any(part.tag == SVG + "text" and re.fullmatch(pattern, part.text or "") for part in parts)]
        return found[0] if found else None

    def points(self, pattern):
        """Points of a curve; the one that explains it in the key is none."""
        parts = self.curve(pattern)
        return 0 if parts is None else sum(part.tag == SVG + "use" for part in parts) - 1


class PlotCase(CommandCase):
    def setUp(self):
        super().setUp()
        self.file = self.path("run.svg")

    def picture(self):
        picture = Picture(self.file)
        self.assertEqual([text for text in picture.texts if text in PANELS], PANELS)
        self.assertEqual([name for name in os.listdir(self.root) if name.startswith("run.")], ["run.svg"])
        return picture

    def play(self, *cookies, fps="50", seconds="0.4"):
        return self.json("play", *cookies, "--fps", fps, "--frame-bytes", "4k", "--seconds", seconds, "--plot", self.file)

    def fake_gnuplot(self, lines):
        """A program of that name that is found first: it plays along in the trial, then does what lines say."""
        script = self.write("bin/gnuplot", ("#!/bin/sh\nn=$(cat >>\"$0.calls\"; grep -c 'set terminal' \"$0.calls\")\n"
                                            f"[ $n = 1 ] && exit 0\n{lines}\n").encode())
        os.chmod(script, 0o755)
        self.environment["PATH"] = self.path("bin") + ":" + self.environment["PATH"]


class Plot(PlotCase):
    def test_of_reading_shows_each_read_and_no_deadline(self):
        answer = self.json("read", self.media_file(size=5 << 20), "--block", "64k", "--plot", self.file)
        self.assertEqual(list(answer), ["bytes", "seconds", "mb_per_s", "latency_us", "xxh128"])
        picture = self.picture()
        self.assertEqual(picture.points("80 requests"), 80)
        self.assertIsNone(picture.curve("deadline"))
        self.assertTrue(any("shot.mov" in text and "8 at a time" in text for text in picture.texts), picture.texts)
        self.assertTrue(any(text.startswith("Throughput: 5.2 MB in") for text in picture.texts), picture.texts)

    def test_of_playing_shows_each_frame_and_its_deadline(self):
        cookie = self.import_clip()["cookie"]
        answer = self.play(cookie, cookie)
        picture = self.picture()
        self.assertEqual(answer["frames_due"], 40)
        self.assertEqual(picture.points(r"\d+ on time"), answer["frames_on_time"])
        self.assertEqual(picture.points(r"\d+ late"), answer["frames_late"])
        corners = "".join(part.get("d", "") for part in picture.curve("deadline")).count(",")
        self.assertGreater(corners, 3)  # two of them explain it in the key

    def test_of_recording_shows_each_write_and_its_deadline(self):
        self.add_location()
        answer = self.json("record", "--location", "1", "--fps", "50", "--frame-bytes", "4k", "--seconds", "0.4",
                           "--streams", "3", "--plot", self.file)
        picture = self.picture()
        late = picture.points(r"\d+ late")
        self.assertEqual((late, picture.points(r"\d+ on time")), (answer["late_writes"], 60 - late))
        self.assertIsNotNone(picture.curve("deadline"))

    def test_shows_late_frames_apart(self):
        # Whatever the machine: nobody reads a frame within a microsecond of being asked.
        cookie = self.import_clip()["cookie"]
        answer = self.play(cookie, fps="100000", seconds="0.01")
        self.assertGreater(answer["frames_late"], 0)
        self.assertEqual(self.picture().points(r"\d+ late"), answer["frames_late"])

    def test_units_stand_at_every_axis(self):
        self.run_command("read", self.media_file(), "--plot", self.file)
        texts = self.picture().texts
        self.assertEqual(texts.count("time since the start (s)"), 2)
        self.assertEqual(texts.count("latency (ms)"), 2)

    def test_can_be_a_png(self):
        file = self.path("run.PNG")
        self.run_command("read", self.media_file(size=1 << 20), "--plot", file)
        with open(file, "rb") as opened:
            begin = opened.read(24)
        self.assertEqual(begin[:8], b"\x89PNG\r\n\x1a\n")
        self.assertEqual(struct.unpack(">II", begin[16:]), (900, 1080))
        self.assertGreater(os.path.getsize(file), 10_000)

    def test_of_very_many_requests_draws_the_fastest_and_slowest(self):
        self.run_command("read", self.media_file(size=21_000 * 512), "--block", "512", "--depth", "200",
                         "--plot", self.file)
        picture = self.picture()
        self.assertEqual(picture.points("21000 requests"), 20_000)
        self.assertTrue(any("20000 of 21000" in text for text in picture.texts))

    def test_of_nothing_has_its_panels(self):
        self.assertEqual(self.play(self.import_clip()["cookie"], fps="1", seconds="0.5")["frames_due"], 0)
        self.assertEqual(self.picture().points(".* on time"), 0)

    def test_of_an_interrupted_recording_shows_what_was_written(self):
        self.add_location()
        process = self.start("--json", "record", "--location", "1", "--rate", "10", "--seconds", "1000",
                             "--plot", self.file, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        try:
            end = time.monotonic() + TIMEOUT_S
            folder = self.path("location/Material")
            while not (os.path.isdir(folder) and any(name.endswith(".partial") for name in os.listdir(folder))):
                self.assertLess(time.monotonic(), end)
                time.sleep(0.02)
            process.send_signal(signal.SIGINT)
            err = process.communicate(timeout=TIMEOUT_S)[1]
        finally:
            process.kill()
        self.assertEqual((process.returncode, err), (DONE, b""))
        self.picture()

    def test_names_are_text(self):
        for number, name in enumerate(("it's `touch a` $(touch b).mov", "<b>&amp;\"'.mov", "\\n@x %s\n'; system('touch c')\t.mov",
                                       "\u00e4\u4e2d \udcff.mov")):
            with self.subTest(name=name):
                self.run_command("read", self.media_file(os.path.join("media", name)), "--plot", self.file)
                shown = re.sub(r"[\n\t]", "?", name).replace("\udcff", "\ufffd")
                title = " ".join(self.picture().texts)
                self.assertIn(" ".join(shown.split()), " ".join(title.split()))
        self.assertFalse({"a", "b", "c"} & set(os.listdir(self.root)))

    def test_the_users_own_settings_of_gnuplot_change_nothing(self):
        self.write("home/.gnuplot", b"set terminal dumb\nset xlabel 'mine'\n")
        self.run_command("read", self.media_file(), "--plot", self.file)
        self.assertNotIn("mine", self.picture().texts)


class PlotRefusal(PlotCase):
    def test_other_endings_are_wrong_usage(self):
        for file in ("run.pdf", "run", "svg", ".svg", "run.svg.txt", "", "run.svg/"):
            for line in (["read", "x"], ["play", "x", "--fps", "25", "--frame-bytes", "1k"],
                         ["record", "--location", "1", "--rate", "1", "--seconds", "1"]):
                with self.subTest(file=file, line=line):
                    self.refused(*line, "--plot", file, expect=USAGE, message="--plot")
        self.assertFalse(os.path.exists(self.space))

    def test_a_missing_gnuplot_is_told_before_the_run(self):
        self.add_location()
        os.mkdir(self.path("empty"))
        self.environment["PATH"] = self.path("empty")
        self.refused("record", "--location", "1", "--rate", "1", "--seconds", "1000", "--plot", self.file,
                     expect=FAILED, message="gnuplot is not installed")
        self.assertEqual(self.json("scan")["clips"], 0)

    def test_a_gnuplot_that_cannot_draw_the_format_is_told_before_the_run(self):
        script = self.write("bin/gnuplot", b"#!/bin/sh\necho 'line 2: unknown terminal' >&2\nexit 1\n")
        os.chmod(script, 0o755)
        self.environment["PATH"] = self.path("bin") + ":" + self.environment["PATH"]
        self.refused("play", self.media_file(), "--fps", "25", "--frame-bytes", "1k", "--seconds", "1000", "--plot", self.file,
                     expect=FAILED, message="unknown terminal")

    def test_a_place_that_takes_no_file_is_told_before_the_run(self):
        os.mkdir(self.path("folder.svg"))
        for file in (self.path("none", "run.svg"), self.path("folder.svg"), "/proc/run.svg"):
            with self.subTest(file=file):
                self.refused("play", self.media_file(), "--fps", "25", "--frame-bytes", "1k", "--seconds", "1000",
                             "--plot", file, expect=FAILED, message=file)

    def test_a_picture_that_cannot_be_drawn_leaves_the_old_one(self):
        self.fake_gnuplot("echo '<svg>'; echo 'line 7: no memory' >&2; exit 1")
        self.write("run.svg", b"old")
        result = self.run_command("read", self.media_file(), "--plot", self.file, expect=FAILED)
        self.assertIn("line 7: no memory", result.message)
        self.assertIn(b"100000 bytes in", result.out)
        with open(self.file, "rb") as file:
            self.assertEqual(file.read(), b"old")

    def test_half_a_picture_is_none(self):
        self.fake_gnuplot("echo '<svg>'")
        result = self.run_command("read", self.media_file(), "--plot", self.file, expect=FAILED)
        self.assertIn("no picture", result.message)
        self.assertFalse(os.path.exists(self.file))

    def test_a_new_picture_replaces_the_old_one(self):
        self.write("run.svg", b"old" * 1_000_000)
        self.run_command("read", self.media_file(), "--plot", self.file)
        self.picture()


if __name__ == "__main__":
    main()
