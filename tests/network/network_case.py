"""What the tests of locations on servers share: servers that end with the test, and streams beside them.

Each test runs in name spaces of its own (in_namespace.sh). Time limits here are far above what anything may
take and far below for ever; nothing else is judged by the clock.
"""

import json
import os
import select
import shutil
import signal
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools"))
from command_case import CommandCase, DONE, FAILED, NO, main  # noqa: E402,F401

STREAM = os.environ.get("NETWORK_STREAM", "network_stream")
LIMIT_S = 120


class NetworkCase(CommandCase):
    def setUp(self):
        super().setUp()
        self.programs = []
        self.mounts = []
        self.mount_memory(self.root)
        for folder in ("home", "tmp", "media", "local"):
            os.mkdir(self.path(folder))
        self.addCleanup(self.end_all)

    def need(self, *programs):
        missing = [program for program in programs if not shutil.which(program, path=os.environ["PATH"] + ":/usr/sbin")]
        if missing:
            print("skipped: not installed: " + " ".join(missing), file=sys.stderr)
            os._exit(77)

    def end_all(self):
        for process in reversed(self.programs):
            if process.poll() is None:
                process.send_signal(signal.SIGCONT)
                process.kill()
            process.wait()
            for pipe in (process.stdout, process.stderr):
                if pipe:
                    pipe.close()
        for point in reversed(self.mounts):
            subprocess.run(["umount", "-l", point], stderr=subprocess.DEVNULL)

    # --- mounts and processes of the test

    def mount_memory(self, point):
        os.makedirs(point, exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", point], check=True)
        self.mounts.append(point)

    def is_mounted(self, point):
        """By the table: a question would wait for the server."""
        with open("/proc/self/mountinfo", encoding="utf-8") as table:
            return any(line.split()[4] == point for line in table)

    def server(self, *line, **options):
        """A process that ends with the test, at the latest."""
        log = open(self.path("tmp", os.path.basename(line[0]) + f"-{len(self.programs)}.log"), "wb")
        with log:
            process = subprocess.Popen(line, stdin=subprocess.DEVNULL, stdout=log, stderr=log, **options)
        self.programs.append(process)
        return process

    def wait_until(self, condition, what, limit_s=LIMIT_S):
        end = time.monotonic() + limit_s
        while not condition():
            self.assertLess(time.monotonic(), end, f"{what}\n{self.logs()}")
            time.sleep(0.02)

    def logs(self):
        text = []
        for name in sorted(os.listdir(self.path("tmp"))):
            if name.endswith(".log"):
                with open(self.path("tmp", name), errors="replace", encoding="utf-8") as log:
                    text.append(f"--- {name}\n{log.read()[-2000:]}")
        return "\n".join(text)

    @staticmethod
    def processes(part, parent=None):
        """Ids of processes whose command line holds a text."""
        found = []
        for name in os.listdir("/proc"):
            if not name.isdigit() or int(name) == os.getpid():
                continue
            try:
                with open(f"/proc/{name}/cmdline", "rb") as file:
                    line = file.read().replace(b"\0", b" ").decode(errors="replace")
            except OSError:
                continue
            if part in line:
                found.append(int(name))
        return sorted(found)

    # --- streams

    def stream(self, *arguments):
        process = subprocess.Popen([STREAM, *map(str, arguments)], env=self.environment, cwd=self.root,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.programs.append(process)
        return process

    def end_of(self, process, limit_s=LIMIT_S):
        """What a stream answers; a test fails when it hangs."""
        try:
            out, err = process.communicate(timeout=limit_s)
        except subprocess.TimeoutExpired:
            with open(f"/proc/{process.pid}/stack", encoding="utf-8") as stack:
                self.fail(f"{process.args} hangs\n{stack.read()}\n{self.logs()}")
        self.assertEqual(process.returncode, 0, err)
        answer = json.loads(out.decode().splitlines()[-1])
        print(os.path.basename(process.args[1]), json.dumps(answer), file=sys.stderr)
        return answer

    def answer_of(self, process, limit_s=LIMIT_S):
        """The same for one that cannot end yet: the kernel closes its files, and waits for their server."""
        ready, _, _ = select.select([process.stdout], [], [], limit_s)
        self.assertTrue(ready, f"{process.args} hangs")
        answer = json.loads(process.stdout.readline())
        print(os.path.basename(process.args[1]), json.dumps(answer), file=sys.stderr)
        return answer

    def verified(self, file):
        return self.end_of(self.stream("verify", file))

    def grown(self, file, size):
        """True when a file holds so many bytes; of a folder below the servers, which never hangs."""
        try:
            return os.path.getsize(file) >= size
        except OSError:
            return False
