"""Copying a clip to another location, and reading the copies back."""

from __future__ import annotations

import os
from typing import Callable

from . import _native
from ._errors import VerificationFailed
from ._model import Clip, Copied, File
from ._reader import Reader
from ._recording import Recording

__all__ = ["copy_clip"]

_PIECE_BYTES = 4 << 20
_AHEAD_BYTES = 16 << 20

Progress = Callable[[int, int], object]


class _Counter:
    """Adds up what several files bring, for one progress."""

    def __init__(self, total: int, progress: Progress | None) -> None:
        self._done = 0
        self._total = total
        self._progress = progress

    def add(self, size: int) -> None:
        self._done += size
        if self._progress is not None:
            self._progress(self._done, self._total)


def copy_clip(clip: Clip, target: str, begin: Callable[[str, str], Recording], verify: bool,
              progress: Progress | None) -> list[Copied]:
    """Copies all files of a clip. target: id of the location; begin(cookie, name) begins the file of that name there."""
    files = _missing(clip, target)
    counter = _Counter(sum(file.bytes for _, file in files) * (2 if verify else 1), progress)
    return [_copy_file(file, begin(cookie, os.path.basename(file.path)), verify, counter) for cookie, file in files]


def _missing(clip: Clip, target: str) -> list[tuple[str, File]]:
    """Files that the location has none of the same name of; of two with one name the first."""
    taken = {os.path.basename(file.path) for file in clip.files if file.location == target}
    chosen: list[tuple[str, File]] = []
    for channel in clip.channels:
        for file in ((channel.high,) if channel.high else ()) + channel.proxies:
            name = os.path.basename(file.path)
            if name not in taken:
                taken.add(name)
                chosen.append((channel.cookie, file))
    return chosen


def _copy_file(file: File, recording: Recording, verify: bool, counter: _Counter) -> Copied:
    # Half a copy is of no use to anybody: the original is still there.
    with recording, Reader(_native.Reader.of_file(file.path)) as reader:
        reader.read_ahead(_AHEAD_BYTES)
        piece = memoryview(bytearray(_PIECE_BYTES))
        at = 0
        while got := reader.readinto(piece, at):
            recording.write(piece[:got])
            at += got
            counter.add(got)
        recorded = recording.finish()
        if recorded.error is not None:
            raise recorded.error
        if verify:
            _compare(reader, recording.path, counter)
    return Copied(source=file.path, path=recording.path, bytes=recorded.bytes, hash=recorded.hash, verified=verify)


def _compare(reader: Reader, path: str, counter: _Counter) -> None:
    ours, theirs = memoryview(bytearray(_PIECE_BYTES)), memoryview(bytearray(_PIECE_BYTES))
    with Reader(_native.Reader.of_file(path)) as copy:
        copy.read_ahead(_AHEAD_BYTES)
        at = 0
        while True:
            got, expected = copy.readinto(ours, at), reader.readinto(theirs, at)
            if ours[:got] != theirs[:expected]:
                raise VerificationFailed("verificationFailed", f"{path} reads back differently")
            if got == 0:
                return
            at += got
            counter.add(got)
