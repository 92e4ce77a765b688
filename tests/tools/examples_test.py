import os
import subprocess

from command_case import TIMEOUT_S, CommandCase, main

EXAMPLES = os.environ.get("FSYS_EXAMPLES", "examples")


class Examples(CommandCase):
    def run_example(self, name, *arguments):
        return subprocess.run([os.path.join(EXAMPLES, name), *arguments], env=self.environment, cwd=self.root,
                              capture_output=True, timeout=TIMEOUT_S)

    def test_record_a_clip_and_read_it(self):
        folder = self.location_folder()
        os.mkdir(self.space)
        recorded = self.run_example("record_clip", self.space, folder)
        self.assertEqual((recorded.returncode, recorded.stderr), (0, b""), recorded)
        file = recorded.stdout.decode().splitlines()[-1]
        with open(file, "rb") as media:
            self.assertEqual(media.read(), b"".join(bytes([number]) * 691200 for number in range(10)))
        cookie = os.path.basename(file).removesuffix(".raw")
        read = self.run_example("read_clip", self.space, cookie)
        self.assertEqual(read.returncode, 0, read)
        self.assertIn(b"00 " * 16, read.stdout)

    def test_a_location_that_is_not_there_fails(self):
        os.mkdir(self.space)
        self.assertEqual(self.run_example("record_clip", self.space, self.path("nowhere")).returncode, 1)


if __name__ == "__main__":
    main()
