"""What top tells of a disk of its own: run by with_file_system.sh, whose file system is $TMPDIR."""

import os
import subprocess

from command_case import CommandCase, main
from top_test import Running


class TopOnDisk(CommandCase):
    def test_rates_are_those_of_the_disk(self):
        self.add_location()
        top = Running(self)
        first = top.until(lambda line: line["read_mb_per_s"] is not None)
        self.assertRegex(first["disk"], r"^loop\d+$")
        self.assertIs(first["slow"], False)
        recorded = self.json("record", "--location", "1", "--rate", "20", "--seconds", "1.5")
        moved = {"time": first["time"], "write": 0, "minutes": []}

        def add(line):
            moved["write"] += line["write_mb_per_s"] * (line["time"] - moved["time"])
            moved["time"] = line["time"]
            moved["minutes"].append(line["minutes"])
            return moved["write"] >= 0.9 * recorded["bytes"] / 1e6

        top.until(add)
        self.assertLess(moved["write"], 2 * recorded["bytes"] / 1e6)
        # About 500 MB at no more than 40 MB/s.
        told = [minutes for minutes in moved["minutes"] if minutes is not None]
        self.assertNotEqual(told, [])
        self.assertGreaterEqual(min(told), 0)
        file = recorded["streams"][0]["file"]
        subprocess.run(["dd", f"if={file}", "of=/dev/null", "iflag=direct", "bs=1M", "status=none"], check=True)
        top.until(lambda line: line["read_mb_per_s"] > 1)
        self.assertEqual(self.json("location", "list")["locations"][0]["total_bytes"],
                         top.until(lambda line: True)["total_bytes"])

    def test_a_disk_that_is_taken_away_is_offline(self):
        self.space = os.path.join(os.path.dirname(os.environ["TMPDIR"]), "space")  # stays
        self.add_location()
        top = Running(self)
        top.until(lambda line: line["online"])
        subprocess.run(["umount", "-l", os.environ["TMPDIR"]], check=True)
        self.assertIsNone(top.until(lambda line: not line["online"])["free_bytes"])


if __name__ == "__main__":
    main()
