"""What is measured: subjects, their rows, and who is measured beside us in each.

A row is one piece of work. Every peer named in it does that same work on the same files in the same run, in turn with
ours, the first name of the row. To extend the plan, add a row here; to add a peer, teach runners.py its name.

Work is what fsys_bench takes as options of the same names ("coalesce_length" is --coalesce-length); runners.py turns
the same words into the options of other programs.

Cache is "unbuffered" (past the page cache), "warm" (all of the file in it) or "cold" (through it, nothing in it). Peers
that cannot read unbuffered run cold in an unbuffered row, once through the file.
"""

from dataclasses import dataclass, field

KIB = 1024
MIB = 1024 * KIB


@dataclass
class Metric:
    key: str  # of a run's report; dots go down into it
    label: str
    more_is_better: bool = True


MB_PER_S = Metric("mb_per_s", "MB/s")
REQUESTS_PER_S = Metric("requests_per_s", "requests/s")
CPU = Metric("cpu_us_per_request", "CPU us/request", more_is_better=False)
LATE = Metric("late", "late frames", more_is_better=False)


@dataclass
class Row:
    name: str
    work: dict
    peers: list  # ours first
    metrics: list = field(default_factory=lambda: [REQUESTS_PER_S, CPU])
    quick: bool = True  # part of a --quick run
    seconds: float = 1.5  # of one run; a quarter of it in a quick run


@dataclass
class Subject:
    name: str
    title: str
    rows: list


def size_text(size):
    for unit, name in ((MIB, "MiB"), (KIB, "KiB")):
        if size % unit == 0:
            return f"{size // unit} {name}"
    return f"{size} B"


# --- read

READ_PEERS = ["fsys", "fsys-threads", "media", "fio-uring", "fio-tuned", "fio-libaio", "fio-psync", "uring", "uring-tuned",
              "pread", "libuv", "asio", "posix-aio", "mmap", "ffmpeg"]


def read_rows():
    shapes = [(block, depth, False) for block in (MIB, 64 * KIB, 4 * KIB) for depth in (1, 8, 32)]
    shapes += [(4 * KIB, 32, True), (64 * KIB, 32, True)]
    for cache in ("unbuffered", "warm"):
        for block, depth, random in shapes:
            order = "random" if random else "sequential"
            yield Row(name=f"{size_text(block)} {order}, depth {depth}, {cache}",
                      work={"block": block, "depth": depth, "random": random, "mode": cache},
                      peers=READ_PEERS, metrics=[MB_PER_S if block >= MIB else REQUESTS_PER_S, CPU],
                      quick=depth == 32 and not random or (depth == 1 and block == MIB))


# --- small adjacent reads: the engine may merge neighbours that wait

def adjacent_rows():
    for cache in ("unbuffered", "warm"):
        for outstanding in (32, 128, 512):
            for length in (128 * KIB, MIB):
                yield Row(name=f"4 KiB in order, {outstanding} outstanding, up to {size_text(length)}, {cache}",
                          work={"block": 4 * KIB, "depth": outstanding, "mode": cache, "coalesce_length": length},
                          peers=["fsys-deferred", "fsys-merging", "fsys", "fio-uring-32", "uring", "pread-1", "ffmpeg"],
                          metrics=[MB_PER_S, CPU], quick=length == MIB)
        # The default "ForcePollLimit" of 30 does not let a deep queue fill; runners.py has it fit the depth here.
        for outstanding in (128, 512):
            yield Row(name=f"4 KiB in order, {outstanding} outstanding, up to 1 MiB, {cache}, limit fits",
                      work={"block": 4 * KIB, "depth": outstanding, "mode": cache, "coalesce_length": MIB},
                      peers=["fsys-deferred-deep", "fsys-deferred", "fio-uring-32", "uring", "pread-1", "ffmpeg"],
                      metrics=[MB_PER_S, CPU])


# --- write

def write_rows():
    yield Row(name="1 MiB, depth 8, unbuffered", work={"block": MIB, "depth": 8, "mode": "unbuffered"},
              peers=["fsys", "fsys-threads", "media", "fio-uring", "pwrite", "ofstream"], metrics=[MB_PER_S, CPU])
    yield Row(name="1000 bytes, gathered in the cache", work={"block": 1000, "depth": 8, "mode": "warm"},
              peers=["media", "fsys", "fsys-poll-1ms", "fio-psync", "pwrite-cache", "ofstream"])


def record_rows():
    yield Row(name="two recorders of 4 MiB frames, 24 and 60 a second",
              work={"block": 4 * MIB, "depth": 8, "fps": [24, 60], "mode": "unbuffered"},
              peers=["fsys", "media", "fio-uring", "pwrite", "ofstream"], seconds=8,
              metrics=[LATE, Metric("hand_over_us.p99", "hand-over us, p99", more_is_better=False), CPU])


# --- latency

def latency_rows():
    for cache in ("unbuffered", "warm"):
        for block in (4 * KIB, MIB):
            yield Row(name=f"{size_text(block)}, one at a time, {cache}",
                      work={"block": block, "depth": 1, "random": block < MIB, "mode": cache},
                      peers=["fsys", "fsys-threads", "fsys-busy", "pread", "relay", "uring"],
                      metrics=[Metric("latency_us.to_data.p50", "to data us, p50", more_is_better=False),
                               Metric("latency_us.call.p50", "call us, p50", more_is_better=False),
                               Metric("latency_us.to_caller.p50", "to caller us, p50", more_is_better=False),
                               Metric("latency_us.to_data.p99", "to data us, p99", more_is_better=False), CPU])
    # The way from call to data, seen from the platform below the engine.
    for cache in ("unbuffered", "warm"):
        yield Row(name=f"4 KiB, one at a time, {cache}, from station to station",
                  work={"block": 4 * KIB, "depth": 1, "random": True, "mode": cache}, peers=["fsys-stages", "fsys-stages-threads"],
                  metrics=[Metric(f"stages_us.{stage}.p50", f"{stage} us, p50", more_is_better=False)
                           for stage in ("queue", "kick", "pass", "transfer", "callback")])


# --- playback: streams are added until a frame is late

def playback_rows():
    plain = {"fps": [24], "window": 5, "mode": "unbuffered"}
    for name, more in (("streams of frames, 24 a second", {}),
                       ("the same, one callback in 100 takes 40 ms", {"slow_one_in": 100, "slow_ms": 40}),
                       ("the same, with a recording beside them", {"record_to": True})):
        yield Row(name=name, work=plain | more, peers=["fsys", "pread", "ffmpeg", "ahead"], seconds=20,
                  metrics=[Metric("streams", "streams"), Metric("cpu_us_per_request", "CPU us/frame", more_is_better=False)])


# --- scan

def scan_rows():
    for name, folders in (("one folder of 200,000", "one"), ("ten folders of 20,000", "ten")):
        for cache in ("cold", "warm"):
            yield Row(name=f"{name}, {cache}", work={"folders": folders, "mode": cache},
                      peers=["fsys", "find", "ls", "fd", "python", "fstatat", "statx2", "names"],
                      metrics=[Metric("requests_per_s", "files/s"), Metric("cpu_us_per_request", "CPU us/file", more_is_better=False),
                               Metric("seconds", "s", more_is_better=False)],
                      quick=folders == "one")


# --- index

def index_rows():
    yield Row(name="a million clips, one file each, paths of 40 characters", work={"clips": 1_000_000, "finds": 2_000_000},
              peers=["fsys", "fsys-add", "map", "sorted", "unordered"],
              metrics=[Metric("fill_ns", "fill ns/clip", more_is_better=False),
                       Metric("find_ns", "find ns", more_is_better=False),
                       Metric("fill_cpu_ns", "fill CPU ns/clip", more_is_better=False),
                       Metric("find_cpu_ns", "find CPU ns", more_is_better=False),
                       Metric("bytes_per_clip", "bytes/clip", more_is_better=False),
                       Metric("resident_per_clip", "resident bytes/clip", more_is_better=False),
                       Metric("allocations_per_find", "allocations/find", more_is_better=False)])


# --- threads and backends

def thread_rows():
    for block in (MIB, 4 * KIB):
        for files in (1, 2, 4):
            yield Row(name=f"{size_text(block)}, {files} files and callers, depth 32, warm",
                      work={"block": block, "depth": 32, "mode": "warm", "files": files},
                      peers=["fsys", "fio-uring", "uring", "pread-1"],
                      metrics=[MB_PER_S if block >= MIB else REQUESTS_PER_S, CPU,
                               Metric("switches_per_request", "switches/request", more_is_better=False)],
                      quick=files != 1)


def backend_rows():
    for cache in ("unbuffered", "warm"):
        for block in (MIB, 4 * KIB):
            yield Row(name=f"{size_text(block)} sequential, depth 32, {cache}",
                      work={"block": block, "depth": 32, "mode": cache}, peers=["fsys", "fsys-threads"],
                      metrics=[MB_PER_S if block >= MIB else REQUESTS_PER_S, CPU])


SUBJECTS = [
    Subject("read", "Read", list(read_rows())),
    Subject("adjacent", "Small adjacent reads", list(adjacent_rows())),
    Subject("write", "Write", list(write_rows())),
    Subject("record", "Record", list(record_rows())),
    Subject("latency", "Latency of one read", list(latency_rows())),
    Subject("playback", "Playback", list(playback_rows())),
    Subject("scan", "Scan", list(scan_rows())),
    Subject("index", "Index of a million clips", list(index_rows())),
    Subject("threads", "Threads", list(thread_rows())),
    Subject("backends", "Backends", list(backend_rows())),
]
