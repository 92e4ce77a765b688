"""Compares the interfaces of the built libraries with those that are recorded in abi/.

Found are: functions and variables that came, went or have another type; other sizes, places of fields, bases, virtual
functions and enumerators of the types in public headers. Not found are: other bodies of inline functions, other
values of constants and default arguments, templates and inline functions that no library has an instance of, and what is
inside of a type of the standard library.
"""

import os
import re
import unittest

import installed
from installed import BUILD, CXX, SOURCE, VERSION, attempt

RECORDED = os.path.join(SOURCE, "abi")
LIBRARIES = sorted(name[:-len(".so")] for name in os.listdir(os.path.join(BUILD, "ole")) if re.fullmatch(r"lib\w+\.so", name)) \
    if os.path.isdir(os.path.join(BUILD, "ole")) else []


def compare(before, after):
    """What changed, or None."""
    result = attempt("abidiff", "--no-show-locs", before, after)
    if result.returncode == 0:
        return None
    kept = re.findall("changes summary: 0 Removed, 0 Changed", result.stdout)
    what = "only more than there was" if len(kept) == 2 else "programs that were linked with it may break"
    return f"{what}:\n{result.stdout}"


def exported(library):
    lines = attempt("nm", "--dynamic", "--defined-only", "--demangle", "--with-symbol-versions", library).stdout.splitlines()
    return [line.split(" ", 2)[2] for line in lines if line.split()[1] != "A"]


# A small library, and what may happen to it: the name of the change, and what a report of it must name.
HEADER = """
enum class Level { low, high };
class Source
{
public:
    virtual ~Source() = default;
    virtual int read() = 0;
};
__attribute__((visibility("default"))) Source* source();
class __attribute__((visibility("default"))) Clip
{
public:
    virtual ~Clip();
    virtual int frames(int first) const;
    Level level() const;
    int channels();
    int length_ = 0;
};
"""
SOURCE_TEXT = """
#include "clip.h"
namespace {
class Disk : public Source
{
    int read() override { return 1; }
};
}
Source* source() { return new Disk; }
Clip::~Clip() {}
int Clip::frames(int first) const { return first; }
Level Clip::level() const { return Level::low; }
int Clip::channels() { return length_; }
"""
CHANGES = {
    "a function went": ("    int channels();\n", "", "int Clip::channels() { return length_; }\n", "", "Clip::channels"),
    "an argument became longer": ("frames(int first)", "frames(long first)", "frames(int first)", "frames(long first)", "frames"),
    "a field came": ("int length_ = 0;", "int start_ = 0; int length_ = 0;", "", "", "start_"),
    "a field became longer": ("int length_", "long length_", "", "", "length_"),
    "a virtual function came": ("    virtual int frames", "    virtual int first();\n    virtual int frames",
                                "Level Clip", "int Clip::first() { return 1; }\nLevel Clip", "Clip::first"),
    "a virtual function came to an interface": ("    virtual int read", "    virtual int seek() { return 0; }\n    virtual int read",
                                               "", "", "seek"),
    "an enumerator has another value": ("low, high", "low, middle, high", "", "", "middle"),
}


class Abi(installed.Case):
    def test_InterfacesAreThoseThatAreRecorded(self):
        now = os.path.join(self.root, "now")
        self.run_well(os.path.join(SOURCE, "scripts", "abi-update.sh"), "--into", now, BUILD)
        self.assertEqual(sorted(os.listdir(RECORDED)), sorted(os.listdir(now)))
        changes = []
        for name in sorted(os.listdir(now)):
            change = compare(os.path.join(RECORDED, name), os.path.join(now, name))
            if change:
                changes.append(f"{name}: {change}")
        if changes:
            self.fail("\n".join(changes + [
                "If this is meant: docs/releases.md says which version it takes; scripts/abi-update.sh records it."]))

    def test_TypesAreRecordedAndNotNamesAlone(self):
        for name, reached in (("libqz", "Cookie"), ("libfsysos", "iFile"), ("libfsysos", "iOperatingSystem"),
                              ("libfsys", "DiskManager"), ("libfsysmedia", "MediaReader")):
            with open(os.path.join(RECORDED, f"{name}.abi"), encoding="utf-8") as file:
                self.assertRegex(file.read(), rf"<class-decl name='{reached}'[^>]*size-in-bits=", name)

    def test_EverySymbolHasTheVersionOfTheInterface(self):
        self.assertGreaterEqual(len(LIBRARIES), 5)
        for name in LIBRARIES:
            names = exported(os.path.join(BUILD, "ole", f"{name}.so"))
            self.assertGreater(len(names), 0, name)
            version = f"@@FSYS_{VERSION.split('.')[0]}"
            self.assertEqual([], [symbol for symbol in names if not symbol.endswith(version)], name)

    def test_NothingOfTheStandardLibraryIsExported(self):
        standard = re.compile(r"(guard variable for |(typeinfo|typeinfo name|vtable|VTT) for )?(std|__gnu_cxx)::")
        for name in LIBRARIES:
            names = exported(os.path.join(BUILD, "ole", f"{name}.so"))
            self.assertEqual([], [symbol for symbol in names if standard.match(symbol)], name)

    def built(self, folder, header, source):
        """The record of the small library."""
        folder = self.folder(folder)
        for name, text in ("clip.h", header), ("clip.cpp", source):
            with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
                file.write(text)
        self.run_well(CXX, "-std=c++20", "-g", "-Og", "-fPIC", "-shared", "-fvisibility=hidden", "-Wl,-soname,libclip.so.1",
                      os.path.join(folder, "clip.cpp"), "-o", os.path.join(folder, "libclip.so"))
        record = os.path.join(folder, "libclip.abi")
        self.run_well(os.path.join(SOURCE, "scripts", "abi-dump.sh"), os.path.join(folder, "libclip.so"), folder, record, "--interfaces")
        return record

    def test_TheComparisonNamesWhatChanged(self):
        before = self.built("before", HEADER, SOURCE_TEXT)
        self.assertIsNone(compare(before, self.built("same", HEADER, SOURCE_TEXT)))
        for number, (what, (old, new, old_source, new_source, named)) in enumerate(CHANGES.items()):
            with self.subTest(what):
                self.assertIn(old, HEADER)
                after = self.built(f"after{number}", HEADER.replace(old, new), SOURCE_TEXT.replace(old_source, new_source))
                report = compare(before, after)
                self.assertIsNotNone(report)
                self.assertIn(named, report)
                self.assertTrue(report.startswith("programs that were linked"), report)
        more = self.built("more", HEADER.replace("int channels", "int tracks();\n    int channels"),
                          SOURCE_TEXT + "int Clip::tracks() { return 1; }\n")
        self.assertRegex(compare(before, more), "^only more than there was(.|\n)*Clip::tracks")


if __name__ == "__main__":
    installed.main()
