#!/usr/bin/python3
"""Runs the plan: ours and each peer in turn, several rounds, tables on standard output, JSON and SVG in results/.

Started by run.sh, which builds. Needs to be root for cold caches and huge pages.
"""

import argparse
import datetime
import json
import os
import pathlib
import platform
import subprocess
import sys

import plan
import plots
import report
from files import Files
from runners import RunFailed, Runner, finished

HERE = pathlib.Path(__file__).resolve().parent
HUGE_PAGES = "/proc/sys/vm/nr_hugepages"
# Peers in a row after one run of ours, at most. 1 is A B A B to the letter.
PEERS_PER_RUN_OF_OURS = {"full": 1, "quick": 4}


def parsed():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--subject", nargs="+", choices=[s.name for s in plan.SUBJECTS])
    parser.add_argument("--row", help="only rows whose names contain this")
    parser.add_argument("--rounds", type=int)
    parser.add_argument("--seconds", type=float, help="of one run, instead of the plan's")
    parser.add_argument("--frame-bytes", type=int, default=12 << 20, help="of the playback; less where the disk is slow")
    parser.add_argument("--keep-files", action="store_true")
    return parser.parse_args()


def machine():
    def line(command):
        done = subprocess.run(command, shell=True, capture_output=True, text=True, check=False)
        return done.stdout.strip()

    return {
        "cpu": line("sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1"),
        "cores": os.cpu_count(),
        "memory_mib": int(line("awk '/MemTotal/ {print int($2/1024)}' /proc/meminfo")),
        "kernel": platform.release(),
        "file_system": line(f"findmnt -no FSTYPE,SOURCE -T {HERE}"),
        "fio": line("fio --version"),
        "load": os.getloadavg(),
    }


class HugePages:
    """Enough of them for the tuned peers, while this lasts."""

    def __enter__(self):
        try:
            with open(HUGE_PAGES, encoding="ascii") as control:
                self.before = control.read()
            with open(HUGE_PAGES, "w", encoding="ascii") as control:
                control.write(str(max(64, int(self.before))))
        except OSError as refusal:
            self.before = None
            print(f"no huge pages ({refusal}); tuned peers fail or use plain ones", file=sys.stderr)
        return self

    def __exit__(self, *_):
        if self.before is not None:
            with open(HUGE_PAGES, "w", encoding="ascii") as control:
                control.write(self.before)


def measure_row(runner, subject, row, rounds, seconds, per_own):
    ours, peers = row.peers[0], row.peers[1:]
    runs = {peer: [] for peer in row.peers}
    failures = {}

    def attempt(peer):
        try:
            result = runner.run(subject.name, row, peer, seconds)
        except (RunFailed, subprocess.TimeoutExpired) as failure:
            failures[peer] = str(failure)
            return None
        finally:
            runner.files.remove_written()
        return result

    for _ in range(rounds):
        last = None
        for number, peer in enumerate(peers):
            if number % per_own == 0 or last is None:
                last = attempt(ours)
                if last is None:
                    return {}, failures, {}
                runs[ours].append((last, last))
            if peer in failures:
                continue
            theirs = attempt(peer)
            if theirs is not None:
                runs[peer].append((last, theirs))
    done = {peer: pairs for peer, pairs in runs.items() if pairs}
    return report.summarise(row, done), failures, {peer: [theirs for _, theirs in pairs] for peer, pairs in done.items()}


def prove(program, files):
    """Every peer must bring the bytes that were asked for, or its speed means nothing."""
    path = str(files.made("read.dat", files.read_bytes))
    for peer in ("fsys", "media", "uring", "uring-tuned", "pread", "libuv", "asio", "posix-aio", "mmap", "ffmpeg"):
        for mode in ("unbuffered", "warm"):
            finished([program, "read", "--peer", peer, "--verify", "--requests", "3000", "--seconds", "5", "--block", "64k",
                      "--depth", "32", "--random", "--mode", mode, path], {"FSYS_LOG": str(files.folder / "fsys.log")})


def main():
    options = parsed()
    kind = "quick" if options.quick else "full"
    rounds = options.rounds or (3 if options.quick else 5)
    folder = pathlib.Path(os.environ.get("FSYS_BENCH_DIR") or HERE / "work") / "files"
    results = HERE / "results"
    results.mkdir(exist_ok=True)
    files = Files(folder, options.program, options.quick, options.frame_bytes)
    runner = Runner(options.program, files, options.frame_bytes)
    about = {"date": datetime.datetime.now().isoformat(timespec="seconds"), "kind": kind, "rounds": rounds, "machine": machine()}
    print(json.dumps(about, indent=2))
    failed = False
    try:
        prove(options.program, files)
        with HugePages():
            for subject in plan.SUBJECTS:
                if options.subject and subject.name not in options.subject:
                    continue
                failed |= measure_subject(runner, subject, options, rounds, PEERS_PER_RUN_OF_OURS[kind], about, results)
    finally:
        if not options.keep_files:
            files.remove_all()
    return 1 if failed else 0


def measure_subject(runner, subject, options, rounds, per_own, about, results):
    print(f"\n== {subject.title}\n", flush=True)
    summaries, raw, texts, failed = {}, {}, [], False
    for row in subject.rows:
        if (options.quick and not row.quick) or (options.row and options.row not in row.name):
            continue
        seconds = options.seconds or (max(0.4, row.seconds / 7) if options.quick else row.seconds)
        summary, failures, runs = measure_row(runner, subject, row, rounds, seconds, per_own)
        lines = report.lines_of(row, summary, failures)
        print(report.as_text(lines) + "\n", flush=True)
        for peer, reason in failures.items():
            print(f"{peer}: {reason}", file=sys.stderr)
        failed |= bool(failures)
        summaries[row.name], raw[row.name] = summary, {"runs": runs, "failures": failures}
        texts.append(report.as_markdown(lines))
    (results / f"{subject.name}.json").write_text(
        json.dumps({"about": about, "summaries": summaries, "raw": raw}, indent=1), encoding="utf-8")
    (results / f"{subject.name}.md").write_text(f"## {subject.title}\n\n" + "\n\n".join(texts) + "\n", encoding="utf-8")
    plots.plot_subject(subject, summaries, results / f"{subject.name}.svg")
    return failed


if __name__ == "__main__":
    sys.exit(main())
