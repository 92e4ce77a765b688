from command_case import UNKNOWN_COOKIE
from example_case import ExampleCase, main


class FindProxy(ExampleCase):
    def setUp(self):
        super().setUp()
        self.cookie = self.clip_of("prores.mov")
        self.movie = self.path("location", "Material", self.cookie + ".mov")
        self.proxy = self.path("location", "Material", self.cookie + ".A0.proxy.72.mov")

    def found(self, lines):
        return self.run_example("find_proxy", self.space, self.cookie, str(lines)).text.splitlines()

    def test_a_proxy_that_is_tall_enough_is_opened(self):
        self.add_proxy(self.cookie)
        line = f"proxy {self.proxy}, 72 lines, 0 audio channels"
        self.assertEqual(self.found(72), [line, f"open {self.proxy}"])
        self.assertEqual(self.found(73), [line, f"open {self.movie}"])

    def test_a_clip_without_proxies_is_opened_in_full(self):
        self.assertEqual(self.found(72), [f"open {self.movie}"])

    def test_what_is_no_clip_is_not_found(self):
        self.run_example("find_proxy", self.space, UNKNOWN_COOKIE, "72", expect=1)
        self.run_example("find_proxy", self.space, "shot", "72", expect=1)
        self.run_example("find_proxy", self.space, UNKNOWN_COOKIE, "tall", expect=2)


if __name__ == "__main__":
    main()
