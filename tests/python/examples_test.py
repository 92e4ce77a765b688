import os
import re
import signal
import subprocess
import sys

from python_case import SOURCE, TIMEOUT_S, PythonCase, UNKNOWN_COOKIE, main


class Examples(PythonCase):
    def example(self, name):
        return os.path.join(SOURCE, "examples", "python", name)

    def test_record_and_measure(self):
        self.folder("a")
        done = self.run_script("", "space", "a", file=self.example("record_and_measure.py"))
        lines = done.stdout.splitlines()
        path, shown = lines[0].split()
        self.assertEqual(lines[1:], [f"frame {number}: {number * 20}" for number in range(10)])
        told = subprocess.run(["xxhsum", "-H2", path], capture_output=True, text=True, check=True).stdout
        self.assertEqual(told.split()[0], shown)
        self.run_script("", "space", "a", file=self.example("record_and_measure.py"))  # the location is there

    def test_offline_report(self):
        session, _ = self.open_with_location()
        session.add_location(self.folder("b"), "Raid B")
        self.clip_file(UNKNOWN_COOKIE, location="b", ending="mov")
        self.clip_file("V0123456789ABCDE000")
        target = self.write("far/shot.mov", self.noise(4000))
        self.write("a/Material/V0123456789ABCDE100.mov", target.encode().ljust(512, b"\0"))
        self.clip_file("V0123456789ABCDE100", ending="A0.proxy.540.mov")
        session.close()
        os.remove(target)
        done = self.run_script("", self.space, file=self.example("offline_report.py"))
        self.assertEqual(done.stdout.splitlines(), ["V0123456789ABCDE100  all offline, a proxy is there",
                                                    f"connect {self.path('far')}: brings back 1"])
        os.remove(self.path("a/Material/V0123456789ABCDE100.A0.proxy.540.mov"))
        os.rename(self.path("b"), self.path("away"))
        done = self.run_script("", self.space, file=self.example("offline_report.py"), expect=1)
        self.assertIn(f"not connected: {self.path('b')}/", done.stdout)

    def start_backup(self, *arguments):
        process = subprocess.Popen([sys.executable, self.example("back_up_new_clips.py"), self.space, "b", *arguments],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        self.assertEqual(process.stdout.readline(), "watching\n")
        return process

    def test_back_up_new_clips(self):
        session, _ = self.open_with_location()
        session.add_location(self.folder("b"))
        session.close()
        process = self.start_backup("1")
        path = self.clip_file(UNKNOWN_COOKIE, 3_000_000)
        out, err = process.communicate(timeout=TIMEOUT_S)
        self.assertEqual((process.returncode, err), (0, ""))
        self.assertRegex(out, re.escape(self.path("b", "Material")) + f"/{UNKNOWN_COOKIE}.mov  3000000 bytes, verified")
        self.assertEqual(self.bytes_of(path.replace("/a/", "/b/")), self.noise(3_000_000))

    def test_the_code_in_the_texts_runs(self):
        session, _ = self.open_with_location("raid")
        self.clip_file(UNKNOWN_COOKIE, location="raid", size=2_000_000)
        session.scan()
        session.remove_location("raid")
        session.close()
        for text, place in (("docs/python.md", "/projects/film"), ("README.md", "/home/me/project")):
            with open(os.path.join(SOURCE, text), encoding="utf-8") as file:
                blocks = re.findall("```python\n(.*?)```", file.read(), re.DOTALL)
            self.assertEqual(len(blocks), 1)
            self.assertIn(place, blocks[0])
            self.run_script(blocks[0].replace(place, self.space).replace("/media/raid", self.path("raid")))

    def test_an_interrupt_ends_it(self):
        session, _ = self.open_with_location()
        session.add_location(self.folder("b"))
        session.close()
        process = self.start_backup()
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=TIMEOUT_S)
        self.assertEqual((process.returncode, out, err), (0, "", ""))


if __name__ == "__main__":
    main()
