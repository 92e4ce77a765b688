"""The reference of the public headers: nothing is undocumented, and the check says what is."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from xml.etree import ElementTree

SOURCE = os.environ.get("FSYS_SOURCE", ".")
DOXYFILE = os.environ.get("FSYS_DOXYFILE", "Doxyfile")
sys.path.insert(0, os.path.join(SOURCE, "scripts"))
from doc_comments import Header, code_of  # noqa: E402


def public_headers():
    with open(DOXYFILE, encoding="utf-8") as file:
        return re.search(r"^INPUT += (.*)$", file.read(), re.M).group(1).split()


def filtered(text):
    return Header("#pragma once\n\n" + text).run().split("\n", 2)[2]


class Api(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="fsys-api-")
        self.addCleanup(shutil.rmtree, self.folder)

    def doxygen(self, headers):
        """Makes the reference of headers, as XML, in a folder of this test; answers exit status and warnings."""
        with open(DOXYFILE, encoding="utf-8") as file:
            settings = file.read()
        settings += (f"\nINPUT = {' '.join(headers)}\nOUTPUT_DIRECTORY = {self.folder}\n"
                     "GENERATE_HTML = NO\nGENERATE_XML = YES\nXML_PROGRAMLISTING = NO\n")
        run = subprocess.run(["doxygen", "-"], input=settings.encode(), cwd=self.folder, stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, timeout=280)
        return run.returncode, run.stdout.decode()

    def undescribed_values(self):
        """Values of enumerations that nobody describes: Doxygen does not look at them."""
        names = []
        for place, _, files in os.walk(os.path.join(self.folder, "xml")):
            for name in files:
                if name.endswith(".xml"):
                    for member in ElementTree.parse(os.path.join(place, name)).iter("memberdef"):
                        names += [value.findtext("name") for value in member.iter("enumvalue")
                                  if member.get("prot") == "public"
                                  and not "".join(value.find("briefdescription").itertext()).strip()]
        return sorted(set(names))

    def changed(self, header, old, new):
        """A copy of a public header with one change."""
        with open(os.path.join(SOURCE, "ole", header), encoding="utf-8") as file:
            text = file.read()
        self.assertEqual(text.count(old), 1)
        path = os.path.join(self.folder, os.path.basename(header))
        with open(path, "w", encoding="utf-8") as file:
            file.write(text.replace(old, new))
        return path

    def test_every_public_declaration_is_documented(self):
        headers = public_headers()
        self.assertGreater(len(headers), 60)
        self.assertEqual(self.doxygen(headers), (0, ""))
        self.assertEqual(self.undescribed_values(), [])
        index = ElementTree.parse(os.path.join(self.folder, "xml", "index.xml"))
        found = {(compound.get("kind"), compound.findtext("name")) for compound in index.iter("compound")}
        for name in ("MediaReader", "MediaWriter", "DiskManager", "FsysFile", "iFileManager", "Cookie", "Qz::Ptr"):
            self.assertIn(("class", name), found)
        for header in headers:
            self.assertIn(("file", os.path.basename(header)), found)

    def test_an_undocumented_declaration_is_named(self):
        for header, old, new, name in (
                ("media/Recovery.h", "// Removes the file. An error leaves it",
                 "MEDIA_API void forgotten(int number);\n\n// Removes the file. An error leaves it", "forgotten"),
                ("media/MediaReader.h", "    // Why it is not open.", "    [[nodiscard]] bool forgotten() const;\n\n    // Why it is not open.",
                 "forgotten"),
                ("media/MediaReader.h", "    // Why it is not open.\n", "", "openError"),
                ("os/iFile.h", "// names that the file has; 0 once the last one was removed", "", "links"),
                ("os/BusyWait.h", "// What is set, in microseconds.\n", "", "busyWait"),
                ("Qz/QzDC.h", "    // receiver is borrowed and outlives every copy of the command.\n", "", "SmplCmd"),
                ("Qz/Vector.h", "    // True without elements.\n", "", "empty"),
                ("fsys/DriveId.h", "    // The identifier as a text of exactly one character.\n", "", "asString")):
            with self.subTest(header=header, name=name):
                status, warnings = self.doxygen([self.changed(header, old, new)])
                self.assertNotEqual(status, 0)
                self.assertRegex(warnings, rf"{os.path.basename(header)}:\d+: .*{name}.* is not documented")

    def test_an_undocumented_value_is_named(self):
        self.doxygen([self.changed("media/MediaError.h", "// the transfer did not end in time", "")])
        self.assertEqual(self.undescribed_values(), ["givenUp"])

    def test_a_wrong_comment_is_named(self):
        path = os.path.join(self.folder, "Wrong.h")
        with open(path, "w", encoding="utf-8") as file:
            file.write("/** \\file */\n/** \\nosuchcommand */\nvoid f();\n")
        status, warnings = self.doxygen([path])
        self.assertNotEqual(status, 0)
        self.assertIn("nosuchcommand", warnings)

    # --- the filter

    def test_the_filter_keeps_code_and_lines(self):
        for header in public_headers():
            with open(header, encoding="utf-8") as file:
                before = file.read().splitlines()
            after = Header("\n".join(before)).run().splitlines()
            self.assertEqual(len(before), len(after), header)
            for old, new in zip(before, after):
                code = code_of(re.sub(r"/\*\*.*?\*/ ?", "", new))[0].strip()
                if old.strip() != "#pragma once":
                    self.assertEqual(code, code_of(old)[0].strip(), header)

    def test_comments_describe_what_they_stand_at(self):
        for text, expected in (
                ("// One.\nint a();\nint b();\n", "/// One.\nint a();\nint b();\n"),
                ("// One.\nint a();\nint a(int);\n", "/// One.\nint a();\n/** One. */ int a(int);\n"),
                ("// Each one.\nint a();\nint b();\n\nint c();\n", "/// Each one.\nint a();\n/** Each one. */ int b();\n\nint c();\n"),
                ("int a();\n\n// Of nothing.\n\nint b();\n", "int a();\n/// \\file\n/// Of nothing.\n\nint b();\n"),
                ("enum E {\n    a,  // one\n    b,\n    c  // three\n};\n", "enum E {\n    a,  ///< one\n    b,\n    c  ///< three\n};\n"),
                ("struct S\n{\n    int a = 0;  // one\n                // and more\n    int b;\n};\n",
                 "struct S\n{\n    int a = 0;  ///< one\n                ///< and more\n    int b;\n};\n"),
                ("int f()\n{\n    // Inside.\n    return 1;  // inside\n}\n", "int f()\n{\n    // Inside.\n    return 1;  // inside\n}\n"),
                ("// Gives <a> & #b.\nint f();\n", "/// Gives \\<a\\> \\& \\#b.\nint f();\n"),
                ("// REQUIRES: one.\nint f();\n", "/// \\pre one.\nint f();\n"),
                ("// Threads:    any.\nclass C\n{\npublic:\n    ~C();\n};\n",
                 "/// <p><b>Threads:</b> any.\nclass C\n{\npublic:\n    /** Ends the object. */ ~C();\n};\n")):
            with self.subTest(text=text):
                self.assertEqual(filtered(text), expected)


if __name__ == "__main__":
    unittest.main(verbosity=2)
