"""What can go wrong: one exception class for people who catch, one code for those who compare."""

from __future__ import annotations

__all__ = [
    "Error", "EngineNotRunning", "NotOpen", "InvalidArgument", "UnknownClip", "UnknownLocation", "Offline", "NotFound",
    "AlreadyExists", "Unfinished", "Changed", "Cancelled", "GivenUp", "ReadFailed", "WriteFailed", "DiskFull",
    "VerificationFailed",
]

# The platform's codes begin behind this number, so that they differ from all others.
_PLATFORM_BASE = 0x10000


class Error(Exception):
    """Something did not work.

    code: what, as a word for programs ("offline", "diskFull", ...).
    text: a sentence for people, with the path.
    errno: of the operating system; None when it did not say.
    """

    code: str
    text: str
    errno: int | None

    def __init__(self, code: str, text: str, platform_code: int = 0) -> None:
        super().__init__(code, text, platform_code)
        self.code = code
        self.text = text
        self.errno = platform_code - _PLATFORM_BASE if platform_code >= _PLATFORM_BASE else None

    def __str__(self) -> str:
        return self.text


class EngineNotRunning(Error):
    """No session is open, or it ended meanwhile."""


class NotOpen(Error):
    """The reader is closed, or the recording has ended."""


class InvalidArgument(Error, ValueError):
    """No cookie, no level, or a number that is out of range."""


class UnknownClip(Error, LookupError):
    """No media of the clip is known."""


class UnknownLocation(Error, LookupError):
    """No location of that id or path is registered."""


class Offline(Error):
    """The clip's media, or the target of its link, cannot be reached."""


class NotFound(Error):
    """There is no such file or folder, or it is no file."""


class AlreadyExists(Error):
    """A file or location stands there already. Nothing is ever replaced."""


class Unfinished(Error):
    """An unfinished recording stands there, or is being written there."""


class Changed(Error):
    """The file became shorter, or was removed or replaced, while it was open."""


class Cancelled(Error):
    """The read was cancelled before it was started."""


class GivenUp(Error):
    """The disk did not answer in time."""


class ReadFailed(Error):
    """The disk could not be read."""


class WriteFailed(Error):
    """The disk could not be written, flushed, or the file be named."""


class DiskFull(WriteFailed):
    """The disk is full, or a quota is, or the file is as large as the file system takes."""


class VerificationFailed(Error):
    """A copy reads back differently."""


_CLASSES: dict[str, type[Error]] = {
    "engineNotRunning": EngineNotRunning,
    "notOpen": NotOpen,
    "invalidArgument": InvalidArgument,
    "unknownClip": UnknownClip,
    "unknownLocation": UnknownLocation,
    "offline": Offline,
    "notFound": NotFound,
    "notAFile": NotFound,
    "alreadyExists": AlreadyExists,
    "alreadyOpen": AlreadyExists,
    "unfinished": Unfinished,
    "fileShrank": Changed,
    "fileVanished": Changed,
    "cancelled": Cancelled,
    "givenUp": GivenUp,
    "readFailed": ReadFailed,
    "writeFailed": WriteFailed,
    "diskFull": DiskFull,
    "flushFailed": WriteFailed,
    "renameFailed": WriteFailed,
    "verificationFailed": VerificationFailed,
}


def make(code: str, text: str, platform_code: int = 0) -> Error:
    """The exception of a code; the native module calls this."""
    return _CLASSES.get(code, Error)(code, text, platform_code)
