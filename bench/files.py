"""The files that are measured: made when first needed, all below one folder, removed at the end."""

import os
import random
import shutil
import subprocess

FOLDERS = {"one": (1, 200_000), "ten": (10, 20_000)}
RESERVE_BYTES = 4 << 30


class Files:
    def __init__(self, folder, program, quick, frame_bytes):
        self.folder = folder
        self.program = program
        self.read_bytes = (512 if quick else 2048) << 20
        self.thread_bytes = (256 if quick else 512) << 20
        self.stream_bytes = frame_bytes * (24 if quick else 48)
        folder.mkdir(parents=True, exist_ok=True)
        self.streams_max = max(1, min(24, (shutil.disk_usage(folder).free // 2 - RESERVE_BYTES) // self.stream_bytes))

    def for_work(self, subject, work, count):
        """The paths that a piece of work is about."""
        if subject in ("read", "adjacent", "latency", "backends"):
            return [self.made("read.dat", self.read_bytes)]
        if subject == "threads":
            return [self.made(f"thread{i}.dat", self.thread_bytes) for i in range(count)]
        if subject == "playback":
            return sorted(self.folder.glob("stream*.dat"))
        if subject == "scan":
            return self.media_folders(work["folders"])
        if subject in ("write", "record"):
            # From nothing each time: a file that is there already would be written over.
            return [self.folder / f"written{i}.dat" for i in range(len(work.get("fps", [0])))]
        return []

    def size(self, path):
        return path.stat().st_size

    def remove(self, name):
        (self.folder / name).unlink(missing_ok=True)

    def remove_written(self):
        for path in list(self.folder.glob("written*")) + list(self.folder.glob("beside*")):
            path.unlink()

    def remove_all(self):
        shutil.rmtree(self.folder, ignore_errors=True)

    def warm(self, subject, work):
        """Reads the files through the page cache, for programs that do not do so themselves."""
        for path in self.for_work(subject, work, work.get("files", 1)):
            with open(path, "rb", buffering=0) as file:
                while file.read(4 << 20):
                    pass

    def need_streams(self, count):
        for number in range(count):
            self.made(f"stream{number:02}.dat", self.stream_bytes)

    def made(self, name, size):
        path = self.folder / name
        if not path.exists() or path.stat().st_size != size:
            subprocess.run([self.program, "make", "--bytes", str(size), str(path)], check=True)
        return path

    def media_folders(self, kind):
        """Folders of files that are named as media is; their bytes are holes."""
        folders, files = FOLDERS[kind]
        paths = [self.folder / f"{kind}{number}" for number in range(folders)]
        numbers = random.Random(kind)
        for path in paths:
            if path.exists():
                continue
            path.mkdir()
            for _ in range(files):
                name = f"V{numbers.getrandbits(64):016X}00.mov"
                handle = os.open(path / name, os.O_CREAT | os.O_WRONLY, 0o644)
                os.ftruncate(handle, numbers.randrange(1, 1 << 30))
                os.close(handle)
        return paths
