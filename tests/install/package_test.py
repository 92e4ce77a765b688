"""Builds the Debian packages of this build, and installs, uses and removes them.

The machine keeps nothing of that: the packages are installed into an overlay of its root, which holds what they
change and goes with its mount namespace.
"""

import os
import re
import shutil
import unittest

import installed
from installed import BUILD, CONSUMER, CXX, VERSION, attempt, files_below, is_elf

PACKAGES = os.path.join(BUILD, "packages")
MAJOR = VERSION.split(".")[0]
NAMES = os.environ["FSYS_PACKAGES"].split(":")


def packed_name(name):
    """Where a package has what is installed as name."""
    if "/man/" in name:
        return name + ".gz"
    return name.replace("/zsh/site-functions/", "/zsh/vendor-completions/")


def package(name):
    (found,) = [file for file in os.listdir(PACKAGES) if file.startswith(f"{name}_{VERSION}-") and file.endswith(".deb")]
    return os.path.join(PACKAGES, found)


class Package(installed.Case):
    def field(self, name, field):
        return self.run_well("dpkg-deb", "--field", package(name), field).strip()

    def unpacked(self, name):
        folder = self.folder(name)
        self.run_well("dpkg-deb", "--extract", package(name), folder)
        return folder

    def test_AllAreBuilt(self):
        shutil.rmtree(PACKAGES, ignore_errors=True)
        self.run_well("cpack", "-G", "DEB", "--config", os.path.join(BUILD, "CPackConfig.cmake"), "-B", PACKAGES)
        shutil.rmtree(os.path.join(PACKAGES, "_CPack_Packages"))
        self.assertEqual(len(NAMES), len([name for name in os.listdir(PACKAGES) if name.endswith(".deb")]))
        for name in NAMES:
            self.assertEqual(name, self.field(name, "Package"))
            self.assertTrue(self.field(name, "Version").startswith(VERSION + "-"))

    def test_TogetherTheyHoldAllThatIsInstalled(self):
        packed = set()
        for name in NAMES:
            files = set(files_below(self.unpacked(name)))
            self.assertEqual(set(), packed & files, "in two packages")
            packed |= files
        everything = {os.path.join("usr", packed_name(name)) for name in files_below(self.install())}
        self.assertEqual(set(), everything - packed)
        # Beyond that each package has its own texts.
        self.assertEqual([], [name for name in packed - everything if not re.match(r"usr/share/doc/[\w-]+/(copyright|changelog)", name)])

    def test_EachNeedsThePackagesOfTheLibrariesThatItUses(self):
        ours = set(os.listdir(os.path.join(BUILD, "ole")))
        for name in NAMES:
            if name == "libfsys-dev":
                continue  # holds no program; what it needs is looked at below
            folder = self.unpacked(name)
            depends = {re.split(r"[ (]", one)[0] for one in self.field(name, "Depends").split(", ")}
            needed = set()
            for file in files_below(folder):
                path = os.path.join(folder, file)
                if not os.path.islink(path) and is_elf(path):
                    needed |= set(re.findall(r"\(NEEDED\).*\[(.*)\]", self.run_well("readelf", "-dW", path)))
            self.assertGreater(len(needed), 2)
            for library in needed - {"ld-linux-x86-64.so.2"}:
                if library in ours:
                    self.assertTrue(name == f"libfsys{MAJOR}" or f"libfsys{MAJOR}" in depends, library)
                    continue
                owners = {line.split(":")[0] for line in attempt("dpkg-query", "--search", f"*/{library}").stdout.splitlines()}
                self.assertTrue(owners & depends, f"{name} uses {library} of {owners} and depends on {depends}")
        self.assertIn(f"libfsys{MAJOR} (>= {VERSION})", self.field("fsys-tools", "Depends"))
        for name in NAMES:
            if name.endswith(MAJOR):
                self.assertIn(f"{name} (= {self.field('libfsys-dev', 'Version')})", self.field("libfsys-dev", "Depends"))

    def test_FilesAreStrippedAndHoldNoPathOfLibraries(self):
        looked_at = 0
        for name in NAMES:
            folder = self.unpacked(name)
            for file in files_below(folder):
                path = os.path.join(folder, file)
                if not os.path.islink(path) and is_elf(path):
                    looked_at += 1
                    self.assertNotRegex(self.run_well("readelf", "-dW", path), "RUNPATH|RPATH", file)
                    self.assertNotIn(".debug_info", self.run_well("readelf", "-SW", path), file)
        self.assertGreaterEqual(looked_at, 6)

    def test_LintianFindsNoError(self):
        report = attempt("lintian", "--allow-root", "--fail-on", "error", *[package(name) for name in NAMES], env=self.environment)
        self.assertEqual(0, report.returncode, report.stdout)

    def test_TheyCanBeInstalledUsedAndRemoved(self):
        if os.geteuid() != 0:
            self.skipTest("needs root: it installs packages")
        script = os.path.join(os.path.dirname(__file__), "package_trial.sh")
        result = attempt("unshare", "--mount", "--propagation", "private", script, self.folder("trial"), CONSUMER, CXX,
                         *[package(name) for name in NAMES], env=self.environment)
        if result.returncode == 77:
            self.skipTest(result.stdout.strip().splitlines()[-1])
        self.assertEqual(0, result.returncode, result.stdout)


if __name__ == "__main__":
    installed.main()
