#!/usr/bin/env python3
"""Loses power, thousands of times, and looks at what is left.

A worker saves small files, changes locations or records clips on a disk that writes down all that it is told to write. From that
log crash states are built: all that came before the last flush, and of what came after it a part, some of it
torn. Each state is mounted, so that the file system recovers as it would after a start, and checked against what
the worker had said at that moment: what was finished is there, what was under way is the old or the new one.

    power_loss.py --worker crash_worker [--file-system ext4] [--work save|locations|record] [--way product] [--states 300]

--way rename and --way naive save without care; --without files and --without folders take the worker's flushes of
these away (--no-flush names the library that does it). They show that the check can fail: with --expect-broken
the script fails when nothing is broken.
Prints the seed; --seed repeats the choice of states (what the kernel writes is never quite the same twice).
"""

import argparse
import bisect
import collections
import contextlib
import fcntl
import os
import random
import subprocess
import sys

import disks

# Bytes that a disk writes whole or not at all. btrfs trusts its superblock of 4096 to be written like that.
SECTOR = {"ext4": 512, "xfs": 512, "btrfs": 4096}
BTRFS_IOC_FORGET_DEV = 0x50009405


def small_file(version):
    lines = ["version %d line %d" % (version, i) for i in range(1 + version * 37 % 400)]
    return "".join(line + "\n" for line in lines + ["end %d" % version]).encode()


def preference(version):
    return b"value=%d %s\n" % (version, bytes([ord("a") + version % 26]) * (1 + version * 101 % 3000))


class Story:
    """What the worker said, and where the log of the disk stood when it did."""

    def __init__(self):
        self.positions, self.lines = [], []

    def add(self, position, line):
        self.positions.append(position)
        self.lines.append(line.split())

    def until(self, position):
        return self.lines[:bisect.bisect_right(self.positions, position)]


class SaveCheck:
    """Compares small files with the story. Answers what is wrong, as pairs of a word and a sentence."""

    def setup(self, place):
        with open(place + "/list.txt", "wb") as file:
            file.write(small_file(0))
        with open(place + "/preferences", "wb") as file:
            file.write(preference(0))

    def command(self, worker, place, way):
        return [worker, "save", place, way, "1"]

    def __call__(self, place, story):
        begun, ended = collections.defaultdict(list), collections.defaultdict(list)
        for event, kind, version in (line for line in story if len(line) == 3):
            (begun if event == "begin" else ended)[kind].append(int(version))
        yield from self.judge(place + "/list.txt", small_file, [0] + begun["list"], ([0] + ended["list"])[-1])
        yield from self.judge(place + "/preferences", preference, [0] + begun["preference"],
                              ([0] + ended["preference"])[-1])
        for version in begun["new"]:
            yield from self.judge(place + "/new-%d.txt" % version, small_file, [version],
                                  version if version in ended["new"] else None)

    def judge(self, path, contents, begun, ended):
        """begun: versions that may be there; ended: the oldest that may be, None when the file may be missing."""
        try:
            with open(path, "rb") as file:
                found = file.read()
        except FileNotFoundError:
            if ended is not None:
                yield "missing", path
            return
        except OSError as error:
            yield "unreadable", "%s: %s" % (path, error)
            return
        version = next((v for v in reversed(begun) if contents(v) == found), None)
        if version is None:
            yield "empty" if not found else "torn", "%s: %d bytes, %r..." % (path, len(found), found[:40])
        elif ended is not None and version < ended:
            yield "lost", "%s: version %d after %d had been saved" % (path, version, ended)


class LocationsCheck:
    """Compares the list of locations, and the name of one, with the story."""

    def setup(self, place):
        os.makedirs(place + "/space")

    def command(self, worker, place, _way):
        return [worker, "locations", place + "/space", place, "1"]

    def __call__(self, place, story):
        is_ready = any(line == ["ready"] for line in story)
        names = self.allowed("name", story, None)
        yield from self.judge(place + "/named/Material/MediaSpaceInfo.txt",
                              [name and "name=%s\n" % name for name in names])
        lists = {"0": place + "/named/\n", "1": place + "/named/\n" + place + "/guest/\n", None: None}
        guests = self.allowed("guest", story, "0") + ([] if is_ready else [None])
        yield from self.judge(place + "/space/DefNetDrive.txt", [lists[guest] for guest in guests])

    def allowed(self, kind, story, before):
        """What was ended last, and what was begun since."""
        of_kind = [(line[0], " ".join(line[2:])) for line in story if line[1:2] == [kind]]
        last = max((i for i, (event, _) in enumerate(of_kind) if event == "end"), default=-1)
        return [of_kind[last][1] if last >= 0 else before] + [value for _, value in of_kind[last + 1:]]

    def judge(self, path, allowed):
        """None among what is allowed: the file may be missing."""
        try:
            with open(path, "rb") as file:
                found = file.read().decode(errors="replace")
        except FileNotFoundError:
            found = None
        except OSError as error:
            yield "unreadable", "%s: %s" % (path, error)
            return
        if found not in allowed:
            yield "wrong", "%s: %r is none of %r" % (path, found and found[:60], [a and a[:60] for a in allowed])


class RecordCheck:
    """Compares recordings with the story."""

    def __init__(self, worker):
        self.worker = worker

    def setup(self, place):
        os.makedirs(place + "/space")

    def command(self, worker, place, _way):
        return [worker, "record", place + "/space", place, "1"]

    def __call__(self, place, story):
        found = self.look(place)
        numbers, flushed, ended = {}, {}, {}
        for line in story:
            if line[0] == "begin":
                numbers[line[2]] = int(line[3])
            elif line[0] == "flushed":
                flushed[line[2]] = int(line[3])
            elif line[0] == "end":
                ended[line[2]] = int(line[3])
        for clip, number in numbers.items():
            final = found.pop(clip + ".raw", None)
            partial = found.pop(clip + ".raw.partial", None)
            if clip in ended and final != (number, ended[clip], ended[clip]):
                yield ("lost" if final is None else "torn"), "%s finished with %d bytes, now %s and %s" % (
                    clip, ended[clip], final, partial)
            elif final is not None and (final[1] == 0 or final[1] != final[2]):
                yield "torn", "%s has its name and is %s" % (clip, final)
            elif clip in flushed and clip not in ended and (final or partial or (0, 0, 0))[2] < flushed[clip]:
                yield "flushed", "%s had %d bytes flushed, now %s and %s" % (clip, flushed[clip], final, partial)
        for name in found:
            yield "foreign", name

    def look(self, place):
        files = [os.path.join(folder, name) for folder, _, names in os.walk(place) for name in names
                 if ".raw" in name]
        found = {}
        if files:
            for line in disks.run(self.worker, "verify", *files).decode().splitlines():
                number, size, good, path = line.split(" ", 3)
                found[os.path.basename(path)] = (int(number), int(size), int(good))
        return found


def record_story(arguments, check, folder, place):
    """Lets the worker work on a recording disk. Answers the log, its entry to begin at, and the story."""
    with disks.recording_disk(folder, disks.SIZE[arguments.file_system]) as (device, log):
        disks.make_file_system(arguments.file_system, device)
        with disks.mounted(device, place, arguments.file_system, 0, disks.MOUNT_OPTIONS[arguments.file_system]):
            check.setup(place)
            os.sync()
            story, start = Story(), log.length()
            worker = subprocess.Popen(check.command(arguments.worker, place, arguments.way), stdin=subprocess.PIPE,
                                      stdout=subprocess.PIPE, env=environment(arguments, folder, place))
            for line in worker.stdout:
                story.add(log.length(), line.decode())
                if arguments.way != "product" and line.startswith(b"end"):
                    os.sync()  # or hardly anything would reach the disk before the end
                with contextlib.suppress(BrokenPipeError):
                    worker.stdin.write(b"\n")
                    worker.stdin.flush()
            worker.stdin.close()
            if worker.wait() != 0:
                raise RuntimeError("the worker ended with %d" % worker.returncode)
    return log, start, story


def environment(arguments, folder, place):
    home = folder + "/home"
    os.makedirs(home, exist_ok=True)
    without = {"CRASH_WITHOUT": arguments.without, "LD_PRELOAD": arguments.no_flush} if arguments.without else {}
    return {**without, **os.environ, "HOME": home, "FSYS_LOG": home + "/log", "FSYS_PREFS": place + "/preferences",
            "CRASH_WAIT": "1", "CRASH_COUNT": str(arguments.steps)}


def choose_part(window, chance):
    """Which of the writes after the last flush are on the disk: pairs of an entry and whether it is torn."""
    way = chance.random()
    if way < 0.1:
        return []
    if way < 0.2:
        return [(entry, False) for entry in window]
    share = chance.choice((0.1, 0.5, 0.9))
    if way < 0.4:
        return [(entry, False) for entry in window[:int(len(window) * chance.random())]]
    return [(entry, chance.random() < 0.3) for entry in window if chance.random() < share]


def apply(image, log_file, entry, torn, sector, chance):
    kind, offset, length, place, _ = entry
    if kind == b"F":
        return
    pieces = [(0, length)]
    if torn:
        pieces = [(at, min(sector, length - at)) for at in range(0, length, sector) if chance.random() < 0.5]
    for at, size in pieces:
        if kind == b"Z":
            image.zero(offset + at, size)
        else:
            image.write(offset + at, os.pread(log_file, size, place + at))


def forget(device):
    """btrfs remembers devices by their generation, and a crash state is older than the one before."""
    with contextlib.suppress(OSError), open("/dev/btrfs-control", "rb") as control:
        fcntl.ioctl(control, BTRFS_IOC_FORGET_DEV, bytearray(b"\0" * 8 + os.fsencode(device).ljust(4088, b"\0")))


def look_at(device, place, arguments, check, story):
    """What is wrong with the state on the device."""
    kind = arguments.file_system
    with open(device, "rb") as opened:
        fcntl.ioctl(opened, disks.BLKFLSBUF, 0)
    if kind == "btrfs":
        forget(device)
    try:
        disks.mount(device, place, kind, disks.MS_RDONLY, disks.MOUNT_OPTIONS[kind])
    except OSError as error:
        return [("unmountable", str(error))]
    try:
        return list(check(place, story))
    finally:
        disks.unmount(place)


def try_states(arguments, check, folder, place, recorded):
    log, start, story = recorded
    chance = random.Random(arguments.seed)
    entries = log.entries()
    first = next((i for i, entry in enumerate(entries) if entry[4] > start), len(entries))
    if first == len(entries):
        raise RuntimeError("the disk was not written to")
    points = sorted(chance.choices(range(first, len(entries)), k=arguments.states))
    sector = SECTOR[arguments.file_system]
    wrong, broken, windows, durable_until = collections.Counter(), 0, 0, 0
    durable = disks.Image(folder + "/durable.image", disks.SIZE[arguments.file_system])
    state = disks.Image(folder + "/state.image", disks.SIZE[arguments.file_system])
    log_file = os.open(log.path, os.O_RDONLY)
    with disks.loop_device(state.path) as device:
        for point in points:
            flush = max((i for i in range(point, -1, -1) if entries[i][0] == b"F"), default=-1) \
                if entries[point][0] != b"F" else point
            for entry in entries[durable_until:flush + 1]:
                apply(durable, log_file, entry, False, sector, chance)
            durable_until = max(durable_until, flush + 1)
            window = entries[flush + 1:point + 1]
            windows += bool(window)
            state.copy_from(durable)
            for entry, torn in choose_part(window, chance):
                apply(state, log_file, entry, torn, sector, chance)
            found = look_at(device, place, arguments, check, story.until(entries[point][4]))
            broken += bool(found)
            wrong.update({word for word, _ in found})
            if found and broken <= 5 and not arguments.expect_broken:
                print("  at write %d of %d: %s" % (point, len(entries), found[0]), file=sys.stderr)
    os.close(log_file)
    flushes = sum(entry[0] == b"F" for entry in entries[first:])
    steps = sum(line[0] == "end" for line in story.lines)
    print("%s, %s, %s%s: %d of %d crash states broken %s(%d with unflushed writes; %d steps, %d writes, %d flushes)" % (
        arguments.file_system, arguments.work, arguments.way,
        " without flushes of " + arguments.without if arguments.without else "", broken, len(points),
        "".join("%s %d " % pair for pair in sorted(wrong.items())), windows, steps,
        len(entries) - first - flushes, flushes))
    return broken


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--worker", required=True)
    parser.add_argument("--file-system", choices=sorted(disks.MAKE), default="ext4")
    parser.add_argument("--work", choices=("save", "locations", "record"), default="save")
    parser.add_argument("--way", choices=("product", "rename", "naive"), default="product")
    parser.add_argument("--states", type=int, default=300)
    parser.add_argument("--steps", type=int, default=40, help="of the worker")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--without", choices=("files", "folders"))
    parser.add_argument("--no-flush", help="the library no_flush")
    parser.add_argument("--expect-broken", action="store_true")
    arguments = parser.parse_args()
    disks.need("nbdkit", "nbdfuse", "losetup", "fusermount3", disks.MAKE[arguments.file_system][0])
    disks.own_mounts()
    print("seed %d" % arguments.seed, flush=True)
    check = {"save": SaveCheck, "locations": LocationsCheck,
             "record": lambda: RecordCheck(arguments.worker)}[arguments.work]()
    with disks.workspace() as folder:
        place = folder + "/place"
        os.mkdir(place)
        broken = try_states(arguments, check, folder, place, record_story(arguments, check, folder, place))
    sys.exit(int((broken == 0) == arguments.expect_broken))


if __name__ == "__main__":
    main()
