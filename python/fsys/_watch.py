"""Watching: what happens to clips and locations, as it happens."""

from __future__ import annotations

import sys
import threading
import time
from typing import TYPE_CHECKING, Callable, Iterator

from . import _native
from ._errors import EngineNotRunning
from ._model import Event

if TYPE_CHECKING:
    from types import TracebackType

__all__ = ["Watch"]

# How long a wait lasts before Python may handle a signal.
_SLICE_MS = 100


class Watch:
    """An iterator of events. `Session.watch` begins one; `stop` ends it, as does the end of the session.

        for event in session.watch():
            if event.kind == "clip-online":
                ...

    It sees what any process does to the media folders of the session's locations and to the list of locations. New
    media is told of when it rests: when two looks find the same size and time. A file that is rewritten in place is
    told of with the next change in its folder. While somebody watches, the index follows as well.

    With a callback it has a thread of its own, which the callback runs on; exceptions of the callback go to
    `threading.excepthook` and end the watch. Without one there is no thread: it looks while it is asked for events.
    """

    def __init__(self, interval: float, callback: Callable[[Event], object] | None) -> None:
        """For the session; use `Session.watch`."""
        self._native = _native.Watch(max(1, round(interval * 1000)))
        self._thread: threading.Thread | None = None
        if callback is not None:
            # A daemon, so that a watch that nobody stops does not keep the interpreter from ending; the end of the
            # session stops it in order.
            self._thread = threading.Thread(target=self._call, args=(callback,), name="fsys watch", daemon=True)
            self._thread.start()

    def __enter__(self) -> Watch:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 traceback: TracebackType | None) -> None:
        self.stop()

    def __iter__(self) -> Iterator[Event]:
        return self

    def __next__(self) -> Event:
        event = self.next()
        if event is None:
            raise StopIteration
        return event

    def next(self, timeout: float | None = None) -> Event | None:
        """The next event; None when it was stopped, or there was none for that many seconds."""
        end = None if timeout is None else time.monotonic() + timeout
        while not self._native.is_stopped:
            left_ms = _SLICE_MS if end is None else round((end - time.monotonic()) * 1000)
            try:
                told = self._native.next(max(0, min(_SLICE_MS, left_ms)))
            except EngineNotRunning:
                if self._native.is_stopped:
                    break
                raise
            if told is not None:
                return Event(**told)
            if end is not None and time.monotonic() >= end:
                return None
        return None

    @property
    def is_stopped(self) -> bool:
        """It has ended."""
        return self._native.is_stopped

    def stop(self) -> None:
        """Ends it, from any thread, also from the callback. The callback does not run any more afterwards, unless
        it is the one that calls. A second call does nothing."""
        self._native.stop()
        thread = self._thread
        if thread is not None and thread is not threading.current_thread():
            thread.join()

    def _call(self, callback: Callable[[Event], object]) -> None:
        try:
            for event in self:
                if self.is_stopped:
                    return
                callback(event)
        except BaseException:
            self._native.stop()
            threading.excepthook(threading.ExceptHookArgs((*sys.exc_info(), threading.current_thread())))
