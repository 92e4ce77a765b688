"""Recording media, and what was left of recordings that were cut off."""

from __future__ import annotations

from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Callable, Literal

from . import _native
from ._model import Recorded

if TYPE_CHECKING:
    from types import TracebackType

__all__ = ["Recording", "UnfinishedRecording", "OnError"]

OnError = Literal["unfinished", "abandon"]


class Recording:
    """Records one media file so that nothing is lost. `Session.record` begins one.

    The file grows under its name with ".partial" behind it and gets its name at the end. As a context manager it
    finishes at a clean exit, and raises what went wrong; after an exception the unfinished file stays for
    `Session.unfinished`, or goes with on_error="abandon".

    Calls from several threads wait for each other; other threads of Python run meanwhile.
    """

    def __init__(self, native: _native.Recorder, cookie: str | None, on_error: OnError,
                 on_space_low: Callable[[int], object] | None) -> None:
        """For the session; use `Session.record`."""
        self._native = native
        self._cookie = cookie
        self._on_error = on_error
        self._on_space_low = on_space_low

    def __enter__(self) -> Recording:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 traceback: TracebackType | None) -> None:
        if not self._native.is_open:
            return
        if kind is None:
            recorded = self.finish()
            if recorded.error is not None:
                raise recorded.error
        elif self._on_error == "abandon":
            self.abandon()
        else:
            self.leave()

    def __repr__(self) -> str:
        return f"<fsys.Recording {self.path!r}{'' if self.is_open else ', ended'}>"

    @property
    def cookie(self) -> str | None:
        """Of the clip; None for a file that belongs to none."""
        return self._cookie

    @property
    def path(self) -> str:
        """The final name."""
        return self._native.path

    @property
    def partial_path(self) -> str:
        """The name until then."""
        return self._native.partial_path

    @property
    def is_open(self) -> bool:
        """It goes on."""
        return self._native.is_open

    def write(self, data: Any) -> None:
        """Appends bytes, or anything else that is contiguous, such as a numpy array.

        The bytes are copied; waits only while too many are on their way to the disk. Raises what went wrong with this
        write or any before it.
        """
        self._native.write(data)
        if self._on_space_low is not None:
            free_bytes = self._native.take_space_low()
            if free_bytes is not None:
                self._on_space_low(free_bytes)

    def flush(self) -> None:
        """Waits until all that was written is on the device."""
        self._native.flush()

    def finish(self) -> Recorded:
        """Ends it: writes the rest, gives the file its name, and tells the index. A second call answers the same.

        What could not be kept is told by the answer: `Recorded.complete`, `Recorded.error`.
        """
        return Recorded(**self._native.finish())

    def abandon(self) -> None:
        """Ends it and removes the file. Nothing happens when it has ended."""
        self._native.abandon()

    def leave(self) -> None:
        """Ends it and leaves the unfinished file, cut to whole writes. Nothing happens when it has ended."""
        self._native.leave()

    def counters(self) -> dict[str, Any]:
        """writes, bytes, bytes_on_disk, waits (writes that waited for the disk), worst_wait_ms."""
        return self._native.counters()


@dataclass(frozen=True)
class UnfinishedRecording:
    """A recording that was not finished, because its program, the machine or the disk stopped."""

    location: str
    path: str
    final_path: str
    """What it is to become."""
    cookie: str | None
    """None when its name is no clip's."""
    bytes: int
    good_bytes: int
    """From the start to the first byte that never reached the disk: what finish keeps."""
    modified: float
    """Last written, in seconds since 1970."""
    in_use: bool
    """Somebody still records it, or nobody can tell."""

    def finish(self) -> str:
        """Keeps its good bytes under the final name, which is the answer, and tells the index."""
        _native.finish_unfinished(self.location, self.path)
        return self.final_path

    def remove(self) -> None:
        """Removes the file."""
        _native.remove_unfinished(self.location, self.path)
