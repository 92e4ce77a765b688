"""What the tests of the examples share: real media, made once for each test process, and running an example."""

import atexit
import functools
import os
import shutil
import subprocess
import tempfile
from types import SimpleNamespace

from command_case import TIMEOUT_S, CommandCase, main

EXAMPLES = os.environ.get("FSYS_EXAMPLES", "examples")
FFMPEG = os.environ.get("FFMPEG", "ffmpeg")
LOGGED = "Added media location : "
WIDTH, HEIGHT, FRAMES = 256, 144, 25

PICTURE = ["-f", "lavfi", "-i", f"testsrc2=size={WIDTH}x{HEIGHT}:rate=25:duration=1"]
SOUND = ["-f", "lavfi", "-i", "aevalsrc=sin(1000*t)|cos(700*t):sample_rate=48000:duration=1"]
ALL = ["-map", "0:v", "-map", "1:a"]
TIMECODE = ["-timecode", "01:00:00:00"]

# File name to the arguments that make it: an intermediate with four channels in two streams, one with two, a small
# one as a proxy, and sound alone.
RECIPES = {
    "prores.mov": [*PICTURE, *SOUND, *ALL, "-map", "1:a", "-c:v", "prores_ks", "-profile:v", "1", "-c:a", "pcm_s24le",
                   *TIMECODE],
    "dnxhr.mov": [*PICTURE, *SOUND, *ALL, "-c:v", "dnxhd", "-profile:v", "dnxhr_lb", "-pix_fmt", "yuv422p", "-c:a",
                  "pcm_s16le", *TIMECODE],
    "h264.mov": [*PICTURE, *SOUND, *ALL, "-vf", "scale=128:72", "-c:v", "libx264", "-preset", "ultrafast", "-bf", "2",
                 "-c:a", "pcm_s16le", *TIMECODE],
    "aac.mov": [*SOUND, "-c:a", "aac"],
    "sound.wav": [*SOUND, "-c:a", "pcm_s24le"],
}


def run_ffmpeg(*arguments, **options):
    done = subprocess.run([FFMPEG, "-hide_banner", "-loglevel", "error", "-nostdin", "-y", *arguments],
                          capture_output=True, timeout=TIMEOUT_S, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{arguments}: {done.stderr.decode()}")
    return done.stdout


@functools.cache
def media_folder():
    folder = os.path.realpath(tempfile.mkdtemp(prefix="fsys-media-"))
    atexit.register(shutil.rmtree, folder, ignore_errors=True)
    return folder


@functools.cache
def media(name):
    """Path of a file of RECIPES, which belongs to all tests of the process."""
    path = os.path.join(media_folder(), name)
    run_ffmpeg(*RECIPES[name], path)
    return path


class ExampleCase(CommandCase):
    def start_example(self, name, *arguments, **options):
        return subprocess.Popen([os.path.join(EXAMPLES, name), *arguments], env=self.environment, cwd=self.root,
                                **options)

    def run_example(self, name, *arguments, expect=0, **options):
        """Runs to the end; a message stands on standard error exactly when it fails."""
        done = subprocess.run([os.path.join(EXAMPLES, name), *arguments], env=self.environment, cwd=self.root,
                              capture_output=True, timeout=TIMEOUT_S, **options)
        self.assertEqual(done.returncode, expect, done)
        self.assertEqual(done.stderr == b"", expect == 0, done)
        # The library logs the locations that it adds, to standard output as well.
        told = [line for line in done.stdout.decode().splitlines(keepends=True) if not line.startswith(LOGGED)]
        return SimpleNamespace(text="".join(told), message=done.stderr.decode())

    def clip_of(self, name, *arguments):
        """A location with a file of RECIPES as a clip; its cookie."""
        self.add_location()
        return self.import_file(media(name), "1", *arguments)["cookie"]

    def add_proxy(self, cookie, name="h264.mov", height=72):
        self.import_file(media(name), "1", "--proxy-of", cookie, "--height", str(height))

    def bytes_of(self, path):
        with open(path, "rb") as file:
            return file.read()
