import os

from command_case import CommandCase, NO, UNKNOWN_COOKIE, USAGE, main

CLIP_KEYS = ["cookie", "offline", "proxy_online", "bytes", "primary_location", "linked_location", "channels"]
CHANNEL_KEYS = ["cookie", "kind", "channel", "high", "proxies"]
FILE_KEYS = ["file", "bytes", "link", "target", "target_exists", "location", "location_name", "status"]
PROXY_KEYS = FILE_KEYS + ["height", "channels"]


class Clip(CommandCase):
    def clip_with_sound(self):
        """Vision and sound of one clip, as a recorder leaves them: the same number, another type."""
        picture = self.import_clip()["cookie"]
        sound = "S" + picture[1:17] + "01"
        self.write(f"location/Sound/{sound}.wav", b"s" * 3000)
        return picture, sound

    def test_has_exactly_the_keys_that_scripts_know(self):
        cookie = self.import_clip()["cookie"]
        self.run_command("proxy", "add", cookie, self.media_file("p.mov", 700), "--height", "540")
        clip = self.json("clip", cookie)
        self.assertEqual(list(clip), CLIP_KEYS)
        self.assertEqual(list(clip["channels"][0]), CHANNEL_KEYS)
        self.assertEqual(list(clip["channels"][0]["high"]), FILE_KEYS)
        self.assertEqual(list(clip["channels"][0]["proxies"][0]), PROXY_KEYS)

    def test_tells_each_channel_vision_first(self):
        picture, sound = self.clip_with_sound()
        for asked in (picture, sound, picture[1:17]):
            clip = self.json("clip", asked)
            self.assertEqual([(c["cookie"], c["kind"], c["channel"]) for c in clip["channels"]],
                             [(picture, "vision", 0), (sound, "sound", 1)])
            self.assertEqual(clip["bytes"], 103_000)

    def test_a_gap_in_the_channels_hides_nothing(self):
        picture, _ = self.clip_with_sound()
        far = "S" + picture[1:17] + "07"
        self.write(f"location/Sound/{far}.wav", b"s" * 10)
        self.assertEqual([c["channel"] for c in self.json("clip", picture)["channels"]], [0, 1, 7])

    def test_tells_where_a_file_is(self):
        clip = self.import_clip()
        high = self.json("clip", clip["cookie"])["channels"][0]["high"]
        self.assertEqual(high, {"file": clip["file"], "bytes": 100_000, "link": False, "target": None,
                                "target_exists": None, "location": "1", "location_name": "location",
                                "status": "online"})

    def test_tells_what_a_link_points_at_and_whether_that_exists(self):
        self.add_location()
        file = self.media_file(size=12_345)
        cookie = self.import_file(file, "1", "--link")["cookie"]
        clip = self.json("clip", cookie)
        high = clip["channels"][0]["high"]
        self.assertEqual((high["link"], high["target"], high["target_exists"], high["bytes"], high["status"]),
                         (True, file, True, 12_345, "online"))
        self.assertEqual(clip["linked_location"], file)
        os.remove(file)
        clip = self.json("clip", cookie)
        high = clip["channels"][0]["high"]
        self.assertEqual((high["target"], high["target_exists"], high["bytes"], high["status"]),
                         (file, False, 0, "offline"))
        self.assertEqual(clip["offline"], "all")
        self.assertIn(f"{file} (missing)", self.run_command("clip", cookie).text)

    def test_tells_height_and_channels_of_proxies(self):
        cookie = self.import_clip()["cookie"]
        for height, channels in ((270, 0), (540, 2)):
            self.run_command("proxy", "add", cookie, self.media_file(f"{height}.mov", 1000 + height), "--height",
                             str(height), "--channels", str(channels))
        clip = self.json("clip", cookie)
        proxies = clip["channels"][0]["proxies"]
        self.assertEqual([(p["height"], p["channels"], p["bytes"], p["status"]) for p in proxies],
                         [(270, 0, 1270, "online"), (540, 2, 1540, "online")])
        self.assertIs(clip["proxy_online"], True)
        # The proxy with audio serves the sound channels, which have no files of their own.
        self.assertEqual([(c["kind"], c["channel"], c["high"], len(c["proxies"])) for c in clip["channels"][1:]],
                         [("sound", 1, None, 1), ("sound", 2, None, 1)])

    def test_a_second_full_resolution_file_is_a_proxy_without_height(self):
        clip = self.import_clip()
        self.add_location("other")
        self.write("other/Material/" + os.path.basename(clip["file"]), b"x" * 2000)
        proxies = self.json("clip", clip["cookie"])["channels"][0]["proxies"]
        self.assertEqual([(p["height"], p["channels"]) for p in proxies], [(None, 0)])

    def test_for_people_has_a_line_per_file(self):
        clip = self.import_clip()
        self.run_command("proxy", "add", clip["cookie"], self.media_file("p.mov", 700), "--height", "540")
        lines = self.run_command("clip", clip["cookie"]).text.splitlines()
        self.assertEqual(len(lines), 4)
        self.assertIn("offline: none", lines[0])
        self.assertIn("vision channel 0", lines[1])
        self.assertRegex(lines[2], r"full resolution +online +100\.0 kB +1 location +" + clip["file"])
        self.assertRegex(lines[3], r"proxy 540 lines +online +700 B")

    def test_an_unknown_clip_is_answered_with_no(self):
        self.import_clip()
        for cookie in (UNKNOWN_COOKIE, "nonsense", ""):
            self.refused("clip", cookie, expect=NO, message="no clip")
            self.refused("--json", "clip", cookie, expect=NO, message="no clip")

    def test_wants_exactly_one_cookie(self):
        self.refused("clip", expect=USAGE, message="COOKIE")
        self.refused("clip", "a", "surplus", expect=USAGE, message="surplus")


if __name__ == "__main__":
    main()
