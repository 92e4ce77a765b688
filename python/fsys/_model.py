"""What the session answers: plain values, which stay as they were when they were asked for."""

from __future__ import annotations

import os
from dataclasses import dataclass
from typing import Literal

__all__ = ["Location", "File", "Channel", "Place", "Clip", "Found", "ScanCounts", "Recorded", "Event", "Copied",
           "Level", "EventKind"]

Level = Literal["high", "proxy", "auto"]
EventKind = Literal[
    "clip-online", "clip-offline", "proxy-online", "proxy-offline", "location-added", "location-removed",
    "location-online", "location-offline", "location-renamed"]


@dataclass(frozen=True)
class Location:
    """A media location: a drive or folder that holds media."""

    id: str
    """One character. It names the location as long as the session lasts."""
    name: str
    """What people call it."""
    path: str
    type: Literal["local", "removable", "network", "optical", "unknown"]
    free_bytes: int
    total_bytes: int
    sector_bytes: int
    auto_discovered: bool
    """Discovery found it; otherwise somebody added it."""
    slow: bool
    """It was too slow for the engine's last transfers."""
    online: bool
    """Its folder is there, and not only the one that its disk was mounted on."""


@dataclass(frozen=True)
class File:
    """A media file, as the disk was asked for it."""

    path: str
    target: str | None
    """What a link file points at; None for media itself."""
    bytes: int
    """Of the media: of a link those of its target. 0 while it is offline."""
    online: bool
    location: str | None
    """Id of the location that holds it."""
    height: int | None
    """Lines of a proxy whose name tells them."""
    audio_channels: int
    """Of a proxy."""


@dataclass(frozen=True)
class Channel:
    """One channel of a clip."""

    cookie: str
    kind: Literal["vision", "sound"]
    number: int
    high: File | None
    """The full-resolution file."""
    proxies: tuple[File, ...]


@dataclass(frozen=True)
class Place:
    """What has to be connected to bring a clip back."""

    location: str | None
    """Id of the location that holds the folder; None when none does."""
    name: str | None
    """What people call that location."""
    folder: str


@dataclass(frozen=True)
class Clip:
    """A clip: all its channels, and where their files are."""

    channels: tuple[Channel, ...]
    connect: tuple[Place, ...]
    """What to connect for its full-resolution files; empty when all are online."""

    @property
    def cookie(self) -> str:
        """Of the first channel; vision comes before sound."""
        return self.channels[0].cookie

    @property
    def offline(self) -> Literal["all", "some", "none"]:
        """How many of the full-resolution files are offline; "all" for a clip that has only proxies."""
        states = [channel.high.online for channel in self.channels if channel.high]
        if not any(states):
            return "all"
        return "none" if all(states) else "some"

    @property
    def proxy_online(self) -> bool:
        """At least one proxy can be read."""
        return any(proxy.online for channel in self.channels for proxy in channel.proxies)

    @property
    def bytes(self) -> int:
        """Of all full-resolution files that are online."""
        return sum(channel.high.bytes for channel in self.channels if channel.high)

    @property
    def files(self) -> tuple[File, ...]:
        """Every file once, full resolution first in each channel."""
        files: dict[str, File] = {}
        for channel in self.channels:
            for file in ((channel.high,) if channel.high else ()) + channel.proxies:
                files.setdefault(file.path, file)
        return tuple(files.values())

    @property
    def locations(self) -> tuple[str, ...]:
        """Ids of the locations that hold a file of it, proxies too."""
        return tuple(dict.fromkeys(file.location for file in self.files if file.location is not None))


@dataclass(frozen=True)
class Found:
    """The file to open for a clip."""

    cookie: str
    path: str | None
    """Of a link that of its target; None when there is nothing to open."""
    kind: Literal["high", "proxy"] | None
    status: Literal["online", "offline", "unknown"]
    """"unknown": no file of the clip is known."""

    @property
    def online(self) -> bool:
        """It can be read."""
        return self.status == "online"


@dataclass(frozen=True)
class ScanCounts:
    """What a scan found, in files but for clips."""

    files: int
    clips: int
    augmented: int
    """Files of clips that had one already."""
    proxies: int
    skipped_empty: int
    skipped_ineligible: int
    """Companions of media files."""
    skipped_not_cookie: int


@dataclass(frozen=True)
class Recorded:
    """What became of a recording."""

    complete: bool
    """The file has its final name and holds all that was written, safe against a loss of power."""
    path: str | None
    """Under its final name, or the unfinished one; None when there was nothing to keep."""
    has_final_name: bool
    bytes: int
    """Of the whole writes that the file holds."""
    hash: str | None
    """XXH3-128 in 32 hexadecimal digits, when asked for and complete."""
    mistaken_for_link: bool
    """Readers will take the file for a link, as every file of 512 bytes: record a byte more."""
    error: Exception | None
    """The first failure."""


@dataclass(frozen=True)
class Copied:
    """One file of a clip that was copied."""

    source: str
    path: str
    bytes: int
    hash: str | None
    """XXH3-128 of what was written, in 32 hexadecimal digits."""
    verified: bool
    """It was read back from the disk and compared with the source, byte for byte."""


@dataclass(frozen=True)
class Event:
    """Something that happened to a file or a location."""

    kind: EventKind
    cookie: str | None
    """Of the clip; None for a location."""
    path: str
    """The file, or the root of the location."""
    location: str
    """Its id, which may name nothing any more."""
    name: str | None
    """What people call the location; None for a file."""


def folder_of(file: File) -> str:
    """The folder that has to be there for a file to be read."""
    return os.path.dirname(file.target or file.path)
