"""Runs the binaries of the tests under valgrind's memcheck, in parts (see memcheck.sh).

Transfers go through the thread pool: valgrind 3.19 takes waiting in a ring for a call that does not wait, so
that no other thread of the program ever runs again.
"""
import argparse
import concurrent.futures
import json
import os
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
PART = 60  # tests in one process
LIMIT_S = 900  # of a clock that others share
SLOW_MS = 20_000  # tests that take as long are named
TOLD_MAX = 6  # errors of one process; the others are mostly the same

BINARIES = ["media/media_tests", "faults/fault_tests", "fsys/fsys_tests", "os/os_tests", "Qz/qz_tests",
            "support/support_tests", "support/support_internal_tests", "tools/command_parts_tests"]

# Regular expressions of tests that tell nothing more here, or nothing at all, and why.
LEFT_OUT = {
    r"/Ring(Workers)?$|^BackendSelect\..*Ring|^SharedCopies\.|^UringRingTest\.AWakeUp":
        "wait in a ring, which stops all threads here",
    r"^MountedPlaces\.(AServerThatHangs|ADriveWhoseServer|ALinkThatLeads)":
        "ask a server that never answers, which stops all threads here",
    r"^MediaWriterOnLinux\.(AtTheLargestFile|WithTheKeyThatGathers)":
        "start their own program anew, which is valgrind here",
    r"^Utf8\.Every(Character|SequenceOfThreeBytes)":
        "the same for each of millions of texts",
    r"^Playing/FaultSweep\.":
        "a fault at every call of readers, minutes of waiting; the sanitizers run them",
    r"FaultSweepOnLinux\.":
        "the same faults on the real platform, whose parts have tests of their own; the sanitizers run them",
}
# A few schedules go through all that many go through.
ENVIRONMENT = {"FSYS_IO_BACKEND": "threads", "FSYS_SEEDS": "20"}

# The log tells of errors, and not the exit status: that of children is what some tests look at.
VALGRIND = ["valgrind", "--tool=memcheck", "--leak-check=full", "--track-fds=yes", "--num-callers=24",
            "--fair-sched=try", "--child-silent-after-fork=yes", "--suppressions=" + os.path.join(HERE, "memcheck.supp")]

# Kept until the process ends: the mount table, the log.
KEPT_OPEN = re.compile(r"Open file descriptor \d+: (/proc/self/mountinfo|\S+/fsys\.log)\b")


class Part:
    """Some tests of a binary, in one process."""

    def __init__(self, binary, tests, environment=None):
        self.binary = binary
        self.tests = tests
        self.environment = environment or {}
        self.problems = []
        self.ran = self.errors = self.leaked = self.descriptors = 0
        self.seconds = 0.0
        self.slow = []

    def name(self):
        return "%s, %d tests from %s" % (os.path.basename(self.binary), len(self.tests), self.tests[0])

    def run(self, home):
        begun = time.monotonic()
        with tempfile.TemporaryDirectory() as folder:
            log = os.path.join(folder, "log")
            flags = os.path.join(folder, "flags")
            with open(flags, "w", encoding="utf-8") as file:
                file.write("--gtest_filter=%s\n" % ":".join(self.tests))
            command = [*VALGRIND, "--log-file=" + log, self.binary, "--gtest_flagfile=" + flags]
            environment = {**os.environ, "HOME": home, **ENVIRONMENT, **self.environment}
            try:
                done = subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                      stderr=subprocess.STDOUT, timeout=LIMIT_S, check=False, cwd=folder)
                output, status = done.stdout.decode(errors="replace"), done.returncode
            except subprocess.TimeoutExpired as late:
                output, status = (late.stdout or b"").decode(errors="replace"), None
            with open(log, encoding="utf-8", errors="replace") as file:
                self.judge(output, status, file.read())
        self.seconds = time.monotonic() - begun
        return self

    def judge(self, output, status, log):
        passed = re.findall(r"^\[       OK \] (\S+) \((\d+) ms\)", output, re.M)
        self.ran = len(passed)
        self.slow = ["%s %d s" % (name, int(ms) // 1000) for name, ms in passed if int(ms) >= SLOW_MS]
        skipped = len(re.findall(r"^\[  SKIPPED \] \S+ \(", output, re.M))
        failed = re.findall(r"^\[  FAILED  \] (\S+) \(\d+ ms\)", output, re.M)
        if status is None:
            running = re.findall(r"^\[ RUN      \] (\S+)", output, re.M)
            self.problems.append("did not end in %d s, last in %s" % (LIMIT_S, running[-1:]))
        elif failed:
            self.problems.append("failed: %s\n%s" % (" ".join(failed), "\n".join(output.splitlines()[-60:])))
        elif status != 0 or self.ran + skipped != len(self.tests):
            self.problems.append("ended with %s after %d tests\n%s" % (
                status, self.ran + skipped, "\n".join(output.splitlines()[-20:])))
        self.read(re.sub(r"^==\d+== ?", "", log, flags=re.M))

    def read(self, log):
        summary = re.findall(r"^ERROR SUMMARY: ([\d,]+) errors", log, re.M)
        if not summary:
            self.problems.append("valgrind said nothing at its end\n" + log[-2000:])
            return
        self.errors = int(summary[-1].replace(",", ""))
        for kind in ("definitely", "indirectly", "possibly"):
            lost = re.findall(kind + r" lost: ([\d,]+) bytes", log)
            self.leaked += int(lost[-1].replace(",", "")) if lost else 0
        blocks = re.split(r"\n\s*\n", re.sub(r"^FILE DESCRIPTORS.*\n", "", log, flags=re.M))
        opened = [block for block in blocks if block.startswith("Open ") and "<inherited from parent>" not in block
                  and not KEPT_OPEN.match(block)]
        self.descriptors = len(opened)
        if self.errors:
            told = [block for block in blocks if re.search(r"^   (at|by) 0x", block, re.M)
                    and not block.startswith("Open ")]
            self.problems += told[:TOLD_MAX]
        self.problems += opened


def names_of(binary, home):
    listed = subprocess.run([binary, "--gtest_list_tests"], env={**os.environ, "HOME": home}, check=True,
                            stdout=subprocess.PIPE).stdout.decode()
    suite = ""
    for line in listed.splitlines():
        name = line.split("#")[0].rstrip()
        if name.startswith("  "):
            yield suite + name.strip()
        elif name.endswith("."):
            suite = name


def configured(build):
    """Tests that need a process with an environment of their own, as ctest knows them."""
    binary = os.path.join(build, "tests/fsys/fsys_configured_tests")
    found = json.loads(subprocess.run(["ctest", "--show-only=json-v1", "-R", "Configured"], cwd=build, check=True,
                                      stdout=subprocess.PIPE).stdout)
    for test in found["tests"]:
        if test.get("command", [""])[0] == binary:
            properties = {entry["name"]: entry["value"] for entry in test["properties"]}
            yield Part(binary, [test["name"]], dict(line.split("=", 1) for line in properties["ENVIRONMENT"]))


def parts(build, home, wanted, left_out):
    for name in BINARIES:
        binary = os.path.join(build, "tests", name)
        tests = []
        for test in names_of(binary, home):
            if not re.search(wanted, test):
                continue
            reason = next((why for pattern, why in LEFT_OUT.items() if re.search(pattern, test)), None)
            if reason:
                left_out[reason] = left_out.get(reason, 0) + 1
            else:
                tests.append(test)
        for i in range(0, len(tests), PART):
            yield Part(binary, tests[i:i + PART])
    yield from (part for part in configured(build) if re.search(wanted, part.tests[0]))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("wanted", nargs="?", default="")
    arguments = parser.parse_args()
    build = os.path.realpath(arguments.build)
    home = tempfile.mkdtemp(prefix="fsys-memcheck-")
    left_out = {}
    try:
        todo = list(parts(build, home, arguments.wanted, left_out))
        with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
            done = []
            for future in concurrent.futures.as_completed([pool.submit(part.run, home) for part in todo]):
                part = future.result()
                done.append(part)
                print("%s: %.0f s %s" % (part.name(), part.seconds, ", ".join(part.slow)), flush=True)
                for problem in part.problems:
                    print("  " + problem.replace("\n", "\n  "), flush=True)
    finally:
        shutil.rmtree(home, ignore_errors=True)
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    for reason, count in left_out.items():
        print("left out, %d: %s" % (count, reason))
    print("memcheck: %d tests in %d processes, %d errors, %d bytes leaked, %d descriptors left open, %d processes with "
          "something to tell; %.0f s of processor" % (
              sum(part.ran for part in done), len(done), sum(part.errors for part in done),
              sum(part.leaked for part in done), sum(part.descriptors for part in done),
              sum(bool(part.problems) for part in done), used.ru_utime + used.ru_stime))
    return 1 if not done or any(part.problems or part.errors or part.leaked for part in done) else 0


if __name__ == "__main__":
    sys.exit(main())
