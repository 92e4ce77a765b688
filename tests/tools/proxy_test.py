import os

from command_case import CommandCase, FAILED, NO, UNKNOWN_COOKIE, USAGE, main


class ProxyCase(CommandCase):
    def setUp(self):
        super().setUp()
        self.clip = self.import_clip()
        self.cookie = self.clip["cookie"]

    def add(self, *more, size=700, height=540):
        return self.json("proxy", "add", self.cookie, self.media_file("p.mov", size), "--height", str(height), *more)

    def proxies(self):
        return self.json("clip", self.cookie)["channels"][0]["proxies"]


class ProxyAdd(ProxyCase):
    def test_has_exactly_the_keys_that_scripts_know(self):
        answer = self.add("--channels", "2")
        self.assertEqual(answer, {"cookie": self.cookie, "file": self.clip["file"].replace(".mov", ".A2.proxy.540.mov"),
                                  "bytes": 700, "link": False, "height": 540, "channels": 2})

    def test_copies_the_file_and_is_found_again(self):
        answer = self.add()
        self.assertEqual(self.hash_of(answer["file"]), self.hash_of(self.path("p.mov")))
        self.assertEqual([p["file"] for p in self.proxies()], [answer["file"]])
        found = self.json("find", self.cookie, "--level", "auto", "--height", "540")
        self.assertEqual((found["kind"], found["file"]), ("proxy", answer["file"]))

    def test_goes_where_the_clip_is_unless_told_otherwise(self):
        self.add_location("other")
        self.assertTrue(self.add()["file"].startswith(self.path("location") + "/"))
        self.assertTrue(self.add("--location", "2", height=270)["file"].startswith(self.path("other") + "/"))

    def test_links_where_asked_to(self):
        answer = self.add("--link")
        self.assertIs(answer["link"], True)
        self.assertEqual(os.path.getsize(answer["file"]), 512)
        self.assertEqual(self.proxies()[0]["target"], self.path("p.mov"))

    def test_for_people_names_clip_size_and_file(self):
        text = self.run_command("proxy", "add", self.cookie, self.media_file("p.mov", 700), "--height", "540").text
        self.assertEqual(text.split()[0], self.cookie)
        self.assertTrue(text.rstrip().endswith(".A0.proxy.540.mov"))

    def test_the_same_proxy_twice_fails_and_keeps_the_first(self):
        first = self.add()
        self.refused("proxy", "add", self.cookie, self.media_file("q.mov", 900), "--height", "540", expect=FAILED,
                     message="exists already")
        self.assertEqual(os.path.getsize(first["file"]), 700)

    def test_unknown_clips_and_locations(self):
        file = self.media_file("p.mov")
        self.refused("proxy", "add", UNKNOWN_COOKIE, file, "--height", "540", expect=NO, message="no clip")
        self.refused("proxy", "add", self.cookie, file, "--height", "540", "--location", "9", expect=NO, message="9")
        self.refused("proxy", "add", self.cookie, self.path("none"), "--height", "540", expect=FAILED, message="none")

    def test_wrong_arguments(self):
        file = self.media_file("p.mov")
        self.refused("proxy", "add", self.cookie, file, expect=USAGE, message="--height")
        for option, values in (("--height", ("0", "-1", "x")), ("--channels", ("-1", "256", "x"))):
            for value in values:
                self.refused("proxy", "add", self.cookie, file, "--height", "540", option, value, expect=USAGE)


class ProxyRename(ProxyCase):
    def name(self, ending):
        return self.cookie + ending

    def test_renames_the_file_in_its_folder(self):
        old = self.add()["file"]
        answer = self.json("proxy", "rename", self.cookie, os.path.basename(old), self.name(".A2.proxy.270.mp4"))
        new = os.path.join(os.path.dirname(old), self.name(".A2.proxy.270.mp4"))
        self.assertEqual(answer, {"cookie": self.cookie, "old": old, "file": new, "height": 270, "channels": 2})
        self.assertEqual((os.path.exists(old), os.path.getsize(new)), (False, 700))
        self.assertEqual([(p["height"], p["channels"]) for p in self.proxies()], [(270, 2)])

    def test_takes_the_old_one_by_path_too(self):
        old = self.add()["file"]
        text = self.run_command("proxy", "rename", self.cookie, old, self.name(".A0.proxy.100.mov")).text
        self.assertEqual(text.rstrip(), os.path.join(os.path.dirname(old), self.name(".A0.proxy.100.mov")))

    def test_companions_follow(self):
        old = self.add()["file"]
        self.write(os.path.relpath(old, self.root) + ".lvix", b"index")
        new = self.json("proxy", "rename", self.cookie, old, self.name(".A0.proxy.100.mov"))["file"]
        self.assertEqual((os.path.exists(old + ".lvix"), os.path.exists(new + ".lvix")), (False, True))

    def test_a_name_that_is_no_proxy_of_the_clip_is_refused(self):
        old = self.add()["file"]
        for name, why in ((UNKNOWN_COOKIE + ".A0.proxy.540.mov", "cookie"), ("x.A0.proxy.540.mov", "cookie"),
                          (self.name(".mov"), "height"), (self.name(".A0.proxy.mov"), "height"),
                          (self.name(".A0.proxy.540.mov.partial"), "companion"), ("", "cookie"),
                          (self.name(".A0.proxy.540.lvix"), "companion"), ("../" + self.name(".A0.proxy.1.mov"), "folder")):
            with self.subTest(name=name):
                self.refused("proxy", "rename", self.cookie, old, name, expect=USAGE, message=why)
        self.assertTrue(os.path.exists(old))

    def test_never_replaces_a_file(self):
        old = self.add()["file"]
        other = self.add(size=900, height=270)["file"]
        self.refused("proxy", "rename", self.cookie, old, os.path.basename(other), expect=NO, message="exists")
        self.assertEqual((os.path.getsize(old), os.path.getsize(other)), (700, 900))

    def test_unknown_clips_and_proxies(self):
        self.add()
        self.refused("proxy", "rename", UNKNOWN_COOKIE, "a", "b", expect=NO, message="no clip")
        self.refused("proxy", "rename", self.cookie, "nothing.mov", self.name(".A0.proxy.1.mov"), expect=NO,
                     message="no proxy of")
        # The full-resolution file is no proxy.
        self.refused("proxy", "rename", self.cookie, self.clip["file"], self.name(".A0.proxy.1.mov"), expect=NO,
                     message="no proxy of")


class ProxyRm(ProxyCase):
    def test_deletes_the_one_proxy_and_its_companions(self):
        file = self.add()["file"]
        other = self.add(height=270)["file"]
        companion = self.write(os.path.relpath(file, self.root) + ".lvix", b"index")
        answer = self.json("proxy", "rm", self.cookie, os.path.basename(file))
        self.assertEqual(answer, {"cookie": self.cookie, "dry_run": False, "failed": [],
                                  "removed": [{"file": file, "kind": "media"}, {"file": companion, "kind": "companion"}]})
        self.assertEqual([os.path.exists(p) for p in (file, companion, other, self.clip["file"])],
                         [False, False, True, True])
        self.assertEqual([p["height"] for p in self.proxies()], [270])

    def test_takes_a_path_and_tells_people(self):
        file = self.add()["file"]
        self.assertIn(file, self.run_command("proxy", "rm", self.cookie, file).text)
        self.assertFalse(os.path.exists(file))

    def test_of_a_link_the_target_elsewhere_stays(self):
        file = self.add("--link")["file"]
        self.run_command("proxy", "rm", self.cookie, file)
        self.assertEqual((os.path.exists(file), os.path.exists(self.path("p.mov"))), (False, True))

    def test_unknown_clips_and_proxies(self):
        self.add()
        self.refused("proxy", "rm", UNKNOWN_COOKIE, "a", expect=NO, message="no clip")
        self.refused("proxy", "rm", self.cookie, "nothing.mov", expect=NO, message="no proxy of")
        self.refused("proxy", "rm", self.cookie, self.clip["file"], expect=NO, message="no proxy of")
        self.assertTrue(os.path.exists(self.clip["file"]))

    def test_the_full_resolution_file_under_another_name_stays(self):
        self.add_location("other")
        twin = self.path("other/Material", os.path.basename(self.clip["file"]))
        os.link(self.clip["file"], twin)
        # Of the two names the later one is the clip's file, the other one counts as its proxy.
        self.refused("proxy", "rm", self.cookie, self.clip["file"], expect=NO, message="under another name")
        self.assertEqual((os.path.exists(self.clip["file"]), os.path.exists(twin)), (True, True))

    def test_one_of_the_three_has_to_be_named(self):
        self.refused("proxy", expect=USAGE, message="required")
        self.refused("proxy", "rm", self.cookie, expect=USAGE, message="FILE")


if __name__ == "__main__":
    main()
