"""Copies each clip to another location as soon as it can be read, and reads every copy back.

    back_up_new_clips.py PROJECT_SPACE LOCATION [CLIPS]

LOCATION is the id, path or name of the location for the copies. Ends by an interrupt, or after so many clips.
"""

import sys

import fsys


def back_up(session: fsys.Session, cookie: str, location: fsys.Location) -> None:
    try:
        for copied in session.copy(cookie, location.id):
            print(f"{copied.path}  {copied.bytes} bytes, verified", flush=True)
    except fsys.Error as error:
        print(f"{cookie}: {error}", file=sys.stderr, flush=True)


def main(space: str, place: str, clips: int | None) -> int:
    with fsys.open(space, discovery=False) as session:
        location = session.location(place)
        with session.watch() as watch:
            print("watching", flush=True)
            for event in watch:
                # The copies are told of as well.
                if event.kind != "clip-online" or event.location == location.id or event.cookie is None:
                    continue
                back_up(session, event.cookie, location)
                clips = None if clips is None else clips - 1
                if clips == 0:
                    break
    return 0


if __name__ == "__main__":
    if len(sys.argv) not in (3, 4):
        sys.exit(f"usage: {sys.argv[0]} PROJECT_SPACE LOCATION [CLIPS]")
    try:
        sys.exit(main(sys.argv[1], sys.argv[2], int(sys.argv[3]) if len(sys.argv) > 3 else None))
    except KeyboardInterrupt:
        pass
