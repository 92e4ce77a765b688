"""Disks for tests that break them: loop devices, mounts, and a disk that writes down what is written to it.

A script that uses these calls own_mounts() first: it goes on in a mount namespace of its own, so that nobody
else sees its mounts and they end with it. Everything made here is a context manager that takes itself away.
"""

import contextlib
import ctypes
import errno
import os
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time

SKIPPED = 77
HERE = os.path.dirname(os.path.abspath(__file__))
LIBC = ctypes.CDLL(None, use_errno=True)
MS_RDONLY, MNT_DETACH = 1, 2
FALLOC_PUNCH_HOLE = 0x02 | 0x01  # with the size kept
LOOP_SET_CAPACITY, BLKFLSBUF = 0x4C07, 0x1261

# Small journals: what a crash leaves is made from them, thousands of times.
MAKE = {
    "ext4": ["mkfs.ext4", "-q", "-F", "-J", "size=4", "-E", "nodiscard,lazy_itable_init=0,lazy_journal_init=0"],
    "xfs": ["mkfs.xfs", "-q", "-f", "-K"],
    "btrfs": ["mkfs.btrfs", "-q", "-f", "-K", "--mixed"],
}
SIZE = {"ext4": 64 << 20, "xfs": 300 << 20, "btrfs": 128 << 20}
MOUNT_OPTIONS = {"ext4": "nodiscard", "xfs": "nouuid,nodiscard", "btrfs": "nodiscard"}


def skip(why):
    print("Skipped:", why)
    sys.exit(SKIPPED)


def need(*programs):
    """Leaves with a word when this machine or user cannot do it."""
    if os.geteuid() != 0:
        skip("making file systems needs root")
    missing = [program for program in programs if not shutil.which(program)]
    if missing:
        skip("not installed: " + ", ".join(missing))


def own_mounts():
    if os.environ.get("FSYS_OWN_MOUNTS") != str(os.getppid()):
        # The namespace's parent is this process's, so a second script started from here makes its own.
        os.environ["FSYS_OWN_MOUNTS"] = str(os.getppid())
        os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable] + sys.argv)
    # An interrupted script takes away what it made.
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(1))


def run(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options).stdout


def mount(source, target, kind, flags=0, options=""):
    """Raises OSError when the file system cannot be mounted."""
    if LIBC.mount(os.fsencode(source), os.fsencode(target), kind.encode(), flags, options.encode()) != 0:
        code = ctypes.get_errno()
        raise OSError(code, os.strerror(code), target)


def unmount(target, flags=0):
    """Waits for processes that have not quite ended."""
    for _ in range(100):
        if LIBC.umount2(os.fsencode(target), flags) == 0:
            return
        code = ctypes.get_errno()
        if code != errno.EBUSY:
            raise OSError(code, os.strerror(code), target)
        time.sleep(0.05)
    raise OSError(errno.EBUSY, "still in use", target)


@contextlib.contextmanager
def mounted(source, target, kind, flags=0, options=""):
    mount(source, target, kind, flags, options)
    try:
        yield target
    finally:
        with contextlib.suppress(OSError):
            unmount(target)


@contextlib.contextmanager
def workspace():
    """A folder in memory."""
    folder = tempfile.mkdtemp(prefix="fsys-crash-")
    try:
        mount("tmpfs", folder, "tmpfs")
        try:
            yield folder
        finally:
            unmount(folder, MNT_DETACH)
    finally:
        os.rmdir(folder)


@contextlib.contextmanager
def loop_device(path, *options):
    # One at a time: two that look for a free device may find the same one.
    device = run("flock", tempfile.gettempdir(), "losetup", "--find", "--show", *options, path).decode().strip()
    try:
        yield device
    finally:
        run("losetup", "--detach", device)


def make_file_system(kind, device):
    run(*MAKE[kind], device)


class Image:
    """The bytes of a disk in a file, with holes for zeros."""

    def __init__(self, path, size):
        self.path = path
        self.fd = os.open(path, os.O_RDWR | os.O_CREAT | os.O_TRUNC, 0o600)
        os.ftruncate(self.fd, size)
        self.size = size

    def write(self, offset, data):
        os.pwrite(self.fd, data, offset)

    def zero(self, offset, length):
        LIBC.fallocate(self.fd, FALLOC_PUNCH_HOLE, ctypes.c_long(offset), ctypes.c_long(length))

    def copy_from(self, other):
        self.zero(0, self.size)
        at = 0
        while True:
            try:
                start = os.lseek(other.fd, at, os.SEEK_DATA)
            except OSError:
                return
            at = os.lseek(other.fd, start, os.SEEK_HOLE)
            while start < at:
                start += os.copy_file_range(other.fd, self.fd, at - start, start, start)

    def close(self):
        os.close(self.fd)
        os.unlink(self.path)


@contextlib.contextmanager
def served_disk(folder, *nbdkit):
    """A block device whose bytes an nbdkit serves, by way of a file of its own (nbdfuse) and a loop device."""
    place = os.path.join(folder, "served")
    os.makedirs(place, exist_ok=True)
    server = subprocess.Popen(["nbdfuse", place + "/", "--command", "nbdkit", "-s", "--exit-with-parent", *nbdkit],
                              stdin=subprocess.DEVNULL)
    try:
        file = os.path.join(place, "nbd")
        for _ in range(200):
            if os.path.exists(file):
                break
            if server.poll() is not None:
                raise RuntimeError("nbdfuse ended with %s" % server.returncode)
            time.sleep(0.05)
        with loop_device(file, "--direct-io=on") as device:
            yield device
    finally:
        subprocess.run(["fusermount3", "-u", "-z", place], stderr=subprocess.DEVNULL, check=False)
        try:
            server.wait(timeout=10)
        except subprocess.TimeoutExpired:
            server.kill()
            server.wait()


class WriteLog:
    """What recording_plugin.py wrote down: entries (kind, offset, length, place of the data in the log)."""

    HEADER = struct.Struct("<cQQ")

    def __init__(self, path):
        self.path = path

    def length(self):
        return os.path.getsize(self.path)

    def entries(self):
        found = []
        size = self.length()
        with open(self.path, "rb") as log:
            at = 0
            while at < size:
                log.seek(at)
                kind, offset, length = self.HEADER.unpack(log.read(self.HEADER.size))
                data = at + self.HEADER.size
                at = data + (length if kind == b"W" else 0)
                found.append((kind, offset, length, data, at))
        return found


@contextlib.contextmanager
def recording_disk(folder, size):
    """Answers (device, WriteLog)."""
    log = os.path.join(folder, "writes.log")
    store = os.path.join(folder, "recorded.image")
    with served_disk(folder, "python", os.path.join(HERE, "recording_plugin.py"), "size=%d" % size, "log=" + log,
                     "store=" + store) as device:
        yield device, WriteLog(log)
