"""The page in a browser without a window. Its profile lies in the folder of the test.

$FSYS_SCREENSHOTS names a folder for pictures of the page, for people to look at.
"""

import os

from serve_case import LIMIT_S, ServeCase, UNKNOWN_COOKIE, main, skip

HOSTILE = "<script>document.title='owned'</script><img src=x onerror=\"document.title='owned'\">"
PAINTED = """
const canvas = arguments[0], pixels = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;
const colours = new Set();
for (let i = 0; i < pixels.length; i += 4) if (pixels[i + 3] > 200) colours.add(pixels[i] + ',' + pixels[i + 1] + ',' + pixels[i + 2]);
return colours.size;
"""
LUMINANCE = """
const [r, g, b] = getComputedStyle(document.querySelector(arguments[0]))[arguments[1]].match(/[0-9.]+/g).map(Number);
return (0.2126 * r + 0.7152 * g + 0.0722 * b) / 255;
"""


class Browser(ServeCase):
    def setUp(self):
        super().setUp()
        try:
            from selenium import webdriver
            from selenium.webdriver.common.by import By
            from selenium.webdriver.support.ui import WebDriverWait
        except ImportError:
            skip("python3-selenium is missing")
        if not os.path.exists(os.environ["CHROMIUM"]) or not os.path.exists(os.environ["CHROMEDRIVER"]):
            skip("chromium or its driver is missing")
        self.webdriver, self.by, self.wait = webdriver, By, WebDriverWait

    def browse(self, server, width=1280, height=900, scheme="light"):
        options = self.webdriver.ChromeOptions()
        options.binary_location = os.environ["CHROMIUM"]
        for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
                         "--disable-background-networking", "--disable-component-update", "--disable-sync",
                         "--force-device-scale-factor=1", "--hide-scrollbars",
                         f"--window-size={width},{height}", "--user-data-dir=" + self.path("profile")):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        # Whatever the browser writes beside its profile stays in the test's folder as well.
        os.environ.update(HOME=self.path("home"), TMPDIR=self.path("tmp"))
        service = self.webdriver.chrome.service.Service(os.environ["CHROMEDRIVER"])
        driver = self.webdriver.Chrome(service=service, options=options)
        self.addCleanup(driver.quit)
        self.look(driver, width, height, scheme)
        driver.get(server.url)
        self.until(driver, lambda d: d.find_element(self.by.ID, "news").text == "live")
        return driver

    def look(self, driver, width, height, scheme):
        driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
        driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def until(self, driver, condition):
        return self.wait(driver, LIMIT_S, poll_frequency=0.1).until(condition)

    def card(self, driver, path):
        for card in driver.find_elements(self.by.CSS_SELECTOR, "#locations article"):
            if card.get_attribute("data-path") == path:
                return card
        return None

    def wait_for_card(self, driver, path, status):
        self.until(driver, lambda d: (card := self.card(d, path)) and card.get_attribute("data-status") == status)
        return self.card(driver, path)

    def picture(self, driver, name):
        if folder := os.environ.get("FSYS_SCREENSHOTS"):
            height = driver.execute_script("return document.documentElement.scrollHeight")
            width = driver.execute_script("return innerWidth")
            driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
            driver.save_screenshot(os.path.join(folder, name + ".png"))

    def complaints(self, driver):
        return [entry for entry in driver.get_log("browser") if entry["level"] in ("SEVERE", "WARNING")]

    def test_an_unplugged_location_goes_offline_and_comes_back(self):
        point = self.memory_disk("disk")
        self.add_location("disk", "--name", "Raid A")
        clip = self.import_file(self.media_file())
        driver = self.browse(self.serving())
        card = self.wait_for_card(driver, point, "online")
        self.assertEqual(card.find_element(self.by.TAG_NAME, "h3").text, "Raid A")
        self.assertRegex(card.text, r"(?s)online.*local.* free of .* left at 25\.0 MB/s")
        self.assertEqual(driver.find_element(self.by.ID, "no-clips").text, "Every clip can be reached.")
        self.assertEqual(os.system(f"umount {point}"), 0)
        card = self.wait_for_card(driver, point, "offline")
        self.assertIn("offline", card.find_element(self.by.CSS_SELECTOR, ".badge").text)
        self.assertNotIn("free of", card.text)
        row = self.until(driver, lambda d: d.find_elements(self.by.CSS_SELECTOR, f"#clips tr[data-cookie={clip['cookie']}]"))[0]
        self.assertIn(f"Raid A: {point}/Material/", row.text)
        self.memory_disk("disk")
        self.run_command("location", "prepare", "1")
        self.wait_for_card(driver, point, "online")
        self.assertEqual(self.complaints(driver), [])

    def test_names_are_shown_as_text(self):
        self.add_location("a", "--name", HOSTILE)
        folder = "b<img src=x onerror=alert(1)>"
        self.add_location(folder)
        self.write("a/Material/<b>bold<b>.partial", b"x")
        driver = self.browse(self.serving())
        card = self.wait_for_card(driver, self.path("a"), "online")
        self.assertEqual(card.find_element(self.by.TAG_NAME, "h3").text, HOSTILE)
        self.assertEqual(self.wait_for_card(driver, self.path(folder), "online").find_element(self.by.CLASS_NAME, "path").text,
                         self.path(folder))
        row = self.until(driver, lambda d: d.find_elements(self.by.CSS_SELECTOR, "#recordings tbody tr"))[0]
        self.assertIn("/<b>bold<b>.partial", row.text)
        self.assertEqual((driver.title, driver.find_elements(self.by.CSS_SELECTOR, "main img, main script, main b b")), ("fsys", []))
        # What would have been run, had it got into the page: the policy forbids it.
        self.assertIsNone(driver.execute_script("const s = document.createElement('script'); s.textContent = 'window.owned = 1';"
                                                "document.head.append(s); return window.owned"))

    def test_charts_are_drawn_and_go_on(self):
        if os.environ["FSYS_CHARTS"] != "ON":
            skip("this build has no charts")
        point = self.memory_disk("disk")
        self.add_location("disk", "--name", "Raid A")
        server = self.serving()
        driver = self.browse(server)
        card = self.wait_for_card(driver, point, "online")
        canvases = self.until(driver, lambda d: card.find_elements(self.by.TAG_NAME, "canvas"))
        self.assertEqual(len(canvases), 2)
        self.write("disk/ballast", b"x" * 20_000_000)
        self.until(driver, lambda d: "write 0 B/s" not in card.text and "write –" not in card.text and "write " in card.text)
        # Lines of the grid, figures, and the line of the chart.
        self.until(driver, lambda d: all(driver.execute_script(PAINTED, canvas) >= 3 for canvas in canvases))
        before = driver.execute_script("return arguments[0].toDataURL()", canvases[0])
        self.until(driver, lambda d: driver.execute_script("return arguments[0].toDataURL()", canvases[0]) != before)
        self.assertEqual(self.complaints(driver), [])

    def test_fits_every_window_in_light_and_dark(self):
        point = self.memory_disk("disk")
        self.add_location("disk", "--name", "Raid A")
        self.add_location("nas", "--name", "Archive with quite a long name for a location of one's own")
        self.add_location("gone", "--name", "Shuttle disk")
        for location in ("1", "3", "3"):
            self.import_file(self.media_file(), location)
        self.write("disk/Material/" + UNKNOWN_COOKIE + ".mov.partial", b"x" * 5_000_000)
        server = self.serving()
        server.wait_for(lambda state: state["clips"]["total"] == 3)
        os.rename(self.path("gone"), self.path("away"))
        server.wait_for(lambda state: state["clips"]["offline"] == 2)
        driver = self.browse(server)
        self.wait_for_card(driver, point, "online")
        self.until(driver, lambda d: d.find_elements(self.by.CSS_SELECTOR, "#clips tbody tr"))
        for scheme in ("light", "dark"):
            for width in (1280, 390):
                self.look(driver, width, 900, scheme)
                self.until(driver, lambda d: self.charts_fit(d))
                with self.subTest(scheme=scheme, width=width):
                    self.judge_layout(driver, width)
                    back, text = (driver.execute_script(LUMINANCE, "body", part) for part in ("backgroundColor", "color"))
                    self.assertGreater(abs(back - text), 0.6)
                    self.assertEqual(back > 0.5, scheme == "light")
                self.picture(driver, f"{scheme}-{width}")

    def charts_fit(self, driver):
        return driver.execute_script("return [...document.querySelectorAll('.u-wrap')].every("
                                     "(plot) => plot.getBoundingClientRect().right <= innerWidth)")

    def judge_layout(self, driver, width):
        self.assertEqual(driver.execute_script("return document.documentElement.scrollWidth"), width)
        boxes = [card.rect for card in driver.find_elements(self.by.CSS_SELECTOR, "#locations article")]
        self.assertEqual(len(boxes), 3)
        for index, box in enumerate(boxes):
            self.assertGreaterEqual(box["x"], 0)
            self.assertLessEqual(box["x"] + box["width"], width)
            for other in boxes[index + 1:]:
                apart = (box["x"] + box["width"] <= other["x"] or other["x"] + other["width"] <= box["x"] or
                         box["y"] + box["height"] <= other["y"])
                self.assertTrue(apart, boxes)
        self.assertEqual(len({box["y"] for box in boxes}) == 3, width < 600)  # one column on a phone

    def test_a_server_that_ends_is_told_of(self):
        self.add_location()
        server = self.serving()
        driver = self.browse(server)
        server.end()
        news = driver.find_element(self.by.ID, "news")
        self.until(driver, lambda d: news.text == "fsys serve does not answer")
        self.assertEqual(news.get_attribute("class"), "late")


if __name__ == "__main__":
    main()
