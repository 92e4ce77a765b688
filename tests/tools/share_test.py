import os
import socket

from command_case import CommandCase, NO, USAGE, main

MACHINE = socket.gethostname().split(".")[0]


class Share(CommandCase):
    def setUp(self):
        super().setUp()
        os.mkdir(self.path("raid"))
        self.environment["FSYS_SMB_CONF"] = self.write(
            "smb.conf", f"[global]\nusershare path =\n[media]\npath = {self.path('raid')}\n".encode())
        self.unc = f"\\\\{MACHINE}\\media"

    def test_list_names_what_this_machine_exports(self):
        answer = self.json("share", "list")
        self.assertEqual(answer, {"machine": MACHINE, "shares": [{"unc": self.unc, "path": self.path("raid") + "/"}]})
        self.assertEqual(self.run_command("share", "list").text.split(), [self.unc, self.path("raid") + "/"])

    def test_list_is_empty_where_nothing_is_exported(self):
        self.environment["FSYS_SMB_CONF"] = self.write("none.conf", b"[global]\nusershare path =\n")
        self.assertEqual(self.json("share", "list")["shares"], [])
        self.assertEqual(self.run_command("share", "list").out, b"")

    def test_to_local(self):
        answer = self.json("share", "to-local", self.unc + "\\Material\\clip.mov")
        self.assertEqual(answer, {"unc": self.unc + "\\Material\\clip.mov",
                                  "path": self.path("raid/Material/clip.mov")})
        self.assertEqual(self.run_command("share", "to-local", self.unc.upper() + "\\x").text,
                         self.path("raid/x") + "\n")

    def test_to_local_of_the_share_itself(self):
        self.assertEqual(self.json("share", "to-local", self.unc)["path"], self.path("raid") + "/")

    def test_to_local_takes_slashes_for_the_sake_of_shells(self):
        self.assertEqual(self.json("share", "to-local", f"//{MACHINE}/media/a/b")["path"], self.path("raid/a/b"))

    def test_to_local_of_another_share_is_answered_with_no(self):
        for unc in (f"\\\\{MACHINE}\\media2\\x", "\\\\elsewhere\\media\\x", "/local/path", ""):
            self.refused("share", "to-local", unc, expect=NO, message="no share of this machine")

    def test_to_unc(self):
        answer = self.json("share", "to-unc", self.path("raid/Material/clip.mov"))
        self.assertEqual(answer, {"unc": self.unc + "\\Material\\clip.mov", "path": self.path("raid/Material/clip.mov")})
        self.assertEqual(self.run_command("share", "to-unc", "raid/x").text, self.unc + "\\x\n")

    def test_to_unc_of_a_path_without_one_is_answered_with_no(self):
        self.refused("share", "to-unc", self.path("media"), expect=NO, message="no network name")

    def test_both_ways_meet(self):
        unc = self.json("share", "to-unc", self.path("raid/a b/ü.mov"))["unc"]
        self.assertEqual(self.json("share", "to-local", unc)["path"], self.path("raid/a b/ü.mov"))

    def test_wrong_arguments(self):
        self.refused("share", expect=USAGE, message="required")
        self.refused("share", "to-local", expect=USAGE, message="UNC")
        self.refused("share", "to-unc", expect=USAGE, message="PATH")

    def test_makes_no_project_space(self):
        self.run_command("share", "list")
        self.assertFalse(os.path.exists(self.space))


if __name__ == "__main__":
    main()
