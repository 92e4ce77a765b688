import os
import subprocess

from example_case import LOGGED, TIMEOUT_S, ExampleCase, main


class WatchLocations(ExampleCase):
    def expect_line(self, process, start, path):
        line = process.stdout.readline().decode()
        while line.startswith(LOGGED):
            line = process.stdout.readline().decode()
        self.assertTrue(line.startswith(f"{start} {path}/"), line)

    def expect_change(self, process, start, path):
        self.assertEqual(process.stdout.readline(), b"MediaOnlineChangeMsg\n")
        self.expect_line(process, start, path)

    def test_a_location_that_goes_and_comes_back_is_told_of(self):
        self.add_location()
        path, away = self.path("location"), self.path("away")
        process = self.start_example("watch_locations", self.space, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        try:
            self.expect_line(process, "online", path)
            os.rename(path, away)
            self.expect_change(process, "offline", path)
            os.rename(away, path)
            self.expect_change(process, "online", path)
            out, _ = process.communicate(timeout=TIMEOUT_S)
            self.assertEqual((process.returncode, out), (0, b""))
        finally:
            process.kill()


if __name__ == "__main__":
    main()
