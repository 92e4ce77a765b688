"""Reading media: into memory of the caller, as bytes, at once or with futures."""

from __future__ import annotations

import io
from concurrent.futures import Future
from typing import TYPE_CHECKING, Any, Callable, TypeVar

from . import _native
from ._errors import Cancelled, InvalidArgument

if TYPE_CHECKING:
    from types import TracebackType

__all__ = ["Reader", "ReadFuture"]

_T = TypeVar("_T")


class ReadFuture(Future[_T]):
    """The future of an asynchronous read. `asyncio.wrap_future` makes one for asyncio of it.

    What it calls when it is done (`add_done_callback`) runs on a thread of the reader, one after another; it may do
    anything, also read on or close the reader.
    """

    _cancel: Callable[[], bool]

    def cancel(self) -> bool:
        """Cancels the read; False when it has started or ended, and then it goes on."""
        if not self.done() and self._cancel():
            super().cancel()
        return self.cancelled()

    def _hear(self, answer: _T, error: BaseException | None) -> None:
        if isinstance(error, Cancelled):
            super().cancel()
        if not self.set_running_or_notify_cancel():
            return
        if error is not None:
            self.set_exception(error)
        else:
            self.set_result(answer)


class Reader:
    """Reads one media file, at any place, as fast as the disk allows. `Session.reader` opens one.

    A link is followed: size and bytes are those of its target. A file may grow while it is read. All methods may be
    called from any thread, at once; other threads of Python run while one waits. A context manager that closes it.
    """

    def __init__(self, native: _native.Reader) -> None:
        """For the session; use `Session.reader`."""
        self._native = native

    def __enter__(self) -> Reader:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 traceback: TracebackType | None) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<fsys.Reader {self.path!r}{'' if self.is_open else ', closed'}>"

    @property
    def path(self) -> str:
        """The file that was opened."""
        return self._native.path

    @property
    def target(self) -> str:
        """The file whose bytes are read: the target of a link, else the same."""
        return self._native.target

    @property
    def is_open(self) -> bool:
        """Not closed yet."""
        return self._native.is_open

    @property
    def size(self) -> int:
        """Bytes of the file now."""
        return self._native.size()

    def read(self, offset: int = 0, size: int | None = None) -> bytes:
        """So many bytes at offset, or all up to the end; fewer where the file ends, none behind it."""
        wanted = max(0, self.size - offset) if size is None else size
        if offset < 0 or wanted < 0:
            raise InvalidArgument("invalidArgument", "offset and size are not negative")
        piece = bytearray(wanted)
        del piece[self._native.readinto(offset, piece):]
        return bytes(piece)

    def readinto(self, into: Any, offset: int = 0) -> int:
        """Fills into: a numpy array, bytearray, memoryview, anything contiguous that can be written.

        Returns how many bytes were read: fewer than there is room where the file ends, 0 behind it. After an error
        the contents of into are undefined.
        """
        if offset < 0:
            raise InvalidArgument("invalidArgument", "an offset is not negative")
        return self._native.readinto(offset, into)

    def read_async(self, offset: int, size: int) -> ReadFuture[memoryview]:
        """The future of so many bytes at offset (at most 2**30), as a read-only memoryview. Nothing is copied:
        `numpy.frombuffer` makes an array of them, and a small part keeps the memory of all of its read."""
        if offset < 0 or size < 0:
            raise InvalidArgument("invalidArgument", "offset and size are not negative")
        future: ReadFuture[memoryview] = ReadFuture()

        def hear(data: Any, _count: int, error: BaseException | None) -> None:
            future._hear(memoryview(b"" if data is None else data), error)

        return self._started(future, self._native.read_async(offset, size, hear))

    def readinto_async(self, into: Any, offset: int = 0) -> ReadFuture[int]:
        """The future of how many bytes were read into into, which must not be touched until then."""
        if offset < 0:
            raise InvalidArgument("invalidArgument", "an offset is not negative")
        future: ReadFuture[int] = ReadFuture()

        def hear(_data: Any, count: int, error: BaseException | None) -> None:
            future._hear(count, error)

        return self._started(future, self._native.readinto_async(offset, into, hear))

    def read_ahead(self, size: int) -> None:
        """For those who read in order: keeps so many bytes on their way or ready. 0, as at first, for none."""
        self._native.set_read_ahead(size)

    def stall_limit(self, seconds: float) -> None:
        """Reads that wait fail with GivenUp when the disk brings nothing for so long: 60 s at first, 0 never."""
        self._native.set_stall_limit(round(seconds * 1000))

    def counters(self) -> dict[str, Any]:
        """Since it was opened: requests, bytes, cache_answers, waits, worst_wait_ms."""
        return self._native.counters()

    def file(self, buffer_size: int = 1 << 20) -> io.BufferedReader:
        """A file object over the reader, for what reads files. Closing it closes the reader."""
        return io.BufferedReader(_RawFile(self), buffer_size)

    def close(self) -> None:
        """Cancels what has not started and waits for the rest. A second call does nothing."""
        self._native.close()

    def _started(self, future: ReadFuture[_T], ticket: int) -> ReadFuture[_T]:
        native = self._native
        future._cancel = lambda: native.is_open and native.cancel(ticket)
        return future


class _RawFile(io.RawIOBase):
    def __init__(self, reader: Reader) -> None:
        self._reader = reader
        self._at = 0

    @property
    def name(self) -> str:
        return self._reader.path

    def readable(self) -> bool:
        return True

    def seekable(self) -> bool:
        return True

    def readinto(self, into: Any) -> int:
        got = self._reader.readinto(into, self._at)
        self._at += got
        return got

    def seek(self, offset: int, whence: int = io.SEEK_SET) -> int:
        start = {io.SEEK_SET: 0, io.SEEK_CUR: self._at, io.SEEK_END: self._reader.size}[whence]
        if start + offset < 0:
            raise InvalidArgument("invalidArgument", "a place is not before the start of the file")
        self._at = start + offset
        return self._at

    def close(self) -> None:
        if not self.closed:
            self._reader.close()
        super().close()
