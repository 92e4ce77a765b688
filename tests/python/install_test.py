import os
import subprocess
import sys

from python_case import PythonCase, main


class Installed(PythonCase):
    def test_the_installed_package_works_without_the_build_folder(self):
        subprocess.run(["cmake", "--install", os.environ["FSYS_BUILD"], "--component", "python", "--prefix",
                        self.path("usr")], check=True, capture_output=True)
        environment = dict(os.environ, PYTHONPATH=self.path("usr/lib/python3/dist-packages"),
                           LD_LIBRARY_PATH=os.environ["FSYS_LIBRARIES"])
        script = "import fsys, sys; print(fsys.__file__)\nwith fsys.open(sys.argv[1], False) as s: print(s.locations())"
        done = subprocess.run([sys.executable, "-c", script, self.space], env=environment, capture_output=True, text=True)
        self.assertEqual((done.stdout, done.stderr),
                         (self.path("usr/lib/python3/dist-packages/fsys/__init__.py") + "\n[]\n", ""))
        for name in ("py.typed", "_native.pyi"):
            self.assertFalse(os.path.islink(self.path("usr/lib/python3/dist-packages/fsys", name)), name)


if __name__ == "__main__":
    main()
