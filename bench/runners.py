"""How each peer of the plan does a row's work: one process each, one report each.

A report has the keys of fsys_bench's: requests, bytes, seconds, cpu_us_per_request, requests_per_s, mb_per_s and what is
special to the subject. CPU time is user and system time of the whole process. fio tells its jobs' own, without that of
the process that starts and watches them; programs that only list files are measured as children, from start to end.
"""

import ctypes
import json
import mmap
import os
import shlex
import subprocess
import time

FIO_ENGINES = {"fio-uring": "io_uring", "fio-uring-32": "io_uring", "fio-tuned": "io_uring", "fio-libaio": "libaio",
               "fio-psync": "psync"}
MEMORY = 256 << 20
PLAYBACK_MEMORY = 6 << 30
NEVER_UNBUFFERED = {"mmap", "ffmpeg"}
LISTERS = {
    "find": lambda folders: ["find", *folders, "-type", "f", "-printf", "%f %s\\n"],
    "ls": lambda folders: ["ls", "-lU", *folders],
    "fd": lambda folders: ["fdfind", "--unrestricted", "--type", "f", "--size", "+0b", ".", *folders],
    "python": lambda folders: ["/usr/bin/python3", "-c",
                               "import os, sys\n"
                               "print(sum(e.stat().st_size for d in sys.argv[1:] for e in os.scandir(d)))", *folders],
}


class RunFailed(Exception):
    pass


def finished(command, environment=None):
    full = dict(os.environ, **(environment or {}))
    done = subprocess.run(command, capture_output=True, text=True, env=full, check=False, timeout=600)
    if done.returncode != 0:
        raise RunFailed(f"{shlex.join(command)}: {(done.stderr or done.stdout).strip()[-400:]}")
    return done.stdout


def drop_caches():
    os.sync()
    # The first pass only takes the mark "in use" off what was used lately.
    for _ in range(2):
        with open("/proc/sys/vm/drop_caches", "w", encoding="ascii") as control:
            control.write("3")


def touch_memory(size):
    """Makes the host of a virtual machine give free memory back that it had taken: huge pages first of all, and
    bringing one costs more than reading into it. The run that would meet them first, whoever's, would pay for all."""
    with mmap.mmap(-1, size) as memory:
        memory.madvise(mmap.MADV_HUGEPAGE)
        place = ctypes.c_char.from_buffer(memory)
        ctypes.memset(ctypes.addressof(place), 1, size)
        del place


class Runner:
    def __init__(self, program, files, frame_bytes):
        self.program = program
        self.files = files
        self.frame_bytes = frame_bytes
        self.streams = {}  # (row name, peer): streams that last went well
        self.warm_row = None  # whose folders' sizes are in memory

    def run(self, subject, row, peer, seconds):
        touch_memory(PLAYBACK_MEMORY if subject == "playback" else MEMORY)
        if subject == "playback":
            return self.play(row, peer, seconds)
        if subject == "scan":
            self.prepare_scan(row)
        if peer in LISTERS:
            return self.list_files(row, peer)
        report = self.fio(subject, row, peer, seconds) if peer in FIO_ENGINES else self.own(subject, row.work, peer, seconds)
        if "switches_voluntary" in report:
            switches = report["switches_voluntary"] + report["switches_forced"]
            report["switches_per_request"] = switches / max(report["requests"], 1)
        return report

    def prepare_scan(self, row):
        if row.work["mode"] == "cold":
            drop_caches()
            self.warm_row = None
        elif self.warm_row != row.name:
            self.own("scan", row.work, "fstatat", 0)
            self.warm_row = row.name

    # --- fsys_bench

    def own(self, subject, work, peer, seconds, more=()):
        environment = {"FSYS_LOG": str(self.files.folder / "fsys.log")}
        options = dict(work)
        options.pop("folders", None)
        files = options.pop("files", 1)
        name = peer
        if peer.startswith("fsys-") and peer != "fsys-add":
            name = "fsys-stages" if peer.startswith("fsys-stages") else "fsys"
            if peer.endswith("-threads"):
                environment["FSYS_IO_BACKEND"] = "threads"
            elif peer == "fsys-poll-1ms":
                environment |= {"FSYS_CFG_WritePollDelay": "1"}
            elif peer == "fsys-busy":
                environment |= {"FSYS_CFG_BusyWait": "100"}
            elif peer == "fsys-merging":
                options["coalescable"] = True
            elif peer.startswith("fsys-deferred"):
                options |= {"coalescable": True, "deferred": True}
                if peer == "fsys-deferred-deep":
                    # By default 31 deferred reads start a pass and more than 60 are refused, however many the caller
                    # would keep under way. Here a pass starts half of them, or 127: the next ones gather meanwhile.
                    environment |= {"FSYS_CFG_ForcePollLimit": str(min(work["depth"] // 2, 128) - 2)}
        elif peer == "pread-1":
            name = "pread"
            options["depth"] = 1
        if name in NEVER_UNBUFFERED and options.get("mode") == "unbuffered" and subject != "playback":
            options |= {"mode": "cold", "once": True}
        # The backends and some rows are other subjects' work in other words.
        command = [self.program, "read" if subject == "backends" else subject, "--peer", name, "--seconds", str(seconds)]
        for key, value in options.items():
            if value is True:
                command.append("--" + key.replace("_", "-"))
            elif value is not False:
                command += ["--" + key.replace("_", "-")] + [str(v) for v in (value if isinstance(value, list) else [value])]
        command += list(more)
        command += ["--"] + [str(path) for path in self.files.for_work(subject, work, files)]
        return json.loads(finished(command, environment))

    # --- playback: as many streams as go without a late frame

    def play(self, row, peer, seconds):
        work = dict(row.work, block=self.frame_bytes)
        if work.get("record_to"):
            work["record_to"] = str(self.files.folder / "beside.dat")

        def goes(streams):
            self.files.need_streams(streams)
            report = self.own("playback", work, peer, seconds, ["--streams", str(streams), "--stop-at-late"])
            self.files.remove("beside.dat")
            return report if report["late"] == 0 and report["recording_late"] == 0 else None

        best = None
        streams = self.streams.get((row.name, peer), 1)
        while streams >= 1:
            report = goes(streams)
            if report:
                best = dict(report, streams=streams)
                streams += 1
                if streams > self.files.streams_max:
                    break
            elif best:
                break
            else:
                streams -= 1
        self.streams[(row.name, peer)] = best["streams"] if best else 1
        return best or {"streams": 0, "cpu_us_per_request": 0.0}

    # --- fio

    def fio(self, subject, row, peer, seconds):
        if subject == "record":
            return self.fio_recorders(row, seconds)
        work = row.work
        depth = 32 if peer == "fio-uring-32" else work["depth"]
        writes = subject == "write"
        common = ["fio", "--output-format=json", f"--ioengine={FIO_ENGINES[peer]}", f"--bs={work['block']}",
                  f"--direct={int(work['mode'] == 'unbuffered')}", f"--runtime={int(seconds * 1000)}ms", "--group_reporting"]
        if writes:
            target = self.files.for_work("write", work, 1)[0]
            target.unlink(missing_ok=True)
            common += ["--rw=write", "--size=16g", "--fallocate=none", "--end_fsync=1"]
        else:
            common += ["--rw=randread" if work.get("random") else "--rw=read", "--readonly", "--invalidate=0", "--time_based"]
        if peer == "fio-tuned":
            batch = max(1, depth // 4)
            common += ["--fixedbufs=1", "--registerfiles=1", "--iomem=mmaphuge", f"--iodepth_batch_submit={batch}",
                       f"--iodepth_batch_complete_min={batch}", f"--iodepth_batch_complete_max={depth}"]
        jobs = []
        for number, path in enumerate(self.files.for_work(subject, work, work.get("files", 1))):
            jobs += [f"--name=job{number}", f"--filename={path}"]
            if peer == "fio-psync" and depth > 1 and not writes:
                part = self.files.size(path) // depth // (1 << 20) * (1 << 20)
                jobs += [f"--numjobs={depth}", f"--offset_increment={part}", f"--size={part}"]
            elif peer != "fio-psync":
                jobs += [f"--iodepth={depth}"]
        if work["mode"] == "warm" and not writes:
            self.files.warm(subject, work)
        return self.fio_report(finished(common + jobs), "write" if writes else "read")

    def fio_recorders(self, row, seconds):
        work = row.work
        command = ["fio", "--output-format=json", "--ioengine=io_uring", f"--bs={work['block']}", "--direct=1", "--rw=write",
                   "--fallocate=none", "--end_fsync=1", "--group_reporting", f"--iodepth={work['depth']}", f"--runtime={seconds}",
                   "--size=16g"]
        for number, (rate, path) in enumerate(zip(work["fps"], self.files.for_work("record", work, 2))):
            path.unlink(missing_ok=True)
            command += [f"--name=job{number}", f"--filename={path}", f"--rate_iops={rate}"]
        return self.fio_report(finished(command), "write")

    @staticmethod
    def fio_report(text, direction):
        job = json.loads(text[text.index("{"):])["jobs"][0]
        if job["error"]:
            raise RunFailed(f"fio: error {job['error']}")
        part = job[direction]
        requests = part["total_ios"]
        # With several jobs in a group both the run time and the times it is divided by are sums.
        cpu_us = (job["usr_cpu"] + job["sys_cpu"]) / 100 * job["job_runtime"] * 1000
        seconds = max(part["runtime"], 1) / 1000
        return {"requests": requests, "bytes": part["io_bytes"], "seconds": seconds,
                "cpu_us_per_request": cpu_us / max(requests, 1), "requests_per_s": requests / seconds,
                "mb_per_s": part["io_bytes"] / 1e6 / seconds, "switches_per_request": job["ctx"] / max(requests, 1)}

    # --- programs that list files

    def list_files(self, row, peer):
        folders = [str(path) for path in self.files.for_work("scan", row.work, 1)]
        started = time.monotonic()
        with open(os.devnull, "w", encoding="ascii") as nothing:
            child = subprocess.Popen(LISTERS[peer](folders), stdout=nothing)
            _, status, usage = os.wait4(child.pid, 0)
        seconds = time.monotonic() - started
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode != 0:
            raise RunFailed(f"{peer} ended with {child.returncode}")
        count = 200_000
        return {"requests": count, "bytes": 0, "seconds": seconds, "requests_per_s": count / seconds, "mb_per_s": 0,
                "cpu_us_per_request": (usage.ru_utime + usage.ru_stime) * 1e6 / count}
