"""Installs the build into an empty prefix and uses it as somebody does who has nothing else of it."""

import os
import re

import installed
from installed import BUILD, CONSUMER, CXX, LIBRARIES, SOURCE, VERSION, files_below, is_elf


def includes(path):
    with open(path, encoding="utf-8") as file:
        return re.findall(r'^\s*#\s*include\s+"([^"]+)"', file.read(), re.MULTILINE)


def exports(path):
    with open(path, encoding="utf-8") as file:
        return re.search(r"^(?!#define).*\b[A-Z]+_API\b", file.read(), re.MULTILINE) is not None


class Install(installed.Case):
    def headers(self, prefix):
        root = os.path.join(prefix, "include", "fsys")
        return root, [name for name in files_below(root)]

    # --- programs of others

    def test_AProjectThatUsesCMakeBuildsAndRuns(self):
        prefix = self.install()
        built = self.folder("built")
        self.run_well("cmake", "-S", CONSUMER, "-B", built, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={prefix}",
                      f"-DCMAKE_CXX_COMPILER={CXX}", "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror")
        self.run_well("cmake", "--build", built)
        self.run_well(os.path.join(built, "consumer"), self.folder("media"))
        self.assertRegex(self.run_well(os.path.join(built, "cookie")), "^V[0-9A-F]{18}\n$")

    def test_AProgramThatUsesPkgConfigAloneBuildsAndRuns(self):
        prefix = self.install()
        # Of all that pkg-config knows on this machine only what was installed here is in sight.
        self.environment["PKG_CONFIG_LIBDIR"] = os.path.join(self.libraries_of(prefix), "pkgconfig")
        for program, package in ("consumer", "fsysmedia"), ("cookie", "qz"):
            flags = self.run_well("pkg-config", "--cflags", "--libs", package).split()
            libraries = self.run_well("pkg-config", "--variable=libdir", package).strip()
            binary = os.path.join(self.root, program)
            self.run_well(CXX, "-std=c++20", "-Wall", "-Wextra", "-Werror", os.path.join(CONSUMER, program + ".cpp"),
                          "-o", binary, *flags, f"-Wl,-rpath,{libraries}")
        self.run_well(os.path.join(self.root, "consumer"), self.folder("media"))
        self.assertRegex(self.run_well(os.path.join(self.root, "cookie")), "^V[0-9A-F]{18}\n$")

    def test_PkgConfigKnowsEachLibraryAndItsVersion(self):
        prefix = self.install("--component", "development")
        folder = os.path.join(self.libraries_of(prefix), "pkgconfig")
        self.environment["PKG_CONFIG_LIBDIR"] = folder
        for name in LIBRARIES:
            self.assertEqual(VERSION, self.run_well("pkg-config", "--modversion", name).strip())
            self.run_well("pkg-config", "--validate", name)

    def test_OnlyTheSameMajorVersionIsFound(self):
        prefix = self.install("--component", "development")
        version_file = os.path.join(self.libraries_of(prefix), "cmake", "fsys", "fsysConfigVersion.cmake")
        script = os.path.join(self.root, "ask.cmake")
        with open(script, "w", encoding="utf-8") as file:
            file.write('set(CMAKE_SIZEOF_VOID_P 8)\nset(PACKAGE_FIND_VERSION_MAJOR ${MAJOR})\n'
                       f'set(PACKAGE_FIND_VERSION ${{MAJOR}}.0)\ninclude("{version_file}")\n'
                       'message("${PACKAGE_VERSION} ${PACKAGE_VERSION_COMPATIBLE}")\n')
        major = int(VERSION.split(".")[0])
        for asked, answer in (major, "TRUE"), (major + 1, "FALSE"), (major - 1, "FALSE"):
            output = self.run_well("cmake", f"-DMAJOR={asked}", "-P", script)
            self.assertEqual(f"{VERSION} {answer}", output.strip(), asked)

    # --- what is installed

    def test_TheCommandFindsItsLibrariesFromWhereItLies(self):
        prefix = self.install()
        command = os.path.join(prefix, "bin", "fsys")
        self.assertIn("location", self.run_well(command, "--help"))
        used = self.run_well("ldd", command)
        for name in set(LIBRARIES) - {"fsysav"}:
            (place,) = re.findall(rf"lib{name}\.so\.\d+ => (\S+)", used)
            self.assertTrue(os.path.realpath(place).startswith(prefix + "/"), place)

    def test_TheTextsAreThereAndTheirLinksLeadToOthers(self):
        folder = os.path.join(self.install("--component", "development"), "share", "doc", "fsys")
        with open(os.path.join(folder, "README.md"), encoding="utf-8") as file:
            links = [link for link in re.findall(r"\]\(([^):#]+)", file.read()) if link.startswith("docs/")]
        self.assertGreater(len(links), 10)
        for link in links:
            self.assertTrue(os.path.isfile(os.path.join(folder, link)), link)
        self.assertTrue(os.path.isfile(os.path.join(folder, "docs", "images", "floors.svg")))

    def test_NoInstalledFileKnowsWhereItWasBuilt(self):
        prefix = self.install("--strip")
        looked_at = 0
        for name in files_below(prefix):
            path = os.path.join(prefix, name)
            with open(path, "rb") as file:
                content = file.read()
            for place in BUILD, SOURCE, os.path.join(self.root, "first"):
                self.assertNotIn(place.encode(), content, name)
            if is_elf(path) and not os.path.islink(path):
                looked_at += 1
                paths = re.findall(r"\((?:RUNPATH|RPATH)\).*\[(.*)\]", self.run_well("readelf", "-dW", path))
                self.assertEqual(1, len(paths), name)
                self.assertRegex(paths[0], r"^\$ORIGIN((/\.\.)+/lib(/[\w-]+)?)?$", name)
        self.assertGreaterEqual(looked_at, len(LIBRARIES) + 1)

    def test_LibrariesCarryTheirVersion(self):
        prefix = self.install()
        folder = self.libraries_of(prefix)
        major = VERSION.split(".")[0]
        for name in LIBRARIES:
            development = os.path.join(folder, f"lib{name}.so")
            self.assertEqual(f"lib{name}.so.{major}", os.readlink(development))
            self.assertEqual(f"lib{name}.so.{VERSION}", os.readlink(f"{development}.{major}"))
            self.assertIn(f"soname: [lib{name}.so.{major}]", self.run_well("readelf", "-dW", development))

    # --- headers

    def test_EveryHeaderFindsWhatItIncludes(self):
        root, headers = self.headers(self.install("--component", "development"))
        self.assertEqual(set(LIBRARIES.values()), {name.split("/")[0] for name in headers} & set(LIBRARIES.values()))
        for header in headers:
            for included in includes(os.path.join(root, header)):
                self.assertIn(included, headers, header)

    def test_AllHeadersTogetherCompileWithoutAWarning(self):
        root, headers = self.headers(self.install("--component", "development"))
        text = "".join(f'#include "{header}"\n' for header in headers if header.split("/")[0] in LIBRARIES.values())
        # Not as headers of the system, of which a compiler would keep the warnings to itself.
        self.run_well(CXX, "-std=c++20", "-fsyntax-only", "-I", root, "-Wall", "-Wextra", "-Wpedantic", "-Wshadow",
                      "-Wconversion", "-Wold-style-cast", "-Werror", "-x", "c++", "-", input=text)

    def test_HeadersThatExportSomethingArePublicAndNoneOfThePlatform(self):
        _, headers = self.headers(self.install("--component", "development"))
        exporting = set()
        for folder in LIBRARIES.values():
            for name in os.listdir(os.path.join(SOURCE, "ole", folder)):
                if name.endswith(".h") and exports(os.path.join(SOURCE, "ole", folder, name)):
                    exporting.add(f"{folder}/{name}")
        self.assertGreater(len(exporting), 30)
        self.assertEqual(set(), exporting - set(headers))
        self.assertEqual([], [name for name in headers if "linux" in name or "testing" in name])


if __name__ == "__main__":
    installed.main()
