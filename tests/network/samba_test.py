import os
import random
import socket
import subprocess

from network_case import LIMIT_S, NetworkCase, main

MACHINE = socket.gethostname().split(".")[0]


class Samba(NetworkCase):
    """Folders that this machine exports, told by its own files and reached through its own server."""

    def setUp(self):
        super().setUp()
        self.need("smbd", "net", "smbclient", "testparm")
        for folder in ("state", "usershares", "raid", "raid2", "user"):
            os.mkdir(self.path(folder))
            os.chmod(self.path(folder), 0o777)
        os.chmod(self.path("usershares"), 0o1770)
        os.chmod(self.root, 0o755)
        state = self.path("state")
        self.config = self.write("smb.conf", (
            f"[global]\ninterfaces = lo\nbind interfaces only = yes\ndisable netbios = yes\nsmb ports = 445\n"
            f"private dir = {state}\nlock directory = {state}\nstate directory = {state}\ncache directory = {state}\n"
            f"pid directory = {state}\nncalrpc dir = {state}/rpc\nlog file = {self.path('tmp/smbd.log')}\n"
            f"map to guest = bad user\nguest account = root\nload printers = no\nprinting = bsd\n"
            f"usershare path = {self.path('usershares')}\nusershare max shares = 10\nusershare allow guests = yes\n"
            f"usershare owner only = no\n"
            f"[media]\npath = {self.path('raid')}\nread only = no\nguest ok = yes\n"
            f"[Media Two]\npath = {self.path('raid2')}\nread only = no\nguest ok = yes\n").encode())
        self.environment["FSYS_SMB_CONF"] = self.config
        self.server("smbd", "-F", "--no-process-group", "-s", self.config, "--debug-stdout")
        self.wait_until(lambda: self.smb("media", "ls", check=False).returncode == 0, "no smbd")
        subprocess.run(["net", "-s", self.config, "usershare", "add", "Übung 1", self.path("user"), "", "S-1-1-0:F",
                        "guest_ok=y"], check=True, capture_output=True, timeout=LIMIT_S)

    def smb(self, share, command, check=True):
        result = subprocess.run(["smbclient", "-s", self.config, "-N", f"\\\\127.0.0.1\\{share}", "-c", command],
                                capture_output=True, timeout=LIMIT_S)
        if check:
            self.assertEqual(result.returncode, 0, result)
        return result

    def unc(self, share, *parts):
        return "\\".join([f"\\\\{MACHINE}\\{share}", *parts])

    def test_shares_of_both_kinds_are_found_longest_name_first(self):
        shares = self.json("share", "list")["shares"]
        self.assertEqual([(share["unc"], share["path"]) for share in shares],
                         [(self.unc("Media Two"), self.path("raid2") + "/"),
                          (self.unc("Übung 1"), self.path("user") + "/"),
                          (self.unc("media"), self.path("raid") + "/")])
        # As the server's own tools say.
        listed = subprocess.run(["smbclient", "-s", self.config, "-N", "-g", "-L", "127.0.0.1"], capture_output=True,
                                check=True, timeout=LIMIT_S).stdout.decode()
        for share in shares:
            self.assertIn("Disk|" + share["unc"].split("\\")[-1] + "|", listed)

    def test_what_comes_in_through_a_network_name_is_found_under_the_local_one(self):
        content = random.Random(5).randbytes(8 << 20)
        file = self.write("media/shot.mov", content)
        for share in ("MeDiA", "Media Two", "Übung 1"):
            with self.subTest(share=share):
                self.smb(share, f"mkdir Material; put {file} Material\\shot.mov")
                local = self.json("share", "to-local", self.unc(share, "Material", "shot.mov"))["path"]
                self.assertEqual(self.hash_of(local), self.hash_of(file))
                back = self.path("tmp/back.mov")
                self.smb(share, f"get Material\\shot.mov {back}")
                self.assertEqual(self.hash_of(back), self.hash_of(file))
                unc = self.json("share", "to-unc", local)["unc"]
                self.assertEqual(unc.upper(), self.unc(share, "Material", "shot.mov").upper())

    def test_a_location_with_a_network_name_is_reached_under_the_local_one(self):
        for share, folder in (("MEDIA", "raid"), ("media two", "raid2"), ("Übung 1", "user")):
            with self.subTest(share=share):
                answer = self.end_of(self.stream("share", self.unc(share)))
                self.assertEqual(answer["preferred"].rstrip("/"), self.path(folder))
                self.assertNotEqual(answer["plain"].rstrip("/"), self.path(folder))
        answer = self.end_of(self.stream("share", "\\\\elsewhere\\media"))
        self.assertEqual(answer["preferred"], answer["plain"])

    def test_stopped_servers_and_unreadable_files_leave_the_rest(self):
        self.write("usershares/broken", b"#VERSION 9\nnonsense")
        self.write("usershares/binary", bytes(range(256)) * 100)
        os.mkfifo(self.path("usershares/pipe"))
        for process in self.programs:
            process.kill()
            process.wait()
        self.assertEqual(len(self.json("share", "list")["shares"]), 3)


if __name__ == "__main__":
    main()
