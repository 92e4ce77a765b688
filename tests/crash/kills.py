#!/usr/bin/env python3
"""Kills workers at random moments (kill -9), thousands of times, and looks at what is left after a restart.

    kills.py --worker crash_worker --command fsys [--kills 150] [--kind save|locations|record|all] [--folder DIR]

Of "all" each kind gets a third. --each-call kills at each system call of the worker's main thread instead, from its
first step to its last, of --kills steps. Works below --folder, the folder for temporary files unless given. Prints the seed;
--seed repeats the moments, as far as the machine does.
"""

import argparse
import collections
import contextlib
import functools
import json
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from power_loss import preference, small_file
TIMEOUT_S = 120


class Wrong(Exception):
    pass


def expect(truth, text):
    if not truth:
        raise Wrong(text)


class Victim:
    """One run of a worker that is killed."""

    def __init__(self, command, environment, at_call=None):
        if at_call:
            command = ["strace", "-qq", "-o", "/dev/null", "-e", "inject=%s:signal=SIGKILL:when=%d" % at_call, *command]
        # Without buffers: what readline takes too much would be missing at the end.
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment,
                                        bufsize=0)

    def run_for(self, seconds):
        """Answers what it said, line by line, once it is dead."""
        first = self.process.stdout.readline()
        if first == b"ready\n":
            with contextlib.suppress(subprocess.TimeoutExpired):
                self.process.wait(timeout=seconds)
        self.process.kill()
        out, err = self.process.communicate(timeout=TIMEOUT_S)
        expect(self.process.returncode == -signal.SIGKILL and err == b"", "the worker failed by itself: %r %r" % (
            first, err))
        return [line.split(" ") for line in out.decode().splitlines()]

    def run_to_its_end(self):
        out, err = self.process.communicate(timeout=TIMEOUT_S)
        expect(self.process.returncode in (0, -signal.SIGKILL) and err == b"", "the worker failed by itself: %r" % err)
        return [line.split(" ") for line in out.decode().splitlines() if line != "ready"]


def calls_of(command, environment):
    """The system calls of the main thread from where it is ready: of each its name, and how many of that name there
    have been."""
    with tempfile.NamedTemporaryFile() as trace:
        subprocess.run(["strace", "-qq", "-o", trace.name, *command], env=environment, check=True,
                       stdout=subprocess.DEVNULL)
        lines = trace.read().decode(errors="replace").splitlines()
    counts, calls, is_ready = collections.Counter(), [], False
    for line in lines:
        name = line.split("(")[0]
        counts[name] += 1
        is_ready = is_ready or (name == "write" and "ready" in line)
        if is_ready and name.isidentifier() and name != "exit_group":
            calls.append((name, counts[name]))
    return calls


class Kind:
    def __init__(self, arguments, root):
        self.arguments, self.root = arguments, root
        self.space = root + "/space"
        os.makedirs(root + "/home")
        os.makedirs(self.space)
        self.environment = {**os.environ, "HOME": root + "/home", "FSYS_LOG": root + "/log",
                            "FSYS_PREFS": root + "/preferences"}
        self.counts = collections.Counter()
        self.left = set()  # temporary files that were counted

    def strike(self, number, seconds):
        self.judge(Victim(self.victim(number), self.environment).run_for(seconds))

    def strike_at(self, number, call, steps):
        environment = {**self.environment, "CRASH_COUNT": str(steps)}
        victim = Victim(self.victim(number), environment, call)
        lines = victim.run_to_its_end()
        # What the last death left may have made this run shorter.
        self.counts["died"] += victim.process.returncode != 0
        self.judge(lines)

    def judge(self, lines):
        self.counts["steps"] += sum(line[0] == "end" for line in lines)
        self.counts["inside a step"] += bool(lines) and lines[-1][0] != "end"
        self.check(lines)

    def command(self, *arguments):
        done = subprocess.run([self.arguments.command, "--json", "--space", self.space, "--no-discovery", *arguments],
                              env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=TIMEOUT_S, check=False)
        expect(done.returncode == 0 and done.stderr == b"", "fsys %s: %d %r" % (
            " ".join(arguments), done.returncode, done.stderr))
        return [json.loads(line) for line in done.stdout.decode().splitlines()]

    def sweep(self, folder):
        """What a save that was killed leaves beside the file: one temporary file, which the next save removes."""
        for entry in os.scandir(folder):
            if not entry.name.startswith(".") or not entry.name.endswith(".tmp"):
                continue
            expect(entry.name.endswith(".fsys-save0.tmp"), "%s stayed beside another" % entry.name)
            if (entry.name, entry.inode()) not in self.left:
                self.left.add((entry.name, entry.inode()))
                self.counts["temporary files left"] += 1


class Saves(Kind):
    """Small files and preferences: the last version whose saving had ended, or one that had begun since."""

    def __init__(self, arguments, root):
        super().__init__(arguments, root)
        self.files = {"list": (root + "/list.txt", small_file, 0), "preference": (root + "/preferences", preference, 0)}
        for path, contents, version in self.files.values():
            with open(path, "wb") as file:
                file.write(contents(version))

    def victim(self, number):
        return [self.arguments.worker, "save", self.root, self.arguments.way, str(number * 1000 + 1)]

    def check(self, lines):
        for kind, (path, contents, version) in list(self.files.items()):
            ended = [int(line[2]) for line in lines if line[0] == "end" and line[1] == kind]
            begun = [int(line[2]) for line in lines if line[0] == "begin" and line[1] == kind]
            oldest = ended[-1] if ended else version
            allowed = {contents(v): v for v in [oldest] + [v for v in begun if v > oldest]}
            with open(path, "rb") as file:
                found = file.read()
            expect(found in allowed, "%s: %d bytes, %r..., not a version of %s" % (
                path, len(found), found[:40], sorted(allowed.values())))
            self.files[kind] = (path, contents, allowed[found])
        for line in lines:
            if line[1:2] == ["new"]:
                self.check_new(int(line[2]), line[0] == "end")
        self.sweep(self.root)

    def check_new(self, version, ended):
        path = self.root + "/new-%d.txt" % version
        if ended or os.path.exists(path):
            with open(path, "rb") as file:
                expect(file.read() == small_file(version), path + " is not whole")
        if ended:
            os.unlink(path)


class Locations(Kind):
    """The list of locations, and the name of one."""

    def __init__(self, arguments, root):
        super().__init__(arguments, root)
        self.name = None
        self.guest = False

    def victim(self, number):
        return [self.arguments.worker, "locations", self.space, self.root, str(number * 10000)]

    def check(self, lines):
        found = {os.path.basename(item["path"].rstrip("/")): item["name"]
                 for item in self.command("location", "list")[0]["locations"]}
        names = self.allowed("name", lines, self.name)
        expect(found.get("named") in names, "the location is called %r, not one of %s" % (found.get("named"), names))
        self.name = found["named"]
        guests = self.allowed("guest", lines, str(int(self.guest)))
        expect(str(int("guest" in found)) in guests, "the second location is there or not, wrongly: %s" % found)
        self.guest = "guest" in found
        expect(set(found) <= {"named", "guest"}, "foreign locations: %s" % found)
        for folder in (self.space, self.root + "/named/Material"):
            self.sweep(folder)

    def allowed(self, kind, lines, before):
        """What was last finished, and what was begun since."""
        of_kind = [(line[0], " ".join(line[2:])) for line in lines if line[1:2] == [kind]]
        last = max((i for i, (event, _) in enumerate(of_kind) if event == "end"), default=-1)
        values = [of_kind[last][1] if last >= 0 else before]
        values += [value for event, value in of_kind[last + 1:] if event == "begin"]
        # Before the first name was given a location is called as its folder.
        return [value if value is not None else "named" for value in values]


class Recordings(Kind):
    """Finished recordings are whole; the others are found, and what was flushed of them is kept."""

    KEPT = 3  # clips of earlier runs that are looked at again and again

    def __init__(self, arguments, root):
        super().__init__(arguments, root)
        self.clips = {}  # finished: name -> (number, bytes)

    def victim(self, number):
        return [self.arguments.worker, "record", self.space, self.root, str(number * 1000)]

    def check(self, lines):
        begun = {line[2]: int(line[3]) for line in lines if line[0] == "begin"}
        flushed = {line[2]: int(line[3]) for line in lines if line[0] == "flushed"}
        for line in lines:
            if line[0] == "end":
                self.clips[line[2]] = (begun[line[2]], int(line[3]))
        self.check_finished()
        open_clips = set(begun) - set(self.clips)
        self.check_unfinished(open_clips, begun, flushed)
        self.forget_some()

    def check_finished(self):
        found = self.look()
        for clip, (number, size) in self.clips.items():
            expect(found.get(clip + ".raw") == (number, size, size), "%s had %d bytes and is now %s" % (
                clip, size, found.get(clip + ".raw")))

    def check_unfinished(self, open_clips, begun, flushed):
        expect(len(open_clips) <= 1, "more than one clip at a time: %s" % open_clips)
        on_disk = {name for name in self.look() if name.endswith(".partial")}
        told = self.command("recover")
        expect({os.path.basename(item["file"]) for item in told} == on_disk,
               "fsys recover finds %s, on the disk are %s" % (told, on_disk))
        for item in told:
            expect(item["cookie"] in open_clips, "%s is not the one that was being recorded" % item["cookie"])
            expect(not item["in_use"], "%s counts as in use" % item["cookie"])
            expect(item["good_bytes"] >= flushed.get(item["cookie"], 0), "%s had more flushed" % item)
            self.counts["unfinished"] += 1
        empty = {item["cookie"] for item in told if item["good_bytes"] == 0}
        for clip in empty:
            self.command("recover", "--remove", clip + ".raw")
        if set(on_disk) - {clip + ".raw.partial" for clip in empty}:
            self.command("recover", "--finish", "--all")
        # One that died between its name and its last word is a finished one.
        found = self.look()
        for clip in open_clips - empty:
            state = found.get(clip + ".raw")
            expect(state is None or (state[0] == begun[clip] and state[1] == state[2] != 0),
                   "%s was finished with wrong bytes: %s" % (clip, state))
            expect(state is not None or clip not in flushed, "%s has gone" % clip)
            if state is not None:
                self.clips[clip] = (begun[clip], state[1])
        expect(not any(name.endswith(".partial") for name in found), "unfinished ones are left: %s" % found)
        known = {item["cookie"] for item in self.command("status")}
        expect(known == set(self.clips), "fsys status knows %s, recorded are %s" % (known, set(self.clips)))

    def look(self):
        files = self.files()
        if not files:
            return {}
        printed = subprocess.run([self.arguments.worker, "verify", *files], check=True, stdout=subprocess.PIPE).stdout
        found = {}
        for line in printed.decode().splitlines():
            number, size, good, path = line.split(" ", 3)
            found[os.path.basename(path)] = (int(number), int(size), int(good))
        return found

    def files(self):
        return [os.path.join(folder, name) for folder, _, names in os.walk(self.root) for name in names
                if ".raw" in name]

    def forget_some(self):
        for clip in list(self.clips)[:-self.KEPT]:
            del self.clips[clip]
        kept = {clip + ".raw" for clip in self.clips}
        for path in self.files():
            if os.path.basename(path) not in kept:
                os.unlink(path)
        self.forget_locations()

    def forget_locations(self):
        """Locations without clips go, so that there never are many."""
        for item in self.command("location", "list")[0]["locations"]:
            if not any(os.path.dirname(os.path.dirname(path)) == item["path"].rstrip("/") for path in self.files()):
                self.command("location", "remove", item["path"])
                shutil.rmtree(item["path"])


KINDS = {"save": Saves, "locations": Locations, "record": Recordings}
LONGEST_S = {"save": 0.1, "locations": 0.1, "record": 0.3}


def moments(kind, victim, arguments, kills, chance, folder):
    """Of all kills: what to call, and the moment in words."""
    if arguments.each_call:
        untouched = KINDS[kind](arguments, os.path.join(folder, kind + "-traced"))
        for call in calls_of(untouched.victim(0), {**untouched.environment, "CRASH_COUNT": str(kills)}):
            yield functools.partial(victim.strike_at, call=call, steps=kills), "at %s number %d" % call
    else:
        for _ in range(kills):
            seconds = chance.uniform(0, LONGEST_S[kind])
            yield functools.partial(victim.strike, seconds=seconds), "after %.4f s" % seconds


def kill(kind, kills, arguments, chance, folder):
    victim = KINDS[kind](arguments, os.path.join(folder, kind))
    broken, number, started = 0, 0, time.monotonic()
    for number, (strike, moment) in enumerate(moments(kind, victim, arguments, kills, chance, folder), start=1):
        try:
            strike(number)
        except Wrong as wrong:
            broken += 1
            print("  kill %d %s: %s" % (number, moment, wrong), file=sys.stderr)
            break  # what follows would be judged by a wrong story
    print("%s%s: %d kills, %d broken; %s; %.0f s" % (kind, " at each call" if arguments.each_call else "", number, broken,
        ", ".join("%s %d" % pair for pair in sorted(victim.counts.items())), time.monotonic() - started), flush=True)
    return broken


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--worker", required=True)
    parser.add_argument("--command", required=True)
    parser.add_argument("--kills", type=int, default=150)
    parser.add_argument("--kind", choices=sorted(KINDS) + ["all"], default="all")
    parser.add_argument("--way", choices=("product", "rename", "naive"), default="product", help="of saves")
    parser.add_argument("--each-call", action="store_true")
    parser.add_argument("--folder", help="on the file system to try")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--expect-broken", action="store_true", help="fail when nothing is broken")
    arguments = parser.parse_args()
    if arguments.each_call and not shutil.which("strace"):
        print("Skipped: strace is not installed")
        sys.exit(77)
    print("seed %d" % arguments.seed, flush=True)
    chance = random.Random(arguments.seed)
    kinds = sorted(KINDS) if arguments.kind == "all" else [arguments.kind]
    with tempfile.TemporaryDirectory(prefix="fsys-kills-", dir=arguments.folder) as folder:
        broken = sum(kill(kind, max(1, arguments.kills // len(kinds)), arguments, chance, os.path.realpath(folder))
                     for kind in kinds)
    sys.exit(int((broken == 0) == arguments.expect_broken))


if __name__ == "__main__":
    main()
