import json
import os

from python_case import PythonCase, main

# A session with a clip and things that are open.
BEGIN = """
    import sys, os, threading, fsys
    session = fsys.open("space", discovery=False)
    os.makedirs("a", exist_ok=True)
    session.add_location("a")
    with session.record() as recording:
        recording.write(b"x" * 4_000_000)
    reader = session.reader(recording.cookie)
"""


class InterpreterExit(PythonCase):
    def ends(self, script, expect=0):
        done = self.run_script(BEGIN + script, expect=expect)
        self.assertNotIn("terminate", done.stderr)
        self.assertNotIn("Fatal", done.stderr)
        return done

    def test_with_everything_open(self):
        done = self.ends("""
    unfinished = session.record()
    unfinished.write(b"left behind")
    watch = session.watch(callback=print, interval=0.01)
    idle = session.watch()
    futures = [reader.read_async(at, 100_000) for at in range(0, 4_000_000, 100_000)]
    futures[-1].add_done_callback(lambda future: None)
    print("end")
""")
        self.assertEqual((done.stdout, done.stderr), ("end\n", ""))
        left, = self.open().unfinished()
        self.assertEqual((self.bytes_of(left.path), left.in_use), (b"left behind", False))

    def test_while_other_threads_read_record_and_watch(self):
        for _ in range(3):
            done = self.run_script("""
    import os, threading, fsys
    session = fsys.open("space", discovery=False)
    os.makedirs("a", exist_ok=True)
    if not session.locations():
        session.add_location("a")
    with session.record(low_space_bytes=0) as recording:
        recording.write(b"x" * 4_000_000)
    going = threading.Barrier(5)

    def forever(work):
        going.wait()
        try:
            while True:
                work()
        except (fsys.NotOpen, fsys.EngineNotRunning):
            pass

    reader = session.reader(recording.cookie)
    other = session.record_file("other")
    watch = session.watch(interval=0.001)
    for work in (lambda: reader.read(0, 1_000_000), lambda: other.write(b"y" * 1000), lambda: watch.next(1),
                 lambda: session.clips()):
        threading.Thread(target=forever, args=(work,), daemon=True).start()
    going.wait()
    reader.read(0, 100_000)
    print("end")
""")
            self.assertEqual((done.stdout, done.stderr), ("end\n", ""))
            for name in ("other", "other.partial"):
                if os.path.exists(self.path(name)):
                    os.remove(self.path(name))

    def test_by_an_exception(self):
        done = self.ends("""
    future = reader.read_async(0, 1000)
    raise KeyError("as usual")
""", expect=1)
        self.assertIn("KeyError", done.stderr)

    def test_in_a_callback_that_still_runs(self):
        done = self.ends("""
    import time
    inside = threading.Event()
    def slow(future):
        inside.set()
        while reader.is_open:
            time.sleep(0.01)
        print(len(session.locations()), "the engine waits for its callbacks", flush=True)
    reader.read_async(0, 1000).add_done_callback(slow)
    inside.wait()
    print("end", flush=True)
""")
        self.assertEqual(done.stdout, "end\n1 the engine waits for its callbacks\n")

    def test_without_a_session(self):
        self.assertEqual(self.run_script("import fsys; print(fsys.new_cookie()[0])").stdout, "V\n")

    def test_with_a_session_in_reach_of_other_exit_handlers(self):
        done = self.run_script("""
    import atexit
    @atexit.register
    def late():
        try:
            session.locations()
        except fsys.EngineNotRunning:
            print("not running")
    import fsys
    session = fsys.open("space", discovery=False)
""")
        self.assertEqual(done.stdout, "not running\n")

    def test_of_a_forked_child_leaves_the_parent_alone(self):
        done = self.ends("""
    recording = session.record()
    recording.write(b"z" * 3_000_000)
    child = os.fork()
    if child == 0:
        answers = []
        for call in (lambda: reader.read(0, 1), lambda: recording.write(b""), lambda: session.locations(),
                     lambda: fsys.open("other"), lambda: recording.finish(), lambda: session.watch()):
            try:
                call()
                answers.append("worked")
            except fsys.EngineNotRunning:
                answers.append("refused")
        del reader, recording
        session.close()
        print(answers, flush=True)
        os._exit(0)
    print(os.waitpid(child, 0)[1])
    recording.write(b"more")
    print(recording.finish().bytes, len(reader.read()))
""")
        self.assertEqual(done.stdout, f"{['refused'] * 6}\n0\n3000004 4000000\n")

    def test_of_workers_that_were_spawned(self):
        script = self.write("workers.py", b"""
import multiprocessing, sys, fsys
def look(space):
    with fsys.open(space, discovery=False) as session:
        return len(session.locations())
if __name__ == "__main__":
    with fsys.open("space", discovery=False) as session:
        session.add_location(".")
        with multiprocessing.get_context("spawn").Pool(2) as pool:
            print(pool.map(look, ["space", "space"]))
""")
        self.assertEqual(json.loads(self.run_script("", file=script).stdout), [1, 1])


if __name__ == "__main__":
    main()
