"""fsys: the media file-system layer of a video editing and playback application, for scripts.

    import fsys

    with fsys.open("/projects/film") as session:
        for location in session.locations():
            print(location.id, location.name, location.free_bytes)
        with session.reader("V0123456789ABCDEF00") as reader:
            header = reader.read(0, 64)

A clip is named by its cookie, a text of 19 characters; its media lie in locations, as full resolution or as proxies.
`open` starts the engine and answers the session, which has all the rest. Whatever goes wrong raises `Error` or one of
its classes. Every call lets other threads of Python run while it waits.
"""

from . import _errors, _model
from ._errors import *
from ._model import *
from ._reader import Reader, ReadFuture
from ._recording import OnError, Recording, UnfinishedRecording
from ._session import Session, new_cookie, open, parse_cookie
from ._watch import Watch

__all__ = ["Reader", "ReadFuture", "OnError", "Recording", "UnfinishedRecording", "Session", "new_cookie", "open",
           "parse_cookie", "Watch"]
__all__ += _errors.__all__
__all__ += _model.__all__
