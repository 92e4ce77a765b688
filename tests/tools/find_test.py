import os

from command_case import CommandCase, NO, UNKNOWN_COOKIE, main

FIND_KEYS = ["cookie", "file", "kind", "status"]


class Find(CommandCase):
    def clip_with_proxies(self):
        clip = self.import_clip()
        proxies = {}
        for height in (270, 540):
            file = self.media_file(f"media/{height}.mp4", size=1000 + height, seed=height)
            proxies[height] = self.import_file(file, "1", "--proxy-of", clip["cookie"], "--height", str(height))["file"]
        return clip, proxies

    def found(self, cookie, *arguments, **options):
        answer = self.json("find", cookie, *arguments, **options)
        self.assertEqual(list(answer), FIND_KEYS)
        return answer

    def test_full_resolution_is_what_is_found_unless_asked_otherwise(self):
        clip, _ = self.clip_with_proxies()
        expected = {"cookie": clip["cookie"], "file": clip["file"], "kind": "high", "status": "online"}
        self.assertEqual(self.found(clip["cookie"]), expected)
        self.assertEqual(self.found(clip["cookie"], "--level", "high"), expected)

    def test_proxy_finds_one_of_the_proxies(self):
        clip, proxies = self.clip_with_proxies()
        answer = self.found(clip["cookie"], "--level", "proxy")
        self.assertEqual((answer["kind"], answer["status"]), ("proxy", "online"))
        self.assertIn(answer["file"], proxies.values())

    def test_proxy_of_a_clip_without_any_is_full_resolution(self):
        clip = self.import_clip()
        answer = self.found(clip["cookie"], "--level", "proxy")
        self.assertEqual((answer["file"], answer["kind"]), (clip["file"], "high"))

    def test_auto_finds_a_proxy_that_is_tall_enough(self):
        clip, proxies = self.clip_with_proxies()
        for height in (1, 270):
            answer = self.found(clip["cookie"], "--level", "auto", "--height", str(height))
            self.assertEqual(answer["kind"], "proxy")
            self.assertIn(answer["file"], proxies.values())
        for height in (271, 540):
            answer = self.found(clip["cookie"], "--level", "auto", "--height", str(height))
            self.assertEqual((answer["file"], answer["kind"]), (proxies[540], "proxy"))

    def test_auto_finds_full_resolution_when_every_proxy_is_too_small(self):
        clip, _ = self.clip_with_proxies()
        answer = self.found(clip["cookie"], "--level", "auto", "--height", "541")
        self.assertEqual((answer["file"], answer["kind"]), (clip["file"], "high"))

    def test_auto_without_a_height_finds_full_resolution(self):
        clip, _ = self.clip_with_proxies()
        answer = self.found(clip["cookie"], "--level", "auto")
        self.assertEqual((answer["file"], answer["kind"]), (clip["file"], "high"))

    def test_a_proxy_stands_in_for_a_full_resolution_that_is_gone(self):
        clip, proxies = self.clip_with_proxies()
        os.unlink(clip["file"])
        answer = self.found(clip["cookie"])
        self.assertEqual((answer["kind"], answer["status"]), ("proxy", "online"))
        self.assertIn(answer["file"], proxies.values())

    def test_a_link_is_answered_with_its_target(self):
        self.add_location()
        file = self.media_file()
        cookie = self.import_file(file, "1", "--link")["cookie"]
        self.assertEqual(self.found(cookie), {"cookie": cookie, "file": file, "kind": "high", "status": "online"})

    def test_a_link_whose_target_is_gone_is_offline(self):
        self.add_location()
        file = self.media_file()
        cookie = self.import_file(file, "1", "--link")["cookie"]
        os.unlink(file)
        answer = self.found(cookie, expect=NO)
        self.assertEqual(answer["status"], "offline")
        self.refused("find", cookie, expect=NO, message="is offline")
        self.refused("read", cookie, expect=NO, message="offline")
        self.refused("play", cookie, "--fps", "25", "--frame-bytes", "1k", expect=NO, message="offline")

    def test_a_clip_that_comes_back_is_online_again(self):
        self.add_location()
        file = self.media_file()
        cookie = self.import_file(file, "1", "--link")["cookie"]
        os.rename(file, file + ".away")
        self.found(cookie, expect=NO)
        os.rename(file + ".away", file)
        self.assertEqual(self.found(cookie)["status"], "online")

    def test_an_unknown_clip_is_answered_with_no(self):
        self.assertEqual(self.found(UNKNOWN_COOKIE, expect=NO),
                         {"cookie": UNKNOWN_COOKIE, "file": "", "kind": "high", "status": "unknown"})
        self.refused("find", UNKNOWN_COOKIE, expect=NO, message="is unknown")

    def test_what_is_no_cookie_is_unknown(self):
        for text in ("nonsense", "", "V0123456789ABCDEF0", "X0123456789ABCDEF00", "V0123456789ABCDEG00"):
            with self.subTest(text=text):
                answer = self.found(text, expect=NO)
                self.assertEqual((answer["cookie"], answer["status"]), (text, "unknown"))

    def test_takes_lower_case_and_the_short_form(self):
        clip = self.import_clip()
        for text in (clip["cookie"].lower(), clip["cookie"][1:17], clip["cookie"][1:17].lower()):
            with self.subTest(text=text):
                answer = self.found(text)
                self.assertEqual((answer["cookie"], answer["file"]), (clip["cookie"], clip["file"]))

    def test_for_people_the_file_stands_alone_on_the_first_line(self):
        clip = self.import_clip()
        lines = self.run_command("find", clip["cookie"]).text.splitlines()
        self.assertEqual(lines, [clip["file"], "high, online"])


if __name__ == "__main__":
    main()
