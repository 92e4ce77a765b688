"""The session: the engine at work on a project space, and all that can be asked of it."""

from __future__ import annotations

import atexit
import os
import threading
import weakref
from typing import TYPE_CHECKING, Any, Callable, Iterable, TypeVar

from . import _native
from ._copy import copy_clip
from ._errors import InvalidArgument, UnknownClip, UnknownLocation
from ._model import Channel, Clip, Copied, Event, File, Found, Level, Location, Place, ScanCounts, folder_of
from ._reader import Reader
from ._recording import OnError, Recording, UnfinishedRecording
from ._watch import Watch

if TYPE_CHECKING:
    from types import TracebackType

__all__ = ["Session", "open", "new_cookie", "parse_cookie"]

_Path = str | bytes | os.PathLike[str] | os.PathLike[bytes]

_Held = TypeVar("_Held", Reader, Recording, Watch)

_open_session: Session | None = None
_changing = threading.RLock()


def open(space: _Path | None = None, discovery: bool = True) -> Session:
    """Starts the engine on a project space, the folder that keeps the list of locations, and scans the locations.

    space: made when it is missing; without one $FSYS_SPACE, else $XDG_DATA_HOME/fsys or ~/.local/share/fsys.
    discovery: also takes the drives of this machine that have media folders.

    There is one session in a process at a time. It ends with its `with` block, by `Session.close`, or with the
    interpreter; then another one may be opened. It does not survive a fork: in the child everything raises
    EngineNotRunning, so start workers with the "spawn" method.
    """
    global _open_session
    folder = _absolute(space) if space is not None else _default_space()
    os.makedirs(folder, exist_ok=True)
    # Waits for a session that is ending, so no lock may be held.
    _native.start(folder, discovery)
    session = Session(folder)
    with _changing:
        _open_session = session
    return session


def new_cookie(sound: bool = False) -> str:
    """A cookie that no other call, process or machine has made."""
    return _native.new_cookie(sound)


def parse_cookie(text: str) -> str:
    """The complete form of a cookie, which may be written short and in any case. Raises InvalidArgument."""
    return _native.complete_cookie(text)


class Session:
    """The engine at work. `fsys.open` makes one; a context manager that ends it.

    Any method may be called from any thread. Files are tested on the disk at each call, so answers are true at that
    moment, also when another program has changed them; new files are found by `scan` and while somebody watches.
    """

    def __init__(self, space: str) -> None:
        """For `fsys.open`."""
        self._space = space
        self._closed = False
        self._held: weakref.WeakSet[Reader | Recording | Watch] = weakref.WeakSet()

    def __enter__(self) -> Session:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 traceback: TracebackType | None) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<fsys.Session {self._space!r}{', closed' if self._closed else ''}>"

    @property
    def space(self) -> str:
        """The project space."""
        return self._space

    @property
    def is_open(self) -> bool:
        """It has not been closed."""
        return not self._closed and _native.is_running()

    def close(self) -> None:
        """Stops watches, closes readers, leaves recordings unfinished, and ends the engine, once all calls of other
        threads have returned. A second call does nothing."""
        global _open_session
        with _changing:
            if self._closed:
                return
            self._closed = True
            _open_session = None
        for held in list(self._held):
            _end_held(held)
        _native.stop()

    # --- locations

    def locations(self) -> list[Location]:
        """All locations, in the order in which they were registered, with their space as of now."""
        return [Location(**told) for told in _native.locations()]

    def location(self, place: str | _Path) -> Location:
        """One of them, by id, path or name. Raises UnknownLocation."""
        locations = self.locations()
        for location in locations:
            if location.id == place:
                return location
        path = _absolute(place)
        for location in locations:
            if location.path == path:
                return location
        named = [location for location in locations if location.name == place]
        if len(named) == 1:
            return named[0]
        raise UnknownLocation("unknownLocation", f"{os.fsdecode(place)} is no media location that can be reached")

    def missing_locations(self) -> list[str]:
        """Roots that are listed and could not be reached or written when the session began."""
        return _native.missing_locations()

    def add_location(self, path: _Path, name: str | None = None) -> Location:
        """Registers a folder for good, makes its media folders, and scans it.

        name: what people call it; the one that it has, or its last component, otherwise.
        Raises NotFound, AlreadyExists or WriteFailed.
        """
        root = _absolute(path)
        if _has_line_break(root + (name or "")) or "\\" in root:
            raise InvalidArgument("invalidArgument", "a location has no line breaks, and no backslash in its path")
        if name is not None and not name:
            raise InvalidArgument("invalidArgument", "a name is not empty")
        return Location(**_native.add_location(root, name or ""))

    def remove_location(self, place: str | _Path) -> None:
        """Forgets a location, for good, with all that is known of its media. The media stay."""
        _native.remove_location(self.location(place).id)

    def rename_location(self, place: str | _Path, name: str) -> Location:
        """Gives a location another name, which is kept in the location itself."""
        if not name or _has_line_break(name):
            raise InvalidArgument("invalidArgument", "a name is not empty and has no line breaks")
        return Location(**_native.rename_location(self.location(place).id, name))

    def free_bytes(self, place: str | _Path) -> int:
        """Free bytes of a location now."""
        return self.location(place).free_bytes

    # --- clips

    def scan(self) -> ScanCounts:
        """Indexes all locations anew. Queries of other threads find the index half filled meanwhile."""
        return ScanCounts(**_native.scan())

    def find(self, cookie: str, level: Level = "high", height: int = 0) -> Found:
        """The file to open for a clip, and whether it can be read.

        level: "high" the full-resolution file; "proxy" the first proxy; "auto" with a height the first proxy of at
        least so many lines, else the full-resolution file. Where that one cannot be read, another file of the clip.
        """
        _check_height(height)
        return Found(**_native.find(cookie, level, height))

    def clip(self, cookie: str) -> Clip:
        """Everything that is known of a clip; any of its cookies stands for it. Raises UnknownClip."""
        clips = self._clips(_native.channels(cookie))
        if not clips:
            raise UnknownClip("unknownClip", f"no clip {cookie} is known")
        return clips[0]

    def clips(self, location: str | _Path | None = None) -> list[Clip]:
        """All clips in the order of their cookies; with a location those that have a file there."""
        place = None if location is None else self.location(location).id
        return [clip for clip in self._clips(_native.channels(None)) if place is None or place in clip.locations]

    def offline(self, location: str | _Path | None = None) -> list[Clip]:
        """Clips that are offline, wholly or in part; `Clip.connect` tells what would bring them back."""
        return [clip for clip in self.clips(location) if clip.offline != "none"]

    def watch(self, callback: Callable[[Event], object] | None = None, interval: float = 0.5) -> Watch:
        """Watches clips and locations from here on: an iterator of events, or calls of callback.

        interval: seconds between two looks at the disk.
        """
        return self._hold(Watch(interval, callback))

    # --- reading and recording

    def reader(self, cookie: str, level: Level = "high", height: int = 0) -> Reader:
        """Opens the file of a clip, as `find` chooses it. Raises UnknownClip, Offline or what the file says."""
        _check_height(height)
        return self._hold(Reader(_native.Reader.of_clip(cookie, level, height)))

    def file_reader(self, path: _Path) -> Reader:
        """Opens a file by its path, also one that belongs to no clip."""
        return self._hold(Reader(_native.Reader.of_file(_absolute(path))))

    def record(self, cookie: str | None = None, location: str | _Path | None = None, extension: str = "mov", *,
               expected_bytes: int = 0, proxy_height: int | None = None, proxy_channels: int = 0, hash: bool = False,
               on_error: OnError = "unfinished", on_space_low: Callable[[int], object] | None = None,
               low_space_bytes: int = 1 << 30, bytes_in_flight: int = 8 << 20, stall_limit: float = 60.0) -> Recording:
        """Begins a recording of a clip.

        cookie: of the clip; a new one without.
        location: id, path or name; without one that with the most room for expected_bytes.
        proxy_height: records a proxy of so many lines, with proxy_channels channels of audio.
        hash: has the answer of finish tell the XXH3-128 of what was written.
        on_error: what an exception in the `with` block does to the file: "unfinished" leaves it for `unfinished`,
            "abandon" removes it.
        on_space_low: called with the free bytes, after a write, once each time they fall below low_space_bytes.
        bytes_in_flight: how much may wait for the disk.
        stall_limit: seconds in which a disk must take something, or the recording fails; 0 waits for ever.
        """
        if not extension or any(c in extension for c in "/\\\r\n\0"):
            raise InvalidArgument("invalidArgument", "an extension is a part of a file name")
        if proxy_height is not None:
            _check_height(proxy_height)
        if not 0 <= proxy_channels <= 255:
            raise InvalidArgument("invalidArgument", "a proxy has 0 to 255 channels")
        clip = new_cookie() if cookie is None else parse_cookie(cookie)
        native = _native.Recorder.of_clip(clip, self._place_for(location, expected_bytes), extension, proxy_height,
                                          proxy_channels, _options(hash, low_space_bytes, bytes_in_flight, stall_limit))
        return self._hold(Recording(native, clip, on_error, on_space_low))

    def record_file(self, path: _Path, *, hash: bool = False, on_error: OnError = "unfinished",
                    on_space_low: Callable[[int], object] | None = None, low_space_bytes: int = 1 << 30,
                    bytes_in_flight: int = 8 << 20, stall_limit: float = 60.0) -> Recording:
        """Begins a recording of a file that belongs to no clip. Its folder must exist. Options as of `record`."""
        native = _native.Recorder.of_file(_absolute(path),
                                          _options(hash, low_space_bytes, bytes_in_flight, stall_limit))
        return self._hold(Recording(native, None, on_error, on_space_low))

    def copy(self, cookie: str, location: str | _Path, verify: bool = True,
             progress: Callable[[int, int], object] | None = None) -> list[Copied]:
        """Copies all files of a clip, its channels and proxies, to another location, under the same names.

        The copy of a link holds the media itself. Files that are there already are passed over, and nothing is
        replaced. verify: reads every copy back from the disk and compares it with its source, byte for byte;
        VerificationFailed leaves the copy, for people to look at. A copy that fails otherwise is removed.
        progress: called with the bytes that are done, read back ones too, and all that there are to do.
        """
        place = self.location(location)
        clip = self.clip(cookie)

        def begin(channel: str, name: str) -> Recording:
            options = _options(True, 0, 8 << 20, 60.0)
            stem, _, extension = name.partition(".")
            native = _native.Recorder.of_clip(channel, place.id, extension, None, 0, options)
            return self._hold(Recording(native, channel, "abandon", None))

        return copy_clip(clip, place.id, begin, verify, progress)

    def unfinished(self, location: str | _Path | None = None) -> list[UnfinishedRecording]:
        """Recordings that were cut off, in all locations or in one. Each can be finished or removed."""
        places: Iterable[Location] = self.locations() if location is None else [self.location(location)]
        return [UnfinishedRecording(**told) for place in places for told in _native.unfinished(place.id)]

    # --- inside

    def _hold(self, held: _Held) -> _Held:
        with _changing:
            self._held.add(held)
            closed = self._closed
        if closed:  # while this was being opened
            _end_held(held)
        return held

    def _place_for(self, location: str | _Path | None, expected_bytes: int) -> str:
        if location is not None:
            return self.location(location).id
        best = _native.best_location(expected_bytes)
        if best is None:
            raise UnknownLocation("unknownLocation", f"no location has room for {expected_bytes} bytes")
        return best

    def _clips(self, channels: list[dict[str, Any]]) -> list[Clip]:
        locations = self.locations()
        grouped: dict[str, list[Channel]] = {}
        for told in channels:
            channel = Channel(told["cookie"], told["kind"], told["number"],
                              None if told["high"] is None else File(**told["high"]),
                              tuple(File(**proxy) for proxy in told["proxies"]))
            # Channels differ in the type in front and the number behind.
            grouped.setdefault(channel.cookie[1:-2], []).append(channel)
        return [Clip(tuple(of_clip), _places(of_clip, locations)) for of_clip in grouped.values()]


def _end_held(held: Reader | Recording | Watch) -> None:
    if isinstance(held, Watch):
        held.stop()
    elif isinstance(held, Reader):
        held.close()
    else:
        held.leave()


def _places(channels: list[Channel], locations: list[Location]) -> tuple[Place, ...]:
    places: dict[Place, None] = {}
    for channel in channels:
        if channel.high is None or channel.high.online:
            continue
        folder = folder_of(channel.high)
        holding = [location for location in locations if (folder + "/").startswith(location.path + "/")]
        # The innermost, where one location holds another.
        best = max(holding, key=lambda location: len(location.path), default=None)
        places[Place(best.id if best else None, best.name if best else None, folder)] = None
    return tuple(places)


def _options(hash: bool, low_space_bytes: int, bytes_in_flight: int, stall_limit: float) -> dict[str, Any]:
    if low_space_bytes < 0 or bytes_in_flight < 0 or not 0 <= stall_limit <= 4_000_000:
        raise InvalidArgument("invalidArgument", "bytes and seconds are not negative")
    return {"hash": hash, "low_space_bytes": low_space_bytes, "bytes_in_flight": bytes_in_flight,
            "stall_limit_ms": round(stall_limit * 1000)}


def _absolute(path: _Path) -> str:
    return os.path.abspath(os.fsdecode(path))


def _has_line_break(text: str) -> bool:
    return "\n" in text or "\r" in text


def _check_height(height: int) -> None:
    if not 0 <= height <= 1_000_000:
        raise InvalidArgument("invalidArgument", f"{height} is no height of a picture")


def _default_space() -> str:
    if space := os.environ.get("FSYS_SPACE"):
        return _absolute(space)
    # By the rules for these variables a relative path counts as none.
    data = os.environ.get("XDG_DATA_HOME", "")
    return os.path.join(data if data.startswith("/") else os.path.expanduser("~/.local/share"), "fsys")


def _end() -> None:
    session = _open_session
    if session is not None:
        session.close()
    _native.interpreter_ends()


def _lose_session() -> None:
    global _open_session, _changing
    _native.lose_after_fork()
    # Another thread of the parent may have held it.
    _changing = threading.RLock()
    if _open_session is not None:
        _open_session._closed = True
        _open_session = None


atexit.register(_end)
os.register_at_fork(after_in_child=_lose_session)
