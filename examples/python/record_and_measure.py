"""Records ten pictures that numpy makes as a clip, reads them back while the next ones are on their way, and prints
how bright each is.

    record_and_measure.py PROJECT_SPACE LOCATION_FOLDER
"""

import sys
from collections import deque

import numpy

import fsys

HEIGHT, WIDTH = 540, 960
FRAMES = 10
FRAME_BYTES = HEIGHT * WIDTH * 3


def record(session: fsys.Session, location: fsys.Location) -> str:
    frame = numpy.zeros((HEIGHT, WIDTH, 3), dtype=numpy.uint8)
    with session.record(location=location.id, extension="rgb", expected_bytes=FRAMES * FRAME_BYTES,
                        hash=True) as recording:
        for number in range(FRAMES):
            frame.fill(number * 20)
            recording.write(frame)
        print(f"{recording.path}  {recording.finish().hash}")
    assert recording.cookie is not None
    return recording.cookie


def measure(session: fsys.Session, cookie: str) -> None:
    with session.reader(cookie) as reader:
        ahead: deque[fsys.ReadFuture[memoryview]] = deque()
        for number in range(FRAMES + 3):
            if number < FRAMES:
                ahead.append(reader.read_async(number * FRAME_BYTES, FRAME_BYTES))
            if number >= 3:
                picture = numpy.frombuffer(ahead.popleft().result(), dtype=numpy.uint8)
                print(f"frame {number - 3}: {picture.mean():.0f}")


def main(space: str, folder: str) -> int:
    with fsys.open(space, discovery=False) as session:
        try:
            location = session.location(folder)
        except fsys.UnknownLocation:
            location = session.add_location(folder)
        measure(session, record(session, location))
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(f"usage: {sys.argv[0]} PROJECT_SPACE LOCATION_FOLDER")
    sys.exit(main(sys.argv[1], sys.argv[2]))
