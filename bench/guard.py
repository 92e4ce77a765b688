#!/usr/bin/python3
"""Counts the instructions of a few small fixed workloads and compares them with the figures in guard.json.

Instructions do not depend on how busy the machine is, as times do. They are those of all threads of the process, in
user space, between the start and the stop of fsys_bench's meter, under valgrind's callgrind. The thread pool carries the
transfers, as valgrind knows no rings. Threads meet in another order each time, and where they get in each other's way
instructions are added, never taken away: so the least of several runs counts.

Exit status: 0 as before or better, 1 a workload costs more than the tolerance allows, 3 it could not be measured.
"""

import argparse
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
FIGURES = HERE / "guard.json"
NAMES = 2000
FILE_BYTES = 16 << 20
# The C library picks its ways to copy and clear by the processor; with these every processor gets the same.
SAME_EVERYWHERE = "glibc.cpu.hwcaps=-ERMS,-FSRM,-AVX,-AVX2,-AVX512F,-AVX512VL,-AVX512BW,-AVX_Fast_Unaligned_Load,-Prefer_No_VZEROUPPER"


def make_files(program, folder):
    subprocess.run([program, "make", "--bytes", str(FILE_BYTES), str(folder / "read.dat")], check=True)
    names = folder / "names"
    names.mkdir()
    for number in range(NAMES):
        (names / f"V{number * 0x9E3779B97F4A7C15 % (1 << 64):016X}00.mov").write_bytes(b"x")
    return {"{file}": str(folder / "read.dat"), "{written}": str(folder / "written.dat"), "{folder}": str(names)}


def count_once(program, arguments, folder, verbose):
    environment = dict(os.environ, FSYS_IO_BACKEND="threads", FSYS_LOG=str(folder / "fsys.log"),
                       FSYS_CONFIG=str(folder / "none.conf"), GLIBC_TUNABLES=SAME_EVERYWHERE)
    (folder / "written.dat").unlink(missing_ok=True)
    command = ["valgrind", "--tool=callgrind", "--instr-atstart=no", "--fair-sched=yes", "--callgrind-out-file=/dev/null", program,
               arguments[0], "--peer", "fsys", "--seconds", "0", *arguments[1:]]
    done = subprocess.run(command, capture_output=True, text=True, env=environment, check=False, timeout=300)
    collected = re.search(r"Collected : (\d+)", done.stderr)
    if done.returncode != 0 or not collected or int(collected[1]) == 0:
        raise RuntimeError(f"{' '.join(command)} ended with {done.returncode}: {done.stderr[-600:]}")
    per_request = int(collected[1]) / json.loads(done.stdout)["requests"]
    if verbose:
        print(f"    {per_request:,.0f}", flush=True)
    return per_request


def judge(name, before, now, tolerance):
    """True when the workload costs more than it may."""
    if before is None:
        print(f"{name}: {now:,.0f} instructions per request; no figure to compare with")
        return True
    change = now / before - 1
    verdict = "as before"
    if change > tolerance:
        verdict = "REGRESSION"
    elif change < -tolerance:
        verdict = "better; keep it with --update"
    print(f"{name}: {now:,.0f} instructions per request, {before:,.0f} before ({change:+.1%}): {verdict}", flush=True)
    return change > tolerance


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", required=True)
    parser.add_argument("--update", action="store_true", help="make what is measured now the figures to compare with")
    parser.add_argument("--runs", type=int, help="of each workload, instead of guard.json's number")
    parser.add_argument("--verbose", action="store_true", help="show each run")
    options = parser.parse_args()
    figures = json.loads(FIGURES.read_text(encoding="utf-8"))
    runs = options.runs or figures["runs"]
    worse = False
    with tempfile.TemporaryDirectory(prefix="fsys-guard-") as place:
        folder = pathlib.Path(place)
        paths = make_files(options.program, folder)
        for name, workload in figures["workloads"].items():
            arguments = [paths.get(argument, argument) for argument in workload["arguments"]]
            counts = [count_once(options.program, arguments, folder, options.verbose) for _ in range(runs)]
            now = min(counts)
            worse |= judge(name, workload.get("instructions_per_request"), now, figures["tolerance"])
            if options.verbose and runs > 1:
                print(f"    spread of {runs} runs: {max(counts) / min(counts) - 1:.2%}")
            workload["instructions_per_request"] = round(now)
    if options.update:
        text = json.dumps(figures, indent=2)
        # The arguments of a workload stay on one line.
        text = re.sub(r"\[\s+([^\]]*?)\s+\]", lambda m: "[" + re.sub(r"\s*\n\s*", " ", m[1]) + "]", text)
        FIGURES.write_text(text + "\n", encoding="utf-8")
        return 0
    return 1 if worse else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (RuntimeError, OSError, subprocess.SubprocessError) as failure:
        print(f"guard.py: {failure}", file=sys.stderr)
        sys.exit(3)
